"""The real module texts with the project's side file: the edition markers the library relies on
(see asn1/README.md) come out of parsing and resolution as expected."""

import os
import unittest

from asn1gen import config, parser, resolve

HERE = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))


def load():
    cfg = config.load_config(os.path.join(HERE, 'modules.cnf'))
    modules = []
    for m in cfg.modules:
        with open(cfg.source_path(m), encoding='utf-8') as f:
            modules.extend(parser.parse(f.read(), m.source))
    return resolve.resolve(modules, cfg)


class RealModulesTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        models = load()
        cls.h225 = {c.name: c for c in models['H323-MESSAGES'].classes}
        cls.h245 = {c.name: c for c in models['MULTIMEDIA-SYSTEM-CONTROL'].classes}
        cls.h235 = {c.name: c for c in models['H235-SECURITY-MESSAGES'].classes}

    def shape(self, cls):
        return cls.num_root, len(cls.fields) - cls.num_root, cls.fields[-1].name

    def test_h225_markers(self):
        setup = self.h225['Setup_UUIE']
        self.assertEqual(self.shape(setup), (13, 26, 'additionalSourceAddresses'))
        self.assertEqual(setup.num_optional, 7)
        self.assertEqual({f.name: f.opt_index for f in setup.fields}['sourceCallSignalAddress'], 7)
        self.assertNotIn('hopCount', [f.name for f in setup.fields])
        self.assertEqual(self.shape(self.h225['H323_UU_PDU']), (2, 9, 'genericData'))
        self.assertEqual(self.shape(self.h225['H323_UU_PDU_h323_message_body']),
                         (7, 6, 'notify'))
        self.assertEqual([f.name for f in self.h225['TransportAddress'].fields],
                         ['ipAddress', 'ipSourceRoute', 'ipxAddress', 'ip6Address', 'netBios',
                          'nsap', 'nonStandardAddress'])
        endpoint = self.h225['EndpointType']
        self.assertEqual((endpoint.num_root, endpoint.fields[1].opt_index), (8, 1))
        vendor = self.h225['VendorIdentifier']
        self.assertEqual([(f.name, f.opt_index) for f in vendor.fields],
                         [('vendor', -1), ('productId', 0), ('versionId', 1)])

    def test_h245_markers(self):
        for name, root, ext, last in (
                ('RequestMessage', 11, 4, 'logicalChannelRateRequest'),
                ('ResponseMessage', 19, 5, 'logicalChannelRateReject'),
                ('CommandMessage', 7, 5, 'mobileMultilinkReconfigurationCommand'),
                ('IndicationMessage', 14, 9, 'mobileMultilinkReconfigurationIndication')):
            with self.subTest(name=name):
                self.assertEqual(self.shape(self.h245[name]), (root, ext, last))
                self.assertNotIn('genericRequest', [f.name for f in self.h245[name].fields])
        self.assertEqual([f.name for f in self.h245['DataType'].fields].index('data'), 4)
        audio = self.h245['AudioCapability']
        self.assertEqual((len(audio.fields), audio.fields[21].name), (22, 'g729Extensions'))
        self.assertEqual(len(self.h245['VideoCapability'].fields), 6)
        app = [f.name for f in self.h245['DataApplicationCapability_application'].fields]
        self.assertEqual([app.index(n) for n in ('t120', 'h224', 't38fax',
                                                 'genericDataCapability')], [1, 6, 12, 13])

    def test_only_the_multiplex_table_alternatives_are_pruned(self):
        pruned = {}
        for classes in (self.h225, self.h245, self.h235):
            for cls in classes.values():
                if cls.kind == 'CHOICE':
                    cut = [f.position for f in cls.fields if f.ctype is None]
                    if cut:
                        pruned[cls.name] = cut
                        self.assertTrue(all(f.name == '' for f in cls.fields if f.ctype is None))
        self.assertEqual(pruned, {'RequestMessage': [6, 7], 'ResponseMessage': [10, 11, 12, 13],
                                  'IndicationMessage': [6, 7, 11, 12]})

    def test_size_constraints_the_library_relies_on(self):
        sizes = set()
        for classes in (self.h225, self.h245, self.h235):
            for cls in classes.values():
                for f in cls.fields:
                    if f.ctype is not None and 'SizeConstraint<2u, ' in f.ctype.spelling:
                        part = f.ctype.spelling.split('SizeConstraint<2u, ')[1]
                        lower, upper = part.split('>')[0].split(', ')
                        sizes.add((int(lower), int(upper.rstrip('u'))))
                if cls.constraint_type == resolve.FIXED_CONSTRAINT and cls.kind not in (
                        'INTEGER',):
                    sizes.add((cls.lower, cls.upper))
        for size in ((1, 256), (1, 16), (1, 65535), (1, 14), (4, 4), (16, 16), (2, 4), (1, 255),
                     (8, 8), (1, 2048), (0, 511), (0, 2048)):
            self.assertIn(size, sizes)

    def test_h235_parameterized_types(self):
        for name, param in (('SIGNED', 'ToBeSigned'), ('ENCRYPTED', 'ToBeEncrypted'),
                            ('HASHED', 'ToBeHashed')):
            self.assertEqual(self.h235[name].template_params, [param])
        self.assertEqual(self.h225['EncodedFastStartToken'].base,
                         'ASN1::Constrained_OpenData<FastStartToken>')
        crypto = {f.name: f.ctype.spelling for f in self.h225['CryptoH323Token'].fields}
        self.assertEqual(crypto['cryptoFastStart'],
                         '::H235_SECURITY_MESSAGES::SIGNED<EncodedFastStartToken>')


if __name__ == '__main__':
    unittest.main()
