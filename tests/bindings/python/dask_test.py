"""The example that protects files on many machines: a scheduler and two worker processes on this one."""

from __future__ import annotations

import json
import os
import random
import signal
import subprocess
import sys
import threading
import time
from pathlib import Path
from typing import Any, Dict, Iterator, List

import cryptcli
import pytest
from conftest import MakeClient
from environment import ROOM, Environment

EXAMPLE = Path(__file__).resolve().parents[3] / "examples" / "python" / "dask_protect.py"
FILES = 200
LOCAL = ["--host", "127.0.0.1", "--no-dashboard"]

sys.path.insert(0, str(EXAMPLE.parent))
dask_protect: Any = __import__("dask_protect")


@pytest.fixture
def plain(tmp_path: Path) -> List[Path]:
    """Files of different sizes, an empty one included."""
    chance = random.Random(7)
    folder = tmp_path / "plain"
    folder.mkdir()
    paths = []
    for number in range(FILES):
        paths.append(folder / f"file-{number}")
        paths[-1].write_bytes(chance.randbytes(number * 37))
    return paths


@pytest.fixture
def temporary(tmp_path: Path, monkeypatch: pytest.MonkeyPatch) -> Path:
    """Replaces the fixture that demands an empty directory: a killed worker leaves its temporary files."""
    directory = tmp_path / "temporary"
    directory.mkdir()
    monkeypatch.setenv("TMPDIR", str(directory))
    return directory


class Cluster:
    """A scheduler and workers with one thread each."""

    def __init__(self, folder: Path) -> None:
        self._folder = folder
        self._log = open(folder / "cluster.log", "wb")
        self._processes: List["subprocess.Popen[bytes]"] = []
        self._file = folder / "scheduler.json"
        self._start("dask_scheduler", "--port", "0", "--scheduler-file", self._file)
        deadline = time.monotonic() + 60
        while not self._file.exists() or not self._file.read_text().endswith("}"):
            assert time.monotonic() < deadline, (folder / "cluster.log").read_text()
            time.sleep(0.1)
        self.address: str = json.loads(self._file.read_text())["address"]
        self.workers = [self._start_worker(name) for name in ("one", "two")]

    def _start_worker(self, name: str) -> "subprocess.Popen[bytes]":
        folder = self._folder / name
        folder.mkdir()
        return self._start(
            "dask_worker", "--scheduler-file", self._file, "--nthreads", "1", "--no-nanny", "--local-directory", folder
        )

    def _start(self, module: str, *options: Any) -> "subprocess.Popen[bytes]":
        command = [sys.executable, "-B", "-m", "distributed.cli." + module, *LOCAL, *map(str, options)]
        self._processes.append(subprocess.Popen(command, stdout=self._log, stderr=self._log))
        return self._processes[-1]

    def stop(self) -> None:
        for process in self._processes:
            process.kill()
            process.wait()
        self._log.close()


@pytest.fixture
def cluster(tmp_path: Path, temporary: Path) -> Iterator[Cluster]:
    folder = tmp_path / "cluster"
    folder.mkdir()
    made = Cluster(folder)
    yield made
    made.stop()


def protect_all(
    environment: Environment, cluster: Cluster, plain: List[Path], output: Path
) -> List[Dict[str, Any]]:
    command: List[Any] = [sys.executable, "-B", EXAMPLE, "--scheduler", cluster.address]
    command += ["--service", environment.service, "--room", ROOM, "--output", output, *plain]
    ended = subprocess.run(command, stdout=subprocess.PIPE, text=True, timeout=240)
    assert ended.returncode == 0, ended.stdout
    return [json.loads(line) for line in ended.stdout.splitlines()]


def kill_in_the_middle(environment: Environment, cluster: Cluster, output: Path, killed: List[int]) -> None:
    worker = cluster.workers[0]
    deadline = time.monotonic() + 200
    while time.monotonic() < deadline:
        done = len(list(output.glob("*"))) if output.exists() else 0
        if done >= FILES // 4:
            worker.send_signal(signal.SIGKILL)
            killed.append(done)
            environment.clear()
            return
        time.sleep(0.01)


