# SPDX-License-Identifier: Apache-2.0
"""What docs/running.md says of files and options that a user writes is what the switch takes."""

import grp
import json
import os
import re

import pytest

from harness.build import REPOSITORY
from harness.clients import NetSnmp
from harness.oids import cell
from harness.operator_tool import OperatorTool
from harness.transcript import blocks

DOCUMENT = "docs/running.md"
INITIAL, ROLES = "Another switch than the demo's", "Users who may see only some VSANs"


def keys_read_by(source):
    """The keys that a reader of JSON accepts: pairs of the place, as it calls it, and the key."""
    text = (REPOSITORY / "virtual_switch" / source).read_text()
    calls = re.findall(r"expect_object\(\s*\*?\w+,\s*([^{]+?),\s*\{([^}]+)\}\)", text)
    assert len(calls) == text.count("expect_object(")
    return [(re.sub(r'[\\"]', "", place), key) for place, keys in calls for key in re.findall(r'"(\w+)"', keys)]


def documented_keys():
    text = (REPOSITORY / DOCUMENT).read_text().partition("| in | key |")[2].partition("\n\n")[0]
    return re.findall(r"^\| ([\w ]+) \| `(\w+)` \|", text, re.M)


def keys_of(json_value):
    """All keys of a JSON value, however deep."""
    if isinstance(json_value, dict):
        return set(json_value).union(*map(keys_of, json_value.values()))
    return set().union(*map(keys_of, json_value)) if isinstance(json_value, list) else set()


def test_every_key_of_the_initial_configuration_is_documented_and_no_other():
    # Where timers stand is up to the caller of their reader.
    read = [("timers" if place == "place" else place, key) for place, key in keys_read_by("model/configuration.cpp")]
    assert len(read) > 25
    assert sorted(documented_keys()) == sorted(read)


def test_every_key_of_the_role_file_is_in_its_example_and_no_other():
    assert keys_of(json.loads(blocks(DOCUMENT, ROLES)[0])) == {key for _, key in keys_read_by("model/roles.cpp")}


def test_a_switch_starts_with_the_documented_example(start_switch):
    tool = OperatorTool(start_switch(initial=json.loads(blocks(DOCUMENT, INITIAL)[0])))
    backup = tool.json("vsan", "show", 10)
    assert (backup["name"], backup["state"], backup["interop"]) == ("backup", "suspended", 1)
    assert [vsan["id"] for vsan in tool.json("vsan", "list")["vsans"]] == [1, 10, *range(1000, 2000)]
    assert tool.json("port", "list")["ports"][0]["vsan"] == 10


DEFAULTS = {"state": "active", "mtu": 2112, "loadBalancing": "srcIdDestIdOxId", "interop": 100,
            "networkDropLatency": 500}


def test_what_is_left_out_has_the_documented_default(start_switch):
    tool = OperatorTool(start_switch(initial={"vsans": [{"id": 10}], "ports": [{"ifIndex": 5}]}))
    shown = tool.json("vsan", "show", 10)
    assert {key: shown[key] for key in DEFAULTS} == DEFAULTS
    assert shown["name"] == "VSAN0010"
    documented = (REPOSITORY / DOCUMENT).read_text()
    for key, value in DEFAULTS.items():
        assert re.search(rf"^\| a VSAN \| `{key}` \|.*\| `?\"?{value}\"?`? \|$", documented, re.M), key
    port = tool.json("port", "show", 5)
    assert (port["vsan"], port["link"], port["denyList"]) == (1, "up", 0)
    settings = tool.json("timers", "show")
    assert settings["switch"] == {"edtov": 2000, "ratov": 10000, "dstov": 5000, "fstov": 5000}
    assert (settings["switchLatency"], settings["networkLatency"], settings["inorderDelivery"]) == (500, 2000, False)


@pytest.mark.skipif(os.geteuid() != 0, reason="only root can start an agent as another user")
def test_the_documented_group_lets_debians_agent_in(start_switch, start_agent):
    by_hand = blocks(DOCUMENT, "Running the pieces by hand")[0]
    group = grp.getgrnam(re.search(r"--socket-group (\S+)", by_hand).group(1))
    switch = start_switch(initial={"vsans": [{"id": 10, "name": "storage_prod"}]}, socket_group=group.gr_gid)
    switch.folder.chmod(0o755)
    assert NetSnmp(start_agent(switch, user=group.gr_name)).get(cell("vsanName", 10))[0].value == b"storage_prod"
