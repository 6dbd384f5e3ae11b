"""The project decisions side file (modules.cnf).

Line format (blank lines and '#' comments ignored):

  module <ASN.1 module name>          starts the block of one module
  source <path>                       module text, relative to the side file
  namespace <C++ namespace>
  output <base file name>             e.g. h323_messages -> .h, .inl, .cpp
  split <n>                           number of descriptor .cpp files
  group <inl name> <pattern>...       accessors of the matching classes go to <inl name>.inl
  prune <Type> <alternative>...       alternatives left out: empty name, null descriptor
  codec <form> <Type>...              ASNDecode/ASNEncode instances; form 'buffer' or 'octets'

Patterns are fnmatch patterns on generated class names.
"""

import fnmatch
import os
from dataclasses import dataclass, field
from typing import Dict, List, Tuple


class ConfigError(Exception):
    pass


@dataclass
class ModuleConfig:
    name: str
    source: str = ''
    namespace: str = ''
    output: str = ''
    split: int = 1
    groups: List[Tuple[str, List[str]]] = field(default_factory=list)
    prune: Dict[str, List[str]] = field(default_factory=dict)
    codecs: Dict[str, List[str]] = field(default_factory=dict)

    def group_of(self, class_name):
        for group, patterns in self.groups:
            if any(fnmatch.fnmatchcase(class_name, p) for p in patterns):
                return group
        return self.output


@dataclass
class Config:
    path: str
    modules: List[ModuleConfig] = field(default_factory=list)

    def module(self, name):
        for m in self.modules:
            if m.name == name:
                return m
        raise ConfigError('%s: no module %s' % (self.path, name))

    def source_path(self, module_config):
        return os.path.join(os.path.dirname(self.path), module_config.source)


def parse_config(text, path='modules.cnf'):
    config = Config(path=path)
    current = None
    for number, raw in enumerate(text.splitlines(), 1):
        words = raw.split('#', 1)[0].split()
        if not words:
            continue
        key, args = words[0], words[1:]

        def need(count, key=key, args=args, number=number):
            if len(args) < count:
                raise ConfigError('%s:%d: %s needs %d argument(s)' % (path, number, key, count))

        if key == 'module':
            need(1)
            current = ModuleConfig(name=args[0])
            config.modules.append(current)
            continue
        if current is None:
            raise ConfigError('%s:%d: %s before any module line' % (path, number, key))
        if key in ('source', 'namespace', 'output'):
            need(1)
            setattr(current, key, args[0])
        elif key == 'split':
            need(1)
            current.split = int(args[0])
        elif key == 'group':
            need(2)
            current.groups.append((args[0], args[1:]))
        elif key == 'prune':
            need(2)
            current.prune.setdefault(args[0], []).extend(args[1:])
        elif key == 'codec':
            need(2)
            if args[0] not in ('buffer', 'octets'):
                raise ConfigError('%s:%d: codec form must be buffer or octets' % (path, number))
            current.codecs.setdefault(args[0], []).extend(args[1:])
        else:
            raise ConfigError('%s:%d: unknown directive %s' % (path, number, key))
    for m in config.modules:
        for attr in ('source', 'namespace', 'output'):
            if not getattr(m, attr):
                raise ConfigError('%s: module %s has no %s' % (path, m.name, attr))
    return config


def load_config(path):
    with open(path, encoding='utf-8') as f:
        return parse_config(f.read(), path)
