"""Attacks on a protected file, by somebody who can change it, and by somebody who has the room's certificate.

Nothing but the protected content is ever delivered, and nothing but proven content unless a weaker policy is named.
"""

from __future__ import annotations

import os
import pickle
import subprocess
from pathlib import Path
from typing import Any, Callable, List, Tuple

import cryptcli
import pytest
from conftest import CONTENT
from cryptcli import Origin, Policy
from environment import GROUP, ROOM, Environment

FORGED = b"what an attacker wrote"


class Attacker:
    """Somebody who has what the crypt service gives to any client of the room. Works in a directory of the test."""

    def __init__(self, environment: Environment, client: cryptcli.Client, directory: Path) -> None:
        self._environment = environment
        self._client = client
        self._directory = directory

    def signed(self, group: str = GROUP, room: str = ROOM) -> bytes:
        """FORGED, signed with a self-signed certificate in the name of the group and the room."""
        return self._forge("sign", group, room, content=FORGED)

    def envelope(self, content: bytes, room: str = ROOM) -> Path:
        """The bytes in an envelope for the room. That takes only the room's certificate, which is not secret."""
        certificate = self._write("certificate", self._environment.room_key(room)["certificate"].encode())
        return self._write("secret", self._forge("envelope", str(certificate), content=content))

    def signed_for_another_room(self) -> bytes:
        """The signed message of a file that was protected for another room of the same group."""
        self._environment.make_room("room2", plainKey=True)
        self._client.encrypt("room2", self._write("plain", CONTENT), self._directory / "other")
        key = self._write("key", self._environment.room_key("room2")["plain"].encode())
        command: List[Any] = ["openssl", "cms", "-decrypt", "-binary", "-inform", "DER", "-inkey", key]
        command += ["-in", self._directory / "other"]
        return subprocess.run(command, stdout=subprocess.PIPE, check=True, timeout=60).stdout

    def _forge(self, *words: str, content: bytes) -> bytes:
        source = self._write("source", content)
        subprocess.run([os.environ["CRYPTCLI_FORGE"], *words, source, self._directory / "made"], check=True, timeout=60)
        return (self._directory / "made").read_bytes()

    def _write(self, name: str, content: bytes) -> Path:
        (self._directory / name).write_bytes(content)
        return self._directory / name


@pytest.fixture
def attacker(environment: Environment, client: cryptcli.Client, protected: Path, tmp_path: Path) -> Attacker:
    directory = tmp_path / "attacker"
    directory.mkdir()
    return Attacker(environment, client, directory)


@pytest.fixture
def plain_key(environment: Environment) -> Any:
    """The crypt service hands out the room's private key in the clear."""
    environment.make_room(ROOM, plainKey=True)
    yield
    environment.make_room(ROOM, plainKey=False)


def refused(client: cryptcli.Client, secret: Path, tmp_path: Path) -> cryptcli.Report:
    """The report about a file that decrypt and verify both refuse."""
    opened = tmp_path / "opened"
    opened.write_bytes(b"as before")
    with pytest.raises(cryptcli.OriginNotProven) as caught:
        client.decrypt(ROOM, secret, opened)
    assert opened.read_bytes() == b"as before"
    report = caught.value.report
    assert report is not None and report.reason and report.reason in str(caught.value)
    with pytest.raises(cryptcli.OriginNotProven) as again:
        client.verify(ROOM, secret)
    assert again.value.report == report
    return report


# Nothing authenticates the header of the envelope, so a few flips change neither the content nor its proof. No flip
# may deliver anything else.
def test_no_flipped_bit_delivers_anything_else(client: cryptcli.Client, protected: Path, tmp_path: Path) -> None:
    original = protected.read_bytes()
    opened = tmp_path / "opened"
    places = sorted({*range(0, len(original), 7), len(original) - 1})
    delivered = 0
    for place in places:
        flipped = bytearray(original)
        flipped[place] ^= 1 << (place % 8)
        protected.write_bytes(flipped)
        opened.write_bytes(b"as before")
        try:
            report = client.decrypt(ROOM, protected, opened)
        except cryptcli.Error as error:
            assert not isinstance(error, cryptcli.Internal), (place, error)
            assert opened.read_bytes() == b"as before", place
        else:
            delivered += 1
            assert opened.read_bytes() == CONTENT, place
            assert report.origin is Origin.PROVEN, place
    assert delivered < 10 < len(places) / 10


