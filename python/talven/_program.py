"""The programs that come with the package, also as console scripts."""

from __future__ import annotations

import os
import shutil
import sys
from pathlib import Path
from typing import NoReturn

from ._errors import Error


def find(name: str) -> str:
    """Path of a program: of the package, beside TALVEN_SERVER, or in PATH."""
    folders = [Path(__file__).parent / "bin"]
    if "TALVEN_SERVER" in os.environ:
        folders.append(Path(os.environ["TALVEN_SERVER"]).parent)
    for folder in folders:
        if (folder / name).is_file():
            return str(folder / name)
    found = shutil.which(name)
    if found is None:
        raise Error(f"cannot find {name} in {folders[0]} or in PATH")
    return found


def _become(name: str) -> NoReturn:
    program = Path(__file__).parent / "bin" / name
    os.execv(program, [str(program), *sys.argv[1:]])


def talven() -> NoReturn:
    """The command line."""
    _become("talven")


def talven_server() -> NoReturn:
    """The server."""
    _become("talven-server")
