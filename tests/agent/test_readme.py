# SPDX-License-Identifier: Apache-2.0
"""What README.md shows of changing things, and of faults that clients meet, is what happens."""

from harness.build import MIBS, PROGRAMS
from harness.faulted import Scene
from harness.transcript import blocks, follow, steps


def test_changing_things_goes_as_the_readme_shows(start_switch, start_agent):
    switch = start_switch()
    agent = start_agent(switch)
    shown = steps(blocks("README.md", "Changing things")[0])
    assert len(shown) >= 10
    places = {"build/mibs": MIBS, "udp:127.0.0.1:1161": agent.address,
              "build/bin/vswitchctl": PROGRAMS / "vswitchctl", "build/state/run": switch.run_dir}
    assert follow(shown, places, MIBS="") == shown


def test_a_bad_day_for_a_client_goes_as_the_readme_shows(started):
    """With the configuration that run.sh starts the switch with."""
    scene = Scene(started, None)
    shown = steps(blocks("README.md", "A bad day for a client")[0])
    assert len(shown) == 9
    places = {"build/mibs": MIBS, "udp:127.0.0.1:1161": scene.agent.address,
              "build/bin/vswitchctl": PROGRAMS / "vswitchctl", "build/state/run": scene.switch.run_dir}
    went = [(command, [line.replace(scene.agent.address, "udp:127.0.0.1:1161") for line in lines if line])
            for command, lines in follow(shown, places, MIBS="")]
    assert went == shown
