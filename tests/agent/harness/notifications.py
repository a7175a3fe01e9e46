# SPDX-License-Identifier: Apache-2.0
"""Where notifications go: a real snmptrapd, and a socket that only counts them."""

import contextlib
import os
import re
import shutil
import socket
import threading
import time
from pathlib import Path

from .agent import free_udp_port
from .oids import ROOT, cell, dotted
from .process import LoggedProcess

STATUS_CHANGE = ROOT + (1, 3, 0, 1)
MEMBERSHIP_CHANGE = ROOT + (1, 3, 0, 2)
VSAN = ROOT + (1, 1, 4, 0)
PORT_MANAGER = ROOT + (1, 5, 1, 0)
IF_INDEX = (1, 3, 6, 1, 2, 1, 2, 2, 1, 1)
SNMP_TRAPS = (1, 3, 6, 1, 6, 3, 1, 1, 5)
TRAP_OID = (1, 3, 6, 1, 6, 3, 1, 1, 4, 1, 0)
UPTIME = (1, 3, 6, 1, 2, 1, 1, 3, 0)
OUT_TRAPS = (1, 3, 6, 1, 2, 1, 11, 29, 0)  # snmpOutTraps: informs are counted, too
SUBSCRIBED_CLASSES = 2

# An inform goes out under the engine id of its receiver; an agent that is not told it asks
# the receiver first, and waits when that is silent. A trap goes out under the sender's.
RECEIVER_ENGINE = "0x8000000001020304"
SENDER_ENGINE = "0x8000000001020305"
_SECRETS = "SHA watcher-auth-secret AES watcher-priv-secret"
_WATCHER = "-v 3 -u watcher -l authPriv -a SHA -A watcher-auth-secret -x AES -X watcher-priv-secret"
SINKS = {
    "v2c trap": "trap2sink 127.0.0.1:{port} public",
    "v2c inform": "trapsess -Ci -t 30 -v 2c -c public 127.0.0.1:{port}",
    "v3 trap": f"trapsess -e {SENDER_ENGINE} {_WATCHER} 127.0.0.1:{{port}}",
    "v3 inform": f"trapsess -Ci -t 30 -e {RECEIVER_ENGINE} {_WATCHER} 127.0.0.1:{{port}}",
}
# Informs that are sent again, once a second, for as long as any test takes: a receiver may
# get one twice.
PERSISTENT_SINKS = {
    "v2c inform": "trapsess -Ci -t 1 -r 600 -v 2c -c public 127.0.0.1:{port}",
    "v3 inform": f"trapsess -Ci -t 1 -r 600 -e {RECEIVER_ENGINE} {_WATCHER} 127.0.0.1:{{port}}",
}


def integer(oid, number):
    return f"{dotted(oid)} = INTEGER: {number}"


def status_change(vsan, admin_state, oper_state):
    """A VSAN status notification as a Receiver gives it: its OID and its bindings."""
    return dotted(STATUS_CHANGE), [
        integer(VSAN, vsan),
        integer(cell("vsanAdminState", vsan), admin_state),
        integer(cell("vsanOperState", vsan), oper_state),
    ]


def membership_change(port_manager, if_index, vsan):
    """A port membership notification; `port_manager` are the eight bytes that the port
    manager gives as its value."""
    return dotted(MEMBERSHIP_CHANGE), [
        f"{dotted(PORT_MANAGER)} = Hex-STRING: {port_manager.hex(' ').upper()}",
        integer(IF_INDEX + (if_index,), if_index),
        integer(VSAN, vsan),
    ]


def port_manager_value(switch):
    """What a virtual switch's port manager gives as its value: the switch's name."""
    return bytes.fromhex(switch.operate("switch.show")["wwn"].replace(":", ""))


