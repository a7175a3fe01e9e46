# SPDX-License-Identifier: Apache-2.0
"""The virtual switch as a test sees it."""

import contextlib
import grp
import json
import os
import signal
import time
from collections import Counter
from pathlib import Path

from . import wire
from .build import PROGRAMS, RUN_UNDER
from .process import LoggedProcess


class Served:
    """How many requests the manager served while a block ran."""

    def __init__(self):
        self.requests = Counter()  # (service, opcode, kind): count

    def of(self, opcode, kind=None, service=wire.SERVICE_VSAN):
        return sum(
            count for (s, o, k), count in self.requests.items()
            if s == service and o == opcode and kind in (None, k)
        )

    def to_managers(self, kind=None):
        """Requests to the VSAN manager and the port manager."""
        return sum(
            count for (service, _, k), count in self.requests.items()
            if service in (wire.SERVICE_VSAN, wire.SERVICE_PORT) and kind in (None, k)
        )


class CountsRequests:
    """For a manager that knows what it has served so far."""

    def counts(self):
        """What that is, as the `requests` of Served."""
        raise NotImplementedError

    @contextlib.contextmanager
    def counting(self):
        served = Served()
        before = self.counts()
        yield served
        served.requests.update(self.counts() - before)


class VirtualSwitch(CountsRequests):
    """vswitchd on a state folder of its own. The folder outlives the process, so that
    a test can stop it and start it again."""

    def __init__(self, folder, initial=None, roles=None, empty=False, socket_group=None):
        self.folder = Path(folder)
        self.state = self.folder / "state"
        self.run_dir = self.folder / "run"
        self.socket = self.run_dir / "mts.sock"
        self.process = None
        self.state.mkdir(mode=0o700)
        self.run_dir.mkdir(mode=0o700)
        self.options = []
        if empty:
            self.options = ["--empty"]
        elif initial is not None:
            path = self.folder / "initial.json"
            path.write_text(json.dumps(initial))
            self.options = ["--initial", str(path)]
        if socket_group is not None:
            self.options += ["--socket-group", grp.getgrgid(socket_group).gr_name]
        if roles is not None:
            self.write_roles(roles)

    def command(self):
        return [PROGRAMS / "vswitchd", "--state", self.state, "--run", self.run_dir, *self.options]

    def start(self):
        assert self.process is None or not self.process.running()
        self.process = LoggedProcess([*RUN_UNDER, *self.command()])
        self.process.wait_line(r"\bready " + str(self.socket))
        return self

    def stop(self):
        """The ordinary way: a signal, a clean end, no socket left."""
        self.process.signal(signal.SIGTERM)
        code = self.process.wait()
        self.process.assert_no_report()
        assert code == 0, f"vswitchd ended with {code}:\n{self.process.text()}"
        assert not self.socket.exists()

    def kill(self):
        """The other way: nothing is tidied up."""
        self.process.kill()

    def restart(self):
        self.stop()
        return self.start()

    def suspend(self):
        """The process stays, its socket stays, and nothing is answered any more."""
        self.process.signal(signal.SIGSTOP)
        os.waitid(os.P_PID, self.process.pid, os.WSTOPPED)

    def resume(self):
        self.process.signal(signal.SIGCONT)
        with self.connect() as connection:
            connection.ping()

    def finish(self):
        """At the end of a test: whatever runs is stopped and must end well."""
        if self.process is not None and self.process.running():
            self.process.signal(signal.SIGCONT)
            self.stop()
        elif self.process is not None:
            self.process.assert_no_report()

    def write_roles(self, roles):
        """`roles` maps a role's name to (users, VSAN ranges) or (users, VSAN ranges,
        interface ranges). Without the last, the role has no interface."""
        path = self.state / "roles.json"
        path.write_text(json.dumps({"roles": [
            dict(zip(("users", "vsans", "interfaces"), role), name=name) for name, role in roles.items()
        ]}))
        path.chmod(0o600)

    def change_roles(self, roles, known_user, restricted):
        """Writes the roles, has them read, and returns once the switch goes by them:
        once `known_user` is restricted, or is not."""
        self.write_roles(roles)
        self.process.signal(signal.SIGHUP)
        with self.connect() as connection:
            for _ in range(10000):
                reply = connection.request(wire.SERVICE_ROLES, wire.ROLE_OF_USER, payload=known_user.encode())
                if int.from_bytes(reply.data[:4], "big") == int(restricted):
                    return
        raise AssertionError("the roles were not read again:\n" + self.process.text())

    def connect(self):
        return wire.WireClient(self.socket)

    def operate(self, name, /, **arguments):
        """What the operator's tool would ask for; returns the answer."""
        with self.connect() as connection:
            reply = connection.request(wire.SERVICE_SWITCH, wire.SWITCH_COMMAND, wire.command_kind(name),
                                       json.dumps({"command": name, **arguments}).encode())
        answer = json.loads(reply.data or b"{}")
        assert reply.status == 0, f"{name} {arguments}: {answer}"
        return answer

    def wait_connections(self, count):
        """Waits until the switch has `count` connections beside this one."""
        with self.connect() as connection:
            for _ in range(1500):
                if connection.counters()["connections"] == count + 1:
                    return
                time.sleep(0.01)
        raise AssertionError(f"the switch never had {count} connections")

    def vsans(self):
        with self.connect() as connection:
            return connection.vsans()

    def stored(self):
        """Everything that the switch keeps, byte for byte: its database and the log of
        that. Equal when nothing was written in between."""
        return [(self.state / name).read_bytes() for name in ("switch.db", "switch.db-wal")]

    def counts(self):
        with self.connect() as connection:
            return Counter({
                (row["service"], row["opcode"], row["kind"]): row["count"]
                for row in connection.counters()["requests"]
            })
