# SPDX-License-Identifier: Apache-2.0
"""A child process whose output is kept, so that a test can wait for a line of it."""

import re
import subprocess
import threading
import time
from pathlib import Path

SANITIZER_REPORT = re.compile(
    r"AddressSanitizer|LeakSanitizer|UndefinedBehaviorSanitizer|runtime error:|"
    r"double free|free\(\): invalid|corrupted size|stack smashing"
)


class LoggedProcess:
    """Runs a command and collects what it prints, standard error included."""

    def __init__(self, command, env=None, cwd=None):
        self.command = [str(word) for word in command]
        self.lines = []
        self._changed = threading.Condition()
        self._process = subprocess.Popen(
            self.command, env=env, cwd=cwd, stdin=subprocess.DEVNULL,
            stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
        )
        self._reader = threading.Thread(target=self._read, daemon=True)
        self._reader.start()

    @property
    def pid(self):
        return self._process.pid

    def _read(self):
        for raw in self._process.stdout:
            with self._changed:
                self.lines.append(raw.decode("utf-8", "replace").rstrip("\n"))
                self._changed.notify_all()
        with self._changed:
            self._changed.notify_all()

    def text(self, start=0):
        """Everything printed from line number `start` on."""
        return "\n".join(self.lines[start:])

    def running(self):
        return self._process.poll() is None

    def wait_line(self, pattern, timeout=15, start=0):
        """The first match of a pattern in the lines from number `start` on. Waits for
        it; fails when the process ends or the time is up without one."""
        expression = re.compile(pattern)
        deadline = time.monotonic() + timeout
        checked = start
        with self._changed:
            while True:
                while checked < len(self.lines):
                    found = expression.search(self.lines[checked])
                    if found:
                        return found
                    checked += 1
                left = deadline - time.monotonic()
                if left <= 0 or not self._reader.is_alive():
                    raise AssertionError(
                        f"{self.command[0]} never printed {pattern!r}; it printed:\n{self.text()}"
                    )
                self._changed.wait(min(left, 0.5))

    def resident_kib(self):
        """How much memory the process holds."""
        for line in Path(f"/proc/{self.pid}/status").read_text().splitlines():
            if line.startswith("VmRSS:"):
                return int(line.split()[1])
        raise AssertionError("no VmRSS")

    def signal(self, number):
        self._process.send_signal(number)

    def wait(self, timeout=15):
        """Waits for the end; returns the exit code (negative: the signal)."""
        code = self._process.wait(timeout)
        self._reader.join(timeout)
        return code

    def kill(self):
        """Ends the process at once, whatever state it is in."""
        if self.running():
            self._process.kill()
        return self.wait()

    def assert_no_report(self):
        """Fails when a sanitizer or the C library reported something."""
        for line in self.lines:
            if SANITIZER_REPORT.search(line):
                raise AssertionError(f"{self.command[0]} reported:\n{self.text()}")
