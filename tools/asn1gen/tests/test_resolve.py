"""Resolution and emission tests on small ASN.1 snippets."""

import os
import unittest

from asn1gen import config, emit_cpp, resolve
from asn1gen.parser import parse

# Two small modules and their configuration (tests/data/modules), with the features the
# generator supports: imports, parameterized and open types, extensions, pruning, groups, splits.
def _read(name):
    with open(os.path.join(os.path.dirname(os.path.abspath(__file__)), 'data', 'modules', name)) as f:
        return f.read()


SEC, MAIN, CNF = _read('sec.asn'), _read('main.asn'), _read('modules.cnf')


def build(cnf=CNF, texts=(SEC, MAIN)):
    cfg = config.parse_config(cnf)
    modules = [m for text in texts for m in parse(text)]
    return resolve.resolve(modules, cfg), cfg


def classes(models, module):
    return {c.name: c for c in models[module].classes}


# What resolution makes of the snippets (field numbering, types, names, descriptors) shows in the
# emitted files, which EmitTest compares as a whole; here only what cannot be seen there.
class ResolveTest(unittest.TestCase):
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
    """The files emitted for the snippets above, compared with tests/data/emitted/<file>.txt
    (written there instead when VOIPFILTER_UPDATE_GOLDENS=1, as scripts/update-goldens.sh sets
    it; the suffix keeps the formatter and the build off them)."""

    def test_emitted_files_and_their_stability(self):
        models, cfg = build()
        files = emit_cpp.emit(models, cfg, {'Sec': ['sec.asn'], 'Main': ['main.asn']})
        self.assertEqual(emit_cpp.emit(models, cfg, {'Sec': ['sec.asn'], 'Main': ['main.asn']}),
                         files)
        folder = os.path.join(os.path.dirname(os.path.abspath(__file__)), 'data', 'emitted')
        if os.environ.get('VOIPFILTER_UPDATE_GOLDENS') == '1':
            os.makedirs(folder, exist_ok=True)
            for name in os.listdir(folder):
                os.remove(os.path.join(folder, name))
            for name, text in files.items():
                with open(os.path.join(folder, name + '.txt'), 'w') as f:
                    f.write(text)
        self.assertEqual(sorted(os.listdir(folder)), sorted(name + '.txt' for name in files))
        for name, text in files.items():
            with open(os.path.join(folder, name + '.txt')) as f:
                self.assertEqual(f.read(), text, name)


if __name__ == '__main__':
    unittest.main()
