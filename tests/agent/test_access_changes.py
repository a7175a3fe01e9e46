# SPDX-License-Identifier: Apache-2.0
"""Roles and users that change while somebody walks: the rest of the walk goes by the new
rules from the next request on, and whoever is gone is told so."""

import random
import threading

import pytest

from harness import ber
from harness.access_oracle import UNRESTRICTED, Oracle
from harness.access_scene import Scene, granting, random_role
from harness.clients import NetSnmp, NoAnswer, PySnmp, SnmpError
from harness.oids import ARCS, ROOT
from harness.packets import DONE, GETBULK

ENGINE_ID = (1, 3, 6, 1, 6, 3, 10, 2, 1, 1, 0)
UNKNOWN_USERS = (1, 3, 6, 1, 6, 3, 15, 1, 1, 3, 0)
USER_STATUS = (1, 3, 6, 1, 6, 3, 15, 1, 2, 2, 1, 13)
DESTROY = 6
CHANGING, LEAVING, STAYING = "user3", "user4", "user5"
STEPS = 10  # into the walk, when something happens to the user
NULL = b"\x05\0"


@pytest.fixture
def scene(request, started):
    made = Scene(started, request.config.getoption("--random-seed"), 6, is_distributed=False)
    yield made
    made.close()


class Changing:
    """The user CHANGING, who has one role or none."""

    def __init__(self, scene):
        self._scene = scene
        self._draw = random.Random(scene.where)
        for role in scene.tool.json("role", "list")["roles"]:
            if role["users"] == [CHANGING]:
                scene.tool("role", "remove", role["name"])
        self.oracle = Oracle(scene.contents)

    def give(self, role):
        """Another role, or none, in one step."""
        if role is UNRESTRICTED:
            self._scene.tool("role", "remove", "changing")
        else:
            self._scene.tool(*granting("changing", CHANGING, role), "--replace")
        self.oracle = Oracle(self._scene.contents, role)

    def change(self):
        is_free = self.oracle.role is UNRESTRICTED
        self.give(UNRESTRICTED if not is_free and self._draw.random() < 0.2 else self.draw_role())

    def draw_role(self):
        return random_role(self._draw, self._scene.model)


def inside(answers):
    return [(answer.oid, answer.value) for answer in answers if answer.oid[: len(ROOT)] == ROOT]


def test_a_v3_walk_goes_on_by_the_role_of_the_moment(scene):
    user, draw = Changing(scene), random.Random(scene.where)
    client = PySnmp(scene.agent, "3", CHANGING)
    oid = ROOT
    while oid:
        if draw.random() < 0.2:
            user.change()
        answers = inside(client.get_next(oid))
        expected = user.oracle.get_next(oid)
        assert answers == ([expected] if expected else []), (oid, user.oracle.role, scene.where)
        oid = expected and expected[0]


def test_a_bulk_walk_goes_on_by_the_role_of_the_moment(scene):
    user, draw = Changing(scene), random.Random(scene.where)
    with scene.client(CHANGING) as client:
        for _ in range(3):
            oid = ROOT
            while oid:
                user.change()
                answers = client.receive(client.send(GETBULK, [(oid, NULL)], 0, draw.randrange(1, 25)))[2]
                for answer in answers:
                    expected = user.oracle.get_next(oid)
                    assert inside([answer]) == ([expected] if expected else []), (oid, user.oracle.role, scene.where)
                    oid = expected and expected[0]
                    if not oid:
                        break


def test_one_answer_follows_one_role_even_when_it_changes_meanwhile(scene):
    """An answer of many rows is never put together from two roles."""
    asked = [ARCS[name] for name in ("vsanName", "vsanIfVsan", "vsanMembershipSummaryIfIndex", "vsanFcTimerRatov")]
    rows = 5

    def expected(role):
        oracle, columns = Oracle(scene.contents, role), []
        for oid in asked:
            columns.append([])
            while len(columns[-1]) < rows and (found := oracle.get_next(oid)):
                columns[-1].append(found)
                oid = found[0]
        return columns

    user = Changing(scene)
    roles = [user.draw_role(), user.draw_role()]
    while expected(roles[0]) == expected(roles[1]):
        roles[1] = user.draw_role()
    user.give(roles[1])
    done = threading.Event()

    def change():
        while not done.is_set():
            for role in roles:
                user.give(role)

    permitted = [expected(role) for role in roles]
    seen = [0, 0]
    changer = threading.Thread(target=change)
    changer.start()
    try:
        with scene.client(CHANGING) as client:
            while min(seen) < 10 and max(seen) < 2000:
                answers = client.receive(client.send(GETBULK, [(oid, NULL) for oid in asked], 0, rows))[2]
                shown = [inside(answers[column :: len(asked)]) for column in range(len(asked))]
                assert shown in permitted, (roles, scene.where)
                seen[permitted.index(shown)] += 1
    finally:
        done.set()
        changer.join()
    assert min(seen) >= 10, "the role never changed"


def delete_v3_user(scene, user):
    """What `snmpusm delete` asks of the agent."""
    engine = scene.operator.value(ENGINE_ID)
    name = USER_STATUS + (len(engine), *engine, len(user), *user.encode())
    assert scene.operator.set((name, ber.integer(DESTROY))) == DONE


def unknown_users(scene):
    return NetSnmp(scene.agent).get(UNKNOWN_USERS)[0].value


def walk_some_steps(client, oracle):
    oid = ROOT
    for _ in range(STEPS):
        assert inside(client.get_next(oid)) == [oracle.get_next(oid)]
        oid = oracle.get_next(oid)[0]
    return oid


def test_a_v3_user_who_is_deleted_on_the_way_is_unknown_from_then_on(scene):
    leaving, staying = (PySnmp(scene.agent, "3", user) for user in (LEAVING, STAYING))
    oid = walk_some_steps(leaving, scene.oracle(4))
    other = walk_some_steps(staying, scene.oracle(5))
    before = unknown_users(scene)
    delete_v3_user(scene, LEAVING)
    with pytest.raises(NoAnswer, match="Unknown USM user"):
        leaving.get_next(oid)
    with pytest.raises(AssertionError, match="Unknown user name"):
        NetSnmp(scene.agent, "3", LEAVING).get_next(oid)
    assert unknown_users(scene) == before + 2
    assert inside(staying.get_next(other)) == [scene.oracle(5).get_next(other)]
    # The switch's role is about a name, whichever protocol carries it.
    with scene.client(LEAVING) as client:
        assert inside(client.walk(ROOT)) == scene.oracle(4).walk(ROOT)


def test_a_v3_user_who_is_gone_from_the_configuration_on_the_way_may_not_go_on(scene):
    leaving, staying = (PySnmp(scene.agent, "3", user) for user in (LEAVING, STAYING))
    oid = walk_some_steps(leaving, scene.oracle(4))
    configuration = scene.agent.folder / "conf" / "snmpd.conf"
    configuration.write_text(configuration.read_text().replace(f"rwuser {LEAVING} priv\n", ""))
    scene.agent.reload()
    with pytest.raises(SnmpError) as refused:
        leaving.get_next(oid)
    assert refused.value.status == "authorizationError"
    assert inside(staying.walk(ARCS["vsanName"])) == scene.oracle(5).walk(ARCS["vsanName"])
