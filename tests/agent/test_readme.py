# SPDX-License-Identifier: Apache-2.0
"""What README.md shows of changing things is what happens."""

from harness.build import MIBS, PROGRAMS
from harness.transcript import blocks, follow, steps


def test_changing_things_goes_as_the_readme_shows(start_switch, start_agent):
    switch = start_switch()
    agent = start_agent(switch)
    shown = steps(blocks("README.md", "Changing things")[0])
    assert len(shown) >= 10
    places = {"build/mibs": MIBS, "udp:127.0.0.1:1161": agent.address,
              "build/bin/vswitchctl": PROGRAMS / "vswitchctl", "build/state/run": switch.run_dir}
    assert follow(shown, places, MIBS="") == shown