class Receiver:
    """snmptrapd on a free loopback port, printing numbers only. It can end and come back
    on the same port; what it knows of engine boots stays in its folder."""

    def __init__(self, folder):
        self.port = free_udp_port()
        self._folder = Path(folder)
        self._conf = self._folder / "receiver.conf"
        self._conf.write_text(
            "disableAuthorization yes\n"
            f"exactEngineID {RECEIVER_ENGINE}\n"
            f"createUser -e {RECEIVER_ENGINE} watcher {_SECRETS}\n"
            f"createUser -e {SENDER_ENGINE} watcher {_SECRETS}\n")
        self.process = None
        self._read = 0

    def start(self):
        # -n: it would look up the name of the sender of each notification, and wait for that.
        self.process = LoggedProcess(
            [shutil.which("snmptrapd", path=os.environ["PATH"] + ":/usr/sbin:/sbin"), "-f", "-n", "-C",
             "-c", self._conf, "-On", "-Oe", "-Ox", "-Lo", f"udp:127.0.0.1:{self.port}"],
            env=dict(os.environ, MIBS="", SNMP_PERSISTENT_DIR=str(self._folder)), cwd=self._folder)
        self.process.wait_line(r"NET-SNMP version")
        self._read = 0
        return self

    def stop(self):
        self.process.kill()

    def finish(self):
        if self.process is not None:
            self.stop()

    def next(self, timeout=15):
        """The next notification of this MIB or of a link: its OID as text and the bindings
        behind sysUpTime and snmpTrapOID, as printed."""
        pattern = (rf"^{re.escape(dotted(UPTIME))} = Timeticks: [^\t]+\t{re.escape(dotted(TRAP_OID))} = OID: "
                   rf"(?P<kind>{re.escape(dotted(ROOT))}[.0-9]*|{re.escape(dotted(SNMP_TRAPS))}[.][34])"
                   r"\t(?P<bindings>.*)$")
        found = self.process.wait_line(pattern, timeout, start=self._read)
        self._read = self.process.lines.index(found.string, self._read) + 1
        return found["kind"], [binding.rstrip() for binding in found["bindings"].split("\t")]

    def wait_for(self, *notifications, timeout=60):
        """Reads on until these have come, in whatever order."""
        deadline = time.monotonic() + timeout
        missing = list(notifications)
        while missing:
            came = self.next(max(0.0, deadline - time.monotonic()))
            if came in missing:
                missing.remove(came)


class CountingReceiver:
    """A socket that takes notifications as fast as they come and only counts them, those
    included that did not fit into its buffer."""

    def __init__(self):
        self._socket = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        self._socket.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 1 << 22)
        self._socket.bind(("127.0.0.1", 0))
        self.port = self._socket.getsockname()[1]
        self._received = 0
        threading.Thread(target=self._run, daemon=True).start()

    def _run(self):
        with contextlib.suppress(OSError):
            while self._socket.recv(65536):
                self._received += 1

    def _lost(self):
        for line in Path("/proc/net/udp").read_text().splitlines()[1:]:
            fields = line.split()
            if int(fields[1].partition(":")[2], 16) == self.port:
                return int(fields[-1])
        raise AssertionError("the kernel does not know the socket")

    def count(self):
        return self._received + self._lost()

    def wait_count(self, count):
        """Waits until so many have come, and tells how many have."""
        deadline = time.monotonic() + 60
        while self.count() < count and time.monotonic() < deadline:
            time.sleep(0.02)
        return self.count()

    def finish(self):
        with contextlib.suppress(OSError):
            self._socket.shutdown(socket.SHUT_RDWR)
        self._socket.close()


class SilentReceiver:
    """A port that nobody else can get meanwhile, and that never answers."""

    def __init__(self):
        self._socket = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        self._socket.bind(("127.0.0.1", 0))
        self.port = self._socket.getsockname()[1]

    def finish(self):
        self._socket.close()


def wait_until_subscribed(switch, agent, classes=SUBSCRIBED_CLASSES):
    """The agent subscribes from its own loop, a second after it was told to."""
    deadline = time.monotonic() + 15
    with switch.connect() as connection:
        while connection.counters()["subscriptions"] < classes:
            assert time.monotonic() < deadline, agent.process.text()
            time.sleep(0.05)


def watch(switch, start_agent, *lines):
    """An agent that sends what the switch reports; returns when it listens."""
    agent = start_agent(switch, lines=lines)
    wait_until_subscribed(switch, agent)
    return agent
