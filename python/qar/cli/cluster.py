"""The same work on a Dask cluster (python3-distributed)."""

import concurrent.futures
from typing import Any

from .. import optional_imports
from .file_analysis import Options, Outcome, outcome

CONNECTION_SECONDS = 10


class Cluster:
    """A connection to a Dask scheduler. Leaving the `with` statement closes it.

    The workers must see the files under the same names.
    """

    def __init__(self, address: str, options: Options) -> None:
        """Raises ImportError if distributed is missing, OSError if no scheduler answers."""
        self._address, self._options = address, options
        self._client = _connected(address)
        # Two more attempts if a worker dies; a failure of the file itself is an outcome.
        self._executor = self._client.get_executor(pure=False, retries=2)

    def __enter__(self) -> "Cluster":
        return self

    def __exit__(self, kind: Any, *_: object) -> None:
        self._client.close(timeout=CONNECTION_SECONDS)
        if kind is not None and issubclass(kind, concurrent.futures.CancelledError):
            raise self._lost() from None

    def submit(self, path: str) -> "concurrent.futures.Future[Outcome]":
        future: "concurrent.futures.Future[Outcome]"
        future = self._executor.submit(outcome, path, self._options)
        return future

    def refuse_lost(self) -> None:
        """Raises ConnectionError if the scheduler no longer answers."""
        if self._client.status != "running":
            raise self._lost()

    def _lost(self) -> ConnectionError:
        return ConnectionError(f"the connection to the cluster at {self._address} was lost")


def _connected(address: str) -> Any:
    distributed = optional_imports.required("distributed")
    try:
        return distributed.Client(address, timeout=CONNECTION_SECONDS, set_as_default=False)
    except (OSError, ValueError) as error:
        raise ConnectionError(f"no Dask scheduler at {address}: {error}") from None
