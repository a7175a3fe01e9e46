# SPDX-License-Identifier: Apache-2.0
"""The operator's tool as a test uses it."""

import json
import os
import re
import subprocess

from .build import PROGRAMS, REPOSITORY
from .process import LoggedProcess

VSWITCHCTL = PROGRAMS / "vswitchctl"
COMPLETION = REPOSITORY / "virtual_switch/tool/completion.bash"


def help_of(*words):
    done = subprocess.run([VSWITCHCTL, *words, "--help"], capture_output=True, text=True, timeout=20)
    assert done.returncode == 0, done
    return done.stdout


def subcommands(text):
    return re.findall(r"^  ([a-z-]+) ", text.partition("Subcommands:")[2].partition("\n\n")[0], re.MULTILINE)


def all_commands():
    """Every command of the tool, as words."""
    for command in subcommands(help_of()):
        below = subcommands(help_of(command))
        if below:
            yield from ((command, word) for word in below)
        else:
            yield (command,)


def complete(*words, run_dir="/nonexistent"):
    """What bash offers for the last of these words."""
    script = f"""source {COMPLETION}
COMP_WORDS=("$@"); COMP_CWORD=$((${{#COMP_WORDS[@]}} - 1)); _vswitchctl; printf '%s\\n' "${{COMPREPLY[@]}}" """
    done = subprocess.run(["bash", "-c", script, "bash", VSWITCHCTL, *words], capture_output=True,
                          text=True, timeout=60, env=dict(os.environ, VSWITCH_RUN_DIR=str(run_dir)))
    assert done.returncode == 0 and not done.stderr, done
    return set(done.stdout.split())


class OperatorTool:
    """vswitchctl against one switch."""

    def __init__(self, switch):
        self.run_dir = switch.run_dir

    def run(self, *words):
        """The finished process, whatever it ended with."""
        return subprocess.run([VSWITCHCTL, "--run", self.run_dir, *map(str, words)], capture_output=True, text=True,
                              timeout=60)

    def shell(self, command, folder):
        """A line of a shell in a folder, in which the tool is `vswitchctl`; the finished process."""
        return subprocess.run(["bash", "-c", command], cwd=folder, capture_output=True, text=True, timeout=60,
                              env=dict(os.environ, VSWITCH_RUN_DIR=str(self.run_dir),
                                       PATH=f"{VSWITCHCTL.parent}:{os.environ['PATH']}"))

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
