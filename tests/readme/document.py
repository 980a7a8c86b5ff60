"""What the project's README says, as data."""

import os
import re

PROJECT = os.path.realpath(os.path.join(os.path.dirname(__file__), "..", ".."))


def read(name):
    with open(os.path.join(PROJECT, name), encoding="utf-8") as file:
        return file.read()


def blocks(text):
    """(language, content) of the fenced blocks, in order."""
    return re.findall(r"^```(\w+)\n(.*?)^```$", text, re.MULTILINE | re.DOTALL)


def section(title):
    return re.search(rf"^## {title}\n(.*?)(?=^## )", read("README.md"),
                     re.MULTILINE | re.DOTALL).group(1)
