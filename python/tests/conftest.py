"""A small specimen and its series, and the programs beside the package."""

from __future__ import annotations

import contextlib
import os
import socket
import subprocess
import sys
import time
from collections.abc import Callable, Iterator
from pathlib import Path

import numpy as np
import pytest
import talven


@pytest.fixture(scope="session")
def phantom() -> talven.Phantom:
    return talven.phantom((40, 64), 24, np.arange(-60, 61, 6), beads=4)


@pytest.fixture(scope="session")
def session() -> Iterator[talven.Session]:
    with talven.Session() as shared:
        yield shared


@pytest.fixture(scope="session")
def volume(session: talven.Session, phantom: talven.Phantom) -> np.ndarray:
    return session.reconstruct(phantom.tilts, phantom.angles, 24, iterations=3)


def find_programs() -> Path:
    """The folder of talven and talven-server."""
    named = os.environ.get("TALVEN_SERVER")
    return Path(named).parent if named else Path(talven.__file__).parent / "bin"


@pytest.fixture
def run(tmp_path: Path) -> Callable[..., str]:
    """Runs the command line in a folder of the test's own."""

    def start(*args: str) -> str:
        program = find_programs() / "talven"
        done = subprocess.run([program, *args], cwd=tmp_path, capture_output=True, text=True)
        assert done.returncode == 0, done.stderr
        return done.stdout

    return start


@contextlib.contextmanager
def start_server(folder: Path) -> Iterator[tuple[subprocess.Popen[bytes], str]]:
    """A server that others may use, too, and its address."""
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        port = probe.getsockname()[1]
    environment = {**os.environ, "TALVEN_PORT": str(port), "TALVEN_BIND": "127.0.0.1"}
    program = find_programs() / "talven-server"
    with subprocess.Popen([program], cwd=folder, env=environment, stdout=subprocess.DEVNULL) as p:
        for _ in range(200):
            with socket.socket() as probe:
                if probe.connect_ex(("127.0.0.1", port)) == 0:
                    break
            time.sleep(0.02)
        yield p, f"127.0.0.1:{port}"
        p.kill()


@pytest.fixture
def server(tmp_path: Path) -> Iterator[str]:
    with start_server(tmp_path) as (_, address):
        yield address


def children() -> list[int]:
    """Processes that this one has started."""
    found = []
    for task in Path("/proc/self/task").iterdir():
        found += [int(pid) for pid in (task / "children").read_text().split()]
    return found


def run_python(code: str, **options: object) -> subprocess.Popen[str]:
    """Another interpreter with this one's path."""
    environment = {**os.environ, "PYTHONPATH": os.pathsep.join(sys.path)}
    return subprocess.Popen(
        [sys.executable, "-c", code],
        env=environment,
        stdout=subprocess.PIPE,
        stderr=subprocess.PIPE,
        text=True,
        **options,  # type: ignore[call-overload]
    )
