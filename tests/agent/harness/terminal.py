# SPDX-License-Identifier: Apache-2.0
"""A terminal that somebody types on."""

import os
import pty
import select
import time


class Terminal:
    """A command on a terminal of its own."""

    def __init__(self, *words):
        self.output = ""
        self._pid, self._terminal = pty.fork()
        if self._pid == 0:
            os.execv(words[0], [str(word) for word in words])

    def wait_for(self, text):
        start, deadline = len(self.output), time.monotonic() + 30
        while text not in self.output[start:]:
            assert time.monotonic() < deadline, self.output
            if select.select([self._terminal], [], [], 1)[0]:
                self.output += os.read(self._terminal, 1000).decode()

    def type(self, text):
        os.write(self._terminal, text.encode() + b"\n")

    def ended(self):
        try:
            while data := os.read(self._terminal, 1000):
                self.output += data.decode()
        except OSError:  # the other side is gone
            pass
        os.close(self._terminal)
        return os.waitstatus_to_exitcode(os.waitpid(self._pid, 0)[1])
