# SPDX-License-Identifier: Apache-2.0
"""Campaigns: tests that break something at random, again and again, and look whether all
of it is still right. In the ordinary suite each makes a few rounds; --soak MINUTES lets
them go on."""

import random
import time
from collections import Counter

# The campaigns, and in which proportion those that run share the minutes of a long run.
SHARES = {
    "mixed load": 0.34,
    "switch killed": 0.26,
    "agent killed": 0.12,
    "both killed": 0.08,
    "switch hung": 0.05,
    "disk full": 0.05,
    "database damaged": 0.03,
    "clock set": 0.04,
    "descriptors exhausted": 0.03,
}

PROGRESS_SECONDS = 20

# A read or a write of a row waits for wait class 4, in units of 250 ms. Each request of a
# PDU may wait that long, but a manager that has been silent once is not waited for again
# until it shows life, but for the 20 ms that a sign of life is given once in a second: a
# PDU that meets a silent manager takes one wait, however many requests it makes. A manager
# that was killed is not waited for at all.
ONE_WAIT = 1.0
# What a busy machine takes beside, with three processes that want to run.
MACHINE = 1.0


class Campaign:
    """What one campaign draws from, how long it goes on, and what it has counted.

    `seconds` is how long it is to go on; 0 is for the few rounds of the ordinary suite.

    draw   its source of chance, which nobody else uses
    count  what it has done, for the lines that it prints
    worst  the longest of each kind of time that it has taken, in seconds
    """

    def __init__(self, name, seed, seconds):
        self.name = name
        self.draw = random.Random(f"{name} {seed}")
        self.count, self.worst = Counter(), Counter()
        self._seed = seed
        self._seconds = seconds

    @property
    def long(self):
        return bool(self._seconds)

    def rounds(self, few):
        """Numbers from 1 on: a few, and for as long as a long run lasts."""
        begun = printed = time.monotonic()
        number = 0
        while number < few or time.monotonic() - begun < self._seconds:
            number += 1
            self.count["rounds"] = number
            yield number
            if time.monotonic() - printed > PROGRESS_SECONDS:
                printed = time.monotonic()
                self._print(f"{printed - begun:.0f} of {self._seconds:.0f} s")
        self._print(f"{time.monotonic() - begun:.0f} s, done")

    def took(self, what, seconds, bound):
        """Notes a time and holds it against its bound."""
        self.worst[what] = max(self.worst[what], seconds)
        assert seconds < bound, f"{what}: {seconds:.2f} s; {self}"

    def __str__(self):
        counted = [f"{number} {what}" for what, number in self.count.items()]
        return ", ".join([f"seed {self._seed}", *counted,
                          *(f"longest {what} {1000 * seconds:.0f} ms" for what, seconds in self.worst.items())])

    def _print(self, when):
        print(f"  {self.name}: {when}: {self}", flush=True)
