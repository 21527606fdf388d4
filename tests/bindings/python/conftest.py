"""What the tests share: one local test environment, clients of it and a directory for temporary files that has to be
empty again after each test."""

from __future__ import annotations

from pathlib import Path
from typing import Any, Callable, Iterator

import cryptcli
import pytest
from environment import ROOM, Environment

CONTENT = b"the plain bytes of a file"


@pytest.fixture(scope="session")
def running() -> Iterator[Environment]:
    with Environment() as made:
        yield made


@pytest.fixture
def environment(running: Environment) -> Iterator[Environment]:
    yield running
    running.clear()


@pytest.fixture(autouse=True)
def temporary(tmp_path_factory: pytest.TempPathFactory, monkeypatch: pytest.MonkeyPatch) -> Iterator[Path]:
    """The directory for temporary files. No operation leaves any."""
    directory = tmp_path_factory.mktemp("temporary")
    monkeypatch.setenv("TMPDIR", str(directory))
    monkeypatch.setattr("tempfile.tempdir", None)
    yield directory
    assert list(directory.iterdir()) == []


MakeClient = Callable[..., cryptcli.Client]


@pytest.fixture
def make_client(environment: Environment) -> Iterator[MakeClient]:
    clients = []

    def make(**options: Any) -> cryptcli.Client:
        client = cryptcli.Client(options.pop("service", environment.service), **options)
        clients.append(client)
        return client

    yield make
    for client in clients:
        client.close()


@pytest.fixture
def client(make_client: MakeClient) -> cryptcli.Client:
    return make_client()


@pytest.fixture
def protected(client: cryptcli.Client, tmp_path: Path) -> Path:
    """A protected file of the room, whose content is CONTENT."""
    plain = tmp_path / "plain"
    plain.write_bytes(CONTENT)
    client.encrypt(ROOM, plain, tmp_path / "secret")
    return tmp_path / "secret"
