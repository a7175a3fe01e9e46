# SPDX-License-Identifier: Apache-2.0
"""Faults that clients meet, as clients see them. The client is pysnmp: it waits for a while and asks once more; each
fault is met by version 2c and by a user whose messages are authenticated and encrypted."""

import contextlib
import re
import socket
import time

import pytest

from harness import ber
from harness.clients import NetSnmp, Packets
from harness.faulted import COMMUNITY, USER, Client, Scene, Tap
from harness.oids import ARCS, SYS_DESCR, cell, scalar

INITIAL = {"vsans": [{"id": 1, "name": "default"}, *({"id": number, "name": f"v{number}"} for number in range(2, 60))],
           "portCount": 4}
NAME, OTHER = cell("vsanName", 10), cell("vsanName", 20)
NO_ANSWER = "No SNMP response received before timeout"
TIMEOUT = 0.9  # what a client waits for an answer, at least


@pytest.fixture(scope="module")
def shared_scene(started_for_file):
    return Scene(started_for_file, INITIAL, lines=("rwcommunity everywhere",))


@pytest.fixture
def scene(shared_scene):
    yield shared_scene
    shared_scene.clear()


@pytest.fixture(params=[COMMUNITY, USER], ids=["v2c", "authPriv"])
def who(request):
    return request.param


@pytest.fixture
def tap(scene, started):
    return started.add(Tap(scene.agent))


@pytest.fixture
def client(tap, who):
    """A client that knows the engine already, so that every message from here on is one of the test's."""
    found = Client(tap, who)
    assert found.get(NAME).values == [b"v10"]
    tap.forget()
    return found


def assert_served_at_once(client):
    outcome = client.get(NAME)
    assert outcome.values == [b"v10"] and outcome.seconds < TIMEOUT


# Requests and answers that get lost.

def test_a_lost_request_makes_the_client_ask_again(scene, client, tap):
    scene.fault("lose-request", "--times", 1)
    outcome = client.get(NAME)
    assert outcome.values == [b"v10"] and outcome.seconds >= TIMEOUT
    assert tap.counts() == (2, 1)
    assert_served_at_once(client)


def test_a_client_gives_up_when_its_retries_are_lost_too(scene, client, tap):
    number = scene.fault("lose-request")
    assert client.get(NAME).trouble == NO_ANSWER
    assert tap.counts() == (2, 0)
    scene.wait_applied(number, 2)
    scene.clear()
    assert_served_at_once(client)


@pytest.mark.parametrize("action,is_made", [("lose-request", False), ("lose-answer", True)])
def test_a_set_whose_request_is_lost_is_not_made_and_one_whose_answer_is_lost_is(scene, client, action, is_made):
    before = client.get(OTHER).values
    scene.fault(action, "--pdu", "set", "--times", 2)
    fresh = f"{action}-{time.monotonic_ns()}"[-30:]
    assert client.set(OTHER, fresh).trouble == NO_ANSWER
    assert client.get(OTHER).values == ([fresh.encode()] if is_made else before)
    assert client.set(OTHER, "v20").status == "noError"


def test_a_lost_answer_makes_the_client_ask_again(scene, client, tap):
    scene.fault("lose-answer", "--times", 1)
    outcome = client.get(NAME)
    assert outcome.values == [b"v10"] and outcome.seconds >= TIMEOUT
    assert tap.counts() == (2, 1)


# Answers that come late.

def test_a_delayed_answer_comes_late_and_holds_up_nobody(scene, client, tap):
    scene.fault("delay-answer", 1500, "--oid", "vsanName.10", "--times", 1)
    with Packets(scene.agent) as packets:
        packets.socket.send(packets.packet([NAME], 1))
        for request in range(2, 12):
            packets.exchange(packets.packet([OTHER], request))
        late = packets.socket.recv(65536)
        packets.socket.send(packets.packet([NAME], 1))
        assert late == packets.socket.recv(65536), "what was asked for first comes behind all others"
    scene.fault("delay-answer", 300)
    outcome = client.get(NAME)
    assert outcome.values == [b"v10"] and outcome.seconds >= 0.3
    assert tap.counts() == (1, 1)


def test_an_answer_delayed_beyond_the_clients_patience_is_asked_for_again(scene, client, tap):
    scene.fault("delay-answer", 3500, "--times", 1)
    outcome = client.get(NAME)
    assert outcome.values == [b"v10"] and TIMEOUT <= outcome.seconds < 3.5
    tap.wait_received(2)  # the late one comes, too
    assert tap.counts() == (2, 2)
    assert_served_at_once(client)


