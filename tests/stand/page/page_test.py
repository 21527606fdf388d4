"""What somebody does on the page while a client runs against the servers."""

from __future__ import annotations

import subprocess
from pathlib import Path
from typing import Iterator

import pytest
from browser import Page
from environment import Command, Environment, free_port
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


class TestSuggestedCommands:
    def run(self, tab: Page, folder: Path, values: dict[str, str]) -> None:
        """Runs what the page suggests, to the letter but for these placeholders."""
        (folder / "FILE").write_bytes(b"the plain bytes of a file")
        commands = tab.text("#log pre")
        for placeholder, value in values.items():
            assert placeholder in commands and placeholder in tab.text("#log p.small")
            commands = commands.replace(placeholder, value)
        shell = 'cryptcli() { "$CRYPTCLI" "$@" --force; }; set -e\n' + commands
        ran = ["bash", "-c", shell]
        done = subprocess.run(ran, cwd=folder, capture_output=True, text=True, check=False, timeout=60)
        assert done.returncode == 0, done.stderr
        assert (folder / "FILE").read_bytes() == b"the plain bytes of a file"

    def test_work(self, page: Page, tmp_path: Path) -> None:
        assert page.run("return document.querySelector('#log p.small')") is None
        self.run(page, tmp_path, {})
        page.wait(lambda: exchanges(page))

    @pytest.mark.parametrize("has_client_files", [True, False])
    def test_work_where_clients_need_more(
        self, tab: Page, environment: Environment, tmp_path: Path, has_client_files: bool
    ) -> None:
        """This browser has no client certificate, so its page gets the state of other servers. With authorities of
        somebody else (--client-ca FILE) these know no client."""
        arguments = ["--tls", "--client-ca", "make", "--require-header", "X-Tenant: a secret"]
        arguments += ["--require-header", "X-Tenant's-Key: a secret"]
        with Environment(arguments=arguments) as asking:
            state = asking.call("GET", "state")
            values = {"VALUE": "a secret"}
            if not has_client_files:
                values |= {"CLIENT.pem": state["clientCertificate"], "CLIENT.key": state["clientKey"]}
                state.update(clientCertificate=None, clientKey=None)
            tab.answer("stand/v1/state", state)
            tab.open(environment.page)
            assert "a secret" not in tab.text("#log")
            self.run(tab, tmp_path, values)


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

    def test_may_contain_plus(self, tab: Page) -> None:
        with Environment(arguments=["--control-token", "a+b/c=" * 6]) as environment:
            tab.open(environment.service + "#token=" + environment.token)
            tab.turn("Key server 0 up", False)
            tab.driver.get("about:blank")  # follows no server that stops

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


class TestSwitch:
    @pytest.mark.parametrize(
        "server, fault, switch, is_on",
        [
            ("0", {"fault": "slow", "number": 20}, "Key server 0: Slow by 1 s", False),
            ("0", {"fault": "slow", "number": 1000}, "Key server 0: Slow by 1 s", True),
            ("0", {"fault": "slow"}, "Key server 0: Slow by 1 s", True),
            ("0", {"fault": "status", "number": 404}, "Key server 0: Status 503", False),
            ("0", {"fault": "status"}, "Key server 0: Status 503", True),
            ("proxy", {"fault": "status"}, "Proxy: Status 503", False),  # without a number it is 502 there
            ("proxy", {"fault": "status", "number": 503}, "Proxy: Status 503", True),
        ],
    )
    def test_is_on_for_what_it_says(
        self, page: Page, environment: Environment, server: str, fault: dict[str, object], switch: str, is_on: bool
    ) -> None:
        environment.call("POST", "faults", {"server": server, **fault})
        page.wait(lambda: page.row("Faults set", str(fault["fault"])))
        assert page.is_on(switch) == is_on


