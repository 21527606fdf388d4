"""What somebody does on the page while a client runs against the servers."""

from __future__ import annotations

from pathlib import Path

import pytest
from browser import Page
from environment import Command, Environment
from selenium import webdriver
from selenium.webdriver.common.by import By
from selenium.webdriver.common.keys import Keys

MARKUP = "<img src=x onerror=\"document.title='run'\">"
ROUNDS = 40  # a client starts at a random key server; so often it misses one of three with probability 1e-7


def exchanges(page: Page) -> list[list[str]]:
    return [row for row in page.log() if len(row) > 2]


def test_shows_the_servers_and_follows(page: Page) -> None:
    assert "up" in page.row("Servers", "Crypt service")
    for index in range(3):
        assert "http://127.0.0.1:" in page.row("Servers", f"Key server {index}")
        assert page.is_on(f"Key server {index} up")
    assert "QOB.1.100.1" in page.row("Rooms and keys", "demo")
    assert "cryptcli encrypt --service" in page.text("#log")


class TestToken:
    def test_leaves_the_address_bar_and_survives_a_reload(self, page: Page, environment: Environment) -> None:
        assert page.driver.current_url == environment.service
        page.open(environment.service)
        page.turn("Key server 0 up", False)

    def test_without_it_the_page_only_reads(self, tab: Page, environment: Environment, command: Command) -> None:
        command.protect()
        tab.open(environment.service)
        assert "control token" in tab.text("#access").lower()
        changing = tab.driver.find_elements(By.CSS_SELECTOR, "[role=switch], [data-change]")
        assert len(changing) > 20
        assert [control.get_attribute("outerHTML") for control in changing if control.is_enabled()] == []
        tab.driver.find_element(By.CSS_SELECTOR, ".open").click()
        tab.wait(lambda: "Request" in tab.text(".detail"))
        assert not tab.button("Show secrets of exchange " + tab.text(".detail .mono").split()[1]).is_enabled()

    def test_can_be_pasted(self, tab: Page, environment: Environment) -> None:
        tab.open(environment.service)
        tab.driver.find_element(By.ID, "token").send_keys(environment.token, Keys.ENTER)
        tab.wait(lambda: not tab.driver.find_element(By.ID, "access").is_displayed())
        tab.turn("Key server 0 up", False)

    def test_that_is_wrong_is_not_kept(self, tab: Page, environment: Environment) -> None:
        tab.expects_refusals = True
        tab.open(environment.service + "#token=wrong")
        tab.wait(lambda: tab.driver.find_element(By.ID, "access").is_displayed())
        tab.wait(lambda: "not the control token" in tab.text("#status"))
        assert tab.run("return sessionStorage.length") == 0


class TestFailover:
    def meet(self, page: Page, command: Command, sign: str) -> None:
        """Opens a file until the client has met the server that does not work, and the log shows all of it."""
        page.wait(lambda: exchanges(page))  # so that an empty log shows that it was cleared
        for _ in range(ROUNDS):
            page.press("Clear")
            page.wait(lambda: not exchanges(page))
            done = command.open("demo", "--trace", "1")
            assert done.returncode == 0, done.stderr
            # The last request of a client that opens a file.
            page.wait(lambda: [row[3] for row in exchanges(page)][:1] == ["integrity"])
            if sign in done.stderr:
                return
        raise AssertionError("no client met the server")

    def test_from_a_server_that_is_down(self, page: Page, command: Command) -> None:
        assert command.protect().returncode == 0
        page.turn("Key server 0 up", False)
        assert any(row[1:] == ["Key server 0 went down"] for row in page.log())
        self.meet(page, command, "Could not connect to key server")
        # Everything that the client needs came from the others.
        assert any(row[3] == "decryptRequest" and row[6] == "ok" for row in exchanges(page))
        assert {row[2] for row in exchanges(page)} <= {"Crypt service", "Key server 1", "Key server 2"}
        page.turn("Key server 0 up", True)

    def test_from_a_server_that_refuses(self, page: Page, command: Command) -> None:
        assert command.protect().returncode == 0
        page.turn("Key server 1: Status 503", True)
        assert "status" in page.row("Faults set", "status")
        self.meet(page, command, "Could not connect to key server: HTTP 503")
        rows = exchanges(page)
        failed = next(index for index, row in enumerate(rows) if row[2] == "Key server 1")
        assert rows[failed][5] == "503" and rows[failed][6].split()[-1] == "status"
        # The latest is first, so what the client tried next stands above.
        after = next(row for row in reversed(rows[:failed]) if row[2].startswith("Key server"))
        assert after[2] != "Key server 1" and after[5] == "200"
        page.turn("Key server 1: Status 503", False)


def test_a_wrong_answer_reaches_the_client(page: Page, command: Command) -> None:
    assert command.protect().returncode == 0
    page.submit("Set a fault …", {"Server": "All key servers", "Fault": "bad-signature", "Operation": "signRequest"})
    refused = command.protect()
    assert refused.returncode != 0
    assert "signature" in refused.stderr.lower()
    page.wait(lambda: any("bad-signature" in row[6] for row in exchanges(page)))
    page.press("Clear all faults")
    page.wait(lambda: page.row("Faults set", "bad-signature") == "")
    assert command.protect().returncode == 0


def test_a_fault_ends_after_its_uses(page: Page, environment: Environment) -> None:
    page.submit("Set a fault …", {"Server": "Crypt service", "Fault": "status", "Uses": "2", "Number": "502"})
    assert "2 uses" in page.row("Faults set", "status")
    for _ in range(2):
        environment.get("crypt/key/demo")
    page.wait(lambda: page.row("Faults set", "status") == "")
    assert [row[5] for row in exchanges(page)] == ["502", "502"]
