#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
"""Prints a table of what the fuzz targets did.

fuzz_report.py runs JUNIT_XML
    a row for each target's run: how many inputs it ran, how many a second, and how many of
    its inputs each reach something that no other does. The figures are libFuzzer's.
fuzz_report.py coverage FOLDER
    a row for each TARGET.json of the folder, as llvm-cov exports it: the lines and branches
    reached in the module, the platform libraries and the switch, of those source files that
    the target enters at all.
"""

import json
import os
import re
import sys
import xml.etree.ElementTree as ElementTree
from pathlib import Path

REPO = Path(__file__).resolve().parent.parent
PARTS = {"module": "feature/", "platform": "platform/", "switch": "virtual_switch/"}
FIGURES = {
    "executions": re.compile(r"stat::number_of_executed_units:\s*(\d+)"),
    "a second": re.compile(r"stat::average_exec_per_sec:\s*(\d+)"),
    "corpus": re.compile(r"cov: \d+ ft: \d+ corp: (\d+)"),
}


def last(pattern, text):
    found = pattern.findall(text)
    return found[-1] if found else "-"


def runs(junit_path):
    yield ["", *FIGURES]
    cases = ElementTree.parse(junit_path).iter("testcase")
    for case in sorted(cases, key=lambda case: case.attrib["name"]):
        output = "".join(case.itertext())
        yield [case.attrib["name"].removeprefix("fuzz."), *(last(pattern, output) for pattern in FIGURES.values())]


def share(files, what):
    """How many of the lines or branches of these files were reached."""
    reached = sum(file["summary"][what]["covered"] for file in files)
    total = sum(file["summary"][what]["count"] for file in files)
    return f"{reached} of {total} ({100 * reached / total:.0f} %)" if total else "-"


def coverage(folder):
    yield ["", *(f"{part}: {what}" for part in PARTS for what in ("lines", "branches"))]
    for report in sorted(Path(folder).glob("*.json")):
        files = json.loads(report.read_text(encoding="utf-8"))["data"][0]["files"]
        entered = [file for file in files if file["summary"]["lines"]["covered"]]
        row = [report.stem]
        for place in PARTS.values():
            here = [file for file in entered if os.path.relpath(file["filename"], REPO).startswith(place)]
            row += [share(here, "lines"), share(here, "branches")]
        yield row


def main():
    rows = list({"runs": runs, "coverage": coverage}[sys.argv[1]](sys.argv[2]))
    used = [column for column in range(len(rows[0])) if column == 0 or any(row[column] != "-" for row in rows[1:])]
    widths = {column: max(len(row[column]) for row in rows) for column in used}
    for row in rows:
        print(f"{row[0]:<{widths[0]}}" + "".join(f"  {row[column]:>{widths[column]}}" for column in used[1:]))


if __name__ == "__main__":
    main()
