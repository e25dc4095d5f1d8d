"""Unfinished output files of a batch, in folders that are deleted at its end however it ends."""

import contextlib
import os
import shutil
import tempfile
from typing import Dict, List

from ..atomic_files import refuse_taken, write_text
from ..display import assets
from .file_analysis import Options, StagedFile
from .journal import Journal
from .output_folder import output_folder

_PREFIX = ".qar-batch-"


class Staging:
    """A staging folder in each output folder of a batch. Leaving the `with` statement deletes it.

    Output folders that do not exist are created, and deleted at the end if they stay empty.
    """

    def __init__(self, options: Options, journal: Journal) -> None:
        self._folders: Dict[str, str] = {}
        self._outputs = contextlib.ExitStack()
        self._published = {target: file.input for target, file in journal.created.items()}
        self._options, self._journal = options, journal

    def __enter__(self) -> "Staging":
        outputs = [folder for folder in (self._options.into, self._options.reports) if folder]
        for left in self._journal.staging:
            _delete_left(left, outputs)
        try:
            for folder in outputs:
                self._outputs.enter_context(output_folder(folder))
                if folder not in self._folders:
                    self._folders[folder] = tempfile.mkdtemp(prefix=_PREFIX, dir=folder)
                    self._journal.add_staging(self._folders[folder])
        except BaseException:
            self.__exit__()
            raise
        return self

    def __exit__(self, *_: object) -> None:
        for staging in self._folders.values():
            shutil.rmtree(staging, ignore_errors=True)
        self._outputs.close()

    def options(self) -> Options:
        """Return the options with the staging folders and the files that may be replaced."""
        return self._options._replace(
            staging=tuple(self._folders.items()),
            replaceable=frozenset(filter(self._journal.is_own, self._journal.created)),
        )

    def publish(self, path: str, file: StagedFile) -> None:
        """Give a complete file of an input its name.

        Raises FileExistsError if the name is taken by a file that may not be replaced.
        """
        is_first = self._published.setdefault(file.target, path) == path
        is_own = self._journal.is_own(file.target, path)
        refuse_taken(file.target, is_first and (self._options.replace or is_own))
        self._journal.add_created(path, file)
        if os.path.lexists(file.target):
            os.replace(file.staged, file.target)
        else:
            _rename_new(file)
        if os.path.dirname(file.target) == self._options.reports:
            _add_shared_files(self._options.reports)


def _add_shared_files(folder: str) -> None:
    """Write the script of the reports, unless the same version of it is there."""
    for name, text in assets.shared_files().items():
        path = os.path.join(folder, name)
        if not os.path.exists(path):
            write_text(path, text, replace=True)


def _rename_new(file: StagedFile) -> None:
    """Rename a file to a name that was free. Raises FileExistsError if it no longer is."""
    try:
        os.link(file.staged, file.target)
    except FileExistsError:
        refuse_taken(file.target, False)
    except OSError:  # a file system without hard links
        os.rename(file.staged, file.target)
    else:
        os.remove(file.staged)


def _delete_left(folder: str, outputs: List[str]) -> None:
    """Delete a staging folder that a killed batch left; the journal could name any folder."""
    parent, name = os.path.split(folder)
    if parent in outputs and name.startswith(_PREFIX) and not os.path.islink(folder):
        shutil.rmtree(folder, ignore_errors=True)
