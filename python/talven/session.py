"""A server for many jobs."""

from __future__ import annotations

from collections.abc import Callable
from functools import partial, update_wrapper
from typing import Generic, ParamSpec, TypeVar

from ._alignment import align
from ._images import compare, transform
from ._reconstruct import reconstruct, reproject
from ._session import Connection

P = ParamSpec("P")
T = TypeVar("T")


class _Job(Generic[P, T]):
    """A function of this package as a method, on the session's server."""

    def __init__(self, function: Callable[P, T]) -> None:
        self._function = function
        update_wrapper(self, function)  # type: ignore[arg-type]

    def __get__(self, session: Connection | None, owner: type) -> Callable[P, T]:
        if session is None:
            return self._function
        return partial(self._function, server=session)  # type: ignore[arg-type]


class Session(Connection):
    """One server, many jobs.

    Threads may share a session: their jobs run one after the other. A server serves one session at
    a time. After a job that was interrupted or a server that was lost, the next job connects again.

    Parameters
    ----------
    server : str or list of str, optional
        ``"host:port"``, ``"host"`` (port 20248), ``"[::1]:port"`` or, through your ssh,
        ``"ssh://[user@]host[:port of ssh][/port of the server]"``, which starts a server there when
        none listens. Of several, in a list or with commas between them, the one that is free first.
        Default: a private server on this machine, which ends with the session.
    devices : int, optional
        Of a private server; default: all.
    cores : int, optional
        Of a private server without a GPU, on all its devices together; default: those that this
        process may use.
    backend : {'auto', 'cuda', 'host'}, optional
        Of a private server.
    timeout : float, optional
        Seconds to wait for the clients before us, then `ServerBusy`; default: as long as it takes.
        A server that is free has at least one to answer, through ssh 15.

    Examples
    --------
    >>> with talven.Session("gpubox:20248") as session:
    ...     volume = session.reconstruct(tilts, angles, thickness=128)
    ...     again = session.reproject(volume, angles)
    """

    reconstruct = _Job(reconstruct)
    reproject = _Job(reproject)
    align = _Job(align)
    transform = _Job(transform)
    compare = _Job(compare)