class TestForm:
    def test_asks_for_what_the_fault_uses(self, page: Page) -> None:
        page.press("Set a fault …")
        page.fill({"Fault": "slow"})
        assert page.field("Number").is_displayed()
        assert not page.field("Text").is_displayed()
        page.fill({"Fault": "wrong-date"})
        assert page.field("Text").is_displayed()
        assert page.text("#dialog-about") != ""

    def test_shows_what_the_server_refuses(self, page: Page) -> None:
        page.expects_refusals = True
        page.press("Set a clock …")
        page.fill({"Seconds ahead": "99999999999999"})
        page.driver.find_element(By.ID, "dialog-submit").click()
        page.wait(lambda: "seconds" in page.text("#dialog-error"))
        assert page.field("Seconds ahead").get_attribute("aria-invalid") == "true"
        assert page.driver.switch_to.active_element == page.field("Seconds ahead")

    def test_checks_before_it_sends(self, page: Page) -> None:
        page.press("New room …")
        page.driver.find_element(By.ID, "dialog-submit").click()
        assert page.is_form_open()
        assert page.field("Room").get_attribute("aria-invalid") == "true"


class TestRooms:
    def test_a_new_room_can_be_locked(self, page: Page, command: Command) -> None:
        page.submit("New room …", {"Room": "drawings"})
        page.wait(lambda: "none yet" in page.row("Rooms and keys", "drawings"))
        assert command.protect("drawings").returncode == 0
        page.wait(lambda: "CN=" in page.row("Rooms and keys", "drawings"))
        page.turn("drawings: Locked", True)
        refused = command.open("drawings")
        assert refused.returncode != 0
        assert "locked" in refused.stderr.lower()

    def test_a_certificate_expires(self, page: Page, command: Command) -> None:
        assert command.protect().returncode == 0
        page.wait(lambda: "CN=" in page.row("Rooms and keys", "demo"))
        page.submit("Expire a certificate …", {"Room": "demo"})
        page.wait(lambda: page.row("Rooms and keys", "demo").count("expired") == 2)
        assert command.meets("certificate has expired", "encrypt", "plain", "protected.p7m")

    def test_names_are_shown_as_text(self, page: Page, environment: Environment) -> None:
        page.submit("New room …", {"Room": MARKUP})
        page.wait(lambda: page.row("Rooms and keys", MARKUP) != "")
        environment.get("crypt/key/%3Cimg%20src=x%20onerror=alert(1)%3E")
        environment.get("<b>bold")
        page.wait(lambda: len(exchanges(page)) == 2)
        assert page.run("return document.querySelectorAll('img, b').length") == 0
        assert page.driver.title == "cryptstand"


def test_authorities_and_integrity_keys_are_renewed(page: Page) -> None:
    count = "return document.querySelectorAll(arguments[0]).length"
    for authority, member in {"issuing": "truststore", "intermediate": "certstore"}.items():
        rows = f"[data-key={member}] tbody tr"
        before = page.run(count, rows)
        page.submit("Renew the CA …", {"Authority": authority})
        page.wait(lambda: page.run(count, rows) == before + 1, authority)
    keys = page.run(count, "#groups li")
    page.press("New integrity key for QOB.1.100.1")
    page.wait(lambda: page.run(count, "#groups li") == keys + 1)
    assert page.row("Groups", "Demo group").count("in use") == 1


def test_lists_are_replaced_and_restored(page: Page) -> None:
    page.submit("Replace Certificates (certstore)", {"Key servers return": MARKUP})
    page.wait(lambda: page.text("[data-key=certstore] pre") == MARKUP)
    page.press("Restore Certificates (certstore)")
    page.wait(lambda: page.run("return document.querySelector('[data-key=certstore] pre') === null"))
    page.submit("Integrity list …", {"List": "empty"})
    page.wait(lambda: page.text("#lists strong") == "empty")


