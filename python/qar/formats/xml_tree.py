"""XML from outside as a tree: by the standard library's parser, within limits.

Document types, and with them entities, are refused before anything of them is read.
"""

from typing import Dict, Iterator, List, Optional

from .measurement import FormatError

MOST_ELEMENTS = 200000
DEEPEST = 64
MOST_ATTRIBUTES = 64


class Element:
    """An element by its local name: prefixes are taken off, for files use some undeclared."""

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
        """The element and all below it, in the order of the document."""
        yield self
        for child in self.children:
            yield from child.walk()

    def all(self, name: str) -> "List[Element]":
        """The children of the name."""
        return self._named.get(name, [])

    def child(self, name: str) -> "Optional[Element]":
        """The first child of the name."""
        return next(iter(self.all(name)), None)

    def text_of(self, name: str) -> str:
        """The text of the first child of the name, empty without one."""
        child = self.child(name)
        return child.text.strip() if child is not None else ""

    def ancestors(self) -> "Iterator[Element]":
        """The element itself and what it stands in, innermost first."""
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
        too_many = self.elements > MOST_ELEMENTS or self.depth > DEEPEST
        if too_many or len(attributes) > MOST_ATTRIBUTES:
            raise FormatError("more elements or attributes than a file of spectra has")
        named = {_local(key): value for key, value in attributes.items()}
        element = Element(_local(name), named, self._current)
        if self._current is None:
            self.root = element
        else:
            self._current.append(element)
            self._take_text()
        self._current = element

    def end(self, _: str) -> None:
        self._take_text()
        self.depth -= 1
        self._current = self._current.parent if self._current is not None else None

    def data(self, text: str) -> None:
        self._texts.append(text)

    def _take_text(self) -> None:
        if self._current is not None and self._texts:
            self._current.text += "".join(self._texts)
        self._texts = []

    def refuse(self, *_: object) -> int:
        raise FormatError("a document type or an entity; neither belongs into a spectrum")


def parse(data: bytes) -> Element:
    """The root of the document. Raises FormatError with the line where it is not well-formed."""
    from xml.parsers import expat  # not in every Python on Windows

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
        raise error if isinstance(error, FormatError) else FormatError(str(error)) from None
    assert builder.root is not None  # expat refuses a document without one
    return builder.root
