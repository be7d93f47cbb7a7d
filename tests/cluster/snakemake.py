"""The template for Snakemake, with a task whose server is killed."""

from __future__ import annotations

import os
import shutil
import signal
import subprocess
import sys
import time
from pathlib import Path

from support import SERIES, find_example, make_batch, skip, wait_until


def main() -> None:
    template = find_example("Snakefile")
    os.environ["PATH"] = f"{Path(sys.executable).parent}:{os.environ['PATH']}"
    if shutil.which("snakemake") is None:
        skip("there is no snakemake: scripts/python-env")
    with make_batch() as batch:
        plan = f"{SERIES} --output job.mrc --slabs 4 --cores 1"
        command = ["snakemake", "-s", str(template), "--cores", "2", "--config"]
        command += [f"plan={plan}", "manifest=other.json"]
        with open(batch.folder / "snakemake.log", "w") as log:
            engine = subprocess.Popen(command, cwd=batch.folder, stdout=log, stderr=log)
            server = wait_until(lambda: batch.find("", "talven-server"))[0]
            time.sleep(0.3)
            os.kill(server, signal.SIGKILL)
            assert engine.wait() == 0
        batch.judge()
        assert "restart job" in (batch.folder / "snakemake.log").read_text()
        again = subprocess.run(command, cwd=batch.folder, stderr=subprocess.PIPE, text=True)
        assert "Nothing to be done" in again.stderr, again.stderr


main()
