"""Copies of a data source of the embedded library with a new header.

Except for a few numbers, the first page is the same in all files, so a damaged one can be
replaced by that of a new file. The later pages are not changed and have checksums.
"""

import os
import shutil
from typing import Iterator

from ..atomic_files import Path
from ..records import RecordSource
from ..regular_files import open_regular

_PAGE_SIZE = 4096
_HEADER_SIZE = 100
_MAGIC, _APPLICATION = slice(0, 16), slice(68, 72)
_PAGE_COUNT, _FREE_LIST = slice(28, 32), slice(32, 40)


def copies_with_new_header(path: Path, folder: str) -> Iterator[str]:
    """Yield paths of copies in `folder`: with a new header, then with a new first page.

    Yields nothing if the file does not begin like a data source of the embedded library.
    """
    copy, new = os.path.join(folder, "copy.qar"), os.path.join(folder, "new.qar")
    RecordSource(new, "x").close()
    with open(new, "rb") as file:
        page = bytearray(file.read(_PAGE_SIZE))
    with open_regular(path) as source, open(copy, "xb") as file:
        shutil.copyfileobj(source, file)
        pages = file.tell() // _PAGE_SIZE
    with open(copy, "r+b") as file:
        old = file.read(_HEADER_SIZE)
        if not any(old[field] == page[field] for field in (_MAGIC, _APPLICATION)):
            return
        page[_PAGE_COUNT] = pages.to_bytes(4, "big")
        page[_FREE_LIST] = bytes(8)
        for size in (_HEADER_SIZE, _PAGE_SIZE):
            file.seek(0)
            file.write(page[:size])
            file.flush()
            yield copy
