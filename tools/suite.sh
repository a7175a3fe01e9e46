#!/bin/bash
# Usage: tools/suite.sh FOLDER [CMAKE_ARGUMENT...]
# Builds into a folder, runs the unit tests and the tests against real processes there, and
# ends with a line 'N passed, N failed'. The standard MIB modules must be in FOLDER/mibs and
# all packages installed. Ends with 0 only when tests ran and none failed.
set -uo pipefail

source "$(dirname "${BASH_SOURCE[0]}")/common.sh"
source "$REPO/tools/packages.sh"
source "$REPO/tools/build.sh"
source "$REPO/tools/results.sh"

(($#)) || usage_error "suite.sh takes a build folder."
FOLDER=$1
shift
trap end_step EXIT
end_on_signals

configure_project "$FOLDER" -DBUILD_TESTS=ON "$@"
build_project "$FOLDER"

export BUILD_DIR=$FOLDER PYTHONDONTWRITEBYTECODE=1
JOBS=$(nproc)
results_in "$FOLDER/test-results"
run_tests "unit tests" unit \
    ctest --test-dir "$FOLDER" --output-on-failure --parallel "$JOBS" --output-junit "$RESULTS/unit.xml"
run_tests "tests of the MIB text" mib \
    /usr/bin/python3 -m pytest -q -p no:cacheprovider --junitxml "$RESULTS/mib.xml" "$REPO/tests/mib"
# Every test of the agent finds ports and folders of its own, so they can share the machine.
# Some end a script with Ctrl-C's signal, which a script cannot catch where it was ignored from
# the start, as it is in whatever a shell runs in the background.
run_tests "tests of the running agent" agent \
    env --default-signal=INT /usr/bin/python3 -m pytest -q -p no:cacheprovider -n "$JOBS" --dist loadfile \
    --junitxml "$RESULTS/agent.xml" "$REPO/tests/agent"
finish_tests
