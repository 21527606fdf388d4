"""Failures: each family has its exception type, with the fields of the C error."""

from __future__ import annotations

import copy
import pickle
from pathlib import Path
from typing import Any

import cryptcli
import pytest
from conftest import CONTENT, MakeClient
from cryptcli._errors import make_error
from cryptcli._report import make_report
from environment import ROOM, Environment


@pytest.fixture
def plain(tmp_path: Path) -> Path:
    (tmp_path / "plain").write_bytes(CONTENT)
    return tmp_path / "plain"


def test_a_missing_source_is_an_io_failure(client: cryptcli.Client, tmp_path: Path) -> None:
    with pytest.raises(cryptcli.IOFailure, match="No such file or directory") as caught:
        client.decrypt(ROOM, tmp_path / "missing", tmp_path / "opened")
    error = caught.value
    assert error.code is cryptcli.Status.IO
    assert error.message == str(error)
    assert error.retryable is False
    assert (error.http_status, error.url, error.attempts) == (0, "", ())


def test_a_file_that_is_no_message_is_not_protected(client: cryptcli.Client, plain: Path, tmp_path: Path) -> None:
    with pytest.raises(cryptcli.NotProtected):
        client.decrypt(ROOM, plain, tmp_path / "opened")
    with pytest.raises(cryptcli.NotProtected):
        cryptcli.inspect(plain)


def test_an_unknown_room_has_status_and_url(
    environment: Environment, client: cryptcli.Client, plain: Path, tmp_path: Path
) -> None:
    with pytest.raises(cryptcli.UnknownRoom) as caught:
        client.encrypt("no such room", plain, tmp_path / "secret")
    assert caught.value.http_status == 200
    assert caught.value.url == environment.service + "crypt/key/no%20such%20room"


def test_a_service_that_is_not_there_is_unreachable(make_client: MakeClient, plain: Path, tmp_path: Path) -> None:
    client = make_client(service="http://127.0.0.1:1/")
    with pytest.raises(cryptcli.Unreachable) as caught:
        client.encrypt(ROOM, plain, tmp_path / "secret")
    assert caught.value.retryable is True


def test_a_slow_service_is_a_timeout(
    environment: Environment, make_client: MakeClient, plain: Path, tmp_path: Path
) -> None:
    environment.set_fault("crypt", "slow", number=5_000)
    with pytest.raises(cryptcli.Timeout) as caught:
        make_client(timeout=0.3).encrypt(ROOM, plain, tmp_path / "secret")
    assert caught.value.retryable is True


@pytest.mark.parametrize("status", [401, 403])
def test_a_refusal_of_the_caller_is_unauthorised(
    environment: Environment, client: cryptcli.Client, plain: Path, tmp_path: Path, status: int
) -> None:
    environment.set_fault("crypt", "status", number=status)
    with pytest.raises(cryptcli.Unauthorised) as caught:
        client.encrypt(ROOM, plain, tmp_path / "secret")
    assert caught.value.http_status == status


def test_a_refused_key_has_its_own_type(
    environment: Environment, client: cryptcli.Client, plain: Path, tmp_path: Path
) -> None:
    environment.set_fault("crypt", "error-code", text="QOB.1.1001.1.422645", operation="key")
    with pytest.raises(cryptcli.KeyRefused):
        client.encrypt(ROOM, plain, tmp_path / "secret")


def test_an_overloaded_service_is_worth_another_attempt(
    environment: Environment, client: cryptcli.Client, plain: Path, tmp_path: Path
) -> None:
    environment.set_fault("crypt", "status", number=503)
    with pytest.raises(cryptcli.ServerError) as caught:
        client.encrypt(ROOM, plain, tmp_path / "secret")
    assert caught.value.retryable is True


def test_each_key_server_that_was_asked_is_listed(
    environment: Environment, client: cryptcli.Client, protected: Path, tmp_path: Path
) -> None:
    environment.set_fault("key servers", "error-code", number=607)
    with pytest.raises(cryptcli.ServerError) as caught:
        client.decrypt(ROOM, protected, tmp_path / "opened")
    attempts = caught.value.attempts
    assert sorted(attempt.server for attempt in attempts) == sorted(
        url.rstrip("/") for url in environment.key_servers
    )
    assert {attempt.message for attempt in attempts} == {"607 Key Not Found"}
    assert {attempt.code for attempt in attempts} == {cryptcli.Status.SERVER_ERROR}


def test_a_full_file_system_is_no_space(client: cryptcli.Client, protected: Path) -> None:
    with pytest.raises(cryptcli.NoSpace):
        client.decrypt(ROOM, protected, "/dev/full")


def test_an_error_survives_pickling_and_copying(
    environment: Environment, client: cryptcli.Client, protected: Path, tmp_path: Path
) -> None:
    environment.set_fault("key servers", "error-code", number=607)
    with pytest.raises(cryptcli.ServerError) as caught:
        client.decrypt(ROOM, protected, tmp_path / "opened")
    for twin in (pickle.loads(pickle.dumps(caught.value)), copy.copy(caught.value)):
        assert type(twin) is cryptcli.ServerError
        assert vars(twin) == vars(caught.value)
        assert str(twin) == str(caught.value)


def test_invalid_arguments_are_value_errors() -> None:
    with pytest.raises(ValueError):
        cryptcli.Client("http://host/\n")


def test_every_status_has_its_own_type() -> None:
    types = set()
    for status in cryptcli.Status:
        if status is cryptcli.Status.OK:
            continue
        made = make_error(status, {"message": "why"})
        assert made.code is status
        types.add(type(made))
    assert len(types) == len(cryptcli.Status) - 1


def test_codes_of_a_newer_library_are_internal_errors() -> None:
    attempt = {"server": "https://one.example", "code": "on_holiday", "message": "back soon"}
    made = make_error(99, {"code": "on_holiday", "message": "why", "attempts": [attempt], "mood": "fair"})
    assert type(made) is cryptcli.Internal
    assert made.code is cryptcli.Status.INTERNAL
    assert made.attempts[0].code is cryptcli.Status.INTERNAL


def test_an_origin_of_a_newer_library_is_unproven() -> None:
    assert make_report({"origin": "well_known", "mood": "fair"}).origin is cryptcli.Origin.UNPROVEN
    unknown: Any = 99
    assert cryptcli.Origin(unknown) is cryptcli.Origin.UNPROVEN
