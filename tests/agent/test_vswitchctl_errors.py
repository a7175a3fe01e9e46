# SPDX-License-Identifier: Apache-2.0
"""What vswitchctl says of a command that is wrong: the word, the nearest right one, ranges, never the protocol."""

import pytest
from harness.operator_tool import OperatorTool


@pytest.fixture(name="tool")
def tool_of_an_empty_switch(start_switch):
    return OperatorTool(start_switch(empty=True))


@pytest.mark.parametrize("words,sentence", [
    ((), "A command is missing; 'vswitchctl --help' names those there are."),
    (("vsn",), "There is no command 'vsn'; the nearest is 'vsan'."),
    (("event",), "There is no command 'event'; the nearest is 'event-history'."),
    (("vsan", "creat"), "There is no command 'vsan creat'; the nearest is 'vsan create'."),
    (("qqqqqqqq",), "There is no command 'qqqqqqqq'; 'vswitchctl --help' names those there are."),
    (("vsan", "qqqqqqqq"), "There is no command 'vsan qqqqqqqq'; 'vswitchctl vsan --help' names those there are."),
    (("vsan", "create"), "vsan create: id is required; --help tells more."),
    (("vsan", "create", "ten"), "vsan create: id: 'ten' is not a number from 1 to 4095."),
    (("vsan", "create", 10, 20), "vsan create: '20' is one word too many."),
    (("vsan", "create", 10, "--nmae=x"), "vsan create: there is no option '--nmae'; the nearest is '--name'."),
    (("vsan", "create", 10, "--state", "activ"),
     "vsan create: --state: 'activ' is not one of active, suspended; the nearest is 'active'."),
    (("vsan", "set", 10), "vsan set: one of the options that change something is needed."),
    (("vsan", "set", 10, "--interop", "non"),
     "vsan set: --interop: 'non' is not a number from 1 to 4, none; the nearest is 'none'."),
    (("port", "up", "gigabit3"), "port up: port: 'gigabit3' is not a port, which is an ifIndex or a name like fc3."),
    (("port", "traps", "fc1", "maybe"), "port traps: on: 'maybe' is not on or off."),
    (("timers", "set", "edtv", 5000),
     "timers set: setting: 'edtv' is not one of edtov, ratov, dstov, fstov, switch-latency, network-latency, "
     "inorder-delivery; the nearest is 'edtov'."),
    (("fault", "add", "--vsan", 1, "client", "lose-answer"), "fault add: 'client' must stand before the options."),
    (("--jsn", "show"), "In front of the command there is no option '--jsn'; the nearest is '--json'."),
])
def test_a_wrong_word_is_named_with_the_nearest_or_what_may_stand_there(tool, words, sentence):
    assert tool.refused(*words, code=2) == f"vswitchctl: {sentence}\n"


@pytest.mark.parametrize("words,sentence", [
    (("port", "up", "fc0"), "port up: there is no port fc0; the switch has fc1 to fc48."),
    (("port", "show", "fc49"), "port show: there is no port fc49; the switch has fc1 to fc48."),
    (("port", "move", 7, 1), "port move: there is no port of ifIndex 7; the switch has fc1 to fc48."),
    (("fault", "add", "drop", "--port", "fc49"), "fault add: there is no port fc49; the switch has fc1 to fc48."),
    (("port", "speed", "fc1", 1000), "port speed: speed must be one of 2000, 4000, 8000, 16000, 32000."),
    (("vsan", "create", 4096), "vsan create: id must be a whole number from 1 to 4095."),
    (("vsan", "create", 10, "--mtu", 65536), "vsan create: VSAN 10: MTU is not between 1 and 65535."),
    (("vsan", "create", 10, "--drop-latency", 0),
     "vsan create: VSAN 10: Network drop latency is not between 1 and 60000."),
    (("vsan", "show", 10), "vsan show: VSAN 10 does not exist."),
    (("timers", "set", "ratov", 1), "timers set: ratov is 5000 to 100000 milliseconds."),
])
def test_a_refusal_speaks_of_options_not_of_keys(tool, words, sentence):
    assert tool.refused(*words) == f"vswitchctl: {sentence}\n"


def test_options_for_all_commands_may_stand_anywhere(tool):
    plain = tool("vsan", "list")
    assert plain.startswith("VSAN ")
    shown = {tool.run(*words).stdout for words in (("vsan", "list", "--json"), ("--json", "vsan"), ("vsan", "--json"))}
    assert len(shown) == 1 and shown.pop().startswith("{")
    assert tool("--version").startswith("vswitchctl ")
    assert tool.run("vsan", "--help").stdout.startswith("The switch's VSANs\n")
