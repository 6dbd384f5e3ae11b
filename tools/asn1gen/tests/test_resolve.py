"""Resolution and emission tests on small ASN.1 snippets."""

import unittest

from asn1gen import config, emit_cpp, resolve
from asn1gen.parser import parse

SEC = '''Sec DEFINITIONS AUTOMATIC TAGS ::= BEGIN
TimeStamp ::= INTEGER (1..4294967295)
Token ::= SEQUENCE { t TimeStamp OPTIONAL, id OBJECT IDENTIFIER, ... }
SIGNED{ToBeSigned} ::= SEQUENCE { toBeSigned ToBeSigned, signature BIT STRING }
END
'''

MAIN = '''Main DEFINITIONS AUTOMATIC TAGS ::= BEGIN
IMPORTS SIGNED{}, Token, TimeStamp FROM Sec;
Digits ::= IA5String (FROM ("0123456789#*"))
Address ::= CHOICE {
  ipAddress SEQUENCE { ip OCTET STRING (SIZE(4)), port INTEGER (0..65535) },
  digits Digits (SIZE (1..16)),
  create NULL,
  ...,
  ip6Address SEQUENCE { ip OCTET STRING (SIZE(16)), port INTEGER (0..65535), ... },
  legacy NULL
}
Msg ::= SEQUENCE {
  a INTEGER (0..7, ...),
  b Address OPTIONAL,
  c SEQUENCE OF SEQUENCE { x BOOLEAN },
  d BOOLEAN OPTIONAL,
  ...,
  e Token,
  f EncodedToken OPTIONAL,
  g SIGNED { EncodedToken }
}
EncodedToken ::= TYPE-IDENTIFIER.&Type (Token)
Alias ::= Token (WITH COMPONENTS {..., t PRESENT})
Reason ::= ENUMERATED { busy, noAnswer, ..., rejected }
END
'''

CNF = '''module Sec
  source sec.asn
  namespace SEC
  output sec
module Main
  source main.asn
  namespace MAIN
  output main_messages
  split 2
  group main_address Address Address_*
  prune Address legacy
  codec buffer Msg
'''


def build(cnf=CNF, texts=(SEC, MAIN)):
    cfg = config.parse_config(cnf)
    modules = [m for text in texts for m in parse(text)]
    return resolve.resolve(modules, cfg), cfg


def classes(models, module):
    return {c.name: c for c in models[module].classes}


class ResolveTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.models, cls.cfg = build()
        cls.main = classes(cls.models, 'Main')
        cls.sec = classes(cls.models, 'Sec')

    def test_optional_field_numbering(self):
        # X.691 18: root OPTIONAL fields take the first bits; every extension addition
        # continues the numbering, whether or not it is OPTIONAL.
        msg = self.main['Msg']
        self.assertEqual([(f.name, f.opt_index) for f in msg.fields],
                         [('a', -1), ('b', 0), ('c', -1), ('d', 1), ('e', 2), ('f', 3), ('g', 4)])
        self.assertEqual((msg.num_root, msg.num_optional, msg.extendable), (4, 2, True))

    def test_field_types(self):
        spell = {f.name: f.ctype.spelling for f in self.main['Msg'].fields}
        self.assertEqual(spell['a'], 'ASN1::Constrained_INTEGER<(ASN1::ConstraintType)3, 0, 7u>')
        self.assertEqual(spell['c'], 'ASN1::SEQUENCE_OF<Msg_c_subtype, ASN1::EmptyConstraint>')
        self.assertEqual(spell['e'], '::SEC::Token')
        self.assertEqual(spell['f'], 'EncodedToken')
        self.assertEqual(spell['g'], '::SEC::SIGNED<EncodedToken>')
        self.assertEqual(self.main['EncodedToken'].base,
                         'ASN1::Constrained_OpenData<::SEC::Token>')
        self.assertIn('Msg_c_subtype', self.main)

    def test_inner_types_and_choice_numbering(self):
        address = self.main['Address']
        self.assertEqual([(f.name, f.position, f.extension) for f in address.fields],
                         [('ipAddress', 0, False), ('digits', 1, False), ('create', 2, False),
                          ('ip6Address', 3, True), ('', 4, True)])
        self.assertEqual(address.num_root, 3)
        self.assertIsNone(address.fields[4].ctype)  # pruned
        ip = self.main['Address_ipAddress']
        self.assertEqual([f.ctype.spelling for f in ip.fields],
                         ['ASN1::Constrained_OCTET_STRING<ASN1::SizeConstraint<2u, 4, 4u>>',
                          'ASN1::Constrained_INTEGER<(ASN1::ConstraintType)2, 0, 65535u>'])
        self.assertEqual(address.group, 'main_address')
        self.assertEqual(self.main['Address_ip6Address'].group, 'main_address')
        self.assertEqual(self.main['Msg'].group, 'main_messages')

    def test_constraint_on_a_reference_merges_with_the_referenced_alphabet(self):
        digits = self.main['Address_digits']
        self.assertEqual((digits.kind, digits.charset), ('IA5String', '#*0123456789'))
        self.assertEqual((digits.constraint_type, digits.lower, digits.upper), (2, 1, 16))
        # X.691 27.5: 12 characters need 4 bits, in both variants; the full IA5 set needs 7.
        self.assertEqual((digits.canonical_bits, digits.unaligned_bits, digits.aligned_bits),
                         (7, 4, 4))

    def test_aliases_and_builtins(self):
        self.assertEqual((self.main['Alias'].kind, self.main['Alias'].base),
                         ('TYPEDEF', '::SEC::Token'))
        ts = self.sec['TimeStamp']
        self.assertEqual((ts.kind, ts.constraint_type, ts.lower, ts.upper),
                         ('INTEGER', 2, 1, 4294967295))
        reason = self.main['Reason']
        self.assertEqual((reason.enum_names, reason.max_enum, reason.extendable),
                         (['busy', 'noAnswer', 'rejected'], 1, True))
        self.assertEqual(self.sec['SIGNED'].template_params, ['ToBeSigned'])
        self.assertEqual(self.models['Main'].imports_from, ['SEC'])

    def test_errors(self):
        cases = (
            (MAIN.replace('Digits (SIZE', 'Digitz (SIZE'), 'unresolved reference Digitz'),
            (MAIN.replace('legacy NULL\n', 'legacy NULL, legacy BOOLEAN\n'), 'occurs twice'),
            (MAIN.replace('busy, noAnswer', 'busy (1), noAnswer'), 'must run 0, 1, 2'),
            (MAIN.replace('SIGNED { EncodedToken }', 'SIGNED { EncodedToken, Token }'),
             'takes 1 parameter'),
            (MAIN.replace('d BOOLEAN OPTIONAL,', 'd BOOLEAN OPTIONAL, ..., [[ h NULL ]],'),
             'groups are not supported'),
        )
        for text, message in cases:
            with self.subTest(message=message):
                with self.assertRaisesRegex(resolve.ResolveError, message):
                    build(texts=(SEC, text))
        with self.assertRaisesRegex(resolve.ResolveError, 'no alternative gone'):
            build(cnf=CNF + '  prune Address gone\n')
        with self.assertRaisesRegex(resolve.ResolveError, 'not a CHOICE'):
            build(cnf=CNF + '  prune Msg a\n')


