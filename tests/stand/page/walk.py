"""What somebody does on the page during the first walk of docs/stand.md. Its commands run around this program, which
scripts/stand-walk.sh starts: each line of standard input names a step, and "done" is printed after it. The steps have
an order, none may be left out.

    HOME=FOLDER CHROMIUM=... CHROMEDRIVER=... tests/stand/page/walk.py

Run in the folder of the walk; HOME has the browser's certificates.
"""

from __future__ import annotations

import json
import sys
from pathlib import Path

import browser
from browser import Page

DOWN = "Key server 0 went down"


def show(rows: list[list[str]]) -> None:
    for row in rows:
        print("  log:", "  ".join(row), file=sys.stderr)


def open_page(page: Page) -> None:
    page.open(json.loads(Path("urls.json").read_text())["page"])
    for index in range(3):
        assert "https://127.0.0.1:" in page.row("Servers", f"Key server {index}")


def stop(page: Page) -> None:
    page.turn("Key server 0 up", False)
    page.wait(lambda: any(row[1:] == [DOWN] for row in page.log()), DOWN)


def failover(page: Page) -> None:
    # The last request of a client that opens a file.
    page.wait(lambda: [row[3] for row in page.log()[:1]] == ["integrity"], "the end of an exchange")
    rows = page.log()
    after = rows[: next(index for index, row in enumerate(rows) if row[1:] == [DOWN])]
    show(after[-8:])
    assert {row[2] for row in after} <= {"Crypt service", "Key server 1", "Key server 2"}
    assert any(row[3] == "decryptRequest" for row in after)
    assert {row[6] for row in after} == {"ok"}


def fault(page: Page) -> None:
    page.submit("Set a fault …", {"Server": "All key servers", "Fault": "bad-signature"})
    page.wait(lambda: page.row("Faults set", "bad-signature"), "the fault")


def reason(page: Page) -> None:
    def met() -> list[list[str]]:
        return [row for row in page.log() if row[3:4] == ["signRequest"] and "bad-signature" in row[6]]

    show(page.wait(met, "the request that was affected"))


def clear(page: Page) -> None:
    page.press("Clear all faults")
    page.wait(lambda: page.row("Faults set", "bad-signature") == "", "no fault")
    page.wait(lambda: page.is_on("Key server 0 up"), "key server 0")
    assert page.findings() == []  # now, since the page complains when the servers stop


def end(_: Page) -> None:
    """The walk is complete."""


# In the order of the walk.
STEPS = {
    "open": open_page,
    "stop": stop,
    "failover": failover,
    "fault": fault,
    "reason": reason,
    "clear": clear,
    "end": end,
}


def take(page: Page) -> None:
    for name, step in STEPS.items():
        asked = sys.stdin.readline().strip()
        if not asked:
            sys.exit("the walk ended before the step " + name)
        assert asked == name, f"the walk has the step {asked} where {name} belongs"
        step(page)
        print("done", flush=True)


def main() -> None:
    urls = json.loads(Path("urls.json").read_text())
    driver = browser.start(urls["service"].rstrip("/"))
    try:
        take(Page(driver))
    finally:
        driver.quit()


main()
