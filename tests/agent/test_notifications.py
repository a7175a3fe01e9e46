"""Events of the switch arrive at a real snmptrapd as notifications."""

import os
import re
import shutil
import time

import pytest
from harness.agent import free_udp_port
from harness.clients import NetSnmp
from harness.oids import ROOT, cell
from harness.operator_tool import OperatorTool
from harness.process import LoggedProcess

STATUS_CHANGE = ROOT + (1, 3, 0, 1)
MEMBERSHIP_CHANGE = ROOT + (1, 3, 0, 2)
VSAN = ROOT + (1, 1, 4, 0)
PORT_MANAGER = ROOT + (1, 5, 1, 0)
IF_INDEX = (1, 3, 6, 1, 2, 1, 2, 2, 1, 1)
TRAP_OID = (1, 3, 6, 1, 6, 3, 1, 1, 4, 1, 0)
UPTIME = (1, 3, 6, 1, 2, 1, 1, 3, 0)
ACTIVE, SUSPENDED, NOT_CONFIGURED, UP, DOWN = 1, 2, 3, 1, 2
FC1 = 0x01000000
INITIAL = {"vsans": [{"id": 10}], "ports": [{"ifIndex": FC1, "vsan": 10, "link": "up"}]}
SUBSCRIBED_CLASSES = 2

ENGINE = "0x8000000001020304"
SINKS = {
    "v2c trap": "trap2sink 127.0.0.1:{port} public",
    "v2c inform": "informsink 127.0.0.1:{port} public",
    "v3 trap": f"trapsess -v 3 -e {ENGINE} -u watcher -l authPriv -a SHA -A watcher-auth-secret "
               "-x AES -X watcher-priv-secret 127.0.0.1:{port}",
}


def dotted(arcs):
    return "." + ".".join(str(arc) for arc in arcs)


def integer(oid, number):
    return f"{dotted(oid)} = INTEGER: {number}"


def status_change(vsan, admin_state, oper_state):
    """The bindings of a VSAN status notification, as the receiver prints them."""
    return [integer(VSAN, vsan), integer(cell("vsanAdminState", vsan), admin_state),
            integer(cell("vsanOperState", vsan), oper_state)]


class Receiver:
    """snmptrapd on a free loopback port, printing numbers only."""

    def __init__(self, folder):
        self.port = free_udp_port()
        conf = folder / "snmptrapd.conf"
        conf.write_text("disableAuthorization yes\n"
                        f"createUser -e {ENGINE} watcher SHA watcher-auth-secret AES watcher-priv-secret\n")
        self.process = LoggedProcess(
            [shutil.which("snmptrapd", path=os.environ["PATH"] + ":/usr/sbin:/sbin"), "-f", "-C", "-c", str(conf),
             "-On", "-Oe", "-Lo", f"udp:127.0.0.1:{self.port}"],
            env=dict(os.environ, MIBS="", SNMP_PERSISTENT_DIR=str(folder)), cwd=folder)
        self.process.wait_line(r"NET-SNMP version")
        self._read = 0

    def finish(self):
        self.process.kill()

    def next(self):
        """The next notification of this MIB: its OID as text and the bindings behind
        sysUpTime and snmpTrapOID, as printed."""
        pattern = (rf"^{re.escape(dotted(UPTIME))} = Timeticks: [^\t]+\t{re.escape(dotted(TRAP_OID))} = OID: "
                   rf"(?P<kind>{re.escape(dotted(ROOT))}[.0-9]*)\t(?P<bindings>.*)$")
        found = self.process.wait_line(pattern, start=self._read)
        self._read = self.process.lines.index(found.string, self._read) + 1
        return found["kind"], found["bindings"].split("\t")


@pytest.fixture
def receiver(started):
    return started.add(Receiver(started.folders.make()))


def wait_until_subscribed(switch, agent):
    """The agent subscribes from its own loop, a second after it was told to."""
    deadline = time.monotonic() + 15
    with switch.connect() as connection:
        while connection.counters()["subscriptions"] < SUBSCRIBED_CLASSES:
            assert time.monotonic() < deadline, agent.process.text()
            time.sleep(0.05)


