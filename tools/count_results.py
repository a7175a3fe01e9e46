#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
"""Adds up test results: prints 'N passed, N failed' for JUnit XML files.

A file that is missing, damaged or without a single test counts as one failure: a runner that
died must not look like one that found nothing wrong. Ends with 1 when anything failed.
"""

import sys
import xml.etree.ElementTree as ElementTree


def count(path):
    """Returns how many tests of one file passed, failed and were skipped."""
    try:
        cases = list(ElementTree.parse(path).iter("testcase"))
    except (OSError, ElementTree.ParseError):
        return 0, 1, 0
    failed = sum(1 for case in cases if case.find("failure") is not None or case.find("error") is not None)
    skipped = sum(1 for case in cases if case.find("skipped") is not None)
    if not cases:
        return 0, 1, 0
    return len(cases) - failed - skipped, failed, skipped


def main():
    passed, failed, skipped = (sum(column) for column in zip(*map(count, sys.argv[1:])))
    print(f"{passed} passed, {failed} failed" + (f", {skipped} skipped" if skipped else ""))
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
