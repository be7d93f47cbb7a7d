"""Batches: the tasks of a manifest as calls of an executor."""

from __future__ import annotations

import json
import multiprocessing
import os
import subprocess
import time
from collections import Counter, deque
from collections.abc import Callable, Sequence
from pathlib import Path
from typing import Any, Protocol
from uuid import uuid4

from . import _program
from ._errors import Error

_AGAIN = 75  # exit code: another attempt may do
_SERVER_FAILURES = 3  # in a row, then a server is left alone
_LOOK = 0.5  # seconds between looks whether a result is still wanted


class Executor(Protocol):
    """What `run_batch` needs of an executor; its futures have done(), result() and cancel()."""

    def submit(self, fn: Callable[..., Any], /, *args: Any) -> Any: ...


def run_batch(
    manifest: str | os.PathLike[str],
    executor: Executor,
    *,
    servers: Sequence[str] | None = None,
    retries: int = 2,
) -> list[Path]:
    """Run what is not done of a batch, wherever an executor runs functions, and join the parts.

    Each task is a call that runs ``talven batch run``; no image goes through Python. Tasks that are
    done are not run again, so after an interruption the same call goes on. When one task fails the
    others are still run.

    Parameters
    ----------
    manifest : path
        The plan, from ``talven batch plan``. Workers see it, the inputs and the outputs under the
        same paths, and have this package installed.
    executor : concurrent.futures.Executor
        Threads, processes, Dask's ``client.get_executor()``, submitit's ``AutoExecutor``, or
        another object with `submit`. It stays open.
    servers : sequence of str, optional
        ``host:port`` or ``ssh://host`` of servers, each for one task at a time; one that fails
        three times in a row is left alone. Without them every task starts a private server where it
        runs.
    retries : int, optional
        How often a task is tried again that may do another time: the server was lost or busy,
        memory was short, the worker was lost.

    Returns
    -------
    list of pathlib.Path
        The volumes, in the order of the plan.

    Raises
    ------
    Error
        A task failed, or the parts could not be joined.

    Notes
    -----
    A task ends with its worker. All tasks end when this call is interrupted: beside the manifest it
    keeps a file, ``*.wanted``, as long as it wants results.

    Examples
    --------
    >>> with ThreadPoolExecutor() as threads:  # doctest: +SKIP
    ...     volumes = talven.run_batch("job.json", threads, servers=["gpubox", "otherbox:20248"])
    """
    path = Path(manifest).absolute()
    if servers is not None and not servers:
        raise ValueError("servers: expected at least one")
    states = _ask("status", path)["tasks"]
    waiting = deque(int(state["task"]) for state in states if state["state"] != "done")
    wanted = path.with_name(f"{path.stem}.{uuid4().hex}.wanted")
    wanted.touch()
    crew = _Crew(executor, path, wanted, waiting, servers, retries)
    try:
        crew.run()
    finally:
        wanted.unlink(missing_ok=True)
        crew.cancel()
    _ask("join", path)
    return [Path(volume["output"]) for volume in json.loads(path.read_text())["volumes"]]


