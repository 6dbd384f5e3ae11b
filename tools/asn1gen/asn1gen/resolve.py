"""Resolution: from parsed modules to the classes the C++ emitter writes.

Works out, for every type assignment and every inner type, the C++ class or template instance
that holds it; resolves references across modules and IMPORTS; instantiates parameterized
types (SIGNED{ToBeSigned} and friends become class templates); folds the PER-visible
constraints (X.691 9.3) of referenced types into the referencing ones; numbers the optional
fields (X.691 18: root OPTIONAL/DEFAULT fields first, then one index per extension addition);
and applies the project's pruning decisions.
"""

from dataclasses import dataclass, field
from typing import List, Optional

from . import ir


class ResolveError(Exception):
    pass


CPP_KEYWORDS = frozenset('''
alignas alignof and and_eq asm auto bitand bitor bool break case catch char char16_t char32_t
class compl const constexpr const_cast continue decltype default delete do double dynamic_cast
else enum explicit export extern false float for friend goto if inline int long mutable
namespace new noexcept not not_eq nullptr operator or or_eq private protected public register
reinterpret_cast return short signed sizeof static static_assert static_cast struct switch
template this thread_local throw true try typedef typeid typename union unsigned using virtual
void volatile wchar_t while xor xor_eq
'''.split())

# ConstraintType words of the runtime (values fixed by the descriptor layout).
UNCONSTRAINED, PARTIALLY_CONSTRAINED, FIXED_CONSTRAINT, EXTENDABLE_CONSTRAINT = 0, 1, 2, 3

# X.680 universal tag numbers, as stored in the descriptors' tag word.
TAGS = {
    'BOOLEAN': 1, 'INTEGER': 2, 'BIT STRING': 3, 'OCTET STRING': 4, 'NULL': 5,
    'OBJECT IDENTIFIER': 6, 'ENUMERATED': 10, 'SEQUENCE': 16, 'SEQUENCE OF': 16, 'SET OF': 17,
    'NumericString': 18, 'PrintableString': 19, 'IA5String': 22, 'GeneralizedTime': 24,
    'VisibleString': 26, 'GeneralString': 27, 'BMPString': 30, 'CHOICE': 0, 'OPEN': 0,
}

# Value-model class of each builtin type.
KIND_CLASS = {
    'BOOLEAN': 'ASN1::BOOLEAN', 'NULL': 'ASN1::Null', 'OBJECT IDENTIFIER': 'ASN1::OBJECT_IDENTIFIER',
    'INTEGER': 'ASN1::INTEGER', 'OCTET STRING': 'ASN1::OCTET_STRING',
    'BIT STRING': 'ASN1::BIT_STRING', 'GeneralizedTime': 'ASN1::GeneralizedTime',
    'IA5String': 'ASN1::IA5String', 'PrintableString': 'ASN1::PrintableString',
    'VisibleString': 'ASN1::VisibleString', 'NumericString': 'ASN1::NumericString',
    'GeneralString': 'ASN1::GeneralString', 'BMPString': 'ASN1::BMPString',
}

# X.680 41.4 / X.691 27.5: the characters of each known-multiplier string type in canonical
# order. GeneralString has no fixed set; it is carried as octets (8 bits a character).
CANONICAL_SETS = {
    'NumericString': ' 0123456789',
    'PrintableString': ''.join(sorted(" '()+,-./:=?" + '0123456789'
                                      + 'ABCDEFGHIJKLMNOPQRSTUVWXYZ'
                                      + 'abcdefghijklmnopqrstuvwxyz')),
    'VisibleString': ''.join(chr(c) for c in range(32, 127)),
    'IA5String': ''.join(chr(c) for c in range(0, 128)),
    'GeneralString': ''.join(chr(c) for c in range(0, 256)),
}
STRING_KINDS = frozenset(CANONICAL_SETS)


