"""The template for Slurm on a cluster of three nodes, all on this machine, of which one is lost."""

from __future__ import annotations

import contextlib
import getpass
import os
import secrets
import shutil
import signal
import socket
import subprocess
import sys
from collections.abc import Iterator
from pathlib import Path

from support import Batch, find_example, make_batch, skip, wait_until

NODES = ("n1", "n2", "n3")
CONF = """
ClusterName=test
SlurmctldHost={host}(127.0.0.1)
SlurmctldPort={ports[0]}
SlurmUser={user}
SlurmdUser={user}
AuthType=auth/munge
AuthInfo=socket={folder}/munge.socket,cred_expire=5
CredType=cred/munge
StateSaveLocation={folder}/state
SlurmdSpoolDir={folder}/spool-%n
SlurmctldPidFile={folder}/slurmctld.pid
SlurmdPidFile={folder}/slurmd-%n.pid
ProctrackType=proctrack/linuxproc
TaskPlugin=task/none
SwitchType=switch/none
MpiDefault=none
SelectType=select/cons_tres
SelectTypeParameters=CR_Core_Memory
SchedulerParameters=sched_interval=1,sched_min_interval=0,bf_interval=1
SlurmdParameters=config_overrides
KillWait=2
"""


def free_ports(count: int) -> list[int]:
    with contextlib.ExitStack() as stack:
        probes = [stack.enter_context(socket.socket()) for _ in range(count)]
        for probe in probes:
            probe.bind(("127.0.0.1", 0))
        return [probe.getsockname()[1] for probe in probes]


@contextlib.contextmanager
def start_cluster(batch: Batch) -> Iterator[dict[str, subprocess.Popen[bytes]]]:
    """Gives the daemons of the nodes."""
    folder = batch.folder
    host, user, ports = socket.gethostname().split(".")[0], getpass.getuser(), free_ports(4)
    lines = CONF.format(host=host, user=user, ports=ports, folder=folder)
    for node, port in zip(NODES, ports[1:]):
        lines += f"NodeName={node} NodeHostname={host} NodeAddr=127.0.0.1 Port={port} "
        lines += "CPUs=2 RealMemory=4000\n"
        (folder / f"spool-{node}").mkdir()
    (folder / "slurm.conf").write_text(lines + "PartitionName=all Nodes=ALL Default=YES\n")
    (folder / "state").mkdir()
    (folder / "munge.key").write_bytes(secrets.token_bytes(64))
    (folder / "munge.key").chmod(0o400)
    os.environ["SLURM_CONF"] = str(folder / "slurm.conf")
    files = {"key-file": "key", "socket": "socket", "pid-file": "pid", "seed-file": "seed"}
    munge = [f"--{option}={folder}/munge.{suffix}" for option, suffix in files.items()]

    def start(name: str, *options: str) -> subprocess.Popen[bytes]:
        with open(folder / f"{name}{options[-1]}.log", "wb") as log:
            return subprocess.Popen(
                [shutil.which(name), *options], stdin=subprocess.DEVNULL, stdout=log, stderr=log
            )

    start("munged", *munge, "--force", "-F")
    start("slurmctld", "-D")
    yield {node: start("slurmd", "-D", "-N", node) for node in NODES}


def find_step_daemons(processes: list[int]) -> set[int]:
    """slurmstepd above some processes of jobs."""
    found = set()
    for process in processes:
        while process > 1:
            fields = Path(f"/proc/{process}/stat").read_text()
            if "(slurmstepd)" in fields:
                found.add(process)
                break
            process = int(fields.rpartition(")")[2].split()[1])
    return found


def lose_a_node(batch: Batch, daemons: dict[str, subprocess.Popen[bytes]]) -> str:
    """Kills one in the middle of a task, which gets no chance to say so; returns the task."""

    def find_busy() -> list[str]:
        jobs = batch.run("squeue --noheader --name=talven --states=RUNNING -o %N,%i").split()
        nodes = {node for node in NODES if batch.find(f"SLURMD_NODENAME={node}\0", "talven-server")}
        return [job for job in jobs if job.split(",")[0] in nodes and not job.endswith("_3")]

    node, job = wait_until(find_busy)[-1].split(",")
    processes = batch.find(f"SLURMD_NODENAME={node}\0")
    daemons[node].kill()
    for daemon in find_step_daemons(processes):
        os.kill(daemon, signal.SIGKILL)
    batch.kill(f"SLURMD_NODENAME={node}\0")
    batch.run(f"scontrol update NodeName={node} State=DOWN Reason=lost")
    return job


def show(batch: Batch, job: str) -> dict[str, str]:
    words = batch.run(f"scontrol --oneliner show job {job}").split()
    return dict(word.split("=", 1) for word in words if "=" in word)


BUSY = """#!/bin/bash
# Task 3 finds no server the first time, and what is called busy never does.
[[ "$1 $2 $4" == "batch run 3" && -z ${{SLURM_RESTART_COUNT:-}} ]] && exit 75
[[ "$1 $2 $3" == "batch run"*busy.json ]] && exit 75
exec {talven} "$@"
"""


def main() -> None:
    template = find_example("talven.sbatch")
    for name in ("munged", "slurmctld", "slurmd", "sbatch"):
        if shutil.which(name) is None:
            skip(f"there is no {name}: scripts/install-deps --cluster")
    with make_batch() as batch, start_cluster(batch) as daemons:
        try:
            wait_until(lambda: batch.run("sinfo --noheader -o %D,%t") == "3,idle\n", 30)
        except (AssertionError, subprocess.CalledProcessError) as error:
            for log in batch.folder.glob("*.log"):
                print(f"--- {log.name}\n{log.read_text()}")
            skip(f"Slurm does not start here: {error}")
        (batch.folder / "bin").mkdir()
        talven = batch.folder / "bin" / "talven"
        talven.write_text(BUSY.format(talven=shutil.which("talven")))
        talven.chmod(0o755)
        os.environ["PATH"] = f"{talven.parent}:{os.environ['PATH']}"
        batch.plan("busy")
        submit = f"bash {template} {{}} --output={batch.folder}/%A-%a.log"

        joined = batch.run(submit.format("job.json")).split()[-1]
        never = batch.run(submit.format("busy.json") + " --job-name=busy").split()[-1]
        lost = lose_a_node(batch, daemons)
        wait_until(lambda: show(batch, joined)["JobState"] == "COMPLETED")
        batch.judge()
        jobs = [f"{lost.split('_')[0]}_{task}" for task in range(4)]
        restarts = {job: show(batch, job)["Restarts"] for job in jobs}
        # At most two tasks were on the lost node, and nobody asked for the others again.
        assert restarts[lost] == restarts[jobs[3]] == "1", restarts
        assert "0" in restarts.values(), restarts
        assert batch.run(submit.format("job.json")).endswith("1 volume(s) complete, 0 joined now\n")

        wait_until(lambda: show(batch, never)["JobState"] == "CANCELLED")
        restarts = batch.run("squeue --noheader --states=FAILED --name=busy -O RestartCnt").split()
        assert restarts == ["3"] * 4, restarts


main()
