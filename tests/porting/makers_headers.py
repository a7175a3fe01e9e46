#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Usage: makers_headers.py HEADERS FOLDER
Writes into FOLDER the headers of HEADERS, with everything different that may differ."""

import sys
from pathlib import Path

from variations import EVERY, MAY_DIFFER


def main(headers, folder):
    folder.mkdir(parents=True, exist_ok=True)
    for header in sorted(headers.glob("*.h")):
        text = header.read_text()
        for variation in MAY_DIFFER:
            if variation.header in (EVERY, header.name):
                text = variation.apply(text)
        (folder / header.name).write_text(text)


main(*map(Path, sys.argv[1:]))
