"""Lexical analysis of ASN.1 module text (X.680 clause 12)."""

from dataclasses import dataclass


class Asn1SyntaxError(Exception):
    """Malformed module text; the message names the line."""


@dataclass(frozen=True)
class Token:
    kind: str  # 'id' (identifier or reference), 'num', 'cstring', 'sym', 'eof'
    text: str
    line: int

    def __str__(self):
        return self.text if self.kind != 'eof' else 'end of input'


# Longest symbols first so that '::=' wins over ':' and '...' over '..'.
_SYMBOLS = ('::=', '...', '..', '[[', ']]', '.&', '{', '}', '(', ')', '[', ']', ',', ';', '|',
            '^', '<', '>', '!', '@', '.', ':', '&', '-')


def tokenize(text):
    """Splits module text into tokens; comments and white space are dropped.

    X.680 12.6: a '--' comment ends at the next '--' or at the end of the line;
    a '/*' comment ends at the matching '*/' (nesting allowed).
    """
    tokens = []
    i = 0
    line = 1
    n = len(text)
    while i < n:
        c = text[i]
        if c == '\n':
            line += 1
            i += 1
        elif c.isspace():
            i += 1
        elif text.startswith('--', i):
            i += 2
            while i < n and text[i] != '\n' and not text.startswith('--', i):
                i += 1
            if text.startswith('--', i):
                i += 2
        elif text.startswith('/*', i):
            depth = 1
            i += 2
            while i < n and depth:
                if text.startswith('/*', i):
                    depth += 1
                    i += 2
                elif text.startswith('*/', i):
                    depth -= 1
                    i += 2
                else:
                    if text[i] == '\n':
                        line += 1
                    i += 1
            if depth:
                raise Asn1SyntaxError('line %d: unterminated comment' % line)
        elif c == '"':
            # X.680 12.14: a quotation mark inside a cstring is written twice.
            start_line = line
            i += 1
            chars = []
            while True:
                if i >= n:
                    raise Asn1SyntaxError('line %d: unterminated string' % start_line)
                if text[i] == '"':
                    if text.startswith('""', i):
                        chars.append('"')
                        i += 2
                        continue
                    i += 1
                    break
                if text[i] == '\n':
                    line += 1
                chars.append(text[i])
                i += 1
            tokens.append(Token('cstring', ''.join(chars), start_line))
        elif c.isdigit():
            j = i
            while j < n and text[j].isdigit():
                j += 1
            tokens.append(Token('num', text[i:j], line))
            i = j
        elif c.isalpha():
            # X.680 12.2/12.3: letters, digits and single hyphens; no trailing hyphen and
            # no two hyphens in a row (which would open a comment).
            j = i + 1
            while j < n:
                if text[j].isalnum():
                    j += 1
                elif text[j] == '-' and j + 1 < n and text[j + 1].isalnum():
                    j += 1
                else:
                    break
            tokens.append(Token('id', text[i:j], line))
            i = j
        else:
            for sym in _SYMBOLS:
                if text.startswith(sym, i):
                    tokens.append(Token('sym', sym, line))
                    i += len(sym)
                    break
            else:
                raise Asn1SyntaxError('line %d: unexpected character %r' % (line, c))
    tokens.append(Token('eof', '', line))
    return tokens
