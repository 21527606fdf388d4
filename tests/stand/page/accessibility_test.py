"""What a screen reader, a keyboard, a narrow screen and a dark one need of the page."""

from __future__ import annotations

from typing import Any, Dict, List

import pytest
from browser import Page
from environment import Command, Environment
from selenium.webdriver.common.by import By

CONTROLS = {
    *("button", "switch", "textbox", "searchbox", "combobox", "checkbox", "spinbutton", "link", "listbox", "radio"),
}
LANDMARKS = {"banner", "main", "contentinfo", "region"}

# The contrast of each visible text with what is behind it (WCAG 2, 1.4.3). Controls that are disabled are exempt.
CONTRAST = """
const parse = (text) => text.match(/[\\d.]+/g).map(Number);
const over = ([r, g, b, a = 1], under) => [r, g, b].map((part, index) => part * a + under[index] * (1 - a));
const linear = (part) => (part /= 255) <= 0.04045 ? part / 12.92 : ((part + 0.055) / 1.055) ** 2.4;
const luminance = (color) => { const [r, g, b] = color.map(linear); return 0.2126 * r + 0.7152 * g + 0.0722 * b; };
function behind(element) {
  const layers = [];
  for (let at = element; at; at = at.parentElement) layers.push(parse(getComputedStyle(at).backgroundColor));
  return layers.reverse().reduce((under, layer) => over(layer, under), [255, 255, 255]);
}
function contrast(color, under) {
  const [low, high] = [luminance(over(parse(color), under)), luminance(under)].sort((one, other) => one - other);
  return (high + 0.05) / (low + 0.05);
}
const found = [];
const walker = document.createTreeWalker(document.body, NodeFilter.SHOW_TEXT);
while (walker.nextNode()) {
  const element = walker.currentNode.parentElement;
  if (!walker.currentNode.data.trim() || !element.checkVisibility() || element.closest(':disabled, script')) continue;
  found.push([walker.currentNode.data.trim(), contrast(getComputedStyle(element).color, behind(element))]);
}
for (const input of document.querySelectorAll('[placeholder]')) {
  found.push([input.placeholder, contrast(getComputedStyle(input, '::placeholder').color, behind(input))]);
}
return found;
"""


@pytest.fixture
def busy(page: Page, command: Command, environment: Environment) -> Page:
    """The page with something in each of its parts: faults, a server that is down, an exchange that is open."""
    assert command.protect("demo", "--proxy", environment.proxy).returncode == 0
    environment.call("POST", "faults", {"server": "1", "fault": "status", "operation": "status"})
    environment.call("POST", "faults", {"server": "2", "fault": "down"})
    environment.call("POST", "rooms", {"room": "demo", "certificate": "expired"})
    environment.call("POST", "faults", {"server": "proxy", "fault": "slow", "number": 1, "operation": "CONNECT"})
    environment.call("PUT", "lists", {"truststore": "something else"})
    environment.call("POST", "rooms", {"room": "a" * 100})
    environment.get("crypt/key/nowhere")
    environment.get("b" * 200)
    page.wait(lambda: not page.is_on("Key server 2 up") and "replaced" in page.text("#lists"))
    page.wait(lambda: any(row[-1] not in ("", "ok") for row in page.log() if len(row) > 2))
    page.driver.find_element(By.CSS_SELECTOR, ".open").click()
    page.wait(lambda: "Response" in page.text(".detail"))
    return page


def scheme(page: Page, name: str) -> None:
    page.cdp("Emulation.setEmulatedMedia", features=[{"name": "prefers-color-scheme", "value": name}])


def nodes(page: Page) -> List[Dict[str, Any]]:
    return [node for node in page.cdp("Accessibility.getFullAXTree")["nodes"] if not node.get("ignored")]


def role(node: Dict[str, Any]) -> str:
    return node["role"]["value"]


def name(node: Dict[str, Any]) -> str:
    return node.get("name", {}).get("value", "").strip()


def test_each_control_has_a_name(busy: Page) -> None:
    controls = [node for node in nodes(busy) if role(node) in CONTROLS]
    assert len(controls) > 40
    assert [node for node in controls if not name(node)] == []
    switches = [name(node) for node in controls if role(node) == "switch"]
    assert len(switches) == len(set(switches)) > 15