def test_delays_differ_but_never_by_more_than_they_may(scene, client):
    scene.fault("delay-answer", 200, "--deviation", 150)
    seconds = [client.get(NAME).seconds for _ in range(6)]
    assert min(seconds) >= 0.05 and max(seconds) - min(seconds) > 0.03, seconds


def test_what_is_kept_back_is_bounded_and_the_rest_leaves_at_once(started):
    scene = Scene(started, INITIAL)
    scene.fault("delay-answer", 60000, "--user", "public")
    with Packets(scene.agent) as packets, Packets(scene.agent, "private") as barrier:
        for request in range(300):
            packets.socket.send(packets.packet([NAME], request))
            if request % 20 == 19:  # or the agent's own buffer would overflow
                barrier.exchange(barrier.packet([NAME], request))
        packets.socket.settimeout(0.5)
        answers = 0
        with contextlib.suppress(TimeoutError):
            while packets.socket.recv(65536):
                answers += 1
    assert answers == 300 - 256


# Answers that are too many, out of order, cut, or another's.

def test_a_repeated_answer_is_taken_once(scene, client, tap):
    scene.fault("repeat-answer", "--times", 1)
    assert_served_at_once(client)
    assert tap.counts() == (1, 2)
    assert tap.received[0][1] == tap.received[1][1]
    assert client.get(OTHER).values == [b"v20"], "and the second is not taken for the next one"


def test_reordered_answers_come_the_second_first(scene, client):
    assert client.order_of_answers(NAME, OTHER) == [b"v10", b"v20"]
    scene.fault("reorder-answers", "--times", 1)
    assert client.order_of_answers(NAME, OTHER) == [b"v20", b"v10"]
    assert client.order_of_answers(NAME, OTHER) == [b"v10", b"v20"]


def test_an_answer_that_waits_for_another_leaves_alone_after_a_second(scene, client):
    scene.fault("reorder-answers", "--times", 1)
    outcome = client.get(NAME)
    assert outcome.values == [b"v10"] and outcome.seconds >= 0.9


@pytest.mark.parametrize("size", [0, 1, 20, 40])
def test_a_cut_answer_is_none_for_the_client_which_asks_again(scene, client, tap, size):
    scene.fault("cut-answer", size, "--times", 1)
    outcome = client.get(NAME)
    assert outcome.values == [b"v10"] and outcome.seconds >= TIMEOUT
    assert tap.counts() == (2, 2)
    assert [len(packet) for _, packet in tap.received][0] == size


def test_an_answer_shorter_than_the_cut_is_whole(scene, client):
    scene.fault("cut-answer", 65535)
    assert_served_at_once(client)


def test_a_wrong_request_id_is_no_answer_by_community_and_a_bad_one_for_a_user(scene, client, tap, who):
    scene.fault("wrong-request-id", "--times", 1)
    outcome = client.get(NAME)
    if who == COMMUNITY:
        assert outcome.values == [b"v10"] and outcome.seconds >= TIMEOUT
        assert tap.counts() == (2, 2)
    else:
        # The message is the one that was waited for, as its own number says; what it carries is not.
        assert outcome.trouble == "badResponse" and outcome.seconds < TIMEOUT
    assert_served_at_once(client)


# Errors.

@pytest.mark.parametrize("status,shown", [("genErr", "genErr"), ("resourceUnavailable", "resourceUnavailable"),
                                          (19, "19")])
def test_an_error_is_the_clients_and_nothing_is_carried_out(scene, client, status, shown):
    scene.fault("error", status, "--index", 1)
    with scene.switch.counting() as served:
        outcome = client.get(NAME)
    assert (outcome.trouble, outcome.status, outcome.index) == (None, shown, 1)
    assert served.to_managers() == 0
    assert client.get_bulk(NAME).status == shown
    assert client.set(OTHER, "other").status == shown
    scene.clear()
    assert client.get(OTHER).values == [b"v20"]


def test_an_errors_index_is_the_one_that_was_asked_for_possible_or_not(scene, client):
    for index in (0, 2):
        scene.fault("error", "genErr", "--index", index, "--times", 1)
        assert client.get(NAME, OTHER).index == index


def exchange_raw(scene, version, request):
    """A GET without a library: the request id, status, index and number of variables of the answer."""
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as raw:
        raw.settimeout(5)
        raw.connect(("127.0.0.1", scene.agent.port))
        pdu = ber.sequence(ber.integer(request), ber.integer(0), ber.integer(0), ber.sequence(
            ber.sequence(ber.oid(NAME), ber.element(ber.NULL, b""))), tag=0xA0)
        raw.send(ber.sequence(ber.integer(version), ber.octets("public"), pdu))
        _, _, (_, answer) = ber.elements(ber.split(raw.recv(65536))[1])
    *numbers, (_, bindings) = ber.elements(answer)
    return (*(ber.number_of(number) for _, number in numbers), len(ber.elements(bindings)))


