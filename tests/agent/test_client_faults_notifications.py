# SPDX-License-Identifier: Apache-2.0
"""Faults that receivers of notifications meet. The receiver is pysnmp, which acknowledges informs; an inform that is
not acknowledged is sent again after a second."""

import time

import pytest

from harness.faulted import NotificationReceiver, Scene
from harness.notifications import PERSISTENT_SINKS, SINKS
from harness.oids import ROOT

LINK_DOWN, LINK_UP = (1, 3, 6, 1, 6, 3, 1, 1, 5, 3), (1, 3, 6, 1, 6, 3, 1, 1, 5, 4)
STATUS_CHANGE = ROOT + (1, 3, 0, 1)
# Port fc2 is one of two in its VSAN, which stays up when it goes.
INITIAL = {"vsans": [{"id": 10}], "ports": [{"ifIndex": 1, "vsan": 10, "link": "up"},
                                            {"ifIndex": 2, "vsan": 10, "link": "up"}]}
WAYS = {name: line for name, line in SINKS.items() if "trap" in name} | PERSISTENT_SINKS


class Receiving(Scene):
    """A scene with one receiver, and cables that can be pulled and plugged in."""

    def __init__(self, collection, way):
        self.is_inform, self.is_v3 = "inform" in way, "v3" in way
        self.receiver = collection.add(NotificationReceiver())
        super().__init__(collection, INITIAL, lines=(WAYS[way].format(port=self.receiver.port),))
        self.receiver.forget()

    def flap(self):
        self.tool("port", "down", "fc2")
        self.tool("port", "up", "fc2")


@pytest.fixture(scope="module", params=WAYS)
def every_way(request, started_for_file):
    yield Receiving(started_for_file, request.param)


@pytest.fixture
def scene(every_way):
    yield every_way
    every_way.clear()
    every_way.receiver.forget()


def test_without_a_fault_both_come_in_their_order(scene):
    scene.flap()
    assert scene.receiver.names(2) == [LINK_DOWN, LINK_UP]


def test_a_lost_notification_does_not_come_or_as_an_inform_a_second_later(scene):
    scene.fault("lose-notification", "--oid", "linkDown", "--times", 1)
    start = time.monotonic()
    scene.flap()
    if scene.is_inform:
        first, second = scene.receiver.next(), scene.receiver.next()
        assert {first[1], second[1]} == {LINK_UP, LINK_DOWN}
        assert dict((name, came) for came, name in (first, second))[LINK_DOWN] - start >= 0.8
    else:
        assert scene.receiver.names(1) == [LINK_UP]
    scene.flap()
    assert scene.receiver.names(2) == [LINK_DOWN, LINK_UP]


def test_a_repeated_notification_comes_twice(scene):
    scene.fault("repeat-notification", "--oid", "linkDown", "--times", 1)
    scene.flap()
    assert scene.receiver.names(3) == [LINK_DOWN, LINK_DOWN, LINK_UP]


def test_a_delayed_notification_comes_late_and_holds_up_no_other(scene):
    # An inform would come again after a second.
    delay = 0.8 if scene.is_inform else 2
    scene.fault("delay-notification", int(1000 * delay), "--oid", "linkDown", "--times", 1)
    start = time.monotonic()
    scene.flap()
    (_, first), (late, second) = scene.receiver.next(), scene.receiver.next()
    assert (first, second) == (LINK_UP, LINK_DOWN)
    assert late - start >= delay


def test_reordered_notifications_come_the_second_first(scene):
    scene.fault("reorder-notifications", "--times", 1)
    scene.flap()
    assert scene.receiver.names(2) == [LINK_UP, LINK_DOWN]


def test_notifications_are_chosen_by_type_user_and_receiver(scene):
    for options in (("--pdu", "trap" if scene.is_inform else "inform"),
                    ("--user", "public" if scene.is_v3 else "watcher"), ("--to", "192.0.2.1"), ("--oid", "vsanMIB")):
        scene.fault("lose-notification", *options)
    scene.flap()
    assert scene.receiver.names(2) == [LINK_DOWN, LINK_UP]
    scene.clear()
    scene.fault("repeat-notification", "--pdu", "inform" if scene.is_inform else "trap", "--user",
                "watcher" if scene.is_v3 else "public", "--to", "127.0.0.0/8", "--oid", "linkDown")
    scene.flap()
    assert scene.receiver.names(3) == [LINK_DOWN, LINK_DOWN, LINK_UP]


def test_the_modules_notifications_meet_faults_too(scene):
    scene.fault("lose-notification", "--oid", "linkDown")
    scene.fault("repeat-notification", "--oid", "vsanStatusChange", "--times", 1)
    scene.tool("vsan", "set", 10, "--state", "suspended")
    assert scene.receiver.names(2) == [STATUS_CHANGE] * 2
    scene.tool("vsan", "set", 10, "--state", "active")
    scene.receiver.forget()


def test_faults_of_requests_are_nothing_to_notifications(scene):
    scene.fault("lose-answer")
    scene.fault("lose-request")
    scene.flap()
    assert scene.receiver.names(2) == [LINK_DOWN, LINK_UP]
