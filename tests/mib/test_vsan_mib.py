# SPDX-License-Identifier: Apache-2.0
"""The MIB text against two independent parsers, and against what the module registers.

BUILD_DIR names the build folder (default: build/ in the repository). Its mibs/ folder must
hold VSAN-MIB.txt, which the build writes, and the standard modules, which test.sh puts there.
"""

import os
import re
import subprocess
from pathlib import Path

import pytest

BUILD_DIR = Path(os.environ.get("BUILD_DIR", Path(__file__).resolve().parents[2] / "build"))
MIBS = BUILD_DIR / "mibs"
TEXT = MIBS / "VSAN-MIB.txt"
PEN = re.search(r"^VENDOR_PEN:\w+=(\d+)$", (BUILD_DIR / "CMakeCache.txt").read_text(), re.MULTILINE).group(1)
ROOT = f"1.3.6.1.4.1.{PEN}.9.282"

# What smilint may say about the text, with the reason why the object tree forces it. The
# tree forces nothing at present: even the gap at column 7 and the missing column 1 of two
# tables pass. A line goes in here only if changing the text cannot avoid it.
FORCED_LINT: dict[str, str] = {}

# What the module's registration says in numbers: ASN.1 types and access.
INTEGER, OCTETS, UNSIGNED, TICKS = 0x02, 0x04, 0x42, 0x43
READ_ONLY, READ_WRITE = 1, 2

# Answers of a write method to a value.
NO_ERROR, WRONG_LENGTH, WRONG_VALUE, NOT_WRITABLE = 0, 8, 10, 17

# The one object that the module registers writable and has no writer for.
REFUSES_EVERY_SET = "vsanOperState"

# The values of an object as the text has them: a range, the named numbers, or None where the
# type alone decides. Managers show the names, so that none must change.
BOOLEAN = {"true": 1, "false": 2}
VALUES = {
    "vsanNumber": "0..4095",
    "vsanTableLastChange": None,
    "vsanName": "0..32",
    "vsanMediaType": {"fibreChannel": 1, "ethernet": 2},
    "vsanAdminState": {"active": 1, "suspended": 2, "notConfigured": 3, "configured": 4},
    "vsanMtu": None,
    "vsanLoadBalancingType": {"srcIdDestId": 1, "srcIdDestIdOxId": 2},
    "vsanOperState": {"up": 1, "down": 2},
    "vsanRowStatus":
        {"active": 1, "notInService": 2, "notReady": 3, "createAndGo": 4, "createAndWait": 5, "destroy": 6},
    "vsanInterOperType": {"default": 0, "mode1": 1, "mode2": 2, "mode3": 3, "mode4": 4},
    "vsanInorderDelivery": BOOLEAN,
    "vsanNetworkDropLatency": "1..60000",
    "vsanIfNumber": "0..2147483647",
    "vsanIfVsan": "1..4095",
    "vsanIfDenyList": None,
    "vsanMembershipSummaryIfIndex": "1..2147483647",
    "fcTimerRatov": "5000..100000",
    "fcTimerEdtov": "1000..100000",
    "fcTimerFstov": None,
    "fcTimerDstov": "5000..100000",
    "fcNetworkLatency": "0..60000",
    "fcSwitchLatency": "0..60000",
    "fcInorderDelivery": BOOLEAN,
    "vsanFcTimerForceFlag": {"ratov": 0, "edtov": 1, "dstov": 2},
    "vsanFcTimerRatov": "5000..100000",
    "vsanFcTimerEdtov": "1000..100000",
    "vsanFcTimerDstov": "5000..100000",
    "vsanFcTimerFstov": None,
}

