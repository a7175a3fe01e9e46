# SPDX-License-Identifier: Apache-2.0
"""The scripts in the top folder as a user runs them. They build into the repository's own
build folder, so tests of them have nothing to do when another one is under test."""

import os
import signal
import subprocess
from pathlib import Path

import pytest

from . import wire
from .agent import free_udp_port
from .build import BUILD, REPOSITORY
from .process import LoggedProcess

SCRIPT = REPOSITORY / "run.sh"
only_for_its_own_build = pytest.mark.skipif(
    BUILD != REPOSITORY / "build", reason="run.sh builds into its own folder")


def once(script, *options, text=None, **more):
    """A script that ends by itself, with `text` as its standard input."""
    return subprocess.run([script, *map(str, options)], capture_output=True, text=True, timeout=240, input=text or "",
                          **more)


class Running:
    """run.sh with a state folder of the test's choice."""

    def __init__(self, state, *options):
        self.state = Path(state)
        self.run_dir = self.state / "run"
        self.port = free_udp_port()
        self.trap_port = next(port for port in iter(free_udp_port, None) if port != self.port)
        self.address = f"127.0.0.1:{self.port}"  # what the clients ask for
        self.process = LoggedProcess(
            [SCRIPT, "--port", self.port, "--trap-port", self.trap_port, "--state", state, *options])

    def wait_ready(self):
        self.ready = self.process.wait_line("^ready ", timeout=240).string
        return self

    def connect(self):
        """A connection to its switch."""
        return wire.WireClient(self.run_dir / "mts.sock")

    def process_of(self, name):
        """The number of the one process of that name that it has started."""
        (found,) = (number for number, known in processes_using(self.state) if known == name)
        return found

    def end(self, number=signal.SIGTERM):
        self.process.signal(number)
        code = self.process.wait(30)
        assert processes_using(self.state) == []
        assert list(self.state.rglob("*.sock")) == []
        return code

    def finish(self):
        if self.process.running():
            self.end()
        assert processes_using(self.state) == []


def processes_using(state):
    """The processes that have the state folder among their arguments or their environment."""
    found = []
    for entry in Path("/proc").iterdir():
        if entry.name.isdigit() and int(entry.name) != os.getpid():
            try:
                known = (entry / "cmdline").read_bytes() + (entry / "environ").read_bytes()
                name = (entry / "comm").read_text().strip()
            except OSError:
                continue
            if os.fsencode(state) in known:
                found.append((int(entry.name), name))
    return found