def test_a_cut_file_delivers_nothing(client: cryptcli.Client, protected: Path, tmp_path: Path) -> None:
    original = protected.read_bytes()
    for length in range(0, len(original), 97):
        protected.write_bytes(original[:length])
        with pytest.raises(cryptcli.Error):
            client.decrypt(ROOM, protected, tmp_path / "opened")
        assert not (tmp_path / "opened").exists()


def test_a_forged_envelope_is_refused(client: cryptcli.Client, attacker: Attacker, tmp_path: Path) -> None:
    report = refused(client, attacker.envelope(FORGED), tmp_path)
    assert report.origin is Origin.UNSIGNED
    assert report.reason == "The content is not signed"


def test_a_self_signed_signer_is_refused(client: cryptcli.Client, attacker: Attacker, tmp_path: Path) -> None:
    secret = attacker.envelope(attacker.signed())
    report = refused(client, secret, tmp_path)
    assert report.origin is Origin.UNPROVEN
    with pytest.raises(cryptcli.OriginNotProven):  # the chain is not valid: no policy accepts that
        client.decrypt(ROOM, secret, tmp_path / "opened", accept=Policy.ANYTHING)
    assert (tmp_path / "opened").read_bytes() == b"as before"


def test_content_signed_for_another_room_is_refused(
    client: cryptcli.Client, attacker: Attacker, tmp_path: Path
) -> None:
    report = refused(client, attacker.envelope(attacker.signed_for_another_room()), tmp_path)
    assert report.origin is Origin.OTHER_ROOM
    assert (report.signed_room, report.service_room) == ("room2", ROOM)
    assert report.signed_group == report.service_group == GROUP


# The crypt service names the room of the signature, and the caller another one.
def test_a_file_of_another_room_than_the_expected_one_is_refused(client: cryptcli.Client, protected: Path) -> None:
    before = protected.read_bytes()
    assert client.verify(ROOM, protected, expected_room=ROOM).origin is Origin.PROVEN
    opened = protected.with_name("opened")
    works: List[Callable[[], cryptcli.Report]] = [
        lambda: client.verify(ROOM, protected, expected_room="room2"),
        lambda: client.decrypt(ROOM, protected, opened, expected_room="room2"),
        lambda: client.rekey(ROOM, protected, expected_room="room2"),
    ]
    for work in works:
        with pytest.raises(cryptcli.OriginNotProven, match='room "room2" was expected') as caught:
            work()
        assert caught.value.report is not None
        assert caught.value.report.origin is Origin.OTHER_ROOM
    assert protected.read_bytes() == before and not opened.exists()


@pytest.mark.parametrize("accept", list(cryptcli.Policy))
def test_no_policy_weakens_the_expected_room(
    client: cryptcli.Client, protected: Path, accept: cryptcli.Policy
) -> None:
    with pytest.raises(cryptcli.OriginNotProven, match='room "room2" was expected'):
        client.verify(ROOM, protected, accept=accept, expected_room="room2")


def test_no_file_is_made_for_another_room_than_the_expected_one(client: cryptcli.Client, tmp_path: Path) -> None:
    source = tmp_path / "plain"
    source.write_bytes(b"content")
    target = tmp_path / "secret"
    target.write_bytes(b"as before")
    with pytest.raises(cryptcli.OriginNotProven, match=f'named room "{ROOM}"; room "room2" was expected') as caught:
        client.encrypt(ROOM, source, target, expected_room="room2")
    assert caught.value.report is None
    assert target.read_bytes() == b"as before"
    assert client.encrypt(ROOM, source, target, expected_room=ROOM).service_room == ROOM


