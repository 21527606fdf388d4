import pytest

pytest_plugins = ["cryptcli.testing.plugin"]


@pytest.fixture(scope="session")
def cryptstand_options():
    return {"key_servers": 1, "rooms": ["mine"]}
