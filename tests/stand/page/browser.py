"""The page in a headless browser, found the way a person or a screen reader finds it: by names and headings."""

from __future__ import annotations

import json
import os
from typing import Any, Callable, Dict, List, Optional

from selenium import webdriver
from selenium.webdriver.chrome.service import Service
from selenium.webdriver.common.by import By
from selenium.webdriver.remote.webelement import WebElement
from selenium.webdriver.support.select import Select
from selenium.webdriver.support.wait import WebDriverWait

SECONDS = 20

# Runs in each page before its own script. A violation of the policy is not an error of the page but a finding.
_WATCH = """
window.violations = [];
document.addEventListener('securitypolicyviolation', (e) => violations.push(e.violatedDirective + ' ' + e.blockedURI));
"""


def start(certificate_for: Optional[str] = None) -> webdriver.Chrome:
    """Starts the browser, with the certificates in the home directory. `certificate_for` is the origin of a server that
    asks for a client certificate, such as https://127.0.0.1:7080: the browser presents one without asking."""
    options = webdriver.ChromeOptions()
    options.binary_location = os.environ["CHROMIUM"]
    # Without a sandbox of its own, since tests may run as root; it sees no page but ours.
    arguments = "--headless=new --no-sandbox --disable-dev-shm-usage --hide-scrollbars --no-proxy-server"
    for argument in arguments.split():
        options.add_argument(argument)
    if certificate_for is not None:
        # Nobody is there to choose. A policy could do the same, but for the whole machine and as root alone.
        choice = {f"{certificate_for},*": {"setting": {"filters": [{}]}}}
        exceptions = {"auto_select_certificate": choice}
        options.add_experimental_option("prefs", {"profile": {"content_settings": {"exceptions": exceptions}}})
    options.set_capability("goog:loggingPrefs", {"browser": "ALL"})
    driver = webdriver.Chrome(service=Service(os.environ["CHROMEDRIVER"]), options=options)
    driver.set_window_size(1200, 1300)
    driver.set_page_load_timeout(SECONDS)
    return driver


def quote(text: str) -> str:
    """A string of XPath 1.0, which has no escapes."""
    return "concat('', " + ", \"'\", ".join(f"'{part}'" for part in text.split("'")) + ")"


class Page:
    """One tab with the page."""

    def __init__(self, driver: webdriver.Chrome) -> None:
        self.driver = driver
        # The console names each response with a status of 400 or more. A test may want some.
        self.expects_refusals = False
        driver.switch_to.new_window("tab")
        self._handle = driver.current_window_handle
        driver.execute_cdp_cmd("Page.addScriptToEvaluateOnNewDocument", {"source": _WATCH})
        driver.get_log("browser")  # drops what earlier tabs said

    def use(self, in_front: bool = True) -> None:
        """Makes the tab the one that is asked, and that is shown."""
        self.driver.switch_to.window(self._handle)
        if in_front:
            self.cdp("Page.bringToFront")

    def close(self) -> None:
        self.use()
        self.driver.close()
        self.driver.switch_to.window(self.driver.window_handles[0])

    def open(self, address: str) -> None:
        self.driver.get(address)
        self.wait(lambda: self.text("#connection") == "Live")

    def answer(self, path: str, content: Any) -> None:
        """Gives the page, from its next opening on, this JSON for what it gets from the path."""
        script = f"""
            const ask = window.fetch;
            window.fetch = (path, options) => path === {json.dumps(path)} && options.method === 'GET' ?
                Promise.resolve(new Response({json.dumps(json.dumps(content))})) : ask(path, options);"""
        self.cdp("Page.addScriptToEvaluateOnNewDocument", source=script)

    def run(self, script: str, *arguments: Any) -> Any:
        return self.driver.execute_script(script, *arguments)

    def cdp(self, command: str, **parameters: Any) -> Dict[str, Any]:
        return self.driver.execute_cdp_cmd(command, parameters)

    def wait(self, condition: Callable[[], Any], what: str = "") -> Any:
        """Waits until the condition holds; an element that was redrawn meanwhile is no failure."""
        waiting = WebDriverWait(self.driver, SECONDS, 0.05, ignored_exceptions=[Exception])
        return waiting.until(lambda _: condition(), what)

    # What the page shows.

    def text(self, selector: str) -> str:
        return self.run("return document.querySelector(arguments[0]).innerText", selector).strip()

    def row(self, table: str, first: str) -> str:
        """The text of the row whose heading begins so, in the table with this name."""
        script = """
            const rows = [...document.querySelectorAll(`table[aria-label="${arguments[0]}"] tbody tr`)];
            return rows.find((row) => row.cells[0].innerText.startsWith(arguments[1]))?.innerText ?? '';"""
        return self.run(script, table, first)

    def log(self) -> List[List[str]]:
        """The rows of the log, latest first: time, duration, server, command, room, status, outcome; of a note, time
        and text."""
        script = """
            return [...document.querySelectorAll('#log tbody tr:not(.detail)')].map(
                (row) => [...row.cells].map((cell) => cell.innerText.trim()));"""
        return self.run(script)

    def findings(self) -> List[str]:
        """Errors in the console and violations of the policy."""
        errors = [entry["message"] for entry in self.driver.get_log("browser") if entry["level"] == "SEVERE"]
        if self.expects_refusals:
            errors = [error for error in errors if "Failed to load resource" not in error]
        return errors + self.run("return window.violations ?? ['not watched']")

    # What a person does.

    def button(self, name: str) -> WebElement:
        wanted = quote(name)
        path = f"//button[@aria-label={wanted} or (not(@aria-label) and normalize-space(.)={wanted})]"
        return self.driver.find_element(By.XPATH, path)

    def press(self, name: str) -> None:
        self.wait(lambda: self.button(name).is_enabled(), name)
        # Redrawing may replace the button between the look and the click.
        self.wait(lambda: self.button(name).click() is None, name)

    def is_on(self, switch: str) -> bool:
        return self.button(switch).get_attribute("aria-checked") == "true"

    def turn(self, switch: str, is_on: bool) -> None:
        assert self.is_on(switch) != is_on
        self.press(switch)
        self.wait(lambda: self.is_on(switch) == is_on, switch)

    def field(self, label: str) -> WebElement:
        path = f"//dialog//label[starts-with(normalize-space(.), {quote(label)})]"
        return self.driver.find_element(By.XPATH, f"{path}//*[self::input or self::select or self::textarea]")

    def fill(self, values: Dict[str, str]) -> None:
        for label, value in values.items():
            field = self.field(label)
            if field.tag_name == "select":
                Select(field).select_by_visible_text(value)
            elif field.get_attribute("type") == "checkbox":
                field.click()
            else:
                field.clear()
                field.send_keys(value)

    def submit(self, opener: str, values: Optional[Dict[str, str]] = None) -> None:
        """Opens a form, fills it in and sends it; it closes when the change is made."""
        self.press(opener)
        self.fill(values or {})
        self.driver.find_element(By.ID, "dialog-submit").click()
        self.wait(lambda: not self.is_form_open(), f"{opener}: {self.text('#dialog-error')}")

    def is_form_open(self) -> bool:
        return self.run("return document.querySelector('dialog').open")