class TestLog:
    @pytest.fixture(autouse=True)
    def exchanged(self, page: Page, command: Command) -> None:
        assert command.protect().returncode == 0
        page.wait(lambda: any(row[3] == "signRequest" for row in exchanges(page)))

    def test_opens_to_request_and_response(self, page: Page, environment: Environment) -> None:
        page.driver.find_element(By.ID, "filter-text").send_keys("signRequest")
        page.wait(lambda: len(exchanges(page)) == 1)
        page.driver.find_element(By.CSS_SELECTOR, ".open").click()
        page.wait(lambda: "Response" in page.text(".detail"))
        detail = page.text(".detail")
        assert "POST /rest/json" in detail and '"type": "signRequest"' in detail and "signResponse" in detail
        assert "<hidden>" in detail
        page.driver.find_element(By.CSS_SELECTOR, ".detail .button").click()
        page.wait(lambda: "Hide secrets" in page.text(".detail"))
        assert "<hidden>" not in page.text(".detail")
        page.driver.find_element(By.CSS_SELECTOR, ".open").click()
        page.wait(lambda: page.run("return document.querySelector('.detail') === null"))

    def test_filters(self, page: Page, environment: Environment) -> None:
        environment.get("crypt/key/nowhere")
        page.wait(lambda: any("nowhere" in " ".join(row) or row[6] != "ok" for row in exchanges(page)))
        everything = len(exchanges(page))
        page.driver.find_element(By.XPATH, "//select[@id='filter-outcome']/option[.='Only refused']").click()
        page.wait(lambda: len(exchanges(page)) == 1)
        page.driver.find_element(By.XPATH, "//select[@id='filter-outcome']/option[.='All outcomes']").click()
        page.driver.find_element(By.XPATH, "//select[@id='filter-server']/option[.='Crypt service']").click()
        page.wait(lambda: 1 < len(exchanges(page)) < everything)
        assert {row[2] for row in exchanges(page)} == {"Crypt service"}
        page.driver.find_element(By.ID, "filter-text").send_keys("nothing like it")
        page.wait(lambda: "No exchange matches" in page.text("#log"))

    def test_waits_while_paused(self, page: Page, environment: Environment) -> None:
        before = len(exchanges(page))
        page.press("Pause")
        environment.get("crypt/key/demo")
        page.press("Resume (1 new)")
        page.wait(lambda: len(exchanges(page)) == before + 1)

    def test_is_cleared_for_everybody(self, page: Page, environment: Environment) -> None:
        page.press("Clear")
        page.wait(lambda: "No exchanges yet" in page.text("#log"))
        assert environment.call("GET", "events")["events"] == []

    def test_clearing_loses_nothing_that_comes_after(self, page: Page, environment: Environment) -> None:
        for _ in range(10):
            page.press("Clear")
            for _ in range(10):
                environment.get("crypt/key/demo")
            page.wait(lambda: len(exchanges(page)) == len(environment.call("GET", "events")["events"]))


def test_reset_says_what_it_keeps(page: Page) -> None:
    page.press("Reset …")
    said = page.text("#dialog-about")
    assert "the rooms and keys of the start" in said and "no room has a key" not in said


def test_reset_goes_back_to_the_start(page: Page, command: Command) -> None:
    assert command.protect().returncode == 0
    page.submit("New room …", {"Room": "drawings"})
    page.turn("Key server 2 up", False)
    page.submit("Set a clock …", {"Server": "Key server 1", "Seconds ahead": "-90000"})
    page.wait(lambda: "1 d 1 h behind" in page.row("Servers", "Key server 1"))
    page.submit("Reset …")
    page.wait(lambda: page.is_on("Key server 2 up") and page.row("Rooms and keys", "drawings") == "")
    assert "exact" in page.row("Servers", "Key server 1")
    assert "none yet" in page.row("Rooms and keys", "demo")
    assert "No exchanges yet" in page.text("#log")


def test_a_change_elsewhere_shows_here(page: Page, environment: Environment) -> None:
    environment.call("POST", "faults", {"server": "0", "fault": "down"})
    page.wait(lambda: not page.is_on("Key server 0 up"))
    environment.call("POST", "rooms", {"room": "elsewhere"})
    page.wait(lambda: page.row("Rooms and keys", "elsewhere") != "")


