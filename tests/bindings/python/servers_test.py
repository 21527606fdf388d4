"""What the crypt service says about a room, and whether the servers work."""

from __future__ import annotations

import cryptcli
import pytest
from conftest import MakeClient
from environment import GROUP, ROOM, Environment


def test_a_room_is_described(environment: Environment, client: cryptcli.Client) -> None:
    environment.make_room("described")
    found = client.room("described")
    assert (found["room"], found["group"], found["keyType"]) == ("described", GROUP, "none")
    assert "certificate" not in found
    assert found["keyServers"] == list(environment.key_servers)


@pytest.mark.usefixtures("protected")
def test_a_room_with_a_key_shows_its_certificate(client: cryptcli.Client) -> None:
    found = client.room(ROOM)
    assert found["keyType"] == "wrapped"
    assert found["certificate"]["issuer"]


def test_an_unknown_room_is_an_exception(client: cryptcli.Client) -> None:
    with pytest.raises(cryptcli.UnknownRoom):
        client.room("no such room")


def test_servers_that_work_are_ok(environment: Environment, client: cryptcli.Client) -> None:
    found = client.check(ROOM)
    assert found["ok"] is True
    assert [finding["subject"] for finding in found["findings"]] == ["service", "room"] + ["key_server"] * len(
        environment.key_servers
    )
    assert found["room"]["room"] == ROOM


def test_a_check_without_a_room_asks_the_service_alone(client: cryptcli.Client) -> None:
    assert [finding["subject"] for finding in client.check()["findings"]] == ["service"]


def test_a_server_that_does_not_work_is_a_finding(environment: Environment, client: cryptcli.Client) -> None:
    environment.set_fault(1, "status", number=503)
    found = client.check(ROOM)
    assert found["ok"] is False
    wrong = [finding for finding in found["findings"] if not finding["ok"]]
    assert [finding["name"].rstrip("/") for finding in wrong] == [environment.key_servers[1].rstrip("/")]
    assert wrong[0]["message"]


def test_a_service_that_is_not_there_is_a_finding(make_client: MakeClient) -> None:
    found = make_client(service="http://127.0.0.1:1/").check()
    assert found["findings"][0]["code"] == "unreachable"


def test_a_check_can_be_cancelled(client: cryptcli.Client) -> None:
    cancel = cryptcli.Cancellation()
    cancel.cancel()
    with pytest.raises(cryptcli.Cancelled):
        client.check(ROOM, cancel=cancel)
