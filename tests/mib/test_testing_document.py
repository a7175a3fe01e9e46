# SPDX-License-Identifier: Apache-2.0
"""docs/testing.md says which suites start processes, and which speak over a network."""
import pathlib
import re

ROOT = pathlib.Path(__file__).resolve().parents[2]
UNIT_TESTS = ROOT / "tests" / "unit"


def documented(process):
    """The unit tests that the table has in the rows whose processes begin with a word."""
    text = (ROOT / "docs" / "testing.md").read_text()
    table = text.partition("| suite | processes |")[2].partition("\n\n")[0]
    rows = re.findall(r"^\| (.+) \| (.+) \| .+ \|$", table, re.M)
    return {name for suites, processes in rows if re.search(process, processes)
            for name in re.findall(r"`(\w+_test)`", suites)}


def unit_tests_with(pattern):
    return {path.stem for path in UNIT_TESTS.glob("*") if path.is_file() and re.search(pattern, path.read_text())}


def test_the_unit_tests_that_fork_and_those_that_start_a_program_are_the_documented_ones():
    assert unit_tests_with(r"\bfork\(") == documented(r"cop(y|ies) of") != set()
    assert unit_tests_with(r"\bexec[vl]\w*\(|\bposix_spawn|\bpopen\(|\bsystem\(") == documented("`vswitchd`") != set()


def test_no_unit_test_speaks_over_a_network():
    # One knows socket addresses, which are data to it.
    assert unit_tests_with(r"\bA?P?F_INET6?\b") == {"switchmib_client_faults_test"}
    assert "switchmib_client_faults_test" not in unit_tests_with(r"\bsocket\(")
