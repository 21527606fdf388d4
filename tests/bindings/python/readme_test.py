"""The examples of the package's README do what it says."""

from __future__ import annotations

import logging
import re
from pathlib import Path
from typing import Any, Dict, List

import cryptcli
import pytest
from conftest import CONTENT
from environment import GROUP, ROOM, Environment

README = Path(__file__).resolve().parents[3] / "bindings" / "python" / "README.md"


def examples(environment: Environment) -> List[str]:
    """The blocks of code, with the service and the room of the environment."""
    text = README.read_text().replace("https://crypt.example.com/api", environment.service).replace("room-1", ROOM)
    return re.findall(r"```python\n(.*?)```", text, re.DOTALL)


def test_the_first_example_protects_and_opens(
    environment: Environment, tmp_path: Path, monkeypatch: pytest.MonkeyPatch, capsys: pytest.CaptureFixture[str]
) -> None:
    monkeypatch.chdir(tmp_path)
    Path("report.pdf").write_bytes(CONTENT)
    exec(examples(environment)[0], {})
    assert Path("opened.pdf").read_bytes() == CONTENT
    assert Path("report.p7m").read_bytes() != CONTENT
    assert capsys.readouterr().out.startswith(GROUP + " ")


def test_the_example_of_a_log_logs(
    environment: Environment, protected: Path, caplog: pytest.LogCaptureFixture
) -> None:
    names: Dict[str, Any] = {"cryptcli": cryptcli, "logging": logging, "service": environment.service}
    exec(examples(environment)[1], names)
    with caplog.at_level(logging.DEBUG, "cryptcli"), names["client"] as client:
        client.verify(ROOM, protected)
    assert any("crypt/key/demo" in record.message for record in caplog.records)