@pytest.mark.parametrize("bad", ["", "a\0b", "\ud800"])
def test_an_expected_room_has_to_be_a_name(client: cryptcli.Client, protected: Path, bad: str) -> None:
    with pytest.raises(cryptcli.InvalidArgument, match="expected room"):
        client.verify(ROOM, protected, expected_room=bad)


@pytest.mark.usefixtures("plain_key")
def test_a_self_signed_signer_under_a_plain_key_is_refused(
    client: cryptcli.Client, attacker: Attacker, tmp_path: Path
) -> None:
    report = refused(client, attacker.envelope(attacker.signed()), tmp_path)
    assert report.origin is Origin.SIGNATURE_ONLY
    assert report.is_plain_key is True
    assert report.chain == ()


def test_a_refusal_keeps_its_report_when_pickled(client: cryptcli.Client, attacker: Attacker) -> None:
    with pytest.raises(cryptcli.OriginNotProven) as caught:
        client.verify(ROOM, attacker.envelope(FORGED))
    twin = pickle.loads(pickle.dumps(caught.value))
    assert twin.report == caught.value.report and twin.report.origin is Origin.UNSIGNED


def test_a_damaged_signature_is_refused_by_every_policy(
    client: cryptcli.Client, attacker: Attacker, tmp_path: Path
) -> None:
    message = attacker.signed_for_another_room()
    assert message.count(CONTENT) == 1
    secret = attacker.envelope(message.replace(CONTENT, CONTENT[::-1]))
    for policy in Policy:
        with pytest.raises(cryptcli.Damaged):
            client.decrypt(ROOM, secret, tmp_path / "opened", accept=policy)
    assert not (tmp_path / "opened").exists()


# ---- The table of origins and policies


def make(origin: Origin, environment: Environment, attacker: Attacker, protected: Path) -> Tuple[Path, bytes]:
    """A file of that origin, and its content."""
    if origin is Origin.UNSIGNED:
        return attacker.envelope(FORGED), FORGED
    if origin is Origin.UNPROVEN:
        environment.set_lists(integrity="empty")  # the signer's certificate is not among the group's any more
    if origin is Origin.SIGNATURE_ONLY:
        return attacker.envelope(attacker.signed()), FORGED
    if origin is Origin.OTHER_ROOM:
        return attacker.envelope(attacker.signed_for_another_room()), CONTENT
    return protected, CONTENT


@pytest.mark.parametrize("policy", list(Policy), ids=[policy.name for policy in Policy])
@pytest.mark.parametrize("origin", list(Origin), ids=[origin.name for origin in Origin])
def test_a_policy_delivers_what_it_accepts_and_nothing_else(
    request: pytest.FixtureRequest,
    environment: Environment,
    client: cryptcli.Client,
    attacker: Attacker,
    protected: Path,
    tmp_path: Path,
    origin: Origin,
    policy: Policy,
) -> None:
    secret, content = make(origin, environment, attacker, protected)
    if origin is Origin.SIGNATURE_ONLY:
        request.getfixturevalue("plain_key")
    # Each policy accepts one origin more; the last one the two weakest.
    accepted = policy is Policy.ANYTHING or origin + policy >= Origin.PROVEN
    opened = tmp_path / "opened"
    opened.write_bytes(b"as before")
    if accepted:
        report = client.decrypt(ROOM, secret, opened, accept=policy)
        assert client.verify(ROOM, secret, accept=policy) == report
    else:
        with pytest.raises(cryptcli.OriginNotProven) as caught:
            client.decrypt(ROOM, secret, opened, accept=policy)
        with pytest.raises(cryptcli.OriginNotProven):
            client.verify(ROOM, secret, accept=policy)
        with pytest.raises(cryptcli.OriginNotProven):
            client.rekey(ROOM, secret, accept=policy)
        assert caught.value.report is not None
        report = caught.value.report
    assert report.origin is origin
    assert opened.read_bytes() == (content if accepted else b"as before")
