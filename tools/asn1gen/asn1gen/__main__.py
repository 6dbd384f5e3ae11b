"""Command line: python3 -m asn1gen [--config FILE] --out DIR

Regenerates the C++ message modules described by the side file into DIR.
"""

import argparse
import os
import sys

from . import config as config_mod
from . import emit_cpp, parser, resolve
from .lexer import Asn1SyntaxError


def generate(config_path):
    """Returns {file name: text} for all modules of the side file."""
    cfg = config_mod.load_config(config_path)
    modules = []
    inputs = {}
    tool_dir = os.path.dirname(os.path.abspath(config_path))
    for m in cfg.modules:
        path = cfg.source_path(m)
        with open(path, encoding='utf-8') as f:
            parsed = parser.parse(f.read(), m.source)
        if [p.name for p in parsed] != [m.name]:
            raise config_mod.ConfigError('%s must hold exactly the module %s' % (m.source, m.name))
        modules.extend(parsed)
        # Inputs are named relative to the project so that the banner is the same everywhere.
        rel = os.path.relpath(tool_dir, os.path.dirname(os.path.dirname(tool_dir)))
        inputs[m.name] = ['%s/%s' % (rel, m.source), '%s/%s' % (rel, os.path.basename(
            config_path))]
    models = resolve.resolve(modules, cfg)
    return emit_cpp.emit(models, cfg, inputs)


def main(argv=None):
    here = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
    ap = argparse.ArgumentParser(prog='asn1gen', description=__doc__)
    ap.add_argument('--config', default=os.path.join(here, 'modules.cnf'))
    ap.add_argument('--out', required=True, help='output folder')
    args = ap.parse_args(argv)
    try:
        files = generate(args.config)
    except (Asn1SyntaxError, resolve.ResolveError, config_mod.ConfigError, ValueError) as e:
        print('asn1gen: %s' % e, file=sys.stderr)
        return 1
    os.makedirs(args.out, exist_ok=True)
    for name in sorted(files):
        with open(os.path.join(args.out, name), 'w', encoding='utf-8', newline='\n') as f:
            f.write(files[name])
    return 0


if __name__ == '__main__':
    sys.exit(main())
