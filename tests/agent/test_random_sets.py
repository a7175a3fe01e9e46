# SPDX-License-Identifier: Apache-2.0
"""Random SETs against a model of the switch. After each, the agent's answer and
everything that can be read are what the model says. After one that failed, somebody else
may delete a VSAN that it was about: what the agent had kept of it too long would show.

A failure prints the seed and the PDU; --random-seed and --random-pdus repeat it, or
let it run for hours."""

import random

from harness.packets import STATUS, PacketClient
from harness.random_sets import INITIAL, assignments, creation_that_fails, difference, model, some_pdu

RESTART_EVERY = 80


def delete_by_operator(vsan, switch, model):
    """The VSAN goes without the agent's knowledge. Returns whether it was there."""
    if vsan == 1 or vsan not in model.switch.vsans:
        return False
    switch.operate("vsan.delete", id=vsan)
    model.switch.delete_vsan(vsan)
    return True


def test_random_sets_leave_the_switch_as_the_model_says(start_switch, start_agent, request):
    seed, count = (request.config.getoption(name) for name in ("--random-seed", "--random-pdus"))
    draw = random.Random(seed)
    switch = start_switch(initial=INITIAL)
    expected = model()
    answers = set()
    lost = None  # a VSAN that somebody else has just deleted
    with PacketClient(start_agent(switch)) as client:
        assert difference(client, expected) == {}
        for number in range(1, count + 1):
            pdu = creation_that_fails(lost) if lost else some_pdu(draw)
            lost = None
            where = f"--random-seed={seed}, PDU {number}: {pdu}"
            status, index = client.set(*assignments(pdu))
            expected_status, expected_index = expected.set(pdu)
            assert (status, index) == (STATUS[expected_status], expected_index), where
            assert difference(client, expected) == {}, where
            answers.add(status)
            if status in ("genErr", "inconsistentName") and draw.random() < 0.6:
                victim = draw.choice(pdu).vsan
                lost = victim if delete_by_operator(victim, switch, expected) else None
            if number % RESTART_EVERY == 0:
                switch.restart()
                assert difference(client, expected) == {}, f"after a restart, {where}"
    if count >= 400:
        assert answers == {"noError", "genErr", "wrongType", "wrongLength", "wrongValue", "inconsistentValue",
                           "notWritable", "inconsistentName"}
