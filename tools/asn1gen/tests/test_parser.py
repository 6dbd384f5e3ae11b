"""Parser and lexer tests on small ASN.1 snippets."""

import unittest

from asn1gen import ir
from asn1gen.lexer import Asn1SyntaxError, tokenize
from asn1gen.parser import parse


def module(body, header='M DEFINITIONS AUTOMATIC TAGS ::= BEGIN\n'):
    modules = parse(header + body + '\nEND\n')
    assert len(modules) == 1
    return modules[0]


class LexerTest(unittest.TestCase):
    def test_tokens(self):
        for text, tokens in (
                # X.680 12.6.3: '--' also ends a comment, the text after it is read again.
                ('SEQUENCE -- elliptic curves-- {a INTEGER}', ['SEQUENCE', '{', 'a', 'INTEGER', '}']),
                ('h323-message-body INTEGER(-5..10,...)',
                 ['h323-message-body', 'INTEGER', '(', '-', '5', '..', '10', ',', '...', ')']),
                ('/* a /* nested */ comment */ "say ""hi"""', ['say "hi"'])):
            self.assertEqual([t.text for t in tokenize(text)][:-1], tokens)
        self.assertEqual([t.line for t in tokenize('A\n-- c\n\nB')[:2]], [1, 4])
        with self.assertRaisesRegex(Asn1SyntaxError, 'line 2'):
            tokenize('A ::=\n  $')


class ParserTest(unittest.TestCase):
    def test_sequence_with_extensions_and_optional(self):
        m = module('''S ::= SEQUENCE {
            a INTEGER (0..255),
            b BOOLEAN OPTIONAL,
            ...,
            c NULL,
            d IA5String OPTIONAL }''')
        t = m.find('S').type
        self.assertIsInstance(t, ir.SequenceType)
        self.assertTrue(t.extendable)
        self.assertEqual([(c.name, c.optional) for c in t.root], [('a', False), ('b', True)])
        self.assertEqual([(c.name, c.optional) for c in t.extensions], [('c', False), ('d', True)])
        self.assertEqual(t.root[0].type.constraint.value, ir.ValueRange(0, 255))

    def test_sequence_of_size_forms(self):
        m = module('''A ::= SEQUENCE SIZE (1..256) OF INTEGER
            B ::= SEQUENCE (SIZE (1..512)) OF OCTET STRING (SIZE(4))
            C ::= SET SIZE (1..16) OF BOOLEAN
            D ::= SET OF NULL''')
        a, b, c, d = (m.find(n).type for n in 'ABCD')
        self.assertEqual(a.constraint.size, ir.ValueRange(1, 256))
        self.assertEqual(b.constraint.size, ir.ValueRange(1, 512))
        self.assertEqual(b.element.constraint.size, ir.ValueRange(4, 4))
        self.assertEqual((c.kind, d.kind), ('SET', 'SET'))
        self.assertIsNone(d.constraint)

    def test_serial_and_intersected_alphabet_constraints(self):
        m = module('''A ::= IA5String (SIZE (1..128)) (FROM ("0123456789#*,"))
            B ::= IA5String (SIZE (1) ^ FROM ("0123456789#*ABCD!"))
            C ::= PrintableString (FROM ("a".."e"|"z"))''')
        a, b, c = (m.find(n).type.constraint for n in 'ABC')
        self.assertEqual(a.size, ir.ValueRange(1, 128))
        self.assertEqual(a.alphabet, '#*,0123456789')
        self.assertEqual(b.size, ir.ValueRange(1, 1))
        self.assertEqual(b.alphabet, '!#*0123456789ABCD')
        self.assertEqual(c.alphabet, 'abcdez')

    def test_extendable_value_range_and_negative_bounds(self):
        m = module('''A ::= INTEGER (0..16383, ...)
            B ::= INTEGER (-262144..262143)''')
        self.assertEqual(m.find('A').type.constraint.value, ir.ValueRange(0, 16383, True))
        self.assertEqual(m.find('B').type.constraint.value, ir.ValueRange(-262144, 262143))

    def test_constraints_without_per_effect_are_dropped(self):
        m = module('''T ::= SEQUENCE { a INTEGER OPTIONAL, ... }
            P ::= T (WITH COMPONENTS {..., a PRESENT,
                     ...})
            Q ::= SEQUENCE { x BOOLEAN } (CONSTRAINED BY { -- sign -- T})''')
        self.assertEqual(m.find('P').type.constraint, ir.Constraint())
        self.assertEqual(m.find('Q').type.constraint, ir.Constraint())

    def test_imports_parameterized_types_and_open_types(self):
        m = module('''IMPORTS SIGNED{}, Token FROM Sec
                Cap FROM Other;
            SIGNED{ToBeSigned} ::= SEQUENCE { toBeSigned ToBeSigned, sig BIT STRING }
            E ::= TYPE-IDENTIFIER.&Type (Token -- comment in the parameter --)
            F ::= SEQUENCE { s SIGNED { E -- a comment -- } }''')
        self.assertEqual([(i.names, i.module) for i in m.imports],
                         [(['SIGNED', 'Token'], 'Sec'), (['Cap'], 'Other')])
        self.assertEqual(m.find('SIGNED').parameters, ['ToBeSigned'])
        e = m.find('E').type
        self.assertIsInstance(e, ir.OpenType)
        self.assertEqual(e.constraint.contained.name, 'Token')
        s = m.find('F').type.root[0].type
        self.assertEqual((s.name, [p.name for p in s.actual_parameters]), ('SIGNED', ['E']))

    def test_enumerated_and_choice(self):
        m = module('''E ::= ENUMERATED { a (0), b (1), ..., c (2) }
            C ::= CHOICE { x NULL, y SEQUENCE { z INTEGER }, ..., w BOOLEAN }''')
        e = m.find('E').type
        self.assertEqual((e.root, e.extensions, e.extendable), ([('a', 0), ('b', 1)], [('c', 2)],
                                                               True))
        c = m.find('C').type
        self.assertEqual([a.name for a in c.root], ['x', 'y'])
        self.assertEqual([a.name for a in c.extensions], ['w'])
        self.assertIsInstance(c.root[1].type, ir.SequenceType)

    def test_extension_addition_group(self):
        m = module('S ::= SEQUENCE { a NULL, ..., [[ b NULL, c BOOLEAN OPTIONAL ]], d NULL }')
        t = m.find('S').type
        self.assertIsInstance(t.extensions[0], ir.ExtensionGroup)
        self.assertEqual([c.name for c in t.extensions[0].components], ['b', 'c'])
        self.assertEqual(t.extensions[1].name, 'd')

    def test_empty_extendable_sequence(self):
        t = module('R ::= SEQUENCE { ... }').find('R').type
        self.assertTrue(t.extendable)
        self.assertEqual((t.root, t.extensions), ([], []))

    def test_errors_name_the_line(self):
        for text, message in (('A ::= SEQUENCE { a INTEGER', ":3: expected ','"),
                              ('A ::= INTEGER (1 | 2)', ':2: unions'),
                              ('a INTEGER ::= 5', ':2: value assignments')):
            with self.subTest(text=text):
                with self.assertRaisesRegex(Asn1SyntaxError, message):
                    module(text)


if __name__ == '__main__':
    unittest.main()
