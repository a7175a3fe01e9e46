# SPDX-License-Identifier: Apache-2.0
"""The operator's tool as a test uses it."""

import json
import os
import subprocess

from .build import PROGRAMS
from .process import LoggedProcess

VSWITCHCTL = PROGRAMS / "vswitchctl"


class OperatorTool:
    """vswitchctl against one switch."""

    def __init__(self, switch):
        self.run_dir = switch.run_dir

    def run(self, *words):
        """The finished process, whatever it ended with."""
        return subprocess.run([VSWITCHCTL, "--run", self.run_dir, *map(str, words)], capture_output=True, text=True,
                              timeout=60)

    def __call__(self, *words):
        """What the command prints; it must succeed and complain about nothing."""
        done = self.run(*words)
        assert (done.returncode, done.stderr) == (0, ""), (words, done)
        return done.stdout

    def json(self, *words):
        return json.loads(self(*words, "--json"))

    def refused(self, *words, code=1):
        """The complaint of a command that must end with `code` and print nothing else."""
        done = self.run(*words)
        assert done.returncode == code, (words, done)
        assert done.stdout == "" and done.stderr.strip(), (words, done)
        return done.stderr

    def watch(self, *words):
        """`vswitchctl watch` in the background, from the moment on when it misses nothing."""
        process = LoggedProcess([VSWITCHCTL, "watch", *words],
                                env=dict(os.environ, VSWITCH_RUN_DIR=str(self.run_dir)))
        process.wait_line("^watching")
        return process
