# SPDX-License-Identifier: Apache-2.0
"""docs/objects.md says of each object what the MIB text says.

BUILD_DIR names the build folder (default: build/ in the repository).
"""
import os
import pathlib
import re

ROOT = pathlib.Path(__file__).resolve().parents[2]
MIB = (pathlib.Path(os.environ.get("BUILD_DIR", ROOT / "build")) / "mibs" / "VSAN-MIB.txt").read_text()
PARENTS = {
    "vsanConfiguration": "1.1", "vsanMembership": "1.2", "vsanFcTimers": "1.4",
    "vsanEntry": "1.1.3.1", "vsanIfEntry": "1.2.5.1", "vsanMembershipSummaryEntry": "1.2.8.1",
    "vsanFcTimerEntry": "1.4.8.1",
}


def documented():
    """The rows of the first table: object name to its cells."""
    rows = {}
    for line in (ROOT / "docs" / "objects.md").read_text().splitlines():
        cells = [cell.strip() for cell in line.strip("|").split("|")]
        if line.startswith("| `") and len(cells) == 8:
            rows[cells[0].strip("`")] = cells
    return rows


def defined():
    """The accessible objects of the MIB text: name to (OID, type, access, range, unit)."""
    objects = {}
    pattern = (r"^(\w+) OBJECT-TYPE\s+SYNTAX\s+(.+?)\s+(?:UNITS\s+\"(.+?)\"\s+)?MAX-ACCESS\s+(\S+)"
               r".*?::= \{ (\w+) (\d+) \}")
    for name, syntax, unit, access, parent, arc in re.findall(pattern, MIB, re.M | re.S):
        if access in ("not-accessible", "accessible-for-notify"):
            continue
        base, limits = re.match(r"(\w+)\s*(?:[({](.*)[)}])?", syntax, re.S).groups()
        objects[name] = (f"{PARENTS[parent]}.{arc}", base, access, limits, unit or "")
    return objects


def convention(name):
    """The range or the named numbers of a textual convention of the MIB text."""
    syntax = r"SYNTAX\s+(?:INTEGER|Integer32|OCTET STRING)\s*[({](.*?)[)}]*\n\n"
    found = re.search(rf"^{name} ::= TEXTUAL-CONVENTION.*?{syntax}", MIB, re.M | re.S)
    return found.group(1) if found else ""


def words(text):
    return set(re.findall(r"\d+\.\.\d+|\w+\(\d+\)", text or ""))


def test_the_table_lists_all_28_objects_and_no_other():
    assert len(defined()) == 28
    assert list(documented()) == list(defined())


def test_oid_type_access_and_unit_are_those_of_the_mib():
    for name, (oid, syntax, access, _, unit) in defined().items():
        cells = documented()[name]
        assert (cells[1], cells[2], cells[3], cells[5]) == (oid, syntax, access, unit), name


def test_every_range_is_one_that_the_mib_gives():
    for name, (_, syntax, _, limits, _) in defined().items():
        stated = words(documented()[name][4])
        allowed = words(limits) | words(convention(syntax))
        if syntax == "RowStatus":
            allowed = {"active(1)", "createAndGo(4)", "destroy(6)"}
        assert stated <= allowed, name
        if limits:
            assert stated == words(limits), name
