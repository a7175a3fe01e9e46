# SPDX-License-Identifier: Apache-2.0
"""The SNMPv3 users of run.sh's agent: the command that makes them, and whom the agent lets in."""

import os
import re
import subprocess

from .build import MIBS, REPOSITORY
from .clients import NetSnmp
from .oids import dotted, scalar
from .run_script import once

COMMAND = REPOSITORY / "snmp_user.sh"
AUTH, PRIV = "correct horse battery", "staple of another kind"
SNMP_ENGINE = (1, 3, 6, 1, 6, 3, 10, 2, 1)
SNMP_ENGINE_BOOTS = SNMP_ENGINE + (2, 0)


class Users:
    """The command on one state folder."""

    def __init__(self, state, script=None):
        self.state = state
        self.script = script

    def __call__(self, *words, text=None, **more):
        return once(COMMAND, "--state", self.state, *words, text=text, **more)

    def done(self, *words, text=None):
        """What a command prints that must succeed and complain about nothing."""
        done = self(*words, text=text)
        assert (done.returncode, done.stderr) == (0, ""), done
        return done.stdout

    def refused(self, *words, text=None, code=1):
        """The one sentence of a command that must fail."""
        done = self(*words, text=text)
        assert done.returncode == code and done.stdout == "", done
        assert len(done.stderr.splitlines()) == 1, done.stderr
        return done.stderr

    def add(self, name, auth=AUTH, priv=PRIV, *options):
        return self.done("add", name, *options, text=f"{auth}\n{priv}\n")

    def show_boots(self):
        """From the next start on readers see how often the agent has started."""
        own_lines = self.state / "agent" / "snmpd.local.conf"
        own_lines.parent.mkdir(mode=0o700, parents=True, exist_ok=True)
        own_lines.write_text(f"view switch included {dotted(SNMP_ENGINE)}\n")

    def ask(self, name, auth=AUTH, priv=PRIV, tool="snmpget", level="authPriv", timeout=10,
            words=(dotted(scalar("vsanNumber")),)):
        """What a tool prints that logs in with passwords."""
        return answer([tool, "-t", str(timeout), "-v3", "-u", name, "-l", level, "-a", "SHA-256", "-A", auth,
                       "-x", "AES", "-X", priv], self.script.address, words)

    def lets_in(self, name, auth=AUTH, priv=PRIV):
        return bool(re.search(r"INTEGER: \d+", self.ask(name, auth, priv)))


def answer(command, address, words, **environment):
    done = subprocess.run([*command, "-r", "0", "-m", "", address, *words], capture_output=True, text=True,
                          timeout=60, env=dict({"SNMPCONFPATH": "/nonexistent"}, **environment, PATH=os.environ["PATH"],
                                               SNMP_PERSISTENT_FILE="/dev/null", MIBDIRS=str(MIBS)))
    return done.stdout + done.stderr


def boots(script):
    """How often the agent says that it has started; see Users.show_boots."""
    return NetSnmp(script).get(SNMP_ENGINE_BOOTS)[0].value
