"""A blank, whose peaks an analysis subtracts from those of a sample."""

import contextlib
import math
from typing import Iterator, NamedTuple, Optional, Sequence, Tuple

from ..errors import NotFoundError, refuse
from ..records import RecordSource
from ..values import CODE_PAGE, is_known
from .calibration import polynomial

MAX_NAME = 255
_BLANK, _NAME, _LIVE_TIME = "QAR_D_BLANKLIVE", "QAR_C_ANBLANK", "QAR_D_ANBLANKLIVE"


class Blank(NamedTuple):
    """The spectrum of a blank with its own calibrations.

    shape: empty to estimate the peak widths from the spectrum. See Calibration for coefficients.
    """

    name: str
    counts: Tuple[int, ...]  # of channel 1, 2, ...
    live_time: float  # s
    energy: Tuple[float, ...]
    shape: Tuple[float, ...] = ()


def blank_of(source: RecordSource) -> Blank:
    """Return the measurement in an open source as a blank. Raises BadArgumentError."""
    return checked(
        source.path,
        source.spectrum() if source.record_count("QAR_CLS_SPECTRUM") else (),
        source.get("QAR_D_LIVETIME"),
        source.column("QAR_D_ENERGYCAL"),
        source.column("QAR_D_SHAPECAL"),
    )


def checked(
    name: str,
    counts: Sequence[int],
    live_time: Optional[float],
    energy: Sequence[float],
    shape: Sequence[float],
) -> Blank:
    """Return a blank. Raises BadArgumentError if an analysis cannot subtract it."""
    reason = ""
    if not any(count > 0 for count in counts):
        reason = "no counts; expected the spectrum of a blank"
    elif live_time is None or not 0 < live_time < math.inf:
        reason = "no live time; it is needed to scale the blank to the sample"
    elif not _rises(energy, len(counts)):
        reason = "no energy calibration whose energies rise; it is needed to find the lines"
    if live_time is None or reason:
        raise refuse("using the blank", name, reason)
    return Blank(name, tuple(counts), live_time, tuple(energy), tuple(shape))


def _rises(energy: Sequence[float], channels: int) -> bool:
    energies = [polynomial(energy, channel) for channel in range(1, channels + 1)]
    return len(energy) > 1 and all(low < high for low, high in zip(energies, energies[1:]))


@contextlib.contextmanager
def lent_to(source: RecordSource, blank: Optional[Blank]) -> Iterator[None]:
    """Lend a blank to a source for the time of an analysis.

    The source records the name and the live time of the blank, not its spectrum. Raises
    BadArgumentError if the activities of the source cannot be computed.
    """
    if blank is not None:
        _refuse_without_activities(source)
        source[_BLANK] = blank.live_time
        source.set_column("QAR_D_BLANKENERGY", blank.energy)
        source.set_column("QAR_D_BLANKSHAPE", blank.shape)
        source.set_column("QAR_L_BLANKCOUNTS", blank.counts)
    try:
        yield
    finally:
        if blank is not None:
            source.clear(_BLANK)
    if blank is not None:
        source[_NAME], source[_LIVE_TIME] = _storable(blank.name), blank.live_time
    elif _has_name(source):
        source[_NAME] = ""


def _refuse_without_activities(source: RecordSource) -> None:
    live_time = source.get("QAR_D_LIVETIME")
    if not is_known(live_time) or not live_time > 0:
        raise refuse("using a blank for", source.path, "no live time to which it can be scaled")
    if not any(source.column("QAR_D_EFFICCAL")):
        raise refuse(
            "using a blank for",
            source.path,
            "no efficiency calibration; a blank is subtracted from activities",
        )


def _storable(name: str) -> str:
    return name.encode(CODE_PAGE, "replace").decode(CODE_PAGE)[:MAX_NAME]


def _has_name(source: RecordSource) -> bool:
    try:
        return bool(source.get(_NAME))
    except NotFoundError:  # the dictionary of another suite may lack it
        return False