def test_an_error_goes_out_as_it_was_set_whatever_that_is(scene):
    for version in (0, 1):
        scene.fault("error", 2147483647, "--index", 2147483647, "--times", 1)
        assert exchange_raw(scene, version, 5) == (5, 2147483647, 2147483647, 1)


def test_answers_above_a_size_are_too_big_and_others_whole(scene, client, tap):
    assert client.get(NAME).values == [b"v10"]
    size = len(tap.received[-1][1])
    scene.fault("too-big", size)
    assert client.get(NAME).values == [b"v10"]
    outcome = client.get(NAME, OTHER)
    assert (outcome.trouble, outcome.status, outcome.index) == (None, "tooBig", 0)
    assert client.get_bulk(NAME).status == "tooBig"
    told = scene.wait(lambda list_: list_["faults"][0]["applied"] == 2)
    assert told["applied"] >= 2


def test_too_big_takes_the_variables_away_but_in_version_1(scene):
    scene.fault("too-big", 10)
    assert exchange_raw(scene, 0, 7) == (7, 1, 0, 1)
    assert exchange_raw(scene, 1, 7) == (7, 1, 0, 0)


# Reports of SNMPv3.

@pytest.fixture
def user(tap):
    found = Client(tap, USER)
    assert found.get(NAME).values == [b"v10"]
    tap.forget()
    return found


@pytest.mark.parametrize("action,trouble", [
    ("not-in-time-window", "SNMP message timing parameters not in windows of trust"),
    ("unknown-engine", "Unknown SNMP engine ID encountered")])
def test_a_report_makes_the_client_resynchronise_and_ask_again_and_report_the_second(scene, user, tap, action, trouble):
    scene.fault(action, "--times", 1)
    outcome = user.get(NAME)
    assert outcome.values == [b"v10"] and outcome.seconds < TIMEOUT
    sent, received = tap.counts()
    assert sent == received >= 2
    scene.fault(action)
    assert user.get(NAME).trouble == trouble
    scene.clear()
    assert Client(tap, USER).get(NAME).values == [b"v10"]


def test_reports_are_nothing_to_communities(scene, tap):
    for action in ("not-in-time-window", "unknown-engine", "reboot-engine"):
        scene.fault(action)
    assert_served_at_once(Client(tap, COMMUNITY))
    assert [fault["applied"] for fault in scene.tool.json("fault")["faults"]] == [0, 0, 0]


def engine_of(packet):
    """Boots and time of the engine that a message of SNMPv3 names."""
    parts = ber.elements(ber.split(packet)[1])
    _, (_, boots), (_, seconds), *_ = ber.elements(ber.split(parts[2][1])[1])
    return ber.number_of(boots), ber.number_of(seconds)


def stored_boots(agent):
    text = (agent.folder / "persistent/snmpd.conf").read_text()
    return int(re.findall(r"^engineBoots (\d+)$", text, re.M)[-1])


def test_an_engine_that_rebooted_puts_everybody_out_of_the_window_once_and_stays_so(scene, user, tap, started):
    others_tap = started.add(Tap(scene.agent))
    other = Client(others_tap, USER)
    assert other.get(NAME).values == [b"v10"]
    others_tap.forget()
    assert user.get(NAME).values == [b"v10"]
    before, _ = engine_of(tap.received[-1][1])
    tap.forget()
    scene.fault("reboot-engine")
    for one, its_tap in ((user, tap), (other, others_tap)):
        assert_served_at_once(one)
        assert its_tap.counts() == (2, 2), "a report, and the answer"
        assert [engine_of(packet)[0] for _, packet in its_tap.received] == [before + 1] * 2
        its_tap.forget()
        assert_served_at_once(one)
        assert its_tap.counts() == (1, 1), "once only"
    assert scene.wait(lambda told: told["faults"] == [])["applied"] >= 1
    assert stored_boots(scene.agent) == before + 1, "a start after a kill must go on from there"


# Which messages.

