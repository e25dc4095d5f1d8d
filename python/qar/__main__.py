"""`python -m qar`: the command line."""

import sys

from .command_line import main

if __name__ == "__main__":
    sys.exit(main())
