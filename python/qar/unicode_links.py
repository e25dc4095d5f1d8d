"""Unicode names for files whose own names are not UTF-8.

The data-access library takes names in UTF-8. Python passes the bytes of a name that are not UTF-8
as lone surrogates, so such a file is opened through a symbolic link.
"""

import os
import tempfile


def is_unicode(name: str) -> bool:
    """Return True if a name can be written in UTF-8."""
    try:
        name.encode("utf-8")
    except UnicodeEncodeError:
        return False
    return True


class UnicodeLink:
    """Owns a symbolic link, in a temporary folder, through which a file has a Unicode name.

    The link leads to the folder of the file, or to the file if its own name is not Unicode.
    """

    def __init__(self, path: str) -> None:
        target = os.path.abspath(path)
        folder, base = os.path.split(target)
        self._folder = tempfile.TemporaryDirectory(prefix="qar-")
        link = os.path.join(self._folder.name, "link.qar")
        if is_unicode(base):
            os.symlink(folder, link)
            self.name = os.path.join(link, base)
        else:
            os.symlink(target, link)
            self.name = link

    def remove(self) -> None:
        self._folder.cleanup()
