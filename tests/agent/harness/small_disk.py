# SPDX-License-Identifier: Apache-2.0
"""A file system with little room, and what fills it."""

import contextlib
import os
import subprocess

import pytest

PAGE = 4096


class SmallDisk:
    """A file system of its own on a folder, until the end of the test."""

    def __init__(self, folder, kib):
        self._folder = folder
        mount = subprocess.run(["mount", "-t", "tmpfs", "-o", f"size={kib}k,mode=0700", "tmpfs", folder],
                               capture_output=True, text=True)
        if mount.returncode != 0:
            pytest.skip(f"only root can make a file system: {mount.stderr.strip()}")

    def finish(self):
        subprocess.run(["umount", self._folder], check=True)


def fill(folder, spare=0):
    """A file that takes all room but so many pages."""
    ballast = folder / "ballast"
    with open(ballast, "ab", buffering=0) as file, contextlib.suppress(OSError):
        while True:
            file.write(bytes(PAGE))
    os.truncate(ballast, max(0, ballast.stat().st_size - spare * PAGE))
    return ballast
