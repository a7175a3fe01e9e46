#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
"""Judges the module's coverage: coverage_report.py GCOVR_JSON JUNIT_XML

Prints one table, a row for each source file, and what no test has reached: a line that has
branches left, or a function. Each file is one test case of the JUnit file, which fails when
something is left. Ends with 1 when one does.
"""

import json
import os
import sys
import xml.etree.ElementTree as ElementTree


class SourceFile:
    """What was reached of one source file."""

    def __init__(self, report, root):
        self.name = os.path.basename(report["file"])
        with open(os.path.join(root, report["file"]), encoding="utf-8") as source:
            self.text = [line.strip() for line in source]
        counted = [line for line in report["lines"] if not line["gcovr/noncode"]]
        branches = [(line["line_number"], branch["count"]) for line in counted for branch in line["branches"]]
        functions = [(function["lineno"], function["execution_count"]) for function in report["functions"]]
        self.counts = [[line["count"] for line in counted], [n for _, n in branches], [n for _, n in functions]]
        self.branches_left = sorted({number for number, count in branches if count == 0})
        self.uncalled = sorted({number for number, count in functions if count == 0})

    def sentences(self):
        """What no test has reached."""
        for number in self.branches_left:
            yield f"{self.name}:{number}: a branch that no test takes: {self.text[number - 1]}"
        for number in self.uncalled:
            yield f"{self.name}:{number}: a function that no test calls: {self.text[number - 1]}"


def share(counts):
    reached = sum(1 for count in counts if count > 0)
    return f"{reached:>5} of {len(counts):>4} {100 * reached / len(counts) if counts else 100:>6.1f} %"


def table(files):
    sums = [sum((file.counts[kind] for file in files), []) for kind in range(3)]
    rows = [["", "lines", "branches", "functions"]]
    rows += [[file.name, *map(share, file.counts)] for file in files]
    rows.append(["all", *map(share, sums)])
    width = max(len(row[0]) for row in rows)
    return [f"{row[0]:<{width}}" + "".join(f"{cell:>24}" for cell in row[1:]) for row in rows]


def main():
    report_path, junit_path = sys.argv[1:]
    root = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
    with open(report_path, encoding="utf-8") as report:
        files = [SourceFile(file, root) for file in json.load(report)["files"]]
    files = sorted((file for file in files if file.counts[0]), key=lambda file: file.name)
    if not files:
        sys.exit(f"{report_path}: nothing was measured")
    print("\n".join(table(files)))

    wrong = 0
    suite = ElementTree.Element("testsuite", name="coverage")
    for file in files:
        case = ElementTree.SubElement(suite, "testcase", name=file.name)
        sentences = list(file.sentences())
        for sentence in sentences:
            print(sentence)
            ElementTree.SubElement(case, "failure", message=sentence)
        wrong += bool(sentences)
    ElementTree.ElementTree(suite).write(junit_path)
    return 1 if wrong else 0


if __name__ == "__main__":
    sys.exit(main())
