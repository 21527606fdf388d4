"""What the tests share: one browser, one local test environment that each test finds as after its start, and a look at
the browser's console after each test."""

from __future__ import annotations

from pathlib import Path
from typing import Iterator

import browser
import pytest
from browser import Page
from environment import Command, Environment
from selenium import webdriver


@pytest.fixture(scope="session")
def driver() -> Iterator[webdriver.Chrome]:
    made = browser.start()
    yield made
    made.quit()


@pytest.fixture(scope="session")
def running() -> Iterator[Environment]:
    with Environment(arguments=["--proxy", "0"]) as made:
        yield made


@pytest.fixture
def environment(running: Environment) -> Environment:
    running.call("POST", "reset", {})
    return running


@pytest.fixture
def command(environment: Environment, tmp_path: Path) -> Command:
    return Command(environment, tmp_path)


@pytest.fixture
def tab(driver: webdriver.Chrome) -> Iterator[Page]:
    """A tab that has to end without errors in its console and violations of its policy."""
    made = Page(driver)
    yield made
    made.use()
    found = made.findings()
    made.close()
    assert found == []


@pytest.fixture
def page(tab: Page, environment: Environment) -> Page:
    """The page at the address that the program printed."""
    tab.open(environment.page)
    return tab