def test_a_fault_meets_only_what_agrees_with_all_of_its_options(scene, tap):
    alice, private = Client(tap, USER), Client(tap, COMMUNITY)
    alice.get(NAME)

    def who_meets(*options, ask=lambda client: client.get(NAME)):
        scene.fault("error", "genErr", *options)
        met = [ask(one).status == "genErr" for one in (alice, private)]
        scene.clear()
        return met

    assert who_meets() == [True, True]
    assert who_meets("--user", "alice") == [True, False]
    assert who_meets("--user", "private") == [False, True]
    assert who_meets("--user", "alic") == [False, False]
    assert who_meets("--oid", "vsanName") == [True, True]
    assert who_meets("--oid", "vsanName.10") == [True, True]
    assert who_meets("--oid", "vsanName.1") == [False, False]
    assert who_meets("--oid", "vsanName.20", ask=lambda client: client.get(NAME, OTHER)) == [True, True]
    assert who_meets("--oid", "vsanMtu") == [False, False]
    assert who_meets("--pdu", "get") == [True, True]
    assert who_meets("--pdu", "get-next,get-bulk,set") == [False, False]
    assert who_meets("--pdu", "get-next", ask=lambda client: client.get_next(NAME)) == [True, True]
    assert who_meets("--pdu", "get-bulk", ask=lambda client: client.get_bulk(NAME)) == [True, True]
    assert who_meets("--pdu", "set", ask=lambda client: client.set(OTHER, "v20")) == [True, True]
    assert who_meets("--from", "127.0.0.1") == [True, True]
    assert who_meets("--from", "127.0.0.0/8") == [True, True]
    assert who_meets("--from", "127.0.0.2") == [False, False]
    assert who_meets("--from", "127.0.0.1", "--user", "alice", "--pdu", "get", "--oid", "vsanName") == [True, False]


@pytest.mark.parametrize("who", [("2c", "everywhere"), USER])
def test_a_fault_meets_the_address_that_a_request_really_comes_from(scene, who):
    scene.fault("error", "genErr", "--from", "127.0.0.2")
    assert Client(scene.agent, who, local="127.0.0.2").get(NAME).status == "genErr"
    assert Client(scene.agent, who, local="127.0.0.3").get(NAME).status == "noError"


def test_after_and_times_count_only_what_agrees(scene, client):
    number = scene.fault("error", "genErr", "--oid", "vsanName.10", "--after", 2, "--times", 2)
    statuses = []
    for _ in range(6):
        assert client.get(OTHER).status == "noError"
        statuses.append(client.get(NAME).status)
    assert statuses == ["noError"] * 2 + ["genErr"] * 2 + ["noError"] * 2
    assert scene.wait(lambda told: number not in [fault["number"] for fault in told["faults"]])


def test_a_percentage_is_met_by_chance_and_the_same_seed_by_the_same(scene, client):
    def met(*seed):
        scene.fault("error", "genErr", "--percent", 30, *seed)
        statuses = [client.get(NAME).status for _ in range(60)]
        scene.clear()
        return statuses

    first = met()
    assert 6 <= first.count("genErr") <= 32
    assert met() == first
    assert met("--seed", 2) != first


def test_of_several_faults_the_first_applies_and_the_next_when_that_does_not(scene, client):
    scene.fault("error", "genErr", "--times", 1)
    scene.fault("delay-answer", 300, "--times", 1)
    assert client.get(NAME).status == "genErr"
    assert client.get(NAME).seconds >= 0.3
    scene.wait(lambda told: told["faults"] == [])
    scene.fault("too-big", 2000)
    scene.fault("delay-answer", 300)
    assert client.get(NAME).seconds >= 0.3, "an answer that is small enough goes on to the next"


# Who is not locked out.

def test_who_may_not_ask_meets_no_fault_and_hears_nothing(scene):
    scene.fault("error", "genErr", "--times", 1)
    assert Client(scene.agent, ("2c", "stranger"), timeout=0.3, retries=0).get(NAME).trouble == NO_ANSWER
    assert scene.tool.json("fault")["faults"][0]["applied"] == 0


def test_requests_over_the_agents_unix_socket_meet_no_fault(started):
    path = started.folders.make() / "agent.sock"
    scene = Scene(started, INITIAL, lines=(
        f"agentAddress unix:{path}", "com2secunix local default local", "group locals v2c local",
        "view everything included .1", 'access locals "" v2c noauth exact everything everything none'))
    scene.fault("lose-request")
    scene.fault("lose-answer")
    assert Client(scene.agent, COMMUNITY, timeout=0.3, retries=0).get(NAME).trouble == NO_ANSWER
    locally = NetSnmp(scene.agent, user="local", timeout=2)
    locally._address = f"unix:{path}"
    for _ in range(3):
        assert locally.get(NAME)[0].value == b"v10"
    locally.set((OTHER, "s", "done"))
    assert locally.get(OTHER)[0].value == b"done"