def cpp_identifier(name):
    """ASN.1 identifier -> C++ identifier: hyphens become underscores; a C++ keyword gets a
    trailing underscore."""
    result = name.replace('-', '_')
    return result + '_' if result in CPP_KEYWORDS else result


def bits_for(count):
    """Least b with 2**b >= count (X.691 10.5.7.1 range bits)."""
    b = 0
    while (1 << b) < count:
        b += 1
    return b


@dataclass
class CppType:
    """A type as spelled in C++ at the point of use."""
    spelling: str
    # Classes of the same module this spelling names (for definition order).
    deps: frozenset = frozenset()

    @property
    def info(self):
        return '&%s::theInfo' % self.spelling


@dataclass
class FieldDef:
    """A SEQUENCE component or CHOICE alternative."""
    name: str          # ASN.1 identifier as written (descriptor name text)
    cpp_name: str      # C++ identifier used in accessor names
    ctype: Optional[CppType]  # None for a pruned alternative
    optional: bool = False
    extension: bool = False
    position: int = 0   # index in fieldInfos / selectionInfos
    opt_index: int = -1  # optional-field bit index; -1 for a mandatory root field

    @property
    def has_presence(self):
        return self.opt_index >= 0


@dataclass
class ClassDef:
    name: str
    kind: str                  # 'SEQUENCE', 'CHOICE', 'ENUMERATED', 'SEQUENCE OF', 'SET OF',
                               # a builtin name, 'TYPEDEF'
    asn1_name: str             # type reference or 'Outer.field' path, for comments
    group: str = ''
    base: str = ''             # C++ base class (or the typedef target)
    deps: frozenset = frozenset()  # classes that must be complete before this one
    # SEQUENCE / CHOICE
    fields: List[FieldDef] = field(default_factory=list)
    num_root: int = 0
    num_optional: int = 0
    extendable: bool = False
    # ENUMERATED
    enum_names: List[str] = field(default_factory=list)
    max_enum: int = 0
    # constrained builtins
    constraint_type: int = UNCONSTRAINED
    lower: int = 0
    upper: int = 0
    charset: str = ''
    canonical_bits: int = 0
    unaligned_bits: int = 0
    aligned_bits: int = 0
    first_char: int = 0
    last_char: int = 0
    # SEQUENCE OF
    element: Optional[CppType] = None
    # class template (parameterized type)
    template_params: List[str] = field(default_factory=list)

    @property
    def tag(self):
        return TAGS[self.kind]


@dataclass
class ModuleModel:
    module: ir.Module
    namespace: str
    classes: List[ClassDef]
    imports_from: List[str]      # namespaces of the modules this one refers to


@dataclass
class _Flat:
    """A type with references to plain builtins followed and constraints merged."""
    node: ir.Type
    constraint: ir.Constraint


