"""XML as a tree, read by the standard library's parser within limits.

Document types, and therefore entities, are refused before they are read.
"""

from typing import Dict, Iterator, List, Optional

from ..display.printable import quoted
from .measurement import FormatError

MAX_ELEMENTS = 200000
MAX_DEPTH = 64
MAX_ATTRIBUTES = 64


class Element:
    """An element with its local name; prefixes are removed as some files do not declare them."""

    __slots__ = ("name", "attributes", "children", "text", "parent", "_named")

    def __init__(
        self, name: str, attributes: Dict[str, str], parent: "Optional[Element]" = None
    ) -> None:
        self.name = name
        self.attributes = attributes
        self.children: List[Element] = []
        self.text = ""
        self.parent = parent
        self._named: "Dict[str, List[Element]]" = {}

    def append(self, child: "Element") -> None:
        self.children.append(child)
        self._named.setdefault(child.name, []).append(child)

    def walk(self) -> "Iterator[Element]":
        """Yield the element and all its descendants in document order."""
        yield self
        for child in self.children:
            yield from child.walk()

    def all(self, name: str) -> "List[Element]":
        """Return the children with a name."""
        return self._named.get(name, [])

    def child(self, name: str) -> "Optional[Element]":
        """Return the first child with a name, or None."""
        return next(iter(self.all(name)), None)

    def text_of(self, name: str) -> str:
        """Return the text of the first child with a name, or an empty string."""
        child = self.child(name)
        return child.text.strip() if child is not None else ""

    def ancestors(self) -> "Iterator[Element]":
        """Yield the element and its ancestors, innermost first."""
        element: Optional[Element] = self
        while element is not None:
            yield element
            element = element.parent


def _local(name: str) -> str:
    return name.rpartition(":")[2]


class _Builder:
    def __init__(self) -> None:
        self.root: Optional[Element] = None
        self.elements = 0
        self.depth = 0
        self._current: Optional[Element] = None
        self._texts: List[str] = []

    def start(self, name: str, attributes: Dict[str, str]) -> None:
        self.elements += 1
        self.depth += 1
        too_many = self.elements > MAX_ELEMENTS or self.depth > MAX_DEPTH
        if too_many or len(attributes) > MAX_ATTRIBUTES:
            raise FormatError("too many elements or attributes for a file of spectra")
        named = {_local(key): value for key, value in attributes.items()}
        element = Element(_local(name), named, self._current)
        if self._current is None:
            self.root = element
        else:
            self._current.append(element)
            self._add_text()
        self._current = element

    def end(self, _: str) -> None:
        self._add_text()
        self.depth -= 1
        self._current = self._current.parent if self._current is not None else None

    def data(self, text: str) -> None:
        self._texts.append(text)

    def _add_text(self) -> None:
        if self._current is not None and self._texts:
            self._current.text += "".join(self._texts)
        self._texts = []

    def refuse(self, *_: object) -> int:
        raise FormatError("a document type or an entity, which are not allowed in a spectrum")


def parse(data: bytes) -> Element:
    """Return the root of a document. Raises FormatError, with the line of a syntax error."""
    try:
        from xml.parsers import expat
    except ImportError:  # small Pythons on Windows lack it
        raise FormatError("XML needs the module pyexpat, which this Python lacks") from None

    builder = _Builder()
    parser = expat.ParserCreate()
    parser.buffer_text = True
    parser.StartElementHandler = builder.start
    parser.EndElementHandler = builder.end
    parser.CharacterDataHandler = builder.data
    parser.StartDoctypeDeclHandler = builder.refuse
    parser.EntityDeclHandler = builder.refuse
    parser.ExternalEntityRefHandler = builder.refuse
    try:
        parser.Parse(data, True)
    except expat.ExpatError as error:
        raise FormatError(f"not well-formed XML: {error}") from None
    except (LookupError, ValueError) as error:  # an encoding that Python does not know
        raise error if isinstance(error, FormatError) else FormatError(quoted(str(error))) from None
    assert builder.root is not None  # expat refuses a document without one
    return builder.root
