# SPDX-License-Identifier: Apache-2.0
"""A real snmpd with the module in it."""

import contextlib
import os
import pwd
import re
import shutil
import signal
import socket
from pathlib import Path

from .build import AGENT_PRELOAD, EXTENSION, MODULE, REPOSITORY, RUN_UNDER, SWITCH_LIBRARY
from .process import LoggedProcess

# SNMPv3 users: name, the level they are used at, and the passphrases.
USERS = {
    "alice": ("authPriv", "alice-auth-secret", "alice-priv-secret"),
    "bob": ("authNoPriv", "bob-auth-secret", None),
    "carol": ("noAuthNoPriv", None, None),
}

ACCESS_LEVEL = {"authPriv": "priv", "authNoPriv": "auth", "noAuthNoPriv": "noauth"}

# GetRequest for sysUpTime.0, version 2c, community public.
GET_UPTIME = bytes.fromhex("3029020101" "04067075626c6963" "a01c" "020400000001" "020100" "020100"
                           "300e300c" "06082b06010201010300" "0500")

BY_EXTENSION = f"dlmod netsnmpagent_oryx {EXTENSION}"
DIRECTLY = f"dlmod vsan_mib {MODULE}"
THE_SWITCH = f"dlmod switchmib {SWITCH_LIBRARY}"


def started_modules():
    """The modules of its own that run.sh lets the agent start."""
    text = (REPOSITORY / "tools/agent.sh").read_text()
    return re.search(r"^AGENT_MODULES=\(([^)]*)\)", text, re.M).group(1).split()


def free_udp_port():
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]


class Agent:
    """snmpd on a free loopback port, with a configuration of its own.

    run_dir  where the module finds its manager
    loading  the line that loads the module; empty for an agent without it
    user     the account to change to after the start, as `snmpd -u` does
    preload  a library to load before all others, beside that of the whole run
    lines    further lines of its configuration
    users    further SNMPv3 users who may write, as in USERS
    modules  the modules of its own that it starts; all but one by default
    """

    def __init__(self, folder, run_dir, loading=BY_EXTENSION, user=None, preload=None, lines=(), users=None,
                 modules=("-smux",)):
        self.folder = Path(folder)
        self.run_dir = Path(run_dir)
        self.port = free_udp_port()
        self.user = user
        self.users = USERS | (users or {})
        self.process = None
        self._modules = ",".join(modules)
        self._preload = " ".join(str(p) for p in (AGENT_PRELOAD, preload) if p)
        self._conf = self.folder / "conf"
        self._persistent = self.folder / "persistent"
        self._conf.mkdir()
        self._persistent.mkdir(mode=0o700)
        self._write_configuration(loading, lines)

    @property
    def address(self):
        return f"127.0.0.1:{self.port}"

    def _write_configuration(self, loading, further):
        lines = [
            "rocommunity public 127.0.0.1",
            "rwcommunity private 127.0.0.1",
            "rwcommunity limited 127.0.0.1",
            *(f"rwuser {name} {ACCESS_LEVEL[level]}" for name, (level, _, _) in self.users.items()),
            loading,
            *further,
        ]
        (self._conf / "snmpd.conf").write_text("\n".join(lines) + "\n")
        users = []
        for name, (_, auth, priv) in self.users.items():
            users.append(f"createUser {name}" + (f" SHA {auth}" if auth else "") + (f" AES {priv}" if priv else ""))
        state = self._persistent / "snmpd.conf"
        state.write_text("\n".join(users) + "\n")
        state.chmod(0o600)
        if self.user:
            account = pwd.getpwnam(self.user)
            for path in (self._persistent, state):
                os.chown(path, account.pw_uid, account.pw_gid)

    def start(self):
        env = dict(os.environ)
        env.update(
            VSWITCH_RUN_DIR=str(self.run_dir),
            SNMPCONFPATH=f"{self._conf}:{self._persistent}",
            SNMP_PERSISTENT_DIR=str(self._persistent),
            MIBS="",
        )
        if self._preload:
            env["LD_PRELOAD"] = self._preload
        snmpd = shutil.which("snmpd", path=os.environ["PATH"] + ":/usr/sbin:/sbin")
        command = [*RUN_UNDER, snmpd, "-f", "-Lo", "-I", self._modules]
        if self.user:
            account = pwd.getpwnam(self.user)
            command += ["-u", account.pw_name, "-g", str(account.pw_gid)]
        for attempt in range(3):
            self.process = LoggedProcess(command + [f"udp:{self.address}"], env=env, cwd=self.folder)
            try:
                self.process.wait_line(r"NET-SNMP version", timeout=30)
                break
            except AssertionError:
                # Somebody else got the port since it was found free.
                if attempt == 2 or "Error opening specified endpoint" not in self.process.text():
                    raise
                self.port = free_udp_port()
        # Its socket is open now; once it answers, it also takes signals.
        with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as probe:
            probe.settimeout(30)
            probe.connect(("127.0.0.1", self.port))
            probe.send(GET_UPTIME)
            probe.recv(1500)
        return self

    def reload(self):
        """SIGHUP; returns when the agent is about to go through its configuration again.

        snmpd looks at the signal before it waits for packets, not while: one that
        arrives in between is seen after the next packet. So it gets packets."""
        printed = len(self.process.lines)
        self.process.signal(signal.SIGHUP)
        with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as nudge:
            for _ in range(100):
                with contextlib.suppress(AssertionError):
                    self.process.wait_line("Reconfiguring daemon", timeout=0.2, start=printed)
                    return
                nudge.sendto(GET_UPTIME, ("127.0.0.1", self.port))
        raise AssertionError(f"snmpd did not reconfigure:\n{self.process.text()}")

    def suspend(self):
        """The process stays, and does nothing any more."""
        self.process.signal(signal.SIGSTOP)
        os.waitid(os.P_PID, self.process.pid, os.WSTOPPED)

    def resume(self):
        self.process.signal(signal.SIGCONT)

    def finish(self):
        """At the end of a test: the agent must still be there, and end well."""
        if self.process is None:
            return
        code = self.process.wait(0.1) if not self.process.running() else None
        assert code is None, f"snmpd ended by itself with {code}:\n{self.process.text()}"
        self.process.signal(signal.SIGCONT)
        self.process.signal(signal.SIGTERM)
        code = self.process.wait(30)
        self.process.assert_no_report()
        assert code == 0, f"snmpd ended with {code}:\n{self.process.text()}"

    def descriptors(self):
        """What the open descriptors are, sorted. Files under /proc are left out: the
        agent looks at the machine's load now and then, whoever asks for what."""
        folder = Path(f"/proc/{self.process.pid}/fd")
        kinds = []
        for entry in folder.iterdir():
            with contextlib.suppress(FileNotFoundError):  # closed while we look
                target = os.readlink(entry)
                if not target.startswith("/proc/"):
                    kinds.append(target.split(":")[0])
        return sorted(kinds)

    def resident_kib(self):
        return self.process.resident_kib()

    def user_ids(self):
        """Real, effective, saved and file system user id."""
        for line in Path(f"/proc/{self.process.pid}/status").read_text().splitlines():
            if line.startswith("Uid:"):
                return [int(word) for word in line.split()[1:]]
        raise AssertionError("no Uid")
