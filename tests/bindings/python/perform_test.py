"""Named operations."""

from __future__ import annotations

import base64
import hashlib
import json
from pathlib import Path
from typing import Any, Dict, List

import cryptcli
import pytest
from conftest import MakeClient
from environment import GROUP, ROOM, Environment
from transport_test import send


def test_an_operation_gives_its_result(environment: Environment, client: cryptcli.Client) -> None:
    digest = hashlib.sha512(b"content").digest()
    result = client.perform(
        "SignByKey",
        {
            "keyserver": environment.key_servers,
            "object": ROOM,
            "id": "integrity",
            "algorithm": "RSASSA-PKCS1-v1_5-SHA-512",
            "hash": base64.b64encode(digest).decode(),
        },
    )
    assert len(base64.b64decode(result["signature"], validate=True)) >= 256


def test_an_audit_log_is_a_file_of_the_caller(environment: Environment, client: cryptcli.Client) -> None:
    result = client.perform("GetAuditLog", {"keyserver": environment.key_servers, "group": GROUP})
    path = Path(result["filename"])
    assert path.is_file()
    path.unlink()


@pytest.mark.parametrize(
    "operation, arguments, reason",
    [
        ("NoSuch", {}, 'Unknown operation "NoSuch"'),
        ("DeleteKey", {"groop": "g"}, 'Unknown argument "groop" of DeleteKey'),
        ("DeleteKey", {}, 'Missing argument "keyserver" of DeleteKey'),
        ("DeleteKey", {"keyserver": "u", "group": "g", "key": {}}, "has to be of type array of strings"),
        ("DeleteKey", {"keyserver": [float("nan")]}, "The arguments are no JSON object"),
        ("DeleteKey", {"keyserver": [b"u"]}, "The arguments are no JSON object"),
        ("DeleteKey", 7, "The arguments are no JSON object"),
    ],
)
def test_wrong_arguments_are_refused_before_anything_is_sent(
    environment: Environment, client: cryptcli.Client, operation: str, arguments: Any, reason: str
) -> None:
    before = environment.count_requests()
    with pytest.raises(cryptcli.InvalidArgument, match=reason):
        client.perform(operation, arguments)
    assert environment.count_requests() == before


def test_a_nul_in_an_argument_is_not_cut(environment: Environment, make_client: MakeClient) -> None:
    urls: List[str] = []

    def carry(request: cryptcli.Request) -> cryptcli.Response:
        urls.append(request.url)
        return send(request)

    arguments = {"object": ROOM + "\0end", "algorithm": "RSASSA-PKCS1-v1_5-SHA-512", "hash": "AAAA"}
    with pytest.raises(cryptcli.UnknownRoom):
        make_client(transport=carry).perform("SignByKey", {"keyserver": environment.key_servers, **arguments})
    assert any(url.endswith("/demo%00end") for url in urls)


def test_operations_are_described() -> None:
    described: Dict[str, Dict[str, Any]] = {entry["name"]: entry for entry in cryptcli.operations()}
    assert "SignByKey" in described and len(described) == 9
    for entry in described.values():
        assert entry["description"]
        assert {"name", "type", "required", "description"} <= set(entry["arguments"][0])
    json.dumps(described)
