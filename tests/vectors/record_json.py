"""Runs the tests of the JSON package simplejson, as Debian installs them, and writes each text that they load.

For each text, once: a line with the verdict, the size of the text and the size of the value, then the text and the
value. The verdict is "yes" or "no", as that package reads the text; the value is the text written again without
blanks, empty where it holds a number with a fraction or is no JSON of RFC 8259 when written.
"""
import importlib
import os
import pkgutil
import sys
import unittest

import simplejson
import simplejson.tests

load = simplejson.loads
write = simplejson.dumps
texts = {}


def has_float(value):
    if isinstance(value, dict):
        return any(map(has_float, value.values()))
    if isinstance(value, list):
        return any(map(has_float, value))
    return isinstance(value, float)


def value_of(result):
    if has_float(result):
        return b""
    try:
        return write(result, separators=(",", ":"), ensure_ascii=False).encode("utf-8")
    except UnicodeEncodeError:
        return b""


def recording_load(text, *arguments, **options):
    plain = not arguments and not options
    raw = text if isinstance(text, bytes) else text.encode("utf-8", "surrogatepass")
    try:
        result = load(text, *arguments, **options)
    except simplejson.JSONDecodeError:
        if plain:
            texts.setdefault(raw, (b"no", b""))
        raise
    if plain and raw not in texts:
        texts[raw] = (b"yes", value_of(result))
    return result


simplejson.loads = recording_load
suite = unittest.TestSuite()
for module in pkgutil.iter_modules(simplejson.tests.__path__):
    if module.name.startswith("test_"):
        name = "simplejson.tests." + module.name
        suite.addTests(unittest.defaultTestLoader.loadTestsFromModule(importlib.import_module(name)))
with open(os.devnull, "w") as silence:
    result = unittest.TextTestRunner(stream=silence).run(suite)
for raw, (verdict, value) in texts.items():
    sys.stdout.buffer.write(b"%s %d %d\n" % (verdict, len(raw), len(value)) + raw + value + b"\n")
sys.exit(0 if result.wasSuccessful() else 1)
