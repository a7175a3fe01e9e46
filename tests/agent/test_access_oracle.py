# SPDX-License-Identifier: Apache-2.0
"""Users of drawn roles against an oracle: what they can read, and what they can change
and cannot, is what the rules of access say, column by column. A failure prints the seed;
--random-seed and --random-roles repeat it, or try many more."""

import random

import pytest

from harness import wire
from harness.access_oracle import FAILED_REQUEST, Oracle
from harness.access_scene import Complaints, Scene
from harness.assignments import encoded
from harness.clients import NetSnmp, PySnmp, SnmpError
from harness.model import ACTIVE, CREATE_AND_GO, DESTROY, Varbind
from harness.oids import ACCESS, ARCS, COLUMNS, NAMES, ROOT, SCALARS, TIMERS, WRITE, object_of
from harness.packets import DONE, GETBULK, STATUS

FIXED_ROLES = 3
NOTHING, EVERYTHING, INTERFACES_ONLY = (f"user{number}" for number in range(FIXED_ROLES))
SETS_PER_ROLE = 40
NULL = b"\x05\0"
WRITABLE = [name for name in NAMES if ACCESS[name] == WRITE]


def pytest_generate_tests(metafunc):
    """Each role is a test. While the distribution service governs the timers, which
    makes a difference to few objects, some of the roles will do."""
    if "number" not in metafunc.fixturenames:
        if "scene" in metafunc.fixturenames:
            metafunc.parametrize("scene", [False], indirect=True, scope="module", ids=[""])
        return
    count = metafunc.config.getoption("--random-roles")
    cases = [(False, number) for number in range(count)]
    if metafunc.function in (test_what_a_v3_user_sees, test_what_a_role_does_not_have_is_not_changed):
        cases += [(True, number) for number in range(FIXED_ROLES, max(FIXED_ROLES + 1, count // 2))]
    metafunc.parametrize("scene,number", cases, indirect=["scene"], scope="module",
                         ids=[f"{number}-distributed" if governed else f"{number}" for governed, number in cases])


@pytest.fixture(scope="module")
def scene(request, started_for_file):
    seed, count = (request.config.getoption(name) for name in ("--random-seed", "--random-roles"))
    made = Scene(started_for_file, seed, count, request.param)
    yield made
    made.close()


def pairs(bindings):
    return [(binding.oid, binding.value) for binding in bindings]


def by_column(shown):
    """What is shown of each object: {name: {index: value}}."""
    columns = {name: {} for name in NAMES}
    for oid, value in shown:
        name = object_of(oid)
        columns[name][oid[len(ARCS[name]):]] = value
    return columns


def assert_shown(shown, expected, where):
    """Columns first: they say best what is wrong."""
    assert by_column(shown) == by_column(expected), where
    assert shown == expected, where


def test_the_contents_are_what_somebody_without_a_role_sees(scene):
    assert_shown(pairs(scene.operator.walk(ROOT)), Oracle(scene.contents).walk(ROOT), scene.where)


def test_what_a_v3_user_sees(scene, number):
    client, oracle = NetSnmp(scene.agent, "3", scene.users[number]), scene.oracle(number)
    expected = oracle.walk(ROOT)
    assert_shown(pairs(client.walk(ROOT)), expected, scene.where)
    assert_shown(pairs(client.bulk_walk(ROOT)), expected, scene.where)
    for start in range(0, len(scene.instances), 50):
        asked = scene.instances[start : start + 50]
        assert pairs(client.get(*asked)) == [oracle.get(oid) or (oid, None) for oid in asked], scene.where


def test_what_a_community_sees_of_each_column(scene, number):
    oracle = scene.oracle(number)
    with scene.client(scene.users[number]) as client:
        for name in NAMES:
            for found in [*oracle.walk(ARCS[name]), None]:
                asked = ARCS[name] if found is None or object_of(found[0]) != name else found[0]
                answer = client.get_next(asked)[0]
                expected = oracle.get_next(asked)
                assert ((answer.oid, answer.value) if answer.oid[: len(ROOT)] == ROOT else None) == expected, (
                    name, scene.where)
        for oid in scene.instances:
            answer = client.get(oid)[0]
            assert (answer.oid, answer.value) == (oracle.get(oid) or (oid, None)), scene.where


def test_what_a_community_sees_of_all_columns_side_by_side(scene, number):
    """One GETBULK, a row after the other, as a tool asks that prints a table."""
    oracle = scene.oracle(number)
    tables = ([ARCS[name] for name in names] for names in (
        COLUMNS, TIMERS, [name for name in NAMES if name not in COLUMNS + TIMERS + SCALARS], SCALARS))
    with scene.client(scene.users[number]) as client:
        for asked in tables:
            shown = client.receive(client.send(GETBULK, [(oid, NULL) for oid in asked], 0, 8))[2]
            for at, oid in enumerate(asked):
                for answer in shown[at :: len(asked)]:
                    if answer.oid[: len(ROOT)] != ROOT:
                        break
                    found = oracle.get_next(oid)
                    assert (answer.oid, answer.value) == found, scene.where
                    oid = found[0]
                else:
                    continue
                assert oracle.get_next(oid) is None, scene.where


def test_a_second_client_sees_the_same(scene):
    for number in (FIXED_ROLES - 1, FIXED_ROLES):
        shown = PySnmp(scene.agent, "3", scene.users[number]).bulk_walk(ROOT)
        assert_shown(pairs(shown), scene.oracle(number).walk(ROOT), scene.where)


def test_users_who_walk_at_the_same_time_each_see_what_is_theirs(scene):
    """One request of each user waits at the agent at any time."""
    draw = random.Random(scene.where)
    walks = {number: [] for number in range(len(scene.roles))}
    clients = [scene.client(user) for user in scene.users]
    try:
        under_way = dict.fromkeys(walks, ROOT)
        while under_way:
            numbers = draw.sample(sorted(under_way), len(under_way))
            sent = [clients[n].send(GETBULK, [(under_way[n], NULL)], 0, draw.randrange(1, 12)) for n in numbers]
            for number, request in zip(numbers, sent):
                shown = pairs(clients[number].receive(request)[2])
                inside = [pair for pair in shown if pair[0][: len(ROOT)] == ROOT]
                walks[number] += inside
                under_way[number] = shown[-1][0]
                if len(inside) < len(shown):
                    del under_way[number]
    finally:
        for client in clients:
            client.close()
    for number, shown in walks.items():
        assert_shown(shown, scene.oracle(number).walk(ROOT), (number, scene.where))


# What they can change, and what they cannot

def some_value(draw, name):
    if draw.random() < 0.1:
        return draw.choice((("i", 1), ("u", 1), ("s", b"")))
    if name == "vsanName":
        return "s", b"taken-%d" % draw.randrange(1000)
    if name == "vsanRowStatus":
        return "i", draw.choice((ACTIVE, CREATE_AND_GO, DESTROY))
    if name == "vsanFcTimerForceFlag":
        return "s", draw.choice((b"\0", b"\x80", b"\xe0"))
    if name == "vsanIfVsan":
        return "i", draw.choice((1, 2, 7, 300, 4095, 4096))
    if name.endswith("Latency"):
        return "u", draw.randrange(1, 60001)
    return ("u", draw.randrange(5000, 100001)) if "Timer" in name else ("i", draw.choice((1, 2)))


def some_varbind(draw, scene):
    name = draw.choice(WRITABLE)
    if name in SCALARS:
        index = (0,)
    elif name == "vsanIfVsan":
        index = (draw.choice((*scene.model.switch.ports, 3)),)
    else:
        index = (draw.choice((*scene.model.switch.vsans, 5, 17, 3000, 0, 4096)),)
    if draw.random() < 0.05:
        index += draw.choice(((0,), (1,), (4095,)))
    return Varbind(name, index, *some_value(draw, name))


def refused_sets(scene, number):
    """Drawn (PDU, how it fails, number of the varbind at fault). Some have a change in
    front that would be permitted."""
    draw = random.Random(f"{scene.where} {number}")
    oracle = scene.oracle(number)
    own = [vsan for vsan in scene.model.switch.vsans if scene.roles[number].has_vsan(vsan)]
    while True:
        varbind = some_varbind(draw, scene)
        refused = oracle.refusal(varbind)
        if refused is None:
            continue
        is_refused_early = refused.code is not None and refused.origin != FAILED_REQUEST
        if own and is_refused_early and draw.random() < 0.3:
            yield [Varbind("vsanName", (draw.choice(own),), "s", b"also-refused"), varbind], refused, 2
        else:
            yield [varbind], refused, 1


def test_what_a_role_does_not_have_is_not_changed(scene, number):
    before = scene.state()
    client, expected = scene.client(scene.users[number]), []
    with client, Complaints(scene) as complaints, scene.switch.counting() as served:
        for _, (pdu, refused, position) in zip(range(SETS_PER_ROLE), refused_sets(scene, number)):
            expected.append(refused)
            where = (pdu, refused, scene.where)
            assert client.set(*map(encoded, pdu)) == (STATUS[refused.status], position), where
            assert scene.switch.stored() == before[0], where
    assert scene.state() == before, scene.where
    assert complaints.records == [refused.log for refused in expected if refused.code is not None], scene.where
    assert complaints.restrictions == [refused.trace for refused in expected if refused.trace], scene.where
    assert served.to_managers(wire.SET) == sum(refused.origin == FAILED_REQUEST for refused in expected), scene.where
    assert served.to_managers(wire.DELETE) == 0, scene.where


def test_what_a_role_has_can_be_set(scene, number):
    """To the values that are there, so that the other tests find what they expect."""
    role = scene.roles[number]
    with scene.client(scene.users[number]) as client:
        for vsan in filter(role.has_vsan, list(scene.model.switch.vsans)[:6]):
            row = [Varbind(name, (vsan,), "s" if name == "vsanName" else "u" if name.endswith("Latency") else "i",
                           scene.contents[ARCS[name] + (vsan,)])
                   for name in WRITABLE if name in COLUMNS and name != "vsanOperState"]
            assert client.set(*map(encoded, row)) == DONE, (row, scene.where)
            for name, kind in (("vsanFcTimerForceFlag", "s"), ("vsanFcTimerDstov", "u")):
                timer = Varbind(name, (vsan,), kind, scene.contents[ARCS[name] + (vsan,)])
                assert client.set(encoded(timer)) == DONE, (timer, scene.where)
        for port, (vsan, _) in scene.model.switch.ports.items():
            if role.has_interface(port) and role.has_vsan(vsan):
                assert client.set(encoded(Varbind("vsanIfVsan", (port,), "i", vsan))) == DONE, (port, scene.where)
    scene.look_again()
    assert_shown(pairs(scene.operator.walk(ROOT)), Oracle(scene.contents).walk(ROOT), scene.where)


# The same, spelled out

WITH_LINE = "{}(#) : vsan restricted user -- not allowed in this vsan"
WITHOUT_LINE = "{} : vsan restricted user -- not allowed in this vsan"
OWN_VSAN = "User is not allowed in this VSAN (0x4049002c) (status 0x4049002c, origin 0)"
MANAGERS_VSAN = "User is not allowed in this VSAN (0x4049002c) (status 0x4049002c, origin 200)"
TARGET_VSAN = "User is not allowed in this VSAN (0x4049002c) (status 0x4049002c, origin 584)"
NO_CREATION = "User may not create or delete this VSAN (0x40540008) (status 0x40540008, origin 0)"
NO_SETTING = "User may not change settings of the whole switch (0x4049002e) (status 0x4049002e, origin 200)"

# user, object, type and value for the tool, error record, text in the event history
REFUSALS = (
    (NOTHING, "vsanName", "s", "mine", OWN_VSAN, WITH_LINE),
    (NOTHING, "vsanAdminState", "i", 1, OWN_VSAN, WITHOUT_LINE),
    (NOTHING, "vsanLoadBalancingType", "i", 1, OWN_VSAN, WITHOUT_LINE),
    (NOTHING, "vsanInterOperType", "i", 0, OWN_VSAN, WITH_LINE),
    (NOTHING, "vsanInorderDelivery", "i", 1, OWN_VSAN, WITH_LINE),
    (NOTHING, "vsanNetworkDropLatency", "u", 1, OWN_VSAN, WITH_LINE),
    (NOTHING, "vsanFcTimerForceFlag", "x", "E0", OWN_VSAN, WITHOUT_LINE),
    (NOTHING, "vsanFcTimerRatov", "u", 20000, OWN_VSAN, WITHOUT_LINE),
    (NOTHING, "vsanFcTimerEdtov", "u", 1500, OWN_VSAN, WITHOUT_LINE),
    (NOTHING, "vsanFcTimerDstov", "u", 6000, OWN_VSAN, WITHOUT_LINE),
    (NOTHING, "vsanRowStatus", "i", CREATE_AND_GO, NO_CREATION, "{} : vsan restricted user is not allowed to set"),
    (NOTHING, "vsanRowStatus", "i", DESTROY, NO_CREATION, "{} : vsan restricted user is not allowed to set"),
    (NOTHING, "vsanIfVsan", "i", 1, None, None),
    (INTERFACES_ONLY, "vsanIfVsan", "i", 1, TARGET_VSAN, None),
    # The module tests nothing here; the manager does.
    (NOTHING, "vsanRowStatus", "i", ACTIVE, MANAGERS_VSAN, None),
    (NOTHING, "fcTimerRatov", "u", 20000, NO_SETTING, None),
    (NOTHING, "fcTimerEdtov", "u", 1500, NO_SETTING, None),
    (NOTHING, "fcTimerDstov", "u", 6000, NO_SETTING, None),
    (NOTHING, "fcNetworkLatency", "u", 9, NO_SETTING, None),
    (NOTHING, "fcSwitchLatency", "u", 9, NO_SETTING, None),
    (EVERYTHING, "fcInorderDelivery", "i", 1, NO_SETTING, None),
)


@pytest.mark.parametrize("user,name,kind,value,record,trace", REFUSALS, ids=[f"{r[1]}-{r[3]}" for r in REFUSALS])
def test_a_refused_set_has_its_status_its_record_and_its_text(scene, user, name, kind, value, record, trace):
    index = (0,) if name in SCALARS else (min(scene.model.switch.ports),) if name == "vsanIfVsan" else (4095,)
    before = scene.state()
    with Complaints(scene) as complaints, scene.switch.counting() as served:
        with pytest.raises(SnmpError) as refused:
            NetSnmp(scene.agent, "3", user).set((ARCS[name] + index, kind, value))
    assert (refused.value.status, refused.value.failed) == ("genError", ARCS[name] + index)
    assert scene.state() == before
    assert complaints.records == ([record] if record else [])
    assert complaints.restrictions == ([trace.format("set_" + name)] if trace else [])
    assert served.to_managers(wire.SET) == (record in (MANAGERS_VSAN, NO_SETTING))


def test_every_writable_object_is_among_the_refusals():
    assert {refusal[1] for refusal in REFUSALS} == set(WRITABLE) - {"vsanOperState"}
