# SPDX-License-Identifier: Apache-2.0
"""What the switch says of itself, and that the machine below it says nothing."""

import os
import re
import socket
import time

import pytest

from harness import wire
from harness.build import ENTERPRISE, REPOSITORY
from harness.clients import NetSnmp
from harness.interfaces import (AS_A_SWITCH, IF_MIB, INTERFACES, PORT, SYS_CONTACT, SYS_DESCR, SYS_LOCATION, SYS_NAME,
                                SYS_OBJECT_ID, SYS_SERVICES, SYS_UP_TIME, SYSTEM, SYSTEM_TEXTS, Ports,
                                SwitchScene, port_record, refusal)
from harness.oids import ROOT, dotted
from harness.operator_tool import OperatorTool

TEXTS = (SYS_CONTACT, SYS_NAME, SYS_LOCATION)
# A user with a role, whatever it names.
ROLES = {"some": (["limited"], ["1-4095"], ["1-4294967295"])}


@pytest.fixture
def scene(started):
    return SwitchScene(started, roles=ROLES)


@pytest.fixture(scope="module")
def shared_scene(started_for_file):
    """For tests that leave everything as it was."""
    return SwitchScene(started_for_file, roles=ROLES)


@pytest.fixture
def puppet(manager, start_agent):
    """The agent of a switch whose manager is the scripted one."""
    return start_agent(manager, **AS_A_SWITCH)


def text(value):
    """What an OCTET STRING holds, however the tool shows it."""
    return value.decode() if isinstance(value, bytes) else value.strip('"')


def test_it_is_a_virtual_fibre_channel_switch_of_this_release(shared_scene):
    release = re.search(r"^project\(.* VERSION ([\d.]+)", (REPOSITORY / "CMakeLists.txt").read_text(), re.M).group(1)
    description, kind, services = shared_scene.values(SYS_DESCR, SYS_OBJECT_ID, SYS_SERVICES)
    assert text(description) == f"Virtual Fibre Channel switch, libvsanmib {release}"
    assert kind.strip(".") == f"1.3.6.1.4.1.{ENTERPRISE}.9.284.1"
    assert services == 2


def test_the_mib_text_names_the_kind_of_device(shared_scene):
    assert "VSAN-MIB::virtualSwitch" in shared_scene.reader.by_name("snmpget", dotted(SYS_OBJECT_ID))


def test_uptime_is_the_agents(scene):
    first, = scene.values(SYS_UP_TIME)
    time.sleep(0.05)
    scene.switch.restart()
    second, = scene.values(SYS_UP_TIME)
    assert first < second < 6000


def test_every_value_has_its_name(shared_scene):
    shown = shared_scene.reader.run("snmpwalk", shared_scene.agent.address, dotted(SYSTEM),
                                    options=("-m", "SNMPv2-MIB"))
    names = [re.match(r"SNMPv2-MIB::(\w+)\.\d+ = ", line).group(1) for line in shown.splitlines()]
    assert names[:7] == ["sysDescr", "sysObjectID", "sysUpTime" if names[2] == "sysUpTime" else "sysUpTimeInstance",
                         "sysContact", "sysName", "sysLocation", "sysServices"]
    assert set(names[7:]) == {"sysORLastChange", "sysORID", "sysORDescr", "sysORUpTime"}


def test_the_modules_are_named_once_also_after_reloads(scene):
    for _ in range(3):
        identities = [binding.value.strip(".") for binding in scene.reader.walk(SYSTEM + (9, 1, 2))]
        for module in ("1.3.6.1.6.3.1", dotted(IF_MIB)[1:], dotted(ROOT)[1:]):
            assert identities.count(module) == 1
        scene.agent.reload()


def test_each_text_can_be_set_and_survives_restarts(scene):
    scene.writer.set(*((name, "s", f"höhe {number}") for number, name in enumerate(TEXTS)))
    scene.switch.restart()
    scene.agent.reload()
    assert [text(value) for value in scene.values(*TEXTS)] == [f"höhe {number}" for number in range(3)]


@pytest.mark.parametrize("value", ["", "x" * 255])
def test_a_text_of_255_octets_is_kept(scene, value):
    scene.writer.set((SYS_LOCATION, "s", value))
    assert text(scene.values(SYS_LOCATION)[0]) == value


@pytest.mark.parametrize("name,kind,value,status", [
    (SYS_DESCR, "s", "x", "notWritable"), (SYS_OBJECT_ID, "o", "1.3", "notWritable"),
    (SYS_UP_TIME, "t", 0, "notWritable"), (SYS_SERVICES, "i", 72, "notWritable"),
    (SYS_NAME, "s", "x" * 256, "wrongLength"), (SYS_NAME, "i", 1, "wrongType"), (SYS_NAME, "x", "ff", "wrongValue"),
    (SYS_CONTACT, "x", "610a", "wrongValue"), (SYSTEM + (5, 1), "s", "x", "noCreation"),
    (SYSTEM + (5, 0, 0), "s", "x", "noCreation"),
])
def test_a_write_that_cannot_be_is_refused_and_nothing_is_sent(shared_scene, name, kind, value, status):
    with shared_scene.switch.counting() as served:
        assert refusal(shared_scene.writer, (name, kind, value)) == (status, name)
    assert served.to_managers(wire.SET) == 0


