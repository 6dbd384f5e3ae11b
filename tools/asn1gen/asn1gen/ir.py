"""Plain intermediate representation of parsed ASN.1 modules.

The parser fills these records straight from the text; resolution (resolve.py) annotates them
without changing their shape, and the emitters read them.
"""

from dataclasses import dataclass, field
from typing import List, Optional, Tuple

@dataclass
class ValueRange:
    """A value range or single value constraint: INTEGER (lo..hi, ...)."""
    lower: Optional[int]
    upper: Optional[int]
    extendable: bool = False


@dataclass
class Constraint:
    """The effective PER-visible constraints of a type (X.691 9.3).

    Serial constraints such as (SIZE (1..128)) (FROM ("0123456789#*,")) are merged into one
    record; constraints that PER does not see (WITH COMPONENTS, CONSTRAINED BY) are dropped
    by the parser.
    """
    value: Optional[ValueRange] = None
    size: Optional[ValueRange] = None
    alphabet: Optional[str] = None
    # The type of an open-type constraint, TYPE-IDENTIFIER.&Type (T).
    contained: Optional['Type'] = None

    def merged(self, other):
        if other is None:
            return self
        return Constraint(value=other.value or self.value, size=other.size or self.size,
                          alphabet=other.alphabet or self.alphabet,
                          contained=other.contained or self.contained)


@dataclass
class Type:
    """Base of all type notations; `constraint` may be None."""
    constraint: Optional[Constraint] = field(default=None, kw_only=True)
    line: int = field(default=0, kw_only=True)


@dataclass
class BuiltinType(Type):
    """INTEGER, BOOLEAN, NULL, OBJECT IDENTIFIER, OCTET STRING, BIT STRING and the
    character string types; `name` is the ASN.1 spelling (e.g. 'OCTET STRING')."""
    name: str


@dataclass
class ReferencedType(Type):
    """A type reference, possibly qualified or with actual parameters: SIGNED {T}."""
    name: str
    module: Optional[str] = None
    actual_parameters: List[Type] = field(default_factory=list)


@dataclass
class OpenType(Type):
    """TYPE-IDENTIFIER.&Type, the open type of X.681 14.1."""
    class_name: str = 'TYPE-IDENTIFIER'


@dataclass
class Component:
    """A SEQUENCE component or CHOICE alternative."""
    name: str
    type: Type
    optional: bool = False
    has_default: bool = False
    line: int = 0


@dataclass
class ExtensionGroup:
    """An extension addition group [[ ... ]] (X.680 24.1): one optional-field bit for all."""
    components: List[Component]
    version: Optional[int] = None


@dataclass
class SequenceType(Type):
    root: List[Component] = field(default_factory=list)
    # Extension additions in order: Component or ExtensionGroup.
    extensions: list = field(default_factory=list)
    extendable: bool = False
    # Root components after a second ellipsis (X.680 24.1 ComponentTypeLists form 3).
    root_after: List[Component] = field(default_factory=list)


@dataclass
class ChoiceType(Type):
    root: List[Component] = field(default_factory=list)
    extensions: list = field(default_factory=list)
    extendable: bool = False


@dataclass
class EnumeratedType(Type):
    root: List[Tuple[str, Optional[int]]] = field(default_factory=list)
    extensions: List[Tuple[str, Optional[int]]] = field(default_factory=list)
    extendable: bool = False


@dataclass
class SequenceOfType(Type):
    element: Type = None
    kind: str = 'SEQUENCE'  # or 'SET'
    element_name: Optional[str] = None  # SEQUENCE OF name Type


@dataclass
class TypeAssignment:
    name: str
    type: Type
    parameters: List[str] = field(default_factory=list)
    line: int = 0


@dataclass
class Import:
    names: List[str]
    module: str


@dataclass
class Module:
    name: str
    tag_default: str
    assignments: List[TypeAssignment] = field(default_factory=list)
    imports: List[Import] = field(default_factory=list)
    extensibility_implied: bool = False
    file_name: str = ''

    def imported_from(self, name):
        for imp in self.imports:
            if name in imp.names:
                return imp.module
        return None

    def find(self, name):
        for assignment in self.assignments:
            if assignment.name == name:
                return assignment
        return None
