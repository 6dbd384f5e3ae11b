"""Parser and lexer tests on small ASN.1 snippets."""

import os
import unittest

from asn1gen.lexer import Asn1SyntaxError, tokenize
from asn1gen.parser import parse

DATA = os.path.join(os.path.dirname(os.path.abspath(__file__)), 'data', 'parser')


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
    """Each snippet of data/parser/snippets.asn parsed, one line per import and assignment (or the
    error, which names the line), compared with data/parser/parsed.txt (written there instead
    when VOIPFILTER_UPDATE_GOLDENS=1, as scripts/update-goldens.sh sets it)."""

    def test_snippets(self):
        with open(os.path.join(DATA, 'snippets.asn')) as f:
            blocks = f.read().split('\n=== ')[1:]
        out = []
        for block in blocks:
            name, _, body = block.partition('\n')
            out.append('=== ' + name)
            try:
                [m] = parse('M DEFINITIONS AUTOMATIC TAGS ::= BEGIN\n' + body.rstrip() +
                            '\nEND\n')
            except Asn1SyntaxError as error:
                out.append('error: %s' % error)
                continue
            out += ['import %r' % i for i in m.imports]
            out += ['%s%r: %r' % (a.name, a.parameters, a.type) for a in m.assignments]
        text = '\n'.join(out) + '\n'
        golden = os.path.join(DATA, 'parsed.txt')
        if os.environ.get('VOIPFILTER_UPDATE_GOLDENS') == '1':
            with open(golden, 'w') as f:
                f.write(text)
        with open(golden) as f:
            self.assertEqual(f.read(), text)


if __name__ == '__main__':
    unittest.main()
