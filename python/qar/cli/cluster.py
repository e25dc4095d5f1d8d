"""The same work on a Dask cluster (python3-distributed), as a laboratory may have one."""

import concurrent.futures
from typing import Any, Iterator, Sequence, Tuple

from .. import optional_imports
from .file_analysis import Options, Outcome, outcome

CONNECTION_SECONDS = 10


def outcomes(paths: Sequence[str], options: Options, address: str) -> Iterator[Tuple[str, Outcome]]:
    """What becomes of each file; the workers must see the files under the same names.

    ImportError: distributed is missing. OSError: no scheduler answers at the address, or the
    cluster went away meanwhile.
    """
    from .batch import completed

    client = _connected(address)
    try:
        # Two more tries where a worker dies; what the file itself did wrong is an outcome.
        executor: concurrent.futures.Executor = client.get_executor(pure=False, retries=2)
        for path, found in completed(paths, lambda path: executor.submit(outcome, path, options)):
            if client.status != "running" and found.failure:
                raise ConnectionError(f"the cluster at {address} went away")
            yield path, found
    except concurrent.futures.CancelledError:
        raise ConnectionError(f"the cluster at {address} went away") from None
    finally:
        client.close(timeout=CONNECTION_SECONDS)


def _connected(address: str) -> Any:
    distributed = optional_imports.required("distributed")
    try:
        return distributed.Client(address, timeout=CONNECTION_SECONDS, set_as_default=False)
    except (OSError, ValueError) as error:
        raise ConnectionError(f"no Dask scheduler at {address}: {error}") from None
