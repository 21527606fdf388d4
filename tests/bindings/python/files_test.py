"""Operations on files: what they deliver and report, and which sources and targets they take."""

from __future__ import annotations

import gzip
import io
import os
import threading
from pathlib import Path
from typing import Any, BinaryIO, List, cast

import cryptcli
import pytest
from conftest import CONTENT, MakeClient
from environment import GROUP, ROOM, Environment


def test_content_comes_back_with_a_proven_origin(
    environment: Environment, client: cryptcli.Client, protected: Path, tmp_path: Path
) -> None:
    report = client.decrypt(ROOM, protected, tmp_path / "opened")
    assert (tmp_path / "opened").read_bytes() == CONTENT
    assert report.origin is cryptcli.Origin.PROVEN
    assert report.reason == ""
    assert (report.signed_group, report.signed_room) == (GROUP, ROOM)
    assert report.signed_room_url == environment.service + "mx/demo"
    assert (report.service_group, report.service_room) == (GROUP, ROOM)
    assert report.is_plain_key is False
    assert report.size == len(CONTENT)
    assert len(report.chain) >= 2 and "CN=" in report.chain[0]


def test_encrypt_reports_room_and_size_and_no_origin(client: cryptcli.Client, tmp_path: Path) -> None:
    (tmp_path / "plain").write_bytes(CONTENT)
    report = client.encrypt(ROOM, tmp_path / "plain", tmp_path / "secret")
    assert report.origin is None
    assert (report.service_group, report.service_room) == (GROUP, ROOM)
    assert report.size == len(CONTENT)


def test_verify_proves_without_a_target(client: cryptcli.Client, protected: Path) -> None:
    report = client.verify(ROOM, protected)
    assert report.origin is cryptcli.Origin.PROVEN
    assert report.size == len(CONTENT)


def test_rekey_keeps_the_content(client: cryptcli.Client, protected: Path, tmp_path: Path) -> None:
    before = protected.read_bytes()
    report = client.rekey(ROOM, protected)
    assert report.origin is cryptcli.Origin.PROVEN
    assert protected.read_bytes() != before
    client.decrypt(ROOM, protected, tmp_path / "opened")
    assert (tmp_path / "opened").read_bytes() == CONTENT


def test_inspect_asks_no_server(environment: Environment, client: cryptcli.Client, protected: Path) -> None:
    before = environment.count_requests()
    found = client.inspect(protected)
    assert found["recipients"][0]["issuer"]
    assert found["verified"] is False
    assert environment.count_requests() == before
    assert cryptcli.inspect(protected) == found
    assert cryptcli.inspect(io.BytesIO(protected.read_bytes())) == found


@pytest.mark.parametrize("form", [str, os.fsencode, Path])
def test_a_path_has_any_form(client: cryptcli.Client, protected: Path, tmp_path: Path, form: Any) -> None:
    client.decrypt(ROOM, form(protected), form(tmp_path / "opened"))
    assert (tmp_path / "opened").read_bytes() == CONTENT


def test_a_path_need_not_be_unicode(client: cryptcli.Client, protected: Path, tmp_path: Path) -> None:
    odd = os.fsencode(tmp_path) + b"/\xff opened"
    client.decrypt(ROOM, protected, odd)
    assert open(odd, "rb").read() == CONTENT
    client.encrypt(ROOM, os.fsdecode(odd), tmp_path / "secret")
    assert client.verify(ROOM, tmp_path / "secret").size == len(CONTENT)


def test_objects_without_a_descriptor(client: cryptcli.Client) -> None:
    secret = io.BytesIO()
    client.encrypt(ROOM, io.BytesIO(CONTENT), secret)
    opened = io.BytesIO()
    report = client.decrypt(ROOM, io.BytesIO(secret.getvalue()), opened)
    assert opened.getvalue() == CONTENT
    assert report.size == len(CONTENT)
    assert client.verify(ROOM, io.BytesIO(secret.getvalue())).origin is cryptcli.Origin.PROVEN


def test_objects_are_read_and_written_at_their_position(
    client: cryptcli.Client, tmp_path: Path
) -> None:
    (tmp_path / "plain").write_bytes(b"head" + CONTENT)
    with open(tmp_path / "plain", "rb") as source:
        source.read(4)  # the object reads ahead: its descriptor is at the end of the file
        client.encrypt(ROOM, source, tmp_path / "secret")
    with open(tmp_path / "opened", "wb") as target:
        target.write(b"before ")  # still in the object's buffer
        client.decrypt(ROOM, tmp_path / "secret", target)
        target.write(b" behind")
    assert (tmp_path / "opened").read_bytes() == b"before " + CONTENT + b" behind"


def test_unbuffered_objects(client: cryptcli.Client, protected: Path, tmp_path: Path) -> None:
    with open(protected, "rb", buffering=0) as source, open(tmp_path / "opened", "wb", buffering=0) as target:
        client.decrypt(ROOM, source, target)
    assert (tmp_path / "opened").read_bytes() == CONTENT


