"""The programs that come with the package, as console scripts."""

from __future__ import annotations

import os
import sys
from pathlib import Path
from typing import NoReturn


def _become(name: str) -> NoReturn:
    program = Path(__file__).parent / "bin" / name
    os.execv(program, [str(program), *sys.argv[1:]])


def talven() -> NoReturn:
    """The command line."""
    _become("talven")


def talven_server() -> NoReturn:
    """The server."""
    _become("talven-server")