class NamingTest(unittest.TestCase):
    def test_keywords_hyphens_and_second_root_part(self):
        text = '''K DEFINITIONS AUTOMATIC TAGS ::= BEGIN
        Two-Parts ::= SEQUENCE { a NULL, ..., b NULL, ..., default BOOLEAN OPTIONAL }
        Pick ::= CHOICE { delete NULL, new-one NULL }
        END'''
        cnf = 'module K\n  source k.asn\n  namespace K\n  output k\n'
        models, _ = build(cnf=cnf, texts=(text,))
        two = classes(models, 'K')['Two_Parts']
        # X.680 24.1: components after the second ellipsis belong to the root.
        self.assertEqual([(f.name, f.cpp_name, f.extension, f.opt_index) for f in two.fields],
                         [('a', 'a', False, -1), ('default', 'default_', False, 0),
                          ('b', 'b', True, 1)])
        pick = classes(models, 'K')['Pick']
        self.assertEqual([(f.name, f.cpp_name) for f in pick.fields],
                         [('delete', 'delete_'), ('new-one', 'new_one')])


class EmitTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        models, cfg = build()
        cls.files = emit_cpp.emit(models, cfg, {'Sec': ['sec.asn'], 'Main': ['main.asn']})

    def test_file_set_and_banner(self):
        self.assertEqual(sorted(self.files), [
            'main_address.inl', 'main_messages.cpp', 'main_messages.h', 'main_messages.inl',
            'main_messages_2.cpp', 'sec.cpp', 'sec.h', 'sec.inl'])
        for name, text in self.files.items():
            self.assertTrue(text.startswith('// Generated by tools/asn1gen from '), name)
            self.assertNotRegex(text, r'20\d\d-\d\d-\d\d')

    def test_assertion_spelling_and_placement(self):
        group = self.files['main_address.inl']
        self.assertIn('inline Address_ipAddress& Address::ref_ipAddress() {\n'
                      '    ASN1_ASSERT(currentSelection() ==ipAddress::id_);', group)
        body = self.files['main_messages.inl']
        self.assertIn('Address& Msg::ref_b() {\n    ASN1_ASSERT(hasOptionalField(e_b));', body)
        self.assertNotIn('inline ', body)
        self.assertIn('#include "modules/main_address.inl"', self.files['main_messages.h'])
        self.assertIn('#include "modules/main_messages.inl"', self.files['main_messages.cpp'])

    def test_descriptors(self):
        header = self.files['main_messages.h']
        self.assertIn('        e_b = 0,\n        e_d = 1,\n        e_e = 2,', header)
        self.assertIn('    struct ip6Address {\n        static constexpr int id_ = 3;', header)
        self.assertNotIn('struct legacy', header)
        source = self.files['main_messages.cpp'] + self.files['main_messages_2.cpp']
        self.assertIn('const int Msg::fieldIds[7] = {-1, 0, -1, 1, 0, 0, 0};', source)
        self.assertIn('const Msg::InfoType Msg::theInfo = {&Msg::create, 16, true, fieldInfos, '
                      'fieldIds, 4, 3, 2, nullptr, 0, fieldNames};', source)
        self.assertIn('    &Address_ip6Address::theInfo,\n    nullptr,\n};', source)
        self.assertIn('    "ip6Address",\n    "",\n};', source)
        self.assertIn('&Address::create, 0, true, selectionInfos, 3, 5, 0, selectionNames', source)
        self.assertIn('&Address_digits::create, 22, (ASN1::ConstraintType)2, 1, 16u, '
                      '"#*0123456789", 12, 7, 4, 4', source)
        self.assertIn('template int ASNDecode<MAIN::Msg>(const unsigned char*, unsigned, '
                      'MAIN::Msg&);', source)

    def test_regeneration_is_stable(self):
        models, cfg = build()
        again = emit_cpp.emit(models, cfg, {'Sec': ['sec.asn'], 'Main': ['main.asn']})
        self.assertEqual(again, self.files)


if __name__ == '__main__':
    unittest.main()
