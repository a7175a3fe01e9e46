# SPDX-License-Identifier: Apache-2.0
"""A restricted user who tries everything: every object, from every name that might start
something, by GET, GETNEXT, GETBULK and SET. What comes back is what the rules say, never
a value of somebody else's, always a later name; nothing changes, and the agent lives."""

import random

import pytest

from harness.access_scene import Scene
from harness.assignments import encoded
from harness.clients import NO_SUCH_INSTANCE, NO_SUCH_OBJECT
from harness.model import ACTIVE, CREATE_AND_GO, DESTROY, Varbind
from harness.oids import ARCS, GAUGE, NAMES, ROOT, STRING, TIMERS, TYPE_OF, scalar
from harness.packets import GETBULK, STATUS

NULL = b"\x05\0"
BORDERS = (0, 1, 4094, 4095, 4096, 4097, 2**31 - 1, 2**31, 2**32 - 2, 2**32 - 1)
LONGEST = 128  # arcs in a name
NOTHING, INTERFACES_ONLY = 0, 2  # the first roles of every scene


def pytest_generate_tests(metafunc):
    if "number" in metafunc.fixturenames:
        drawn = range(INTERFACES_ONLY + 1, INTERFACES_ONLY + 1 + metafunc.config.getoption("--random-roles") // 8)
        metafunc.parametrize("number", [NOTHING, INTERFACES_ONLY, *drawn])


def started_scene(request, started_for_file, is_distributed):
    seed, count = (request.config.getoption(name) for name in ("--random-seed", "--random-roles"))
    scene = Scene(started_for_file, seed, count, is_distributed)
    yield scene
    scene.close()


@pytest.fixture(scope="module")
def scene(request, started_for_file):
    yield from started_scene(request, started_for_file, is_distributed=False)


@pytest.fixture(scope="module")
def governed_scene(request, started_for_file):
    """A scene where the distribution service governs the timers, and most VSANs have none."""
    yield from started_scene(request, started_for_file, is_distributed=True)


def indexes(scene, name):
    """What may follow a column's OID: each instance, one before and one after it, the
    numbers at which something ends, and each of these too short and too long."""
    found = {(), *((border,) for border in BORDERS)}
    for index in (oid[len(ARCS[name]):] for oid in scene.instances if oid[: len(ARCS[name])] == ARCS[name]):
        for nearby in (-1, 0, 1):
            found.add((*index[:-1], max(0, index[-1] + nearby)))
            found.add((max(0, index[0] + nearby), *index[1:]))
        found.add(index[:-1])
        found.update((*index, border) for border in (0, 1, 4095, 2**32 - 1))
    found.update((border, other) for border in BORDERS for other in (0, 1, 2**32 - 1))
    found.add((1, 2, 3, 4))
    found.add((1,) * (LONGEST - len(ARCS[name])))
    found.add((2**32 - 1,) * (LONGEST - len(ARCS[name])))
    return sorted(found)


def starts(scene, objects=NAMES):
    """Every name of the objects to start from, in an order of no use to anybody."""
    names = {ARCS[name] + index for name in objects for index in indexes(scene, name)}
    names.update(ARCS[name][:length] for name in objects for length in range(len(ROOT) - 2, len(ARCS[name])))
    names.update((*ARCS[name][:-1], ARCS[name][-1] + 1) for name in objects)
    return random.Random(scene.where).sample(sorted(names), len(names))


def batches(items, size):
    return (items[start : start + size] for start in range(0, len(items), size))


def secrets(scene, number):
    """The names of the VSANs that are not the role's."""
    return {vsan.name for index, vsan in scene.model.switch.vsans.items() if not scene.roles[number].has_vsan(index)}


def get_all(scene, number, names):
    oracle, hidden = scene.oracle(number), secrets(scene, number)
    with scene.client(scene.users[number]) as client:
        for asked in batches(names, 20):
            for oid, answer in zip(asked, client.get(*asked), strict=True):
                assert answer.value not in hidden
                expected = oracle.get(oid)
                if expected is None:
                    assert answer.oid == oid and answer.kind in (NO_SUCH_INSTANCE, NO_SUCH_OBJECT), scene.where
                else:
                    assert (answer.oid, answer.value) == expected, (oid, scene.where)


def get_next_all(scene, number, names):
    oracle, hidden = scene.oracle(number), secrets(scene, number)
    with scene.client(scene.users[number]) as client:
        for asked in batches(names, 20):
            for oid, answer in zip(asked, client.get_next(*asked), strict=True):
                assert answer.oid > oid and answer.value not in hidden, scene.where
                expected = oracle.get_next(oid)
                if expected is None:
                    assert answer.oid[: len(ROOT)] != ROOT, (oid, answer, scene.where)
                else:
                    assert (answer.oid, answer.value) == expected, (oid, scene.where)


def test_get_of_every_name(scene, number):
    get_all(scene, number, starts(scene))


def test_getnext_from_every_name(scene, number):
    get_next_all(scene, number, starts(scene))


def test_every_name_of_a_timer_while_the_service_governs_them(governed_scene, number):
    names = starts(governed_scene, TIMERS)
    get_all(governed_scene, number, names)
    get_next_all(governed_scene, number, names)


def test_getbulk_from_every_name(scene, number):
    """Several names side by side, so that the rows of one PDU get in each other's way.
    Each costs several rows: a third of the names, another third for another seed."""
    oracle, hidden = scene.oracle(number), secrets(scene, number)
    with scene.client(scene.users[number]) as client:
        for asked in batches(starts(scene)[::3], 8):
            shown = client.receive(client.send(GETBULK, [(oid, NULL) for oid in asked], 1, 3))[2]
            assert_follows(oracle, asked[0], shown[:1], scene.where)
            for column, oid in enumerate(asked[1:]):
                assert_follows(oracle, oid, shown[1 + column :: len(asked) - 1], scene.where)
            assert not hidden & {answer.value for answer in shown if isinstance(answer.value, bytes)}


def assert_follows(oracle, oid, answers, where):
    """That each answer is what follows the one before, as far as the subtree goes."""
    assert answers
    for answer in answers:
        assert answer.oid > oid, where
        expected = oracle.get_next(oid)
        if expected is None:
            assert answer.oid[: len(ROOT)] != ROOT, (oid, answer, where)
            return
        assert (answer.oid, answer.value) == expected, (oid, where)
        oid = answer.oid


def values(name):
    """Values that the object would take, if it were to take any."""
    if name == "vsanRowStatus":
        return [("i", ACTIVE), ("i", CREATE_AND_GO), ("i", DESTROY)]
    if TYPE_OF[name] == STRING:
        return [("s", b"\xe0")]
    return [("u" if TYPE_OF[name] == GAUGE else "i", 6000 if "Timer" in name else 1)]


def test_set_of_every_name(scene, number):
    """Sets within the role are left out: they would change something. What no rule of
    access refuses although nothing is there must fail for another reason."""
    oracle = scene.oracle(number)
    before = scene.state()
    with scene.client(scene.users[number]) as client:
        for name in NAMES:
            for varbind in (Varbind(name, index, *value) for index in indexes(scene, name) for value in values(name)):
                refused = oracle.refusal(varbind)
                if refused is None and len(varbind.index) == 1:
                    continue
                status, position = client.set(encoded(varbind))
                assert position == 1 and status in ([STATUS[refused.status]] if refused else STATUS[1:]), (
                    varbind, refused, scene.where)
            assert scene.switch.stored() == before[0], (name, scene.where)
        assert client.value(scalar("vsanNumber")) == len(scene.model.switch.vsans)
    assert scene.state() == before, scene.where
