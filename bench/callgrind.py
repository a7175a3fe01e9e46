# SPDX-License-Identifier: Apache-2.0
"""Counts instructions with callgrind: of a process from one moment to another, and of the
shared objects in it."""

import os
import re
import shutil
import subprocess
from collections import Counter
from pathlib import Path

# Functions in which one side waits for the other: how long they spin depends on the machine,
# not on the code. They and what they call are not counted.
WAITING = (
    "*mts_spin_until*",
    "*SpinWait::until*",
)


class CannotCount(Exception):
    """Callgrind did not do what it was asked for."""


def prefix(output):
    """What stands before a command whose instructions are to be counted."""
    # Naming a function to toggle at also turns counting off at the start, so that comes last.
    return ["valgrind", "--tool=callgrind", "--quiet", f"--callgrind-out-file={output}",
            *(f"--toggle-collect={name}" for name in WAITING), "--collect-atstart=yes"]


class Profile:
    """Instructions by the object that they are in."""

    def __init__(self, path):
        self.of_objects = Counter()
        self._names = {}
        self._read(Path(path).read_text().splitlines())

    @property
    def total(self):
        return sum(self.of_objects.values())

    def of(self, object_name):
        """Instructions in a shared object, named without its folder and version."""
        return sum(count for name, count in self.of_objects.items() if Path(name).name.startswith(object_name))

    def _name(self, text):
        """A name may stand for itself, with a number for later, or as that number alone."""
        number, _, name = re.match(r"(\(\d+\))?( ?)(.*)", text).groups()
        if number is None:
            return name
        if name:
            self._names[number] = name
        return self._names[number]

    def _read(self, lines):
        current = "???"
        of_call = False
        for line in lines:
            if line.startswith("ob="):
                current = self._name(line[3:])
            elif line.startswith("cob="):
                self._name(line[4:])
            elif line.startswith("calls="):
                of_call = True  # the next line is what the callee has cost
            elif re.match(r"[\d+*-]", line):
                if not of_call:
                    self.of_objects[current] += int(line.split()[1])
                of_call = False


class Counted:
    """A process that runs under callgrind and writes to a file named `output`."""

    def __init__(self, pid, output):
        self._pid = str(pid)
        self._output = Path(output)
        self._dumps = 0

    def _control(self, option):
        done = subprocess.run(["callgrind_control", option, self._pid], capture_output=True, text=True, timeout=60,
                              check=False)
        if done.returncode != 0 or "Error" in done.stdout + done.stderr:
            raise CannotCount(f"callgrind_control {option}: {(done.stderr or done.stdout).strip()}")

    def start(self):
        """From here on instructions count."""
        self._control("--zero")

    def stop(self):
        """Up to here; returns the profile."""
        self._control("--dump")
        self._dumps += 1
        dump = self._output.with_name(f"{self._output.name}.{self._dumps}")
        if not dump.exists():
            raise CannotCount(f"callgrind wrote no {dump}")
        return Profile(dump)


def wrapper_folder(folder, program, output):
    """A folder for the front of PATH in which `program` is the real one under callgrind."""
    real = shutil.which(program, path=os.environ["PATH"] + ":/usr/sbin:/sbin")
    folder = Path(folder)
    folder.mkdir()
    script = folder / program
    script.write_text("#!/bin/sh\nexec " + " ".join([*prefix(output), real]) + ' "$@"\n')
    script.chmod(0o755)
    return folder