# Objects that a reply never carries: the index of the VSAN tables, and what only notifications hold.
UNREGISTERED = {
    "vsanIndex": ("1.1.3.1.1", "not-accessible"),
    "vsanNotificationVsan": ("1.1.4", "accessible-for-notify"),
    "vsanNotificationPortManager": ("1.5.1", "accessible-for-notify"),
}
INDEXES = {
    "vsanEntry": ["vsanIndex"],
    "vsanIfEntry": ["ifIndex"],
    "vsanMembershipSummaryEntry": ["vsanIndex", "ifIndex"],
    "vsanFcTimerEntry": ["vsanIndex"],
}
NOTIFICATIONS = {
    "vsanStatusChange": ("1.3.0.1", ["vsanNotificationVsan", "vsanAdminState", "vsanOperState"]),
    "vsanPortMembershipChange": ("1.3.0.2", ["vsanNotificationPortManager", "ifIndex", "vsanNotificationVsan"]),
}
WIRE_TYPES = {
    "Integer32": INTEGER, "InterfaceIndex": INTEGER, "INTEGER": INTEGER, "TruthValue": INTEGER,
    "RowStatus": INTEGER, "OCTET STRING": OCTETS, "BITS": OCTETS, "Unsigned32": UNSIGNED,
    "TimeTicks": TICKS, "TimeStamp": TICKS,
}


def run(tmp, *command):
    """Runs a tool that sees no MIB folder but ours; returns its output, errors included."""
    environment = dict(os.environ, SMIPATH=str(MIBS), SNMPCONFPATH=str(tmp), SNMP_PERSISTENT_DIR=str(tmp),
                       MIBDIRS="", MIBS="")
    return subprocess.run(command, env=environment, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True,
                          timeout=60, check=False).stdout


@pytest.fixture(scope="module")
def translate(tmp_path_factory):
    """Asks Net-SNMP about names, reading nothing but the folder that users are told to read."""
    tmp = tmp_path_factory.mktemp("snmp")
    (tmp / "cert_indexes").mkdir()  # the tools announce it when they have to make it
    return lambda *arguments: run(tmp, "snmptranslate", "-M", str(MIBS), "-m", "VSAN-MIB", *arguments)


@pytest.fixture(scope="module")
def described(translate):
    """Returns what Net-SNMP knows about one object: its fields by name, e.g. {'MAX-ACCESS': 'read-only'}."""
    def describe(name):
        text = translate("-Td", f"VSAN-MIB::{name}")
        fields = dict(re.findall(r"^  ([A-Z-]+)\t+(.*)$", text, re.MULTILINE))
        assert fields, f"{name} is not described: {text}"
        return fields
    return describe


def conventions():
    """Returns the textual conventions of the text: name to the type that they stand for."""
    return dict(re.findall(r"^(\w+) ::= TEXTUAL-CONVENTION.*?SYNTAX +(INTEGER|OCTET STRING|\w+)", TEXT.read_text(),
                           re.MULTILINE | re.DOTALL))


def test_the_standard_modules_are_there():
    missing = [name for name in ("SNMPv2-SMI", "SNMPv2-TC", "SNMPv2-CONF", "SNMPv2-MIB", "IF-MIB", "IANAifType-MIB")
               if not (MIBS / name).is_file()]
    assert not missing, f"{MIBS} lacks {missing}; ./test.sh puts them there"


def test_smilint_finds_nothing_but_what_the_tree_forces(tmp_path):
    said = [line.replace(f"{TEXT}:", "") for line in run(tmp_path, "smilint", "-l", "6", str(TEXT)).splitlines()]
    assert sorted(re.sub(r"^\d+: ", "", line) for line in said) == sorted(FORCED_LINT)


def test_smilint_is_not_silent_by_accident(tmp_path):
    broken = tmp_path / "VSAN-MIB.txt"
    broken.write_text(TEXT.read_text().replace("vsanNumber,\n", "vsanNumbers,\n"))
    assert "vsanNumbers" in run(tmp_path, "smilint", "-l", "6", str(broken))


def test_net_snmp_loads_the_text_without_a_word(translate):
    assert translate("-On", "VSAN-MIB::vsanMIB").strip() == f".{ROOT}"


