r"""Takes the picture of the page that the documentation shows.

    PYTHONPATH=bindings/python CRYPTCLI_LIBRARY=... CRYPTSTAND=... CRYPTCLI=... CHROMIUM=... CHROMEDRIVER=... \
        tests/stand/page/picture.py FILE.png
"""

from __future__ import annotations

import sys
import tempfile
from pathlib import Path

import browser
from browser import Page
from environment import Command, Environment


def act(page: Page, command: Command) -> None:
    """The failover demo: one key server is down, one refuses, and the exchange with the third is open."""
    command.protect()
    page.turn("Key server 0 up", False)
    page.turn("Key server 2: Status 503", True)
    while not any(row[-1].startswith("not served") for row in page.log()):
        page.press("Clear")
        page.wait(lambda: not page.log())
        command.open()
        page.wait(lambda: [row[3] for row in page.log()[:1]] == ["integrity"])
    page.driver.find_element("xpath", "//tr[td[.='decryptRequest']]//button").click()
    page.wait(lambda: "Response" in page.text(".detail"))


def take(driver: browser.webdriver.Chrome, folder: Path, target: Path) -> None:
    with Environment(arguments=["--port", "7080"]) as environment:
        page = Page(driver)
        page.open(environment.page)
        act(page, Command(environment, folder))
        page.cdp("Emulation.setDeviceMetricsOverride", width=1200, height=1240, deviceScaleFactor=1, mobile=False)
        page.run("scrollTo(0, 0); document.activeElement.blur()")
        target.write_bytes(driver.get_screenshot_as_png())


def main() -> None:
    driver = browser.start()
    try:
        with tempfile.TemporaryDirectory() as folder:
            take(driver, Path(folder), Path(sys.argv[1]))
    finally:
        driver.quit()


main()