class TestRestart:
    """Of the program, at the same address and with the same token. Each run counts its exchanges from 1."""

    @pytest.fixture
    def restarting(self, tab: Page) -> Iterator[Environment]:
        tab.expects_refusals = True
        options = ["--port", str(free_port()), "--control-token", "0123456789abcdef" * 2]
        with Environment(arguments=options) as environment:
            tab.open(environment.page)
            for _ in range(5):
                environment.get("crypt/key/demo")
            tab.wait(lambda: len(exchanges(tab)) == 5)
            yield environment

    def restart(self, tab: Page, environment: Environment) -> None:
        environment.crash()
        tab.wait(lambda: "No connection" in tab.text("#connection"))
        environment.restart()

    def test_empties_the_log(self, tab: Page, restarting: Environment) -> None:
        self.restart(tab, restarting)
        tab.wait(lambda: tab.text("#connection") == "Live")
        assert exchanges(tab) == []  # those of another run
        tab.turn("Key server 0 up", False)

    @pytest.mark.parametrize("is_cleared", [False, True])
    @pytest.mark.parametrize("count", [4, 7])
    def test_shows_what_comes_after(self, tab: Page, restarting: Environment, is_cleared: bool, count: int) -> None:
        """Fewer than the earlier run had, or more: the numbers alone do not tell the runs apart."""
        if is_cleared:
            tab.press("Clear")
            tab.wait(lambda: not exchanges(tab))
        self.restart(tab, restarting)
        tab.wait(lambda: tab.text("#connection") == "Live")
        for _ in range(count):
            restarting.get("crypt/key/demo")
        tab.wait(lambda: len(exchanges(tab)) == count, str(len(exchanges(tab))))


class TestHiddenTab:
    def test_needs_no_connection(self, driver: webdriver.Chrome, environment: Environment) -> None:
        """Browsers open six connections to a server, for all tabs together."""
        tabs: list[Page] = []
        try:
            for _ in range(8):
                tabs.append(Page(driver))
                tabs[-1].open(environment.page)
            tabs[-1].turn("Key server 0 up", False)
            tabs[0].use()
            tabs[0].wait(lambda: not tabs[0].is_on("Key server 0 up"))
            assert tabs[0].text("#connection") == "Live"
            assert tabs[0].findings() == []
        finally:
            for tab in tabs:
                tab.close()

    def test_catches_up_and_keeps_notes_and_details(self, page: Page, environment: Environment) -> None:
        page.turn("Key server 0 up", False)
        environment.get("crypt/key/demo")
        page.wait(lambda: len(exchanges(page)) == 1)
        page.driver.find_element(By.CSS_SELECTOR, ".open").click()
        page.wait(lambda: "Response" in page.text(".detail"))
        other = Page(page.driver)
        page.use(in_front=False)
        page.wait(lambda: page.text("#connection") == "Waits until it is seen")
        environment.get("crypt/key/elsewhere")
        other.close()
        page.use()
        page.wait(lambda: len(exchanges(page)) == 2)
        page.wait(lambda: page.text("#connection") == "Live")
        assert [row[1] for row in page.log() if len(row) == 2] == ["Key server 0 went down"]
        assert "Response" in page.text(".detail")


class TestMessage:
    @pytest.fixture
    def refused(self, tab: Page, environment: Environment) -> Page:
        """The page with an error, which stays until there is something else to say."""
        tab.expects_refusals = True
        tab.open(environment.service + "#token=wrong")
        tab.wait(lambda: "not the control token" in tab.text("#status"))
        return tab

    def test_covers_no_control(self, refused: Page) -> None:
        script = """
            const { left, top, width, height } = document.querySelector('#status').getBoundingClientRect();
            const found = document.elementFromPoint(left + width / 2, top + height / 2);
            return found.closest('main, body > footer') !== null;"""
        refused.run("document.querySelector('main').style.minHeight = '3000px'")
        assert refused.run(script)

    def refuse(self, page: Page) -> None:
        """The same error again, without a change of the focus."""
        page.run("document.querySelector('#status').textContent = ''; location.hash = '#token=wrong'")
        page.wait(lambda: "not the control token" in page.text("#status"))

    @pytest.mark.parametrize("is_replaced", [False, True])
    def test_is_dismissed_and_gives_the_focus_back(self, refused: Page, is_replaced: bool) -> None:
        field = refused.driver.find_element(By.ID, "filter-text")
        field.click()
        self.refuse(refused)
        refused.run("arguments[0].focus()", refused.button("Dismiss the message"))
        if is_replaced:
            refused.run("location.hash = '#token=wrong-again'")
            refused.wait(lambda: refused.run("return location.hash") == "")
            refused.wait(lambda: refused.run("return document.querySelector('#access').checkVisibility()"))
        refused.driver.switch_to.active_element.send_keys(Keys.ENTER)
        refused.wait(lambda: refused.text("#status") == "")
        assert not refused.button("Dismiss the message").is_displayed()
        assert refused.driver.switch_to.active_element == field

    def test_is_dismissed_with_escape(self, refused: Page) -> None:
        refused.driver.find_element(By.TAG_NAME, "body").send_keys(Keys.ESCAPE)
        refused.wait(lambda: refused.text("#status") == "")


