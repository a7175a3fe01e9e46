# SPDX-License-Identifier: Apache-2.0
"""What a document shows of a terminal: commands, each with what it prints, to be run as
they stand there but for the places that differ from one machine to the next."""

import os
import re
import subprocess

from .build import REPOSITORY


def blocks(document, heading):
    """The fenced blocks under a heading of the second level, in their order."""
    section = (REPOSITORY / document).read_text().partition(f"\n## {heading}\n")[2].partition("\n## ")[0]
    return re.findall(r"^```\w*\n(.*?)^```$", section, re.M | re.S)


def steps(block):
    """The commands of a block, each with the lines that follow it."""
    found = []
    for line in block.splitlines():
        if line.startswith("$ "):
            found.append((line[2:], []))
        else:
            found[-1][1].append(line)
    return found


def adapted(command, places):
    """A command with the document's places, the keys, replaced by this machine's."""
    for shown, here in places.items():
        command = command.replace(shown, str(here))
    return command


def follow(wanted, places, **environment):
    """Runs the commands of some steps in one shell: the steps as they really went. Nothing
    may be printed to standard error."""
    script = "".join(f"{adapted(command, places)}\necho '>> done'\n" for command, _ in wanted)
    done = subprocess.run(["bash", "-c", script], capture_output=True, text=True, timeout=120,
                          env=dict(os.environ, LC_ALL="C.UTF-8", **environment))
    assert done.stderr == ""
    outputs = [text.splitlines() for text in done.stdout.split(">> done\n")][:-1]
    return list(zip((command for command, _ in wanted), outputs))