def test_each_field_of_each_form_has_a_name(page: Page) -> None:
    buttons = page.driver.find_elements(By.CSS_SELECTOR, "[data-do=form]")
    openers = [button.get_attribute("aria-label") or button.text for button in buttons]
    assert len(openers) > 8
    for opener in dict.fromkeys(openers):
        page.press(opener)
        page.wait(page.is_form_open)
        # The dialog is modal: what is behind it is no longer in the tree.
        controls = [node for node in nodes(page) if role(node) in CONTROLS]
        assert [node for node in controls if not name(node)] == [], opener
        dialog = next(node for node in nodes(page) if role(node) == "dialog")
        assert name(dialog) == page.text("#dialog-title") != ""
        page.press("Cancel")


def test_landmarks_headings_and_tables_structure_the_page(busy: Page) -> None:
    found = nodes(busy)
    assert LANDMARKS <= {role(node) for node in found}
    script = """
        const headings = [...document.querySelectorAll('h1, h2, h3')].filter((heading) => heading.checkVisibility());
        return headings.map((heading) => Number(heading.tagName[1]));"""
    levels = busy.run(script)
    assert levels[0] == 1 and levels.count(1) == 1
    assert all(after <= before + 1 for before, after in zip(levels, levels[1:]))
    tables = [node for node in found if role(node) == "table"]
    assert len(tables) >= 6 and all(name(node) for node in tables)
    assert sum(role(node) == "columnheader" for node in found) > 20
    assert sum(role(node) == "rowheader" for node in found) >= 8


def test_changes_are_announced(page: Page) -> None:
    status = next(node for node in nodes(page) if role(node) == "status")
    assert {"name": "live", "value": {"type": "token", "value": "polite"}} in status["properties"]
    page.turn("Key server 0 up", False)
    page.wait(lambda: page.run("return document.querySelector('#status').textContent") == "Key server 0 is down.")


@pytest.mark.parametrize("theme", ["light", "dark"])
def test_text_has_contrast(busy: Page, theme: str) -> None:
    scheme(busy, theme)
    busy.press("Set a fault …")
    measured = busy.run(CONTRAST)
    assert len(measured) > 100
    assert [(text, round(ratio, 2)) for text, ratio in measured if ratio < 4.5] == []


def test_dark_is_dark(page: Page) -> None:
    shots = {}
    for theme in ["light", "dark"]:
        scheme(page, theme)
        color = page.run("return getComputedStyle(document.body).backgroundColor")
        shots[theme] = (page.driver.get_screenshot_as_png(), color)
    assert shots["light"][0] != shots["dark"][0]
    brightness = {theme: sum(map(int, shots[theme][1][4:-1].split(","))) for theme in shots}
    assert brightness["dark"] < 100 < 650 < brightness["light"]


# What sticks out of its section, or out of the window. What scrolls on purpose is compared with what it scrolls in.
WIDER = """
const found = [];
if (document.documentElement.scrollWidth > innerWidth) found.push(`the page: ${document.documentElement.scrollWidth}`);
for (const element of document.querySelectorAll('button, select, input, tbody th, tbody td, thead th, .tag')) {
  const place = element.closest('section, header, dialog, main, body');
  const over = element.getBoundingClientRect().right - place.getBoundingClientRect().right;
  if (element.checkVisibility() && over > 1) found.push(`${over} px: ${element.outerHTML.slice(0, 120)}`);
}
for (const place of document.querySelectorAll('section, .scroll')) {
  const over = place.scrollWidth - place.clientWidth;
  if (over > 0) found.push(`${over} px: ${place.outerHTML.slice(0, 120)}`);
}
return found;
"""
WIDTHS = [*range(360, 1000, 10), *range(1000, 2100, 20)]


def test_nothing_is_wider_than_its_section(busy: Page) -> None:
    wider = {}
    for width in WIDTHS:
        busy.cdp("Emulation.setDeviceMetricsOverride", width=width, height=900, deviceScaleFactor=1, mobile=width < 700)
        found = busy.run(WIDER)
        if found:
            wider[width] = found[:3]
        if width in (360, 1000):
            # Cards keep the roles of the table that they are.
            assert sum(role(node) == "rowheader" for node in nodes(busy)) >= 8
    assert list(wider.items())[:3] == []


def test_nothing_moves_where_it_should_not(page: Page) -> None:
    script = "return getComputedStyle(document.querySelector('.switch'), '::after').transitionDuration"
    assert page.run(script) == "0.12s"
    page.cdp("Emulation.setEmulatedMedia", features=[{"name": "prefers-reduced-motion", "value": "reduce"}])
    assert page.run(script) == "0s"