class TestProxy:
    def test_is_left_out_where_there_is_none(self, tab: Page) -> None:
        with Environment() as environment:
            tab.open(environment.page)
            assert tab.row("Servers", "Crypt service") and not tab.row("Servers", "Proxy")
            assert not tab.driver.find_element(By.ID, "proxy").is_displayed()
            tab.driver.get("about:blank")  # follows no server that stops

    def test_shows_what_passed(self, page: Page, environment: Environment, command: Command) -> None:
        assert "No tunnels" in page.text("#proxy")
        assert command.protect("demo", "--proxy", environment.proxy).returncode == 0
        row = page.wait(lambda: page.row("Tunnels and requests through the proxy", ""))
        assert "127.0.0.1:" in row and "200" in row
        page.press("Clear the proxy’s records")
        page.wait(lambda: "No tunnels" in page.text("#proxy"))
        assert environment.call("GET", "proxy")["records"] == []

    def test_refuses_by_a_switch(self, page: Page, environment: Environment, command: Command) -> None:
        page.turn("Proxy: Status 503", True)
        assert "Proxy" in page.row("Faults set", "status")
        assert command.protect("demo", "--proxy", environment.proxy).returncode != 0
        page.wait(lambda: "503" in page.row("Tunnels and requests through the proxy", ""))

    def test_that_is_down_is_among_the_faults(self, page: Page) -> None:
        page.turn("Proxy up", False)
        assert "Proxy" in page.row("Faults set", "down")
        assert [row[1] for row in page.log()] == ["Proxy went down"]
        page.press("Clear Proxy: fault “down”")
        page.wait(lambda: page.is_on("Proxy up"))


class TestKeyboard:
    def tab_to(self, page: Page, name: str) -> None:
        """Presses the tabulator until the control with this name has the focus, as somebody without a mouse does."""
        for _ in range(60):
            page.driver.switch_to.active_element.send_keys(Keys.TAB)
            active = page.driver.switch_to.active_element
            if name in (active.get_attribute("aria-label"), active.text):
                return
        raise AssertionError(f"{name} cannot be reached")

    def test_turns_a_switch_and_keeps_the_focus(self, page: Page) -> None:
        self.tab_to(page, "Key server 1 up")
        outline = page.run("return getComputedStyle(document.activeElement).outlineStyle")
        assert outline == "solid"
        page.driver.switch_to.active_element.send_keys(Keys.SPACE)
        page.wait(lambda: not page.is_on("Key server 1 up"))
        assert page.driver.switch_to.active_element == page.button("Key server 1 up")
        page.driver.switch_to.active_element.send_keys(Keys.SPACE)
        page.wait(lambda: page.is_on("Key server 1 up"))

    def test_leaves_a_form_with_escape(self, page: Page) -> None:
        self.tab_to(page, "Set a fault …")
        page.driver.switch_to.active_element.send_keys(Keys.ENTER)
        page.wait(page.is_form_open)
        page.driver.switch_to.active_element.send_keys(Keys.ESCAPE)
        page.wait(lambda: not page.is_form_open())
        assert page.driver.switch_to.active_element == page.button("Set a fault …")
