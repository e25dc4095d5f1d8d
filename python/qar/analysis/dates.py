"""The dates from which the decay of a sample is computed."""

from datetime import datetime, timedelta, timezone

from ..errors import refuse
from ..records import RecordSource
from ..values import datetime_of

_DATES = {"QAR_T_SAMPLETIME": "the time of reference", "QAR_T_ACQSTART": "the start"}
_TOLERANCE = timedelta(days=1)  # clocks that are set to another time zone


def refuse_future(source: RecordSource) -> None:
    """Raise BadArgumentError if activities would be corrected with a date in the future."""
    texts = {name: source.get(name) for name in _DATES}
    is_corrected = source.get("QAR_B_DECAYCORR", default=True) and all(texts.values())
    if not is_corrected or not any(source.column("QAR_D_EFFICCAL")):
        return
    latest = datetime.now(timezone.utc) + _TOLERANCE
    for name, text in texts.items():
        if datetime_of(text) > latest:
            raise refuse("using the date", name, f"{_DATES[name]}, {text}, is in the future")
