# SPDX-License-Identifier: Apache-2.0
"""What is measured, as running processes: a switch, an agent that serves it, a simulator. It
uses the harness of the agent tests, on a release build."""

import contextlib
import getpass
import json
import os
import shutil
import socket
import subprocess
import sys
import tempfile
import time
from pathlib import Path

REPOSITORY = Path(__file__).resolve().parents[1]
sys.path.insert(0, str(REPOSITORY / "tests" / "agent"))

from harness.agent import BY_EXTENSION, GET_UPTIME, Agent, free_udp_port  # noqa: E402
from harness.build import LIBRARIES, PROGRAMS  # noqa: E402
from harness.interfaces import AS_A_SWITCH, COLUMN  # noqa: E402
from harness.oids import ARCS, ROOT, dotted  # noqa: E402
from harness.process import LoggedProcess  # noqa: E402
from harness.switch import VirtualSwitch  # noqa: E402

import callgrind  # noqa: E402

ALL_VSANS = 4095
ALL_PORTS = 4096
VSAN_NAME = ".".join(map(str, ARCS["vsanName"]))
MODULE_ROOT = dotted(ROOT)
SYS_NAME = "1.3.6.1.2.1.1.5"
# The table of bench/memory_table.cpp: the module's neighbour, with names of the same length.
MEMORY_TABLE_NAME = ".".join(map(str, ROOT[:-1] + (ROOT[-1] + 1, 1, 1, 3, 1, 2)))

# What an overview of the ports asks for, with the tags of their values.
INTEGER, OCTET_STRING, COUNTER, GAUGE, TIME_TICKS = 2, 4, 0x41, 0x42, 0x43
IF_TABLE_COLUMNS = [{"oid": ".".join(map(str, COLUMN[name])), "type": tag} for name, tag in {
    "ifIndex": INTEGER, "ifDescr": OCTET_STRING, "ifType": INTEGER, "ifSpeed": GAUGE, "ifPhysAddress": OCTET_STRING,
    "ifAdminStatus": INTEGER, "ifOperStatus": INTEGER, "ifLastChange": TIME_TICKS, "ifInOctets": COUNTER,
    "ifOutOctets": COUNTER}.items()]

# One log line for each packet would be measured, too.
QUIET = "dontLogTCPWrappersConnects yes"
# Left to itself the agent ends the answer to a GETBULK after a hundred values.
LONG_ANSWERS = "maxGetbulkResponses 1000"


class NotMeasured(Exception):
    """Why there is no figure."""


def vsan_name(vsan):
    return f"bench-{vsan:04}"


def configuration(vsans, ports=None):
    """So many VSANs, and ports with the indices from 1 on, or the ordinary ones."""
    named = {"vsans": [{"id": vsan, "name": vsan_name(vsan)} for vsan in range(1, vsans + 1)]}
    if ports is None:
        return named | {"portCount": 48}
    return named | {"ports": [{"ifIndex": index} for index in range(1, ports + 1)]}


class CountedSwitch(VirtualSwitch):
    """The switch with its instructions counted."""

    def start(self):
        super().start()  # makes the database, at full speed
        self.stop()
        self.output = self.folder / "vswitchd.callgrind"
        self.process = LoggedProcess([*callgrind.prefix(self.output), *self.command()])
        self.process.wait_line(r"\bready ", timeout=60)
        return self


