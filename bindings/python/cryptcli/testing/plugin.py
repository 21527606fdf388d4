"""The local test environment as fixtures of pytest. In conftest.py:

    pytest_plugins = ["cryptcli.testing.plugin"]

A test then takes a fixture by its name: `cryptstand`, or `cryptstand_reset` to find the environment as it was after the
start, whatever the tests before have done to it:

    def test_upload(cryptstand_reset: cryptcli.testing.Environment, tmp_path: Path) -> None:
        with cryptcli.Client(cryptstand_reset.service) as client:
            client.encrypt(cryptstand_reset.room, ...)

Other arguments for Environment come from a fixture in conftest.py. Without this scope, pytest refuses it:

    @pytest.fixture(scope="session")
    def cryptstand_options():
        return {"key_servers": 1, "rooms": ["mine"]}

It is not loaded by itself, since it would load the library in every run of pytest, whatever is tested there.
"""

from __future__ import annotations

from typing import Any, Dict, Iterator

import pytest

from . import Environment


@pytest.fixture(scope="session")
def cryptstand_options() -> Dict[str, Any]:
    """The arguments of Environment. A conftest.py overrides it, with the same scope, as above."""
    return {}


@pytest.fixture(scope="session")
def cryptstand(cryptstand_options: Dict[str, Any]) -> Iterator[Environment]:
    """A running environment, the same for all tests of a run."""
    with Environment(**cryptstand_options) as environment:
        yield environment


@pytest.fixture
def cryptstand_reset(cryptstand: Environment) -> Environment:
    """The same environment, in the state after its start; one that a test has stopped or restarted is made new."""
    if cryptstand.running and not cryptstand.restarted:
        cryptstand.reset()
    else:
        cryptstand.start()
    return cryptstand
