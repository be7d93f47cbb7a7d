"""Batches on executors: complete, the same bytes, and nothing computes on when nobody waits."""

from __future__ import annotations

import contextlib
import multiprocessing
import os
import signal
import threading
import time
from collections.abc import Callable
from concurrent.futures import Executor, ProcessPoolExecutor, ThreadPoolExecutor
from pathlib import Path

import pytest
import talven
from conftest import find_programs, run_python, start_server

SERIES = "--tilts ts.mrc --angles ts.tlt --thickness 48"


class Batch:
    """Four parts of a volume, and all processes that work on them."""

    def __init__(self, folder: Path, whole: bytes) -> None:
        self.folder = folder
        self.manifest = folder / "job.json"
        self.output = folder / "rec.mrc"
        self.whole = whole

    def find(self, *words: str) -> list[int]:
        """Talven's programs at work, those with some words in their command line."""
        found = []
        for process in Path("/proc").glob("[0-9]*"):
            with contextlib.suppress(OSError):
                program = (process / "exe").readlink().name
                environment = (process / "environ").read_bytes().split(b"\0")
                command = (process / "cmdline").read_text().split("\0")
                if program in ("talven", "talven-server") and set(words) <= set(command):
                    if f"TMPDIR={self.folder}".encode() in environment:
                        found.append(int(process.name))
        return found

    def judge(self, paths: list[Path]) -> None:
        assert paths == [self.output]
        assert self.output.read_bytes() == self.whole
        assert not list(self.folder.glob("*.wanted"))
        wait_until(lambda: not self.find())
        assert talven.run_batch(self.manifest, Nobody()) == [self.output]


class Nobody:
    def submit(self, *_: object) -> None:
        raise AssertionError("everything is done")


def wait_until(condition: Callable[[], object], seconds: float = 30) -> None:
    end = time.monotonic() + seconds
    while not condition():
        assert time.monotonic() < end, "it has not come"
        time.sleep(0.02)


@pytest.fixture(scope="module")
def series(tmp_path_factory: pytest.TempPathFactory) -> Path:
    folder = tmp_path_factory.mktemp("series")
    specimen = talven.phantom((96, 128), 48, range(-60, 61, 3), beads=4)
    talven.io.write_mrc(folder / "ts.mrc", specimen.tilts)
    talven.io.write_angles(folder / "ts.tlt", specimen.angles)
    return folder


@pytest.fixture
def batch(
    series: Path, tmp_path: Path, run: Callable[..., str], monkeypatch: pytest.MonkeyPatch
) -> Batch:
    monkeypatch.setenv("TMPDIR", str(tmp_path))
    monkeypatch.setenv("PATH", f"{find_programs()}:{os.environ['PATH']}")
    for name in ("ts.mrc", "ts.tlt"):
        (tmp_path / name).symlink_to(series / name)
    if not (series / "whole.mrc").exists():
        command = f"reconstruct {SERIES} --iterations 300 -o {series}/whole.mrc"
        run(*command.split())
    for plan, iterations in (("job.json", 300), ("long.json", 100000)):
        command = f"batch plan {SERIES} --output rec.mrc --slabs 4 --iterations {iterations}"
        run(*command.split(), "-o", plan)
    return Batch(tmp_path, (series / "whole.mrc").read_bytes())


def test_threads_over_servers_of_which_one_dies(batch: Batch) -> None:
    with (
        start_server(batch.folder) as (victim, first),
        start_server(batch.folder) as (_, second),
        ThreadPoolExecutor() as threads,
    ):

        def kill() -> None:
            wait_until(lambda: batch.find(first) and batch.find(second))
            time.sleep(0.2)
            victim.kill()

        killer = threading.Thread(target=kill)
        killer.start()
        volumes = talven.run_batch(batch.manifest, threads, servers=[first, second])
        killer.join()
    assert (batch.folder / "job.failures.jsonl").exists()
    batch.judge(volumes)


def test_what_fails_is_told_when_the_rest_is_done(batch: Batch) -> None:
    with ThreadPoolExecutor(2) as threads:
        with pytest.raises(talven.Error, match=r"4 task\(s\).*127.0.0.1:1"):
            talven.run_batch(batch.manifest, threads, servers=["127.0.0.1:1"], retries=1)
        part = batch.folder / "rec.mrc.parts" / "00024-00048.mrc"
        part.mkdir(parents=True)
        (part / "file").touch()
        with pytest.raises(talven.Error, match=r"1 task\(s\) not done, the last: task 1: .*00048"):
            talven.run_batch(batch.manifest, threads)
        assert len(list(part.parent.glob("*.json"))) == 3
        (batch.folder / "ts.tlt").unlink()
        with pytest.raises(talven.Error, match=r"ts\.tlt"):
            talven.run_batch(batch.manifest, threads)
    with pytest.raises(talven.Error, match="none.json"):
        talven.run_batch(batch.folder / "none.json", Nobody())


CALLER = """
from concurrent.futures import {pool}
import talven
with {pool}(2) as executor:
    talven.run_batch({manifest!r}, executor)
"""


@pytest.mark.parametrize("end", [signal.SIGINT, signal.SIGKILL])
@pytest.mark.parametrize("pool", [ThreadPoolExecutor, ProcessPoolExecutor])
def test_tasks_end_with_their_caller(
    batch: Batch, pool: Callable[..., Executor], end: signal.Signals
) -> None:
    code = CALLER.format(pool=pool.__name__, manifest=str(batch.folder / "long.json"))
    with run_python(code) as caller:
        wait_until(lambda: len(batch.find("run")) == 2)
        time.sleep(0.2)
        caller.send_signal(end)
        if end == signal.SIGINT:
            assert "KeyboardInterrupt" in caller.communicate(timeout=30)[1]
            assert not list(batch.folder.glob("*.wanted"))
        caller.wait()
        wait_until(lambda: not batch.find(), 10)


def test_processes(batch: Batch) -> None:
    with ProcessPoolExecutor(2, multiprocessing.get_context("spawn")) as processes:
        batch.judge(talven.run_batch(batch.manifest, processes))


def test_submitit(batch: Batch) -> None:
    submitit = pytest.importorskip("submitit")
    executor = submitit.AutoExecutor(batch.folder / "log", cluster="local")
    batch.judge(talven.run_batch(batch.manifest, executor))


def test_dask_loses_a_worker(batch: Batch) -> None:
    distributed = pytest.importorskip("distributed")
    with (
        distributed.LocalCluster(
            n_workers=2, threads_per_worker=1, dashboard_address=None
        ) as cluster,
        distributed.Client(cluster) as client,
    ):
        workers = client.run(os.getpid).values()

        def kill() -> None:
            wait_until(lambda: len(batch.find()) == 4)  # two programs, two servers
            lost = batch.find("run")[0]
            worker = int(Path(f"/proc/{lost}/stat").read_text().split()[3])
            assert worker in workers
            os.kill(worker, signal.SIGKILL)
            wait_until(lambda: lost not in batch.find())

        with ThreadPoolExecutor() as threads:
            killed = threads.submit(kill)
            volumes = talven.run_batch(batch.manifest, client.get_executor())
            killed.result()
        assert "interrupted" in (batch.folder / "job.failures.jsonl").read_text()
        batch.judge(volumes)