def test_nothing_is_lost_when_a_worker_is_killed(
    environment: Environment,
    client: cryptcli.Client,
    cluster: Cluster,
    plain: List[Path],
    tmp_path: Path,
) -> None:
    output = tmp_path / "output"
    killed: List[int] = []
    environment.set_fault("key servers", "slow", number=15)  # so that the worker is killed in the middle of a file
    killer = threading.Thread(target=kill_in_the_middle, args=(environment, cluster, output, killed))
    killer.start()
    outcomes = protect_all(environment, cluster, plain, output)
    killer.join()
    assert len(killed) == 1 and killed[0] < FILES * 3 // 4
    assert cluster.workers[0].wait() == -signal.SIGKILL
    # Both workers protected files, and every file has one outcome.
    assert {outcome["worker"] for outcome in outcomes} == {worker.pid for worker in cluster.workers}
    targets = [output / (path.name + ".p7m") for path in plain]
    assert sorted(outcome["target"] for outcome in outcomes) == sorted(map(str, targets))
    assert {outcome["result"] for outcome in outcomes} <= {"protected", "skipped"}
    # The folder contains only the protected files, and no folder for unfinished ones remains beside it.
    assert sorted(output.iterdir()) == sorted(targets)
    assert list(tmp_path.glob(".staging-*")) == []
    for source, target in zip(plain, targets):
        opened = tmp_path / "opened"
        assert client.decrypt(ROOM, target, opened).origin is cryptcli.Origin.PROVEN
        assert opened.read_bytes() == source.read_bytes()
    # A second run on the remaining worker has nothing to do.
    before = {target: target.stat().st_ino for target in targets}
    again = protect_all(environment, cluster, plain, output)
    assert [outcome["result"] for outcome in again] == ["skipped"] * FILES
    assert {target: target.stat().st_ino for target in targets} == before


# ---- One job, without a cluster


@pytest.fixture
def job(environment: Environment, tmp_path: Path, monkeypatch: pytest.MonkeyPatch) -> Any:
    monkeypatch.setattr(dask_protect, "FIRST_PAUSE_SECONDS", 0.01)
    (tmp_path / "source").write_bytes(b"content")
    (tmp_path / "staging").mkdir()
    return dask_protect.Job(
        service=environment.service,
        room=ROOM,
        ca_file=None,
        source=str(tmp_path / "source"),
        target=str(tmp_path / "target"),
        staging=str(tmp_path / "staging"),
    )


def test_a_retryable_failure_is_tried_again(environment: Environment, job: Any) -> None:
    environment.set_fault("crypt", "status", number=503, uses=2)
    assert dask_protect.protect(job).result == "protected"


def test_a_failure_that_stays_is_tried_a_bounded_number_of_times(environment: Environment, job: Any) -> None:
    environment.set_fault("crypt", "status", number=503)
    before = environment.count_requests()
    outcome = dask_protect.protect(job)
    assert (outcome.result, outcome.code) == ("failed", "server_error")
    assert environment.count_requests() - before == dask_protect.ATTEMPTS
    assert os.listdir(job.staging) == [] and not os.path.exists(job.target)


def test_any_other_failure_is_not_tried_again(environment: Environment, job: Any) -> None:
    environment.set_fault("crypt", "status", number=403)
    before = environment.count_requests()
    outcome = dask_protect.protect(job)
    assert (outcome.result, outcome.code) == ("failed", "unauthorised")
    assert environment.count_requests() - before == 1


def test_a_damaged_target_is_protected_again(job: Any, make_client: MakeClient) -> None:
    Path(job.target).write_bytes(b"half a file")
    assert dask_protect.protect(job).result == "protected"
    assert make_client().verify(ROOM, job.target).size == len(b"content")
    assert dask_protect.protect(job).result == "skipped"


def test_a_missing_source_is_a_failure(job: Any) -> None:
    os.remove(job.source)
    outcome = dask_protect.protect(job)
    assert (outcome.result, outcome.code) == ("failed", "io")


def test_a_source_of_the_same_length_is_protected_again(
    client: cryptcli.Client, job: Any, temporary: Path, tmp_path: Path
) -> None:
    assert dask_protect.protect(job).result == "protected"
    Path(job.source).write_bytes(b"CONTENT")
    assert dask_protect.protect(job).result == "protected"
    client.decrypt(ROOM, job.target, tmp_path / "opened")
    assert (tmp_path / "opened").read_bytes() == b"CONTENT"
    assert list(temporary.iterdir()) == []


def test_a_target_without_proven_origin_is_kept(environment: Environment, job: Any) -> None:
    assert dask_protect.protect(job).result == "protected"
    before = Path(job.target).read_bytes()
    environment.set_lists(integrity="empty")
    outcome = dask_protect.protect(job)
    assert (outcome.result, outcome.code) == ("failed", "origin_not_proven")
    assert Path(job.target).read_bytes() == before
