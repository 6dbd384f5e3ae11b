"""Recursive-descent parser for the ASN.1 subset of the H.225.0, H.245 and H.235 modules.

Grammar references are X.680 (types, constraints), X.682 (user-defined constraints,
CONSTRAINED BY), X.683 (parameterization) and X.681 (TYPE-IDENTIFIER.&Type).
"""

from . import ir
from .lexer import Asn1SyntaxError, tokenize

# X.680 41: the restricted character string types and the other string types we accept.
STRING_TYPES = ('IA5String', 'PrintableString', 'VisibleString', 'NumericString',
                'GeneralString', 'BMPString', 'ISO646String', 'UTF8String', 'GraphicString',
                'TeletexString', 'T61String', 'VideotexString', 'UniversalString')
SIMPLE_TYPES = ('INTEGER', 'BOOLEAN', 'NULL', 'GeneralizedTime', 'UTCTime', 'REAL',
                'ObjectDescriptor') + STRING_TYPES


class Parser:
    def __init__(self, text, file_name=''):
        self.tokens = tokenize(text)
        self.pos = 0
        self.file_name = file_name

    # -- token helpers ------------------------------------------------------------------------

    @property
    def tok(self):
        return self.tokens[self.pos]

    def peek(self, offset=1):
        return self.tokens[min(self.pos + offset, len(self.tokens) - 1)]

    def error(self, message):
        raise Asn1SyntaxError('%s:%d: %s (at %s)' % (self.file_name or '<text>', self.tok.line,
                                                     message, self.tok))

    def at(self, text):
        return self.tok.kind in ('sym', 'id') and self.tok.text == text

    def accept(self, text):
        if self.at(text):
            self.pos += 1
            return True
        return False

    def expect(self, text):
        if not self.accept(text):
            self.error('expected %r' % text)

    def identifier(self):
        if self.tok.kind != 'id':
            self.error('expected a name')
        self.pos += 1
        return self.tokens[self.pos - 1].text

    def number(self):
        negative = self.accept('-')
        if self.tok.kind != 'num':
            self.error('expected a number')
        self.pos += 1
        value = int(self.tokens[self.pos - 1].text)
        return -value if negative else value

    def skip_balanced(self, open_sym, close_sym):
        """Skips a bracketed group whose opening symbol is the current token."""
        self.expect(open_sym)
        depth = 1
        while depth:
            if self.tok.kind == 'eof':
                self.error('unbalanced %r' % open_sym)
            if self.at(open_sym):
                depth += 1
            elif self.at(close_sym):
                depth -= 1
            self.pos += 1

    # -- modules ------------------------------------------------------------------------------

    def parse_modules(self):
        modules = []
        while self.tok.kind != 'eof':
            modules.append(self.parse_module())
        return modules

    def parse_module(self):
        name = self.identifier()
        if self.at('{'):  # module object identifier, not needed here
            self.skip_balanced('{', '}')
        self.expect('DEFINITIONS')
        tag_default = 'EXPLICIT'
        for default in ('AUTOMATIC', 'IMPLICIT', 'EXPLICIT'):
            if self.accept(default):
                tag_default = default
                self.expect('TAGS')
                break
        implied = False
        if self.accept('EXTENSIBILITY'):
            self.expect('IMPLIED')
            implied = True
        self.expect('::=')
        self.expect('BEGIN')
        module = ir.Module(name=name, tag_default=tag_default, extensibility_implied=implied,
                           file_name=self.file_name)
        if self.accept('EXPORTS'):
            while not self.accept(';'):
                if self.tok.kind == 'eof':
                    self.error('unterminated EXPORTS')
                self.pos += 1
        if self.accept('IMPORTS'):
            module.imports = self.parse_imports()
        while not self.accept('END'):
            module.assignments.append(self.parse_assignment())
        return module

    def parse_imports(self):
        imports = []
        names = []
        while not self.accept(';'):
            if self.accept('FROM'):
                imports.append(ir.Import(names=names, module=self.identifier()))
                if self.at('{'):
                    self.skip_balanced('{', '}')
                names = []
                continue
            names.append(self.identifier())
            if self.at('{'):  # parameterized reference: SIGNED{}
                self.expect('{')
                self.expect('}')
            self.accept(',')
        if names:
            self.error('imported names without FROM')
        return imports

    def parse_assignment(self):
        line = self.tok.line
        name = self.identifier()
        if not name[0].isupper():
            self.error('value assignments are not supported (%s)' % name)
        parameters = []
        if self.accept('{'):
            while not self.accept('}'):
                parameters.append(self.identifier())
                self.accept(',')
        self.expect('::=')
        return ir.TypeAssignment(name=name, type=self.parse_type(), parameters=parameters,
                                 line=line)

    # -- types --------------------------------------------------------------------------------

    def parse_type(self):
        line = self.tok.line
        t = self.parse_type_without_constraint()
        t.line = line
        # X.680 49.1: serial constraints apply one after the other; the PER-visible parts merge.
        while self.at('('):
            t.constraint = (t.constraint or ir.Constraint()).merged(self.parse_constraint())
        return t

    def parse_type_without_constraint(self):
        word = self.tok.text if self.tok.kind == 'id' else None
        if word == 'SEQUENCE' or word == 'SET':
            self.pos += 1
            if self.at('{'):
                if word == 'SET':
                    self.error('SET is not supported')
                return self.parse_sequence_body()
            return self.parse_collection_of(word)
        if word == 'CHOICE':
            self.pos += 1
            return self.parse_choice_body()
        if word == 'ENUMERATED':
            self.pos += 1
            return self.parse_enumerated_body()
        if word == 'OCTET' or word == 'BIT':
            self.pos += 1
            self.expect('STRING')
            if word == 'BIT' and self.at('{'):
                self.error('named bits are not supported')
            return ir.BuiltinType(name=word + ' STRING')
        if word == 'OBJECT':
            self.pos += 1
            self.expect('IDENTIFIER')
            return ir.BuiltinType(name='OBJECT IDENTIFIER')
        if word == 'TYPE-IDENTIFIER':
            self.pos += 1
            self.expect('.&')
            if self.identifier() != 'Type':
                self.error('only TYPE-IDENTIFIER.&Type is supported')
            return ir.OpenType()
        if word in SIMPLE_TYPES:
            self.pos += 1
            if word == 'INTEGER' and self.at('{'):
                self.error('named numbers are not supported')
            return ir.BuiltinType(name=word)
        if word is not None and word[0].isupper():
            return self.parse_referenced_type()
        self.error('expected a type')

    def parse_referenced_type(self):
        name = self.identifier()
        module = None
        if self.at('.') and self.peek().kind == 'id':
            self.pos += 1
            module, name = name, self.identifier()
        actual = []
        if self.accept('{'):
            while not self.accept('}'):
                actual.append(self.parse_type())
                self.accept(',')
        return ir.ReferencedType(name=name, module=module, actual_parameters=actual)

    def parse_collection_of(self, kind):
        size = None
        if self.at('SIZE'):  # SEQUENCE SIZE (1..256) OF T
            size = self.parse_size_constraint()
        elif self.at('('):  # SEQUENCE (SIZE (1..512)) OF T
            size = self.parse_constraint().size
        self.expect('OF')
        element_name = None
        if self.tok.kind == 'id' and self.tok.text[0].islower():
            element_name = self.identifier()  # X.680 25.1: SEQUENCE OF NamedType
        element = self.parse_type()
        t = ir.SequenceOfType(element=element, kind=kind, element_name=element_name)
        if size is not None:
            t.constraint = ir.Constraint(size=size)
        return t

    def parse_component_list(self, allow_optional):
        """Parses '{ root , ... , extensions [, ... , root] }' into (root, extensions,
        extendable, root_after)."""
        self.expect('{')
        root, extensions, after = [], [], []
        ellipses = 0
        target = root
        if self.accept('}'):
            return root, extensions, False, after
        while True:
            if self.accept('...'):
                ellipses += 1
                if ellipses > 2:
                    self.error('more than two extension markers')
                if self.accept('!'):  # exception specification, no PER effect
                    self.parse_exception_specification()
                target = extensions if ellipses == 1 else after
            elif self.at('[['):
                if target is not extensions:
                    self.error('extension addition group outside the extensions')
                target.append(self.parse_extension_group(allow_optional))
            else:
                target.append(self.parse_component(allow_optional))
            if self.accept('}'):
                break
            self.expect(',')
        return root, extensions, ellipses > 0, after

    def parse_exception_specification(self):
        if self.tok.kind in ('num', 'id'):
            self.pos += 1
        elif self.at('-'):
            self.number()

    def parse_extension_group(self, allow_optional):
        self.expect('[[')
        version = None
        if self.tok.kind == 'num' and self.peek().text == ':':
            version = self.number()
            self.expect(':')
        components = []
        while True:
            components.append(self.parse_component(allow_optional))
            if self.accept(']]'):
                break
            self.expect(',')
        return ir.ExtensionGroup(components=components, version=version)

    def parse_component(self, allow_optional):
        line = self.tok.line
        if self.at('COMPONENTS'):
            self.error('COMPONENTS OF is not supported')
        name = self.identifier()
        if not name[0].islower():
            self.error('expected a component name')
        component = ir.Component(name=name, type=self.parse_type(), line=line)
        if allow_optional:
            if self.accept('OPTIONAL'):
                component.optional = True
            elif self.accept('DEFAULT'):
                component.has_default = True
                component.optional = True  # X.691 18.2: DEFAULT fields have a presence bit
                self.skip_value()
        return component

    def skip_value(self):
        if self.at('{'):
            self.skip_balanced('{', '}')
        elif self.at('-'):
            self.number()
        else:
            self.pos += 1

    def parse_sequence_body(self):
        root, extensions, extendable, after = self.parse_component_list(True)
        return ir.SequenceType(root=root, extensions=extensions, extendable=extendable,
                               root_after=after)

    def parse_choice_body(self):
        root, extensions, extendable, after = self.parse_component_list(False)
        if after:
            self.error('CHOICE with root alternatives after the extensions')
        flat = []
        for item in extensions:  # X.680 29.1: a group in a CHOICE just lists alternatives
            flat.extend(item.components if isinstance(item, ir.ExtensionGroup) else [item])
        return ir.ChoiceType(root=root, extensions=flat, extendable=extendable)

    def parse_enumerated_body(self):
        self.expect('{')
        root, extensions = [], []
        target = root
        extendable = False
        while True:
            if self.accept('...'):
                if extendable:
                    self.error('two extension markers in ENUMERATED')
                extendable = True
                if self.accept('!'):
                    self.parse_exception_specification()
                target = extensions
            else:
                name = self.identifier()
                value = None
                if self.accept('('):
                    value = self.number()
                    self.expect(')')
                target.append((name, value))
            if self.accept('}'):
                break
            self.expect(',')
        return ir.EnumeratedType(root=root, extensions=extensions, extendable=extendable)

    # -- constraints --------------------------------------------------------------------------

    def parse_constraint(self):
        """Parses one parenthesized constraint into its PER-visible parts.

        WITH COMPONENTS and CONSTRAINED BY are not PER-visible (X.691 9.3.18, 9.3.19 and
        X.682 9.1) and come back as an empty Constraint.
        """
        self.expect('(')
        result = ir.Constraint()
        if self.at('WITH') or self.at('CONSTRAINED'):
            self.pos -= 1
            self.skip_balanced('(', ')')
            return result
        while True:
            if self.at('SIZE'):
                result.size = self.parse_size_constraint()
            elif self.accept('FROM'):
                result.alphabet = self.parse_alphabet()
            elif self.tok.kind == 'num' or self.at('-') or self.at('MIN'):
                result.value = self.parse_value_range()
            elif self.tok.kind == 'id' and self.tok.text[0].isupper():
                result.contained = self.parse_type()  # TYPE-IDENTIFIER.&Type (T)
            elif self.at('('):
                result = result.merged(self.parse_constraint())
            else:
                self.error('unsupported constraint')
            if self.accept(')'):
                return result
            if self.accept(','):
                if self.accept('...'):
                    target = result.value if result.value is not None else result.size
                    if target is not None:
                        target.extendable = True
                    if self.at(','):  # additions after the marker are not PER-visible
                        self.pos -= 1
                        self.skip_to_close()
                        return result
                    self.expect(')')
                    return result
                self.error('unsupported constraint list')
            elif self.accept('^') or self.accept('INTERSECTION'):
                # X.680 46: an intersection of a size and an alphabet constraint is the pair of
                # them (X.691 9.3.10); both parts are kept.
                continue
            elif self.at('|') or self.at('UNION'):
                self.error('unions in constraints are not supported')
            else:
                self.error("expected ')'")

    def skip_to_close(self):
        depth = 1
        while depth:
            if self.tok.kind == 'eof':
                self.error("expected ')'")
            if self.at('('):
                depth += 1
            elif self.at(')'):
                depth -= 1
            self.pos += 1

    def parse_size_constraint(self):
        """SIZE (lo..hi [, ...]) or SIZE (n)."""
        self.expect('SIZE')
        self.expect('(')
        if self.at('('):
            inner = self.parse_size_constraint_inner_parenthesized()
        else:
            inner = self.parse_value_range()
        if self.accept(','):
            self.expect('...')
            inner.extendable = True
        self.expect(')')
        return inner

    def parse_size_constraint_inner_parenthesized(self):
        self.expect('(')
        inner = self.parse_value_range()
        self.expect(')')
        return inner

    def parse_value_range(self):
        lower = None if self.accept('MIN') else self.number()
        upper = lower
        if self.accept('..'):
            upper = None if self.accept('MAX') else self.number()
        return ir.ValueRange(lower=lower, upper=upper)

    def parse_alphabet(self):
        """FROM ("abc") or FROM ("a".."z"): the permitted characters, sorted and unique."""
        self.expect('(')
        chars = set()
        while True:
            if self.tok.kind != 'cstring':
                self.error('expected a character string')
            first = self.tok.text
            self.pos += 1
            if self.accept('..'):
                if self.tok.kind != 'cstring' or len(first) != 1 or len(self.tok.text) != 1:
                    self.error('a character range takes single characters')
                chars.update(chr(c) for c in range(ord(first), ord(self.tok.text) + 1))
                self.pos += 1
            else:
                chars.update(first)
            if self.accept(')'):
                break
            self.expect('|')
        return ''.join(sorted(chars))


def parse(text, file_name=''):
    """Parses every module in the text; returns a list of ir.Module."""
    return Parser(text, file_name).parse_modules()