class _Crew:
    """Tasks that wait, and where they run."""

    def __init__(
        self,
        executor: Executor,
        manifest: Path,
        wanted: Path,
        waiting: deque[int],
        servers: Sequence[str] | None,
        retries: int,
    ) -> None:
        self._submit = executor.submit
        self._files = str(manifest), str(wanted)
        self._waiting = waiting
        self._most = 1 + retries
        self._idle: deque[str | None] = deque(servers or [])
        if servers is None:
            self._idle.extend(None for _ in waiting)
        self._resting: list[str | None] = []  # servers that failed, until another task ends
        self._running: list[tuple[Any, int, str | None]] = []
        self._attempts: Counter[int] = Counter()
        self._in_a_row: Counter[str | None] = Counter()  # failures of a server
        self._failed: dict[int, str] = {}
        self._last = ""

    def run(self) -> None:
        while self._waiting or self._running:
            if not self._running:
                self._wake()
            while self._waiting and self._idle:
                self._start(self._waiting.popleft(), self._idle.popleft())
            if not self._running:
                break  # all servers are left alone
            ended = [each for each in self._running if each[0].done()]
            for each in ended:
                self._running.remove(each)
                self._end(*each)
            if not ended:
                time.sleep(min(1.0, 0.02 * (1 + len(self._running))))  # some ask the file system
        if self._failed or self._waiting:
            count = len(self._failed) + len(self._waiting)
            raise Error(f"{count} task(s) not done, the last: {self._last}")

    def cancel(self) -> None:
        for future, _, _ in self._running:
            future.cancel()

    def _start(self, task: int, server: str | None) -> None:
        self._attempts[task] += 1
        # An executor that remembers results by their arguments has never seen these.
        future = self._submit(run_task, *self._files, task, self._attempts[task], server)
        self._running.append((future, task, server))

    def _end(self, future: Any, task: int, server: str | None) -> None:
        try:
            code, text = future.result()
        except Exception as error:  # the worker was lost
            code, text = _AGAIN, f"{type(error).__name__}: {error}"
        if code == 0:
            self._in_a_row[server] = 0
        else:
            self._last = f"task {task}: {text}"
            if code == _AGAIN and self._attempts[task] < self._most:
                self._waiting.append(task)
            else:
                self._failed[task] = text
        if server is None or code != _AGAIN:
            self._idle.append(server)
            self._wake()
        else:
            self._in_a_row[server] += 1
            if self._in_a_row[server] < _SERVER_FAILURES:
                self._resting.append(server)

    def _wake(self) -> None:
        self._idle.extend(self._resting)
        self._resting.clear()


def run_task(
    manifest: str, wanted: str, task: int, attempt: int, server: str | None
) -> tuple[int, str]:
    """An attempt at a task: its exit code, and what went wrong."""
    time.sleep(attempt - 1)  # what was missing may be there then
    where = [] if server is None else ["--server", server]
    options = ["--quiet", "--with-parent", *where]
    if not _is_wanted(wanted):
        return _AGAIN, "not wanted any more"
    with _start("run", manifest, str(task), *options) as process:
        code, _, error = _wait(process, lambda: _is_wanted(wanted))
    return code, error


def _is_wanted(file: str) -> bool:
    try:
        os.stat(file)
    except FileNotFoundError:
        return False
    except OSError:
        pass  # a file server that is away for a moment
    parent = multiprocessing.parent_process()  # an executor's worker may outlive it
    return parent is None or os.path.exists(f"/proc/{parent.pid}")


def _ask(command: str, manifest: Path) -> Any:
    with _start(command, str(manifest), "--json") as process:
        code, output, error = _wait(process)
    if code != 0:
        raise Error(error)
    return json.loads(output)


def _start(*arguments: str) -> subprocess.Popen[str]:
    return subprocess.Popen(
        [_program.find("talven"), "batch", *arguments],
        stdin=subprocess.DEVNULL,
        stdout=subprocess.PIPE,
        stderr=subprocess.PIPE,
        text=True,
        errors="replace",
        start_new_session=True,  # Ctrl-C comes through us, once
    )


def _wait(
    process: subprocess.Popen[str], is_wanted: Callable[[], bool] = lambda: True
) -> tuple[int, str, str]:
    """Exit code, output, and the last line about errors."""
    stopped = False
    try:
        while True:
            try:
                output, errors = process.communicate(timeout=_LOOK)
                break
            except subprocess.TimeoutExpired:
                if not stopped and not is_wanted():
                    process.terminate()
                    stopped = True
    except BaseException:
        process.terminate()
        raise
    code = process.returncode if process.returncode >= 0 else _AGAIN  # a signal ended it
    lines = errors.strip().splitlines() or [f"exit {process.returncode}"]
    return code, output, lines[-1].removeprefix("talven: ")
