"""The analysis of many files from a script or a notebook."""

import warnings
from typing import Any, Collection, Iterable, Iterator, Tuple

from .. import formats, optional_imports
from ..atomic_files import Path
from ..display.notebook import Results
from ..errors import QarError
from ..formats import FormatError
from .any_file import open_copy


def analyse_files(
    paths: Iterable[Path], progress: bool = True, groups: Collection[str] = (), **settings: Any
) -> Iterator[Tuple[Path, Results]]:
    """Yield each file with the results of an analysis, which changes no file.

    paths: files of any format; of several spectra in a file the foreground is analysed.
    progress: show a bar if tqdm is installed. groups, settings: as for `DataSource.analyse`.
    A file that cannot be analysed is left out with a warning.
    """
    files = list(paths)
    bars = optional_imports.optional("tqdm.auto") if progress else None
    for path in files if bars is None else bars.tqdm(files, unit="file"):
        try:
            with open_copy(formats.foreground(formats.read(path))) as (source, _):
                results = source.analyse(groups=groups, **settings)
        except (FormatError, QarError, OSError) as error:
            warnings.warn(f"{path!s}: {error}", stacklevel=2)
        else:
            yield path, results