def from_module(*question):
    """What the built module tells an agent: the numbers of each line, by what the line is about."""
    environment = dict(os.environ, VSWITCH_RUN_DIR="/nonexistent")
    told = subprocess.run([BUILD_DIR / "bin" / "registered_objects", BUILD_DIR / "lib" / "libvsanmib.so", *question],
                          env=environment, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True, timeout=60,
                          check=True).stdout
    return {key: [int(number) for number in numbers.split()]
            for key, numbers in re.findall(r"^(?:object|set) (\S+) (.*)$", told, re.MULTILINE)}


@pytest.fixture(scope="module")
def registered(translate):
    """The module's registration: the name that the text gives an object to its suffix, type and access."""
    objects = {}
    for suffix, (wire, access) in from_module().items():
        name = translate(f".{ROOT}.{suffix}").strip().removeprefix("VSAN-MIB::")
        objects[name] = (suffix, wire, access)
    return objects


def answers(suffix, numbers):
    """The error status with which the module answers a SET of each number to one object."""
    return {int(number): status for number, (status,) in from_module(suffix, *map(str, numbers)).items()}


def test_the_text_has_the_objects_that_the_module_registers_and_no_others(registered):
    text = TEXT.read_text()
    objects = re.findall(r"^(\w+) OBJECT-TYPE\n(?:(?!::=).)*?MAX-ACCESS +read", text, re.MULTILINE | re.DOTALL)
    assert sorted(objects) == sorted(registered)
    assert list(registered) == list(VALUES)
    assert len(VALUES) == 28


@pytest.mark.parametrize("name", VALUES)
def test_object(translate, described, registered, name):
    suffix, wire, access = registered[name]
    assert translate("-On", f"VSAN-MIB::{name}").strip() == f".{ROOT}.{suffix}"
    assert translate(f".{ROOT}.{suffix}.10").strip() == f"VSAN-MIB::{name}.10"

    fields = described(name)
    is_created = suffix.startswith("1.1.3.1.") and name != REFUSES_EVERY_SET
    assert fields["MAX-ACCESS"] == {READ_ONLY: "read-only",
                                    READ_WRITE: "read-create" if is_created else "read-write"}[access]
    assert fields["STATUS"] == "current"
    assert fields["DESCRIPTION"].strip('"')

    syntax = re.match(r"OCTET STRING|\w+", fields["SYNTAX"]).group()
    assert WIRE_TYPES[conventions().get(syntax, syntax)] == wire
    assert limits(fields["SYNTAX"]) == VALUES[name]


def limits(syntax):
    """The values that a SYNTAX names: its named numbers, its range, or None."""
    labels = {label: int(number) for label, number in re.findall(r"(\w+)\((\d+)\)", syntax)}
    span = re.search(r"\((?:SIZE \()?(\d+\.\.\d+)", syntax)
    return labels or (span.group(1) if span else None)


def refinement(name, part):
    """The values to which the compliance statement narrows a part of an object, or None."""
    clause = re.search(rf"^ +OBJECT +{name}$(.*?)DESCRIPTION", TEXT.read_text(), re.MULTILINE | re.DOTALL)
    narrowed = clause and re.search(rf"^ +{part} +INTEGER ({{.*?}})", clause.group(1), re.MULTILINE | re.DOTALL)
    return limits(narrowed.group(1)) if narrowed else None