def test_ipv6_requests_meet_faults_too(started):
    with socket.socket(socket.AF_INET6, socket.SOCK_DGRAM) as probe:
        probe.bind(("::1", 0))
        port = probe.getsockname()[1]
    scene = Scene(started, INITIAL, lines=(f"agentAddress udp6:[::1]:{port}", "rocommunity6 public ::1"))
    with socket.socket(socket.AF_INET6, socket.SOCK_DGRAM) as raw, Packets(scene.agent) as packets:
        raw.settimeout(5)
        raw.connect(("::1", port))
        packet = packets.packet([NAME], 5)
        raw.send(packet)
        whole = raw.recv(65536)
        scene.fault("cut-answer", 30, "--from", "::1")
        raw.send(packet)
        assert raw.recv(65536) == whole[:30]
        scene.clear()
        scene.fault("delay-answer", 200, "--from", "::1")
        start = time.monotonic()
        raw.send(packet)
        assert raw.recv(65536) == whole
        assert time.monotonic() - start >= 0.2


# Lives.

def test_without_an_agent_the_list_says_so(start_switch, start_agent):
    from harness.operator_tool import OperatorTool
    switch = start_switch(initial=INITIAL)
    tool = OperatorTool(switch)
    tool("fault", "add", "client", "lose-answer")
    assert "No agent has fetched this list" in tool("fault")
    start_agent(switch)  # one without the switch's own library
    time.sleep(1.5)
    assert "No agent has fetched this list" in tool("fault")


def test_a_restart_of_the_switch_clears_both_sides(started):
    scene = Scene(started, INITIAL)
    client = Client(scene.agent, COMMUNITY)
    scene.fault("error", "genErr")
    assert client.get(NAME).status == "genErr"
    scene.switch.stop()
    scene.switch.start()
    deadline = time.monotonic() + 15
    while client.get(NAME).values != [b"v10"]:
        assert time.monotonic() < deadline
        time.sleep(0.1)
    assert scene.tool.json("fault") == {"applied": 0, "faults": []}
    # Its numbers begin anew, and with them the counts.
    scene.fault("error", "genErr", "--times", 1)
    assert client.get(NAME).status == "genErr"


def test_a_restart_of_the_agent_clears_the_counts_alone(started):
    scene = Scene(started, INITIAL)
    number = scene.fault("error", "genErr", "--times", 3)
    client = Client(scene.agent, COMMUNITY)
    assert [client.get(NAME).status for _ in range(2)] == ["genErr"] * 2
    scene.wait_applied(number, 2)
    scene.agent.finish()
    assert "No agent has fetched this list" in scene.tool("fault")
    scene.agent.start()
    told = scene.wait(lambda list_: list_["fetched"])
    assert [(fault["applied"], fault["remaining"]) for fault in told["faults"]] == [(0, 3)]
    client = Client(scene.agent, COMMUNITY)
    assert [client.get(NAME).status for _ in range(4)] == ["genErr"] * 3 + ["noError"]


def test_a_reloaded_agent_drops_what_it_keeps_and_goes_on_with_the_list(started):
    scene = Scene(started, INITIAL)
    scene.fault("delay-answer", 1500, "--oid", "vsanName.10")
    with Packets(scene.agent) as packets:
        for round_ in range(3):
            packets.socket.send(packets.packet([NAME], round_))
            packets.exchange(packets.packet([OTHER], 100 + round_))
            scene.agent.reload()
            packets.socket.settimeout(2)
            with pytest.raises(TimeoutError):
                packets.socket.recv(65536)
            scene.wait(lambda told: told["fetched"])
        packets.socket.settimeout(10)
        start = time.monotonic()
        packets.exchange(packets.packet([NAME], 300))
        assert time.monotonic() - start >= 1.5
    scene.clear()
    assert_served_at_once(Client(scene.agent, COMMUNITY))


def test_faults_that_come_and_go_while_it_is_asked_leave_the_agent_well(started):
    scene = Scene(started, INITIAL)
    client = Client(scene.agent, USER, timeout=0.3)
    for _ in range(3):
        for words in (("lose-answer",), ("repeat-answer",), ("reorder-answers",), ("delay-answer", 50),
                      ("not-in-time-window", "--times", 1), ("cut-answer", 3), ("too-big", 10)):
            scene.tool("fault", "add", "client", *words, "--percent", 50)
            client.get(NAME)
            client.get_bulk(ARCS["vsanName"])
            scene.tool("fault", "clear")
            client.get(SYS_DESCR, scalar("vsanNumber"))
    scene.clear()
    assert Client(scene.agent, USER).get(NAME).values == [b"v10"]