class Simulator:
    """snmpsimd serving the same VSAN names as the switch."""

    def __init__(self, folder):
        self._folder = Path(folder)
        self.port = free_udp_port()
        self.process = None

    def start(self):
        data, cache = self._folder / "data", self._folder / "cache"
        data.mkdir()
        cache.mkdir()
        lines = (f"{VSAN_NAME}.{vsan}|4|{vsan_name(vsan)}\n" for vsan in range(1, ALL_VSANS + 1))
        (data / "public.snmprec").write_text("".join(lines))
        command = ["snmpsimd", f"--data-dir={data}", f"--cache-dir={cache}", "--logging-method=null",
                   f"--agent-udpv4-endpoint=127.0.0.1:{self.port}"]
        if getpass.getuser() == "root":  # it refuses to run as root
            cache.chmod(0o777)
            command += ["--process-user=nobody", "--process-group=nogroup"]
        self.process = LoggedProcess(command)
        self._wait_for_answer()
        return self

    def _wait_for_answer(self):
        """It says nothing when it is ready; the port is closed until then."""
        with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as probe:
            probe.settimeout(5)
            probe.connect(("127.0.0.1", self.port))
            for _ in range(600):
                with contextlib.suppress(ConnectionRefusedError):
                    probe.send(GET_UPTIME)
                    probe.recv(1500)
                    return
                if not self.process.running():
                    raise NotMeasured(f"snmpsimd ended, saying: {self.process.text()}")
                time.sleep(0.1)
        raise NotMeasured("snmpsimd does not answer")

    def finish(self):
        self.process.kill()


class Stage:
    """Starts what a measurement needs, once for all that need the same, and ends it."""

    def __init__(self, seconds):
        self.seconds = seconds
        self._ends = contextlib.ExitStack()
        self._kept = {}
        self._checked = True

    def __enter__(self):
        return self

    def __exit__(self, failure, *_):
        """Ends everything that was started; unless something else went wrong, it must end well."""
        self._checked = failure is None
        self._ends.close()

    def folder(self):
        """A folder on a disk; the system's own folder for such things is often in memory."""
        path = Path(tempfile.mkdtemp(prefix="vsan-", dir="/var/tmp"))
        path.chmod(0o755)
        self._ends.callback(shutil.rmtree, path, ignore_errors=True)
        return path

    def _start(self, thing):
        try:
            thing.start()
        except BaseException:
            if thing.process is not None:
                thing.process.kill()
            raise
        self._ends.callback(self._finish, thing)
        return thing

    def _finish(self, thing):
        try:
            thing.finish()
        except BaseException:
            if thing.process is not None:
                thing.process.kill()
            if self._checked:
                raise

    def _keep(self, name, make):
        if name not in self._kept:
            self._kept[name] = make()
        return self._kept[name]

    def new_switch(self, vsans, kind=VirtualSwitch, ports=None):
        return self._start(kind(self.folder(), initial=configuration(vsans, ports)))

    def new_agent(self, run_dir, loading=BY_EXTENSION, lines=(), **more):
        return self._start(Agent(self.folder(), run_dir, loading=loading, lines=(QUIET, *lines), **more))

    def switch(self):
        """A switch that has all VSANs."""
        return self._keep("switch", lambda: self.new_switch(ALL_VSANS))

    def agent(self):
        """An agent that serves that switch, and beside it the table in memory."""
        table = f"dlmod memory_table {LIBRARIES / 'memory_table.so'}"
        return self._keep("agent", lambda: self.new_agent(self.switch().run_dir, lines=(table,)))

    def agent_of_a_switch(self):
        """An agent that serves all VSANs and many ports, as run.sh starts one."""
        return self._keep("agent of a switch", lambda: self.new_agent(
            self.new_switch(ALL_VSANS, ports=ALL_PORTS).run_dir, lines=(LONG_ANSWERS,), **AS_A_SWITCH))

    def simulator(self):
        return self._keep("simulator", lambda: self._start(Simulator(self.folder())))

    def counted_agent(self, run_dir):
        """An agent under callgrind, and what controls that."""
        folder = self.folder()
        output = folder / "snmpd.callgrind"
        wrapper = callgrind.wrapper_folder(folder / "bin", "snmpd", output)
        path = os.environ["PATH"]
        os.environ["PATH"] = f"{wrapper}:{path}"
        try:
            agent = self.new_agent(run_dir)
        finally:
            os.environ["PATH"] = path
        return agent, callgrind.Counted(agent.process.pid, output)

    def load(self, streams, **how):
        """Runs snmp_load; returns for each stream the rates of its slices."""
        done = subprocess.run([PROGRAMS / "snmp_load", json.dumps({"streams": streams, **how})],
                              capture_output=True, text=True, check=False)
        if done.returncode != 0:
            raise NotMeasured(done.stderr.strip())
        return json.loads(done.stdout)