class Resolver:
    def __init__(self, modules, config):
        self.modules = {m.name: m for m in modules}
        self.config = config
        self.namespaces = {m.name: config.module(m.name).namespace for m in modules}

    # -- lookup -------------------------------------------------------------------------------

    def lookup(self, module, name, qualifier=None, seen=None):
        """Returns (module, TypeAssignment) defining `name` as seen from `module`."""
        if qualifier is not None:
            target = self.modules.get(qualifier)
            if target is None:
                raise ResolveError('unknown module %s' % qualifier)
            return self.lookup(target, name)
        assignment = module.find(name)
        if assignment is not None:
            return module, assignment
        source = module.imported_from(name)
        if source is None:
            raise ResolveError('%s: unresolved reference %s' % (module.name, name))
        target = self.modules.get(source)
        if target is None:
            raise ResolveError('%s: imports %s from unknown module %s'
                               % (module.name, name, source))
        seen = (seen or set()) | {(module.name, name)}
        if (target.name, name) in seen:
            raise ResolveError('circular import of %s' % name)
        return self.lookup(target, name, seen=seen)

    def flatten(self, module, t, params=()):
        """Follows references to a builtin or structured type, merging the PER-visible
        constraints on the way (the outermost constraint wins for each part, X.680 49.1)."""
        constraint = t.constraint or ir.Constraint()
        seen = set()
        while isinstance(t, ir.ReferencedType) and t.name not in params:
            home, assignment = self.lookup(module, t.name, t.module)
            if (home.name, assignment.name) in seen:
                raise ResolveError('%s refers to itself' % assignment.name)
            seen.add((home.name, assignment.name))
            if assignment.parameters:
                break
            module, t = home, assignment.type
            constraint = (t.constraint or ir.Constraint()).merged(constraint)
        return module, _Flat(node=t, constraint=constraint)

    # -- whole modules ------------------------------------------------------------------------

    def resolve_module(self, name):
        module = self.modules[name]
        mconfig = self.config.module(name)
        self.current = module
        self.mconfig = mconfig
        self.classes = []
        self.referenced_modules = set()
        self.pruned_seen = set()
        for assignment in module.assignments:
            self.resolve_assignment(assignment)
        for type_name in mconfig.prune:
            if type_name not in self.pruned_seen:
                raise ResolveError('prune: %s is not a CHOICE of %s' % (type_name, name))
        return ModuleModel(module=module, namespace=mconfig.namespace,
                           classes=self.order_classes(self.classes),
                           imports_from=[self.namespaces[m] for m in sorted(
                               self.referenced_modules)])

    def resolve_assignment(self, a):
        name = cpp_identifier(a.name)
        t = a.type
        if a.parameters:
            if not isinstance(t, ir.SequenceType):
                raise ResolveError('%s: only parameterized SEQUENCE types are supported' % a.name)
            cls = self.structured_class(name, a.name, t, params=tuple(a.parameters))
            cls.template_params = [cpp_identifier(p) for p in a.parameters]
            return
        if isinstance(t, (ir.SequenceType, ir.ChoiceType, ir.EnumeratedType)):
            self.structured_class(name, a.name, t)
            return
        if isinstance(t, ir.OpenType) or (isinstance(t, ir.ReferencedType) and (
                t.actual_parameters or not self.has_visible_constraint(t))):
            # Open types and plain aliases name an existing C++ type.
            target = self.field_type(name, t, (), a.name)
            self.add_class(ClassDef(name=name, kind='TYPEDEF', asn1_name=a.name,
                                    base=target.spelling, deps=target.deps))
            return
        self.builtin_class(name, a.name, t, ())

    @staticmethod
    def has_visible_constraint(t):
        c = t.constraint
        return c is not None and (c.value or c.size or c.alphabet) is not None

    def add_class(self, cls):
        cls.group = self.mconfig.group_of(cls.name)
        self.classes.append(cls)
        return cls

    # -- structured types ---------------------------------------------------------------------

    def structured_class(self, name, asn1_name, t, params=()):
        if isinstance(t, ir.EnumeratedType):
            return self.add_class(self.enumerated_class(name, asn1_name, t))
        cls = ClassDef(name=name, kind='SEQUENCE' if isinstance(t, ir.SequenceType) else 'CHOICE',
                       asn1_name=asn1_name, base='ASN1::' + (
                           'SEQUENCE' if isinstance(t, ir.SequenceType) else 'CHOICE'))
        self.add_class(cls)  # before the inner classes, which it uses only by reference
        cls.extendable = t.extendable or self.current.extensibility_implied
        if isinstance(t, ir.SequenceType):
            self.sequence_fields(cls, t, params)
        else:
            self.choice_alternatives(cls, t, params)
        return cls

    def sequence_fields(self, cls, t, params):
        if any(isinstance(e, ir.ExtensionGroup) for e in t.extensions):
            # X.691 19.9 encodes a group as one open type holding a SEQUENCE of its members; the
            # value model has no such node, and none of the modules uses a group.
            raise ResolveError('%s: extension addition groups are not supported' % cls.asn1_name)
        root = t.root + t.root_after
        opt = 0
        for position, c in enumerate(root):
            f = FieldDef(name=c.name, cpp_name=cpp_identifier(c.name),
                         ctype=self.component_type(cls.name, c, params), optional=c.optional,
                         position=position)
            if c.optional:
                f.opt_index = opt
                opt += 1
            cls.fields.append(f)
        cls.num_root = len(root)
        cls.num_optional = opt
        for k, c in enumerate(t.extensions):
            cls.fields.append(FieldDef(name=c.name, cpp_name=cpp_identifier(c.name),
                                       ctype=self.component_type(cls.name, c, params),
                                       optional=c.optional, extension=True,
                                       position=len(root) + k, opt_index=opt + k))
        self.check_unique(cls)

    def choice_alternatives(self, cls, t, params):
        pruned = set(self.mconfig.prune.get(cls.name, ()))
        if pruned:
            self.pruned_seen.add(cls.name)
        alternatives = t.root + t.extensions
        known = {c.name for c in alternatives}
        for name in sorted(pruned - known):
            raise ResolveError('prune: %s has no alternative %s' % (cls.name, name))
        for position, c in enumerate(alternatives):
            cut = c.name in pruned
            cls.fields.append(FieldDef(
                name='' if cut else c.name, cpp_name=cpp_identifier(c.name),
                ctype=None if cut else self.component_type(cls.name, c, params),
                extension=position >= len(t.root), position=position))
        cls.num_root = len(t.root)
        self.check_unique(cls)

    @staticmethod
    def check_unique(cls):
        names = [f.cpp_name for f in cls.fields]
        for n in names:
            if names.count(n) > 1:
                raise ResolveError('%s: component %s occurs twice' % (cls.asn1_name, n))

    def enumerated_class(self, name, asn1_name, t):
        names = []
        next_value = 0
        for enum_name, value in t.root + t.extensions:
            if value is None:
                value = next_value
            if value != len(names):
                # The codec writes the value itself as the enumeration index (X.691 13.2 uses
                # the sorted index), so only the dense form 0, 1, 2... is representable.
                raise ResolveError('%s: enumeration values must run 0, 1, 2...' % asn1_name)
            names.append(enum_name)
            next_value = value + 1
        return ClassDef(name=name, kind='ENUMERATED', asn1_name=asn1_name, base='ASN1::ENUMERATED',
                        extendable=t.extendable, enum_names=names, max_enum=len(t.root) - 1)

    # -- component and field types ------------------------------------------------------------

    def component_type(self, outer, c, params):
        return self.field_type(outer + '_' + cpp_identifier(c.name), c.type, params,
                               '%s.%s' % (outer, c.name))

    def field_type(self, inner_name, t, params, asn1_name):
        """The C++ type of a component; creates the inner class when one is needed."""
        if isinstance(t, ir.ReferencedType):
            if t.name in params:
                if t.constraint is not None and self.has_visible_constraint(t):
                    raise ResolveError('%s: constraint on a dummy parameter' % asn1_name)
                return CppType(cpp_identifier(t.name))
            if t.actual_parameters:
                home, assignment = self.lookup(self.current, t.name, t.module)
                if len(assignment.parameters) != len(t.actual_parameters):
                    raise ResolveError('%s: %s takes %d parameter(s)'
                                       % (asn1_name, t.name, len(assignment.parameters)))
                args = [self.field_type(inner_name, p, params, asn1_name)
                        for p in t.actual_parameters]
                spelling = '%s<%s>' % (self.qualified(home, assignment.name),
                                       ', '.join(a.spelling for a in args))
                deps = frozenset().union(*(a.deps for a in args))
                if home is self.current:
                    deps |= {cpp_identifier(assignment.name)}
                return CppType(spelling, deps)
            if not self.has_visible_constraint(t):
                home, assignment = self.lookup(self.current, t.name, t.module)
                return CppType(self.qualified(home, assignment.name),
                               frozenset([cpp_identifier(assignment.name)])
                               if home is self.current else frozenset())
            # A reference with a further constraint: a new type over the referenced builtin.
        home, flat = self.flatten(self.current, t, params)
        node = flat.node
        if isinstance(node, (ir.SequenceType, ir.ChoiceType, ir.EnumeratedType)):
            if home is not self.current:
                raise ResolveError('%s: constrained reference to a structured type in another '
                                   'module' % asn1_name)
            if node is not t:  # a constrained reference to a structured type: no PER effect
                return self.field_type(inner_name, ir.ReferencedType(name=t.name, module=t.module),
                                       params, asn1_name)
            self.structured_class(inner_name, asn1_name, node, params)
            return CppType(inner_name, frozenset([inner_name]))
        if isinstance(node, ir.SequenceOfType):
            element = self.field_type(inner_name + '_subtype', node.element, params,
                                      asn1_name + '.*')
            return CppType(self.sequence_of_spelling(node.kind, element, flat.constraint.size),
                           element.deps)
        if isinstance(node, ir.OpenType):
            contained = flat.constraint.contained
            if contained is None:
                return CppType('ASN1::OpenData')
            inner = self.field_type(inner_name, contained, params, asn1_name)
            return CppType('ASN1::Constrained_OpenData<%s>' % inner.spelling, inner.deps)
        if isinstance(node, ir.BuiltinType):
            if node.name in STRING_KINDS and flat.constraint.alphabet is not None:
                # A permitted alphabet needs its own descriptor: an inner class.
                self.builtin_class(inner_name, asn1_name, t, params)
                return CppType(inner_name, frozenset([inner_name]))
            return CppType(self.builtin_spelling(node.name, flat.constraint, asn1_name))
        raise ResolveError('%s: unsupported type' % asn1_name)

    def qualified(self, home, name):
        if home is self.current:
            return cpp_identifier(name)
        self.referenced_modules.add(home.name)
        return '::%s::%s' % (self.namespaces[home.name], cpp_identifier(name))

    def sequence_of_spelling(self, kind, element, size):
        template = 'ASN1::SEQUENCE_OF' if kind == 'SEQUENCE' else 'ASN1::SET_OF'
        return '%s<%s, %s>' % (template, element.spelling, self.size_spelling(size))

    def size_spelling(self, size):
        if size is None:
            return 'ASN1::EmptyConstraint'
        ctype, lower, upper = self.bounds(size)
        return 'ASN1::SizeConstraint<%du, %d, %du>' % (ctype, lower, upper)

    @staticmethod
    def bounds(vr):
        """(ConstraintType, lower, upper) of a value range; upper as an unsigned word."""
        if vr is None or vr.lower is None:  # no bounds, or MIN..x: written unconstrained
            return UNCONSTRAINED, 0, 0xFFFFFFFF
        if vr.upper is None:
            return PARTIALLY_CONSTRAINED, vr.lower, 0xFFFFFFFF
        kind = EXTENDABLE_CONSTRAINT if vr.extendable else FIXED_CONSTRAINT
        return kind, vr.lower, vr.upper & 0xFFFFFFFF

    def builtin_spelling(self, name, constraint, asn1_name):
        if name == 'INTEGER':
            if constraint.value is None:
                return 'ASN1::INTEGER'
            ctype, lower, upper = self.bounds(constraint.value)
            return 'ASN1::Constrained_INTEGER<(ASN1::ConstraintType)%d, %d, %du>' % (
                ctype, lower, upper)
        if name in ('OCTET STRING', 'BIT STRING') or name in STRING_KINDS or name == 'BMPString':
            base = KIND_CLASS[name]
            if constraint.size is None:
                return base
            return '%s<%s>' % (base.replace('ASN1::', 'ASN1::Constrained_'),
                               self.size_spelling(constraint.size))
        if name in KIND_CLASS:
            return KIND_CLASS[name]
        raise ResolveError('%s: type %s is not supported' % (asn1_name, name))

    def builtin_class(self, name, asn1_name, t, params):
        """A class of its own for a builtin type (a type assignment such as TimeStamp, or an
        inner string type with a permitted alphabet)."""
        home, flat = self.flatten(self.current, t, params)
        node, constraint = flat.node, flat.constraint
        if isinstance(node, ir.SequenceOfType):
            element = self.field_type(name + '_subtype', node.element, params, asn1_name + '.*')
            kind = node.kind + ' OF'
            cls = ClassDef(name=name, kind=kind, asn1_name=asn1_name,
                           base=self.sequence_of_spelling(node.kind, element, constraint.size),
                           element=element, deps=element.deps)
            cls.constraint_type, cls.lower, cls.upper = self.bounds(constraint.size)
            return self.add_class(cls)
        if not isinstance(node, ir.BuiltinType) or node.name not in KIND_CLASS:
            raise ResolveError('%s: unsupported type' % asn1_name)
        base = KIND_CLASS[node.name]
        if constraint.alphabet is None:
            base = self.builtin_spelling(node.name, constraint, asn1_name)
        cls = ClassDef(name=name, kind=node.name, asn1_name=asn1_name, base=base)
        if node.name == 'INTEGER':
            cls.constraint_type, cls.lower, cls.upper = self.bounds(constraint.value)
        elif node.name in ('OCTET STRING', 'BIT STRING', 'BMPString') or node.name in STRING_KINDS:
            cls.constraint_type, cls.lower, cls.upper = self.bounds(constraint.size)
        if node.name in STRING_KINDS:
            self.string_alphabet(cls, node.name, constraint.alphabet)
        elif node.name == 'BMPString':
            self.bmp_alphabet(cls, constraint.alphabet)
        return self.add_class(cls)

    @staticmethod
    def string_alphabet(cls, kind, alphabet):
        """X.691 27.5: effective alphabet and bits per character."""
        canonical = CANONICAL_SETS[kind]
        chars = canonical if alphabet is None else alphabet
        if any(ch not in canonical for ch in chars):
            raise ResolveError('%s: alphabet outside %s' % (cls.asn1_name, kind))
        cls.charset = chars
        cls.canonical_bits = bits_for(len(canonical))
        cls.unaligned_bits = bits_for(len(chars))
        # X.691 27.5.3: in the aligned variant the width is rounded up to a power of two.
        aligned = 1
        while aligned < cls.unaligned_bits:
            aligned *= 2
        cls.aligned_bits = aligned

    @staticmethod
    def bmp_alphabet(cls, alphabet):
        if alphabet is None:
            cls.first_char, cls.last_char = 0, 0xFFFF
        else:
            cls.first_char, cls.last_char = ord(min(alphabet)), ord(max(alphabet))
        cls.unaligned_bits = bits_for(cls.last_char - cls.first_char + 1)
        aligned = 1
        while aligned < cls.unaligned_bits:
            aligned *= 2
        cls.aligned_bits = aligned

    # -- ordering -----------------------------------------------------------------------------

    @staticmethod
    def order_classes(classes):
        """Source order, except that a class whose definition needs another complete one
        (a base class, an element of a SEQUENCE OF base, a typedef target) follows it."""
        by_name = {c.name: c for c in classes}
        done, ordered, visiting = set(), [], set()

        def visit(c):
            if c.name in done:
                return
            if c.name in visiting:
                raise ResolveError('%s depends on itself through base classes' % c.name)
            visiting.add(c.name)
            for dep in sorted(c.deps):
                if dep in by_name and dep != c.name:
                    visit(by_name[dep])
            visiting.discard(c.name)
            done.add(c.name)
            ordered.append(c)

        for c in classes:
            visit(c)
        return ordered


def resolve(modules, config):
    """Resolves every module of the configuration; returns {module name: ModuleModel}."""
    resolver = Resolver(modules, config)
    return {m.name: resolver.resolve_module(m.name) for m in config.modules}
