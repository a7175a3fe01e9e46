#!/usr/bin/python3
"""Judges the module's coverage: coverage_report.py GCOVR_JSON UNREACHED_LIST JUNIT_XML

Prints one table, a row for each source file, and the branches that are wrong. A file is
right when its branches and functions that no test reached are those of the list (see
tests/unreached_branches.txt), not one more or less; each file is one test case of the
JUnit file. Ends with 1 when one is wrong.
"""

import json
import os
import re
import sys
import xml.etree.ElementTree as ElementTree
from collections import Counter

ENTRY = re.compile(r"(?P<file>\S+), (?P<what>[1-9][0-9]*|never called): (?P<line>.+)")
NEVER_CALLED = "never called"


def read_list(path):
    """Returns how many branches are listed for each (file, source line), and the uncalled
    functions, likewise, with NEVER_CALLED behind."""
    listed = Counter()
    without_reason = None
    with open(path, encoding="utf-8") as text:
        for number, line in enumerate(text, 1):
            line = line.rstrip()
            if not line or line.startswith("#"):
                continue
            if line.startswith(" "):
                without_reason = None
                continue
            entry = ENTRY.fullmatch(line)
            if not entry:
                sys.exit(f"{path}:{number}: not 'FILE, COUNT: SOURCE LINE'")
            without_reason = without_reason or number
            if entry["what"] == NEVER_CALLED:
                listed[entry["file"], entry["line"], NEVER_CALLED] += 1
            else:
                listed[entry["file"], entry["line"]] += int(entry["what"])
    if without_reason:
        sys.exit(f"{path}:{without_reason}: no reason is given")
    return listed


class SourceFile:
    """What was reached of one source file."""

    def __init__(self, report, root):
        self.name = os.path.basename(report["file"])
        with open(os.path.join(root, report["file"]), encoding="utf-8") as source:
            text = [line.strip() for line in source]
        counted = [line for line in report["lines"] if not line["gcovr/noncode"]]
        self.lines = len(counted)
        self.lines_reached = sum(1 for line in counted if line["count"] > 0)
        self.branches = sum(len(line["branches"]) for line in counted)
        self.functions = len(report["functions"])
        self.unreached = Counter()
        for line in counted:
            missing = sum(1 for branch in line["branches"] if branch["count"] == 0)
            if missing:
                self.unreached[self.name, text[line["line_number"] - 1]] += missing
        for function in report["functions"]:
            if function["execution_count"] == 0:
                self.unreached[self.name, text[function["lineno"] - 1], NEVER_CALLED] += 1

    def branches_reached(self):
        return self.branches - sum(count for key, count in self.unreached.items() if len(key) == 2)

    def functions_reached(self):
        return self.functions - sum(count for key, count in self.unreached.items() if len(key) == 3)


def differences(unreached, listed):
    """The sentences that say where the list is wrong."""
    for key in sorted(unreached | listed):
        what = NEVER_CALLED if len(key) == 3 else "branches not reached"
        if unreached[key] != listed[key]:
            yield f"{key[0]}, {what}: {unreached[key]}, listed: {listed[key]}: {key[1]}"


def share(reached, total):
    return f"{reached:>5} of {total:>4} {100 * reached / total if total else 100:>6.1f} %"


def table(files):
    rows = [("", "lines", "branches", "functions")]
    sums = [0] * 6
    for file in files:
        numbers = [file.lines_reached, file.lines, file.branches_reached(), file.branches]
        numbers += [file.functions_reached(), file.functions]
        sums = [a + b for a, b in zip(sums, numbers)]
        rows.append((file.name, *(share(*numbers[at : at + 2]) for at in (0, 2, 4))))
    rows.append(("all", *(share(*sums[at : at + 2]) for at in (0, 2, 4))))
    width = max(len(row[0]) for row in rows)
    return [f"{row[0]:<{width}}" + "".join(f"{cell:>24}" for cell in row[1:]) for row in rows]


def main():
    report_path, list_path, junit_path = sys.argv[1:]
    root = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
    listed = read_list(list_path)
    with open(report_path, encoding="utf-8") as report:
        files = [SourceFile(file, root) for file in json.load(report)["files"]]
    files = sorted((file for file in files if file.lines), key=lambda file: file.name)
    if not files:
        sys.exit(f"{report_path}: nothing was measured")
    print("\n".join(table(files)))

    wrong = 0
    suite = ElementTree.Element("testsuite", name="coverage")
    for name in sorted({file.name for file in files} | {key[0] for key in listed}):
        unreached = sum((file.unreached for file in files if file.name == name), Counter())
        found = list(differences(unreached, Counter({key: n for key, n in listed.items() if key[0] == name})))
        case = ElementTree.SubElement(suite, "testcase", name=name)
        for sentence in found:
            print(sentence)
            ElementTree.SubElement(case, "failure", message=sentence)
        wrong += bool(found)
    ElementTree.ElementTree(suite).write(junit_path)
    return 1 if wrong else 0


if __name__ == "__main__":
    sys.exit(main())