def test_a_user_with_a_role_reads_the_group_and_writes_nothing_of_it(scene):
    limited = NetSnmp(scene.agent, user="limited")
    assert text(limited.get(SYS_NAME)[0].value) == text(scene.values(SYS_NAME)[0])
    with scene.switch.counting() as served:
        for name in TEXTS:
            assert refusal(limited, (name, "s", "x")) == ("noAccess", name)
    assert served.to_managers(wire.SET) == 0


def test_the_texts_of_one_message_cost_one_request(shared_scene):
    with shared_scene.switch.counting() as served:
        shared_scene.reader.get(SYS_DESCR, *TEXTS, SYS_UP_TIME)
    assert served.to_managers() == served.of(SYSTEM_TEXTS, service=wire.SERVICE_PORT) == 1


def test_a_text_that_is_set_before_a_failure_is_put_back(manager, puppet):
    ports = Ports(manager, port_record(5))
    ordinary = manager.answers[(wire.SERVICE_PORT, SYSTEM_TEXTS, wire.SET)]
    manager.answer(lambda request: wire.Reply(0x40010006, None) if request.payload.endswith(b"no") else
                   ordinary(request), SYSTEM_TEXTS, [wire.SET], wire.SERVICE_PORT)
    client = NetSnmp(puppet, user="private")
    assert refusal(client, (SYS_NAME, "s", "yes"), (SYS_LOCATION, "s", "no")) == ("commitFailed", SYS_LOCATION)
    assert ports.system_settings == [(1, b"yes"), (1, b"a switch")]


DAMAGED = {"short": bytes(787), "long": bytes(789), "empty": b"", "a text too long": b"\0\0\1\0" + bytes(784)}


@pytest.mark.parametrize("data", DAMAGED.values(), ids=DAMAGED)
def test_a_damaged_record_has_no_texts_and_all_else_is_there(manager, puppet, data):
    Ports(manager, port_record(5))
    manager.answer(wire.Reply(0, data), SYSTEM_TEXTS, [wire.GET], wire.SERVICE_PORT)
    client = NetSnmp(puppet)
    answer = {binding.oid: binding.kind for binding in client.get(SYS_DESCR, *TEXTS, SYS_SERVICES)}
    assert [answer[name] for name in TEXTS] == ["noSuchInstance"] * 3
    assert client.get_next(SYS_UP_TIME)[0].oid == SYS_SERVICES
    assert refusal(NetSnmp(puppet, user="private"), (SYS_NAME, "s", "x"))[0] == "genError"


def test_without_a_switch_the_agent_still_says_what_it_is(scene):
    scene.switch.kill()
    assert [b.oid for b in scene.reader.get_next(SYSTEM, SYS_UP_TIME)] == [SYS_DESCR, SYS_SERVICES]
    scene.switch.start()
    assert scene.reader.get_next(SYS_UP_TIME)[0].oid == SYS_CONTACT


# The machine

# Besides, what is the agent's as an SNMP agent: who may do what, its engine, its counts, its library
# loader, where notifications go.
TREES = (SYSTEM, INTERFACES, IF_MIB, (1, 3, 6, 1, 2, 1, 11), (1, 3, 6, 1, 4, 1, 2021, 13, 14), (1, 3, 6, 1, 6, 3), ROOT)


def test_an_agent_with_the_modules_of_a_switch_has_nothing_else_to_show(shared_scene):
    # The community may read everything.
    walked = shared_scene.reader.bulk_walk((1,))
    strangers = [binding.oid for binding in walked
                 if not any(binding.oid[:len(tree)] == tree for tree in TREES)]
    assert strangers == []
    assert len(walked) > 500


def test_nothing_that_it_shows_names_the_machine(shared_scene):
    machine = os.uname()
    words = {socket.gethostname(), machine.nodename, machine.release, machine.version, "Linux"}
    for binding in shared_scene.reader.bulk_walk((1,)):
        for word in words:
            assert word not in str(binding.value), binding
            assert word.encode().hex() not in str(binding.value).replace(" ", "").lower(), binding


def test_the_operators_tool_and_the_agent_see_the_same_ports(shared_scene):
    ports = OperatorTool(shared_scene.switch).json("port", "list")["ports"]
    assert shared_scene.reader.get(INTERFACES + (1, 0))[0].value == len(ports)
    with shared_scene.switch.counting() as served:
        shared_scene.reader.get(INTERFACES + (2, 1, 2, ports[0]["ifIndex"]))
    assert served.of(PORT, service=wire.SERVICE_PORT) == 1
