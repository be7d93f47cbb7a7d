"""Servers."""

from __future__ import annotations

import threading
import weakref
from collections.abc import Iterator, Sequence
from contextlib import contextmanager
from pathlib import Path
from types import TracebackType
from typing import Literal, TypeVar

from . import _core
from ._progress import Teller

BackendName = Literal["auto", "cuda", "host"]
Self = TypeVar("Self", bound="Connection")

_server = Path(__file__).parent / "bin" / "talven-server"


class Connection:
    """A server, and the thread that talks to it."""

    def __init__(
        self,
        server: str | Sequence[str] | None = None,
        *,
        devices: int | None = None,
        cores: int | None = None,
        backend: BackendName | None = None,
        timeout: float | None = None,
    ) -> None:
        if isinstance(server, (list, tuple)) and all(isinstance(name, str) for name in server):
            server = ",".join(server)
        if server is not None and not isinstance(server, str):
            raise TypeError(f"server: expected 'host:port', a list or a Session, not {server!r}")
        if server is not None and (devices or cores or backend):
            raise ValueError("devices, cores and backend are for a private server")
        if devices is not None and not 1 <= devices <= 16:
            raise ValueError(f"devices: expected 1 to 16, not {devices}")
        if cores is not None and not 1 <= cores <= 1024:
            raise ValueError(f"cores: expected 1 to 1024, not {cores}")
        self._server = server or ""
        self._timeout = timeout
        program = str(_server) if _server.exists() else ""
        self._core = _core.Session(self._server, devices or 0, cores or 0, backend or "", program)
        self._lock = threading.Lock()
        self._finalizer = weakref.finalize(self, self._core.close)

    def close(self) -> None:
        """Leave the server; a private one ends."""
        with self._lock:
            self._core.close()

    def __enter__(self: Self) -> Self:
        with self.job(None):
            return self

    def __exit__(
        self,
        kind: type[BaseException] | None,
        value: BaseException | None,
        trace: TracebackType | None,
    ) -> None:
        self.close()

    @property
    def is_private(self) -> bool:
        """Whether the server is this process's own."""
        return not self._server

    @property
    def expected_devices(self) -> int:
        """Devices that a private server starts."""
        return self._core.expected_devices

    def memory(self) -> int:
        """Bytes of the devices' memory that jobs may use."""
        with self.job(None) as core:
            return core.memory()

    def info(self) -> str:
        """What a private server said about its backend and devices; nothing is known of others."""
        with self.job(None) as core:
            return core.info

    @contextmanager
    def job(self, progress: Teller | None) -> Iterator[_core.Session]:
        """The connected core, for one job; other threads wait."""
        with self._lock:
            if not self._core.is_open:
                self._core.connect(progress, self._timeout)
            yield self._core


ServerLike = str | Sequence[str] | Connection | None


@contextmanager
def connected(server: ServerLike, progress: Teller | None) -> Iterator[_core.Session]:
    """The core of a session, or of one for this job alone."""
    if isinstance(server, Connection):
        with server.job(progress) as core:
            yield core
        return
    connection = Connection(server)
    try:
        with connection.job(progress) as core:
            yield core
    finally:
        connection.close()