@pytest.mark.parametrize("name", VALUES)
def test_module_takes_the_values_that_the_text_lets_a_manager_write_and_no_others(described, registered, name):
    suffix, wire, access = registered[name]
    values = refinement(name, "WRITE-SYNTAX") or limits(described(name)["SYNTAX"])
    if access == READ_ONLY or "BITS" in described(name)["SYNTAX"]:
        return
    if isinstance(values, dict):
        accepted = set(values.values())
        asked = set(range(max(accepted) + 3))
    else:
        lowest, highest = map(int, values.split(".."))
        accepted = {lowest, highest}
        asked = {max(lowest - 1, 0), lowest, highest, highest + 1}
    if name == REFUSES_EVERY_SET:
        assert set(answers(suffix, asked).values()) == {NOT_WRITABLE}
        return
    refused = {number: status for number, status in answers(suffix, asked).items() if status != NO_ERROR}
    assert set(asked) - set(refused) == accepted
    if name != "vsanNetworkDropLatency":  # 0 has an error of its own
        assert set(refused.values()) == {WRONG_LENGTH if wire == OCTETS else WRONG_VALUE}


@pytest.mark.parametrize("name", [name for name in VALUES if re.search("(tov|Latency)$", name)])
def test_times_are_in_milliseconds(described, name):
    assert described(name)["UNITS"].strip('"') == "milliseconds"


@pytest.mark.parametrize("name", UNREGISTERED)
def test_unregistered_object(translate, described, name):
    suffix, access = UNREGISTERED[name]
    assert translate("-On", f"VSAN-MIB::{name}").strip() == f".{ROOT}.{suffix}"
    assert described(name)["MAX-ACCESS"] == access


def test_the_port_manager_value_is_eight_octets(described):
    assert described("vsanNotificationPortManager")["SYNTAX"].strip() == "OCTET STRING (8)"


@pytest.mark.parametrize("entry", INDEXES)
def test_index(described, entry):
    assert re.findall(r"\w+", described(entry)["INDEX"]) == INDEXES[entry]


@pytest.mark.parametrize("name", NOTIFICATIONS)
def test_notification(translate, name):
    suffix, variables = NOTIFICATIONS[name]
    assert translate("-On", f"VSAN-MIB::{name}").strip() == f".{ROOT}.{suffix}"
    declared = re.search(rf"^{name} NOTIFICATION-TYPE\s+OBJECTS +{{([^}}]*)}}", TEXT.read_text(), re.MULTILINE)
    assert re.findall(r"\w+", declared.group(1)) == variables


@pytest.mark.parametrize("name, default", [
    ("vsanAdminState", "active"), ("vsanLoadBalancingType", "srcIdDestIdOxId"), ("vsanInterOperType", "default"),
    ("vsanFcTimerForceFlag", ""),
])
def test_default(described, name, default):
    assert described(name)["DEFVAL"].strip(" {}") == default


@pytest.mark.parametrize("name, part, values", [
    ("vsanAdminState", "WRITE-SYNTAX", {"active": 1, "suspended": 2}),
    ("vsanRowStatus", "SYNTAX", {"active": 1}),
    ("vsanRowStatus", "WRITE-SYNTAX", {"active": 1, "createAndGo": 4, "destroy": 6}),
])
def test_compliance_narrows_the_values_to_those_accepted(name, part, values):
    assert refinement(name, part) == values


def test_compliance_says_that_no_set_of_the_operational_state_succeeds():
    clause = re.search(rf"^ +OBJECT +{REFUSES_EVERY_SET}$(.*?)\n\n", TEXT.read_text(),
                       re.MULTILINE | re.DOTALL).group(1)
    assert re.search("^ +MIN-ACCESS +read-only$", clause, re.MULTILINE)
    assert re.search(r"\bSET\b.* refused", clause, re.DOTALL)


def test_every_object_and_notification_is_in_one_conformance_group():
    groups = re.findall(r"^\w+ (?:OBJECT|NOTIFICATION)-GROUP\s+(?:OBJECTS|NOTIFICATIONS) {(.*?)}", TEXT.read_text(),
                        re.MULTILINE | re.DOTALL)
    members = [name for group in groups for name in re.findall(r"\w+", group)]
    expected = list(VALUES) + [name for name in UNREGISTERED if name != "vsanIndex"] + list(NOTIFICATIONS)
    assert sorted(members) == sorted(expected)