def test_a_decompressor_has_its_own_content(client: cryptcli.Client, tmp_path: Path) -> None:
    with gzip.open(tmp_path / "plain.gz", "wb") as file:
        file.write(CONTENT)
    with gzip.open(tmp_path / "plain.gz", "rb") as source:  # its descriptor is that of the compressed file
        client.encrypt(ROOM, cast(BinaryIO, source), tmp_path / "secret")
    opened = io.BytesIO()
    client.decrypt(ROOM, tmp_path / "secret", opened)
    assert opened.getvalue() == CONTENT


def test_a_pipe_is_read_to_its_end(client: cryptcli.Client, tmp_path: Path) -> None:
    content = b"x" * 300_000
    reading, writing = os.pipe()

    def write() -> None:
        with open(writing, "wb") as pipe:
            pipe.write(content)

    writer = threading.Thread(target=write)
    writer.start()
    with open(reading, "rb") as source:
        report = client.encrypt(ROOM, source, tmp_path / "secret")
    writer.join()
    assert report.size == len(content)
    opened = io.BytesIO()
    client.decrypt(ROOM, tmp_path / "secret", opened)
    assert opened.getvalue() == content


def test_a_writer_that_takes_little_at_a_time_gets_all(client: cryptcli.Client, protected: Path) -> None:
    class Slow:
        taken = b""

        def write(self, data: bytes) -> int:
            self.taken += data[:3]
            return len(data[:3])

    target = Slow()
    client.decrypt(ROOM, protected, target)
    assert target.taken == CONTENT


def test_a_target_object_gets_nothing_when_the_origin_is_refused(
    client: cryptcli.Client, protected: Path
) -> None:
    damaged = bytearray(protected.read_bytes())
    damaged[-1] ^= 1
    target = io.BytesIO()
    with pytest.raises(cryptcli.Error):
        client.decrypt(ROOM, io.BytesIO(damaged), target)
    assert target.getvalue() == b""


def test_an_exception_of_a_source_reaches_the_caller(client: cryptcli.Client, tmp_path: Path) -> None:
    class Broken:
        def read(self, size: int) -> bytes:
            raise OSError(5, "the disk is gone")

    with pytest.raises(OSError, match="the disk is gone"):
        client.encrypt(ROOM, Broken(), tmp_path / "secret")
    assert not (tmp_path / "secret").exists()


def test_an_exception_of_a_target_reaches_the_caller(client: cryptcli.Client, protected: Path) -> None:
    with open("/dev/full", "wb", buffering=0) as full, pytest.raises(OSError, match="No space left"):
        client.decrypt(ROOM, protected, full)


def test_text_objects_are_refused(client: cryptcli.Client, protected: Path, tmp_path: Path) -> None:
    with pytest.raises(TypeError, match="binary mode"):
        client.encrypt(ROOM, cast(BinaryIO, io.StringIO("text")), tmp_path / "secret")
    with pytest.raises(TypeError, match="binary mode"):
        client.decrypt(ROOM, protected, cast(BinaryIO, io.StringIO()))


@pytest.mark.parametrize("wrong", [None, 7, ["a"], object()])
def test_what_is_neither_path_nor_file_object_is_refused(
    client: cryptcli.Client, protected: Path, tmp_path: Path, wrong: Any
) -> None:
    with pytest.raises(TypeError, match="The source has to be a path or a binary file object"):
        client.encrypt(ROOM, wrong, tmp_path / "opened")
    with pytest.raises(TypeError, match="The target has to be a path or a binary file object"):
        client.decrypt(ROOM, protected, wrong)


def test_temporary_files_lie_where_the_options_say(
    make_client: MakeClient, monkeypatch: pytest.MonkeyPatch, tmp_path: Path
) -> None:
    own = tmp_path / "own"
    own.mkdir()
    monkeypatch.setenv("TMPDIR", str(tmp_path / "missing"))
    seen: List[int] = []

    class Spy(io.BytesIO):
        def read(self, size: Any = -1) -> bytes:
            seen.extend(path.stat().st_mode & 0o777 for path in own.iterdir())
            return super().read(size)

    client = make_client(temporary_directory=own)
    client.encrypt(ROOM, Spy(CONTENT), tmp_path / "secret")
    assert client.verify(ROOM, tmp_path / "secret").size == len(CONTENT)
    assert seen and set(seen) == {0o700}
    assert list(own.iterdir()) == []
    with pytest.raises(cryptcli.IOFailure):  # no other directory is tried
        make_client().verify(ROOM, tmp_path / "secret")


def test_temporary_files_never_lie_in_the_working_directory(
    client: cryptcli.Client, monkeypatch: pytest.MonkeyPatch, tmp_path: Path
) -> None:
    monkeypatch.setenv("TMPDIR", str(tmp_path / "missing"))
    monkeypatch.setattr("tempfile.tempdir", str(tmp_path))  # as if no other directory were writable
    with pytest.raises(cryptcli.IOFailure, match="Could not create a temporary directory"):
        client.encrypt(ROOM, io.BytesIO(CONTENT), tmp_path / "secret")


def test_a_missing_temporary_directory_is_an_io_failure(make_client: MakeClient, tmp_path: Path) -> None:
    client = make_client(temporary_directory=tmp_path / "nowhere")
    with pytest.raises(cryptcli.IOFailure, match="Could not create a temporary directory"):
        client.encrypt(ROOM, io.BytesIO(CONTENT), tmp_path / "secret")
