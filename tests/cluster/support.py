"""A batch of four parts, and the processes that work on it."""

from __future__ import annotations

import contextlib
import os
import shutil
import signal
import subprocess
import sys
import tempfile
import time
from collections.abc import Callable, Iterator
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
SERIES = "--tilts ts.mrc --angles ts.tlt --thickness 48 --iterations 700"


def skip(reason: str) -> None:
    print("skipped:", reason)
    sys.exit(77)


def find_example(name: str) -> Path:
    """A file of examples/cluster, which docs/cluster.md shows as it is."""
    example = ROOT / "examples" / "cluster" / name
    shown = (ROOT / "docs" / "cluster.md").read_text()
    assert example.read_text() in shown, f"docs/cluster.md shows another {name}"
    return example


def wait_until(condition: Callable[[], object], seconds: float = 60) -> object:
    end = time.monotonic() + seconds
    while not (found := condition()):
        assert time.monotonic() < end, "it has not come"
        time.sleep(0.1)
    return found


class Batch:
    """job.json in a folder of its own; every process of it has the folder in its environment."""

    def __init__(self, folder: Path) -> None:
        self.folder = folder
        self.manifest = folder / "job.json"
        os.environ["TMPDIR"] = str(folder)
        program = Path(sys.argv[1]).resolve()
        os.environ["PATH"] = f"{program.parent}:{os.environ['PATH']}"
        self.run("talven phantom ts --size 96,128 --thickness 48 --angles -60,60,3 --quiet")
        self.run(f"talven reconstruct {SERIES} -o whole.mrc --quiet")
        self.plan("job")

    def plan(self, name: str) -> None:
        command = f"talven batch plan {SERIES} -o {name}.json --output {name}.mrc"
        self.run(f"{command} --slabs 4 --cores 1 --quiet")

    def run(self, command: str) -> str:
        done = subprocess.run(
            command.split(), cwd=self.folder, stdout=subprocess.PIPE, text=True, check=True
        )
        return done.stdout

    def judge(self) -> None:
        assert (self.folder / "job.mrc").read_bytes() == (self.folder / "whole.mrc").read_bytes()

    def find(self, text: str, program: str = "") -> list[int]:
        """Processes of this batch, those with a text in their environment, or of a program."""
        found = []
        for process in Path("/proc").glob("[0-9]*"):
            with contextlib.suppress(OSError):
                environment = (process / "environ").read_bytes()
                ours = os.fsencode(self.folder) in environment and os.fsencode(text) in environment
                ours = ours and (process / "exe").readlink().name.endswith(program)
                if ours and int(process.name) != os.getpid():
                    found.append(int(process.name))
        return found

    def kill(self, text: str = "") -> None:
        for process in self.find(text):
            with contextlib.suppress(OSError):
                os.kill(process, signal.SIGKILL)


@contextlib.contextmanager
def make_batch() -> Iterator[Batch]:
    signal.signal(signal.SIGTERM, lambda *_: sys.exit("terminated"))
    folder = Path(tempfile.mkdtemp(prefix="talven-cluster-"))
    batch = None
    try:
        batch = Batch(folder)
        yield batch
    except BaseException as error:
        if not isinstance(error, SystemExit):
            for log in sorted(folder.glob("*.log")):
                print(f"--- {log.name}\n" + "\n".join(log.read_text().splitlines()[-40:]))
        raise
    finally:
        if batch is not None:
            while batch.find(""):
                batch.kill()
                time.sleep(0.1)
        shutil.rmtree(folder, ignore_errors=True)
