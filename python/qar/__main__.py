"""The command line: `python -m qar`.

    qar status CODE...     what statuses say: -320234115, 0xECE99D7D
"""

import sys
from typing import List, Optional

from . import status


def main(arguments: Optional[List[str]] = None) -> int:
    words = sys.argv[1:] if arguments is None else arguments
    if len(words) < 2 or words[0] != "status":
        print(__doc__, file=sys.stderr)
        return 2
    try:
        codes = [int(word, 0) for word in words[1:]]
    except ValueError as error:
        print(error, file=sys.stderr)
        return 2
    for code in codes:
        print(status.describe(code))
    return 0


if __name__ == "__main__":
    sys.exit(main())