def watch(switch, start_agent, *lines):
    """An agent that sends what the switch reports; returns when it listens."""
    agent = start_agent(switch, lines=lines)
    wait_until_subscribed(switch, agent)
    return agent


@pytest.mark.parametrize("sink", SINKS.values(), ids=SINKS)
def test_each_event_arrives_with_its_bindings_in_order(sink, receiver, start_switch, start_agent):
    switch = start_switch(initial=INITIAL)
    agent = watch(switch, start_agent, sink.format(port=receiver.port))
    client = NetSnmp(agent, user="private")

    client.set((cell("vsanRowStatus", 50), "i", 4))
    assert receiver.next() == (dotted(STATUS_CHANGE), status_change(50, ACTIVE, DOWN))

    client.set((cell("vsanAdminState", 10), "i", SUSPENDED))
    assert receiver.next() == (dotted(STATUS_CHANGE), status_change(10, SUSPENDED, DOWN))
    client.set((cell("vsanAdminState", 10), "i", ACTIVE))
    assert receiver.next() == (dotted(STATUS_CHANGE), status_change(10, ACTIVE, UP))

    OperatorTool(switch)("port", "down", FC1)
    assert receiver.next() == (dotted(STATUS_CHANGE), status_change(10, ACTIVE, DOWN))
    OperatorTool(switch)("port", "up", FC1)
    assert receiver.next() == (dotted(STATUS_CHANGE), status_change(10, ACTIVE, UP))

    client.set((cell("vsanIfVsan", FC1), "i", 50))
    moved = {}
    for _ in range(3):  # the port, and both VSANs' operational states
        kind, bindings = receiver.next()
        moved[kind, bindings[0]] = bindings
    assert moved[dotted(STATUS_CHANGE), integer(VSAN, 10)] == status_change(10, ACTIVE, DOWN)
    assert moved[dotted(STATUS_CHANGE), integer(VSAN, 50)] == status_change(50, ACTIVE, UP)
    (membership,) = (bindings for (kind, _), bindings in moved.items() if kind == dotted(MEMBERSHIP_CHANGE))
    assert re.fullmatch(re.escape(dotted(PORT_MANAGER)) + r" = (Hex-STRING: ([0-9A-F]{2} ){8}|STRING: \".*\")",
                        membership[0]), membership
    assert membership[1:] == [integer(IF_INDEX + (FC1,), FC1), integer(VSAN, 50)]


def test_a_deleted_vsan_is_reported_as_not_configured(receiver, start_switch, start_agent):
    switch = start_switch(initial={"vsans": [{"id": 10}], "ports": []})
    agent = watch(switch, start_agent, SINKS["v2c trap"].format(port=receiver.port))
    NetSnmp(agent, user="private").set((cell("vsanRowStatus", 10), "i", 6))
    assert receiver.next() == (dotted(STATUS_CHANGE), status_change(10, NOT_CONFIGURED, DOWN))


def test_events_arrive_again_after_the_switch_was_restarted(receiver, start_switch, start_agent):
    switch = start_switch(initial=INITIAL)
    agent = watch(switch, start_agent, SINKS["v2c trap"].format(port=receiver.port))
    switch.restart()
    wait_until_subscribed(switch, agent)
    OperatorTool(switch)("port", "down", FC1)
    assert receiver.next() == (dotted(STATUS_CHANGE), status_change(10, ACTIVE, DOWN))


def test_a_dead_receiver_of_informs_does_not_keep_the_agent_from_answering(start_switch, start_agent):
    switch = start_switch(initial=INITIAL)
    agent = watch(switch, start_agent, SINKS["v2c inform"].format(port=free_udp_port()))
    client = NetSnmp(agent)
    for turn in ("down", "up") * 10:
        OperatorTool(switch)("port", turn, FC1)
        started = time.monotonic()
        assert client.get(cell("vsanName", 10))[0].value
        assert time.monotonic() - started < 5
