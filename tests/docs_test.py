#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Every option that a document gives to a subcommand is one of that subcommand's.

usage: docs_test.py COMMAND
"""
import pathlib
import re
import subprocess
import sys

root = pathlib.Path(__file__).resolve().parent.parent
documents = [root / "README.md", root / "CONTRIBUTING.md", root / "SECURITY.md", *sorted(root.glob("docs/*.md"))]
options = {}


def options_of(subcommand):
    if subcommand not in options:
        done = subprocess.run([sys.argv[1], subcommand, "--help"], capture_output=True, text=True, check=False)
        options[subcommand] = set(re.findall(r"(?<![\w-])--?[a-z][a-z-]*", done.stdout)) if done.returncode == 0 else None
    return options[subcommand]


checked, faults = 0, []
for document in documents:
    text = document.read_text()
    # A command ends with its code: at a backtick, or at the end of an indented line unless that ends in "\".
    for call in re.finditer(r"tqtortho ([a-z][\w-]*)((?:\\\n|[^\n`|])*)", text):
        subcommand, rest = call.groups()
        line_start = text.rfind("\n", 0, call.start()) + 1
        indented = text[line_start:line_start + 4] == "    "
        in_code = text.count("`", line_start, call.start()) % 2 == 1
        if not (indented or in_code):
            continue
        if options_of(subcommand) is None:
            faults.append(f"{document.name}: tqtortho {subcommand}: no such subcommand")
            continue
        for option in re.findall(r"(?<![\w-])--[a-z][a-z-]*", rest):
            checked += 1
            if option not in options_of(subcommand):
                faults.append(f"{document.name}: tqtortho {subcommand} has no option {option}")
print("\n".join(faults))
print(f"{checked} options in {len(documents)} documents, {len(faults)} wrong")
sys.exit(1 if faults or checked < 40 else 0)
