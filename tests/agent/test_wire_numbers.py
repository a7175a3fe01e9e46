# SPDX-License-Identifier: Apache-2.0
"""The harness plays clients and managers that share no code with the switch. Their numbers
are those of contract/ all the same."""

import re
import runpy

import pytest
from harness import wire
from harness.build import REPOSITORY

HARNESS = vars(wire)
FUZZ = runpy.run_path(str(REPOSITORY / "tests" / "fuzz" / "wire_frames.py"))


@pytest.fixture(scope="module")
def contract():
    """Every number that a header of contract/ gives a name."""
    numbers = {}
    for header in (REPOSITORY / "contract").glob("*.h"):
        text = header.read_text()
        named = [(name, number) for name, number in re.findall(r"^#define (\w+) (\w+)$", text, re.M)]
        named += re.findall(r"^\s+(\w+) = (\w+),?", text, re.M)
        named += [(name, number) for number, name in re.findall(r"\bX\((\w+), (\w+)", text)]
        numbers |= {name: int(number.rstrip("u"), 0) for name, number in named if number[0].isdigit()}
    return numbers


FRAMES = {name: f"MTS_FRAME_{name}" for name in (
    "REQUEST", "REPLY", "SUBSCRIBE", "EVENT", "PING", "PONG", "SHARE", "SHARED", "KNOCK")}
NAMES = FRAMES | {
    "MAGIC": "MTS_WIRE_MAGIC", "MAX_BODY": "MTS_WIRE_MAX_BODY",
    "GET": "MTS_KIND_GET", "GETNEXT": "MTS_KIND_GET_NEXT", "SET": "MTS_KIND_SET",
    "DELETE": "MTS_KIND_DELETE", "TDX_GET": "MTS_KIND_DISTRIBUTED_GET",
    "SERVICE_SWITCH": "MTS_SERVICE_SWITCH", "SERVICE_ROLES": "MTS_SERVICE_ROLES",
    "SERVICE_VSAN": "MTS_SERVICE_VSAN", "SERVICE_PORT": "MTS_SERVICE_PORT", "SERVICE_TDX": "MTS_SERVICE_TDX",
    "SWITCH_COUNTERS": "MTS_OP_SWITCH_COUNTERS", "SWITCH_COMMAND": "MTS_OP_SWITCH_COMMAND",
    "ROLE_OF_USER": "MTS_OP_ROLE_OF_USER", "TDX_STATE": "MTS_OP_TDX_STATE",
    "MEMBERSHIP": "MTS_OP_INTERFACE", "VSAN_COUNT": "MTS_OP_VSAN_COUNT", "LAST_CHANGE": "MTS_OP_LAST_CHANGE",
    "FC_TIMER": "MTS_OP_TIMER", "IF_COUNT": "MTS_OP_INTERFACE_COUNT", "LATENCY": "MTS_OP_LATENCY",
    "INORDER_DELIVERY": "MTS_OP_INORDER_DELIVERY", "VSAN": "MTS_OP_VSAN",
    "NO_SUCH_VSAN": "STATUS_NO_SUCH_VSAN", "NO_MORE_VSANS": "STATUS_NO_MORE_VSANS",
    "NAME_CONFLICT": "STATUS_NAME_CONFLICT",
    "BLOCK_SIZE": "VSAN_BLOCK_SIZE", "RECORD_AT": "VSAN_RECORD_AT", "RECORD_SIZE": "VSAN_RECORD_SIZE",
    "NAME_SIZE": "VSAN_NAME_FIELD",
}


@pytest.mark.parametrize("name", [name for name, value in HARNESS.items() if name.isupper() and isinstance(value, int)])
def test_a_number_of_the_harness_is_the_contracts(contract, name):
    assert HARNESS[name] == contract[NAMES[name]]


@pytest.mark.parametrize("name", ["MAGIC", *FRAMES])
def test_a_number_of_the_fuzz_seeds_is_the_contracts(contract, name):
    assert FUZZ[name] == contract[NAMES[name]]


@pytest.mark.parametrize("layout, size", [
    ("HEADER", "MTS_WIRE_HEADER"), ("REQUEST_FIXED", "MTS_WIRE_REQUEST_FIXED"), ("REPLY_FIXED", "MTS_WIRE_REPLY_FIXED"),
    ("RECORD", "VSAN_RECORD_REST")])
def test_a_layout_of_the_harness_has_the_contracts_size(contract, layout, size):
    assert HARNESS[layout].size == contract[size]
