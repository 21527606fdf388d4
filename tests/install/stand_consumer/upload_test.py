"""What a project writes to test its own code with the installed package and the installed local test environment."""

import io

import cryptcli
from cryptcli.testing import Environment


def test_protects_the_file(cryptstand: Environment) -> None:
    assert cryptstand.room == "mine" and len(cryptstand.key_servers) == 1  # as conftest.py asks for
    secret, opened = io.BytesIO(), io.BytesIO()
    with cryptcli.Client(cryptstand.service) as client:
        client.encrypt(cryptstand.room, io.BytesIO(b"bytes"), secret)
        client.decrypt(cryptstand.room, io.BytesIO(secret.getvalue()), opened)
    assert opened.getvalue() == b"bytes"
