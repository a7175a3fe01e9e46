"""What README.md shows of changing things is what happens: its commands are run as they
stand there, but for the places that differ from one machine to the next."""

import os
import re
import subprocess

from harness.build import MIBS, PROGRAMS, REPOSITORY


def transcript(heading):
    """The commands under a heading, each with the lines that follow it."""
    section = (REPOSITORY / "README.md").read_text().partition(f"\n## {heading}\n")[2].partition("\n## ")[0]
    block = re.search(r"^```\n(.*?)^```$", section, re.M | re.S).group(1)
    steps = []
    for line in block.splitlines():
        if line.startswith("$ "):
            steps.append((line[2:], []))
        else:
            steps[-1][1].append(line)
    return steps


def test_changing_things_goes_as_the_readme_shows(start_switch, start_agent):
    switch = start_switch()
    agent = start_agent(switch)
    steps = transcript("Changing things")
    assert len(steps) >= 10
    script = ""
    for command, _ in steps:
        for shown, here in (("build/mibs", MIBS), ("udp:127.0.0.1:1161", agent.address),
                            ("build/bin/vswitchctl", PROGRAMS / "vswitchctl"), ("build/state/run", switch.run_dir)):
            command = command.replace(shown, str(here))
        script += f"{command}\necho '>> done'\n"
    done = subprocess.run(["bash", "-c", script], capture_output=True, text=True, timeout=120,
                          env=dict(os.environ, MIBS="", LC_ALL="C.UTF-8"))
    outputs = [text.splitlines() for text in done.stdout.split(">> done\n")][:-1]
    assert done.stderr == ""
    assert list(zip((command for command, _ in steps), outputs)) == steps
