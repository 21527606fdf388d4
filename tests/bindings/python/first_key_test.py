"""Many threads or processes protect the first file of a room at the same time: all of them use the same key."""

from __future__ import annotations

import subprocess
import sys
import threading
from pathlib import Path
from typing import Any, List

import cryptcli
import pytest
from conftest import CONTENT
from environment import Environment

MANY = 4

PROGRAM = """
import sys, cryptcli
service, room, source, target = sys.argv[1:]
with cryptcli.Client(service) as client:
    sys.stdin.read()  # all begin when the pipes are closed
    client.encrypt(room, source, target)
"""


@pytest.fixture
def targets(tmp_path: Path) -> List[Path]:
    (tmp_path / "plain").write_bytes(CONTENT)
    return [tmp_path / f"secret-{number}" for number in range(MANY)]


def assert_one_key(client: cryptcli.Client, room: str, targets: List[Path]) -> None:
    recipients: List[Any] = [client.inspect(target)["recipients"] for target in targets]
    assert recipients == [recipients[0]] * MANY
    for target in targets:
        assert client.verify(room, target).origin is cryptcli.Origin.PROVEN


def test_threads_get_the_one_key(
    environment: Environment, client: cryptcli.Client, tmp_path: Path, targets: List[Path]
) -> None:
    environment.make_room("threads")
    begin = threading.Barrier(MANY)

    def work(target: Path) -> None:
        begin.wait()
        client.encrypt("threads", tmp_path / "plain", target)

    threads = [threading.Thread(target=work, args=(target,)) for target in targets]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    assert_one_key(client, "threads", targets)


def test_processes_get_the_one_key(
    environment: Environment, client: cryptcli.Client, tmp_path: Path, targets: List[Path]
) -> None:
    environment.make_room("processes")
    begun = [
        subprocess.Popen(
            [sys.executable, "-B", "-c", PROGRAM, environment.service, "processes", tmp_path / "plain", target],
            stdin=subprocess.PIPE,
        )
        for target in targets
    ]
    for process in begun:
        assert process.stdin is not None
        process.stdin.close()
    assert [process.wait(timeout=120) for process in begun] == [0] * MANY
    assert_one_key(client, "processes", targets)
