"""The local test environment as fixtures of pytest. In conftest.py:

    pytest_plugins = ["cryptcli.testing.plugin"]

A test then takes the fixture by its name:

    def test_upload(cryptstand: cryptcli.testing.Environment, tmp_path: Path) -> None:
        with cryptcli.Client(cryptstand.service) as client:
            client.encrypt(cryptstand.room, ...)

It is not loaded by itself, since it would load the library in every run of pytest, whatever is tested there.
"""

from __future__ import annotations

from typing import Any, Dict, Iterator

import pytest

from . import Environment


@pytest.fixture(scope="session")
def cryptstand_options() -> Dict[str, Any]:
    """The arguments of Environment. A conftest.py overrides it: `return {"rooms": ["mine"]}`."""
    return {}


@pytest.fixture(scope="session")
def cryptstand(cryptstand_options: Dict[str, Any]) -> Iterator[Environment]:
    """A running environment, the same for all tests of a run."""
    with Environment(**cryptstand_options) as environment:
        yield environment
