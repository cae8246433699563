#!/usr/bin/env python3
"""Changes a configuration document as an editor does: by a new file in its place.

    edit.py FILE NAME PROPERTY=VALUE ...   sets properties of the object whose name ends with /NAME; more objects after a --
    edit.py FILE DELTA.json                adds what a delta adds
"""
import json
import os
import sys


def objects(entry):
    yield entry
    for child in entry.get("objects", []):
        yield from objects(child)


def find(document, wanted):
    found = [o for top in document["add"]["objects"] for o in objects(top) if o["name"].endswith("/" + wanted)]
    if len(found) != 1:
        sys.exit(f"edit.py: {len(found)} objects are called {wanted}")
    return found[0]


def value(text):
    return int(text) if text.isdigit() else text


def set_properties(document, words):
    target = None
    for word in words:
        if word == "--":
            target = None
        elif target is None:
            target = find(document, word)
        else:
            name, text = word.split("=", 1)
            target.setdefault("props", {})[name] = value(text)


def add(document, delta):
    """An object joins its parent: the one whose name is its own without the last type and name."""
    for entry in delta["objects"]:
        parent = find(document, "/".join(entry["name"].split("/")[1:-2]))
        parent.setdefault("objects", []).append(entry)
    for kind, pairs in delta["relationships"].items():
        document["add"]["relationships"].setdefault(kind, []).extend(pairs)


def main(path, words):
    with open(path, encoding="utf-8") as file:
        document = json.load(file)
    if words[0].endswith(".json"):
        with open(words[0], encoding="utf-8") as file:
            add(document, json.load(file)["add"])
    else:
        set_properties(document, words)
    with open(path + ".new", "w", encoding="utf-8") as file:
        json.dump(document, file, indent=1)
    os.rename(path + ".new", path)


main(sys.argv[1], sys.argv[2:])
