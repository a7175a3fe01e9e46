#!/bin/bash
# SPDX-License-Identifier: Apache-2.0
# Usage: tools/suite.sh FOLDER [--only SUITE [--filter FILTER]] [CMAKE_ARGUMENT...]
# Builds into a folder, runs the unit tests and the tests against real processes there, and
# ends with a line 'N passed, N failed'. SUITE is unit or agent: that one alone, with no more built
# than it needs. FILTER is part of a test's name, as ctest -R and pytest -k take it, or the path of
# a file of agent tests. The standard MIB modules must be in FOLDER/mibs and all packages installed.
# Ends with 0 only when tests ran and none failed.
set -uo pipefail

source "$(dirname "${BASH_SOURCE[0]}")/common.sh"
source "$REPO/tools/packages.sh"
source "$REPO/tools/build.sh"
source "$REPO/tools/results.sh"

(($#)) || usage_error "suite.sh takes a build folder."
FOLDER=$1
shift
ONLY=
FILTER=
while [[ ${1-} == --only || ${1-} == --filter ]]; do
    [[ $1 == --only ]] && ONLY=$2 || FILTER=$2
    shift 2
done
JOBS=$(nproc)
trap end_step EXIT
end_on_signals

# unit_programs: prints the test programs whose sources hold a test that FILTER fits, or the name of
# all unit tests where that cannot be told.
unit_programs() {
    local file sources=()
    if [[ -n $FILTER ]]; then
        while read -r file; do
            sources+=(-e "/${file##*/}.o:")
        done < <(sed -nE 's/^(TYPED_)?TEST(_[FP])?\((\w+), *(\w+)\).*/\3.\4/; t found; d; :found; F; p' \
            "$REPO"/tests/unit/*_test.cpp | paste - - | awk -v filter="$FILTER" '$2 ~ filter { print $1 }' | sort -u)
    fi
    if ((${#sources[@]})); then
        ninja -C "$FOLDER" -t targets all | grep -F "${sources[@]}" |
            sed -nE 's#^tests/unit/CMakeFiles/([^/]+)\.dir/.*#\1#p' | sort -u
    else
        printf 'unit_tests\n'
    fi
}

run_unit_tests() {
    local chosen=()
    [[ -z $FILTER ]] || chosen=(--tests-regex "$FILTER")
    run_tests "unit tests" unit \
        ctest --test-dir "$FOLDER" --output-on-failure --parallel "$JOBS" --output-junit "$RESULTS/unit.xml" \
        --no-tests=error --exclude-regex '_NOT_BUILT$' "${chosen[@]}"
}

# python_tests WHAT NAME FOLDER [OPTION...]: runs a folder of tests with pytest. Some end a script
# with Ctrl-C's signal, which a script cannot catch where it was ignored from the start, as it is in
# whatever a shell runs in the background.
python_tests() {
    run_tests "$1" "$2" env --default-signal=INT /usr/bin/python3 -m pytest -q -p no:cacheprovider \
        --junitxml "$RESULTS/$2.xml" "${@:4}" "$REPO/$3"
}

# Every test of the agent finds ports and folders of its own, so they can share the machine.
run_agent_tests() {
    local chosen=() where=tests/agent
    if [[ -f $REPO/$FILTER ]]; then
        where=$FILTER
    elif [[ -n $FILTER ]]; then
        chosen=(-k "$FILTER")
    fi
    python_tests "tests of the running agent" agent "$where" -n "$JOBS" --dist loadfile "${chosen[@]}"
}

configure_project "$FOLDER" -DBUILD_TESTS=ON "$@"
case $ONLY in
unit)
    mapfile -t PROGRAMS < <(unit_programs)
    build_project "$FOLDER" "${PROGRAMS[@]}"
    ;;
agent) build_project "$FOLDER" agent_tests ;;
*) build_project "$FOLDER" ;;
esac

export BUILD_DIR=$FOLDER PYTHONDONTWRITEBYTECODE=1
results_in "$FOLDER/test-results"
[[ $ONLY == agent ]] || run_unit_tests
if [[ -z $ONLY ]]; then
    python_tests "tests of the MIB text" mib tests/mib
    # Nothing of ours runs here that a sanitizer could look at.
    [[ $* == *-DSANITIZE=* ]] || python_tests "tests with other headers" porting tests/porting -n "$JOBS"
fi
[[ $ONLY == unit ]] || run_agent_tests
finish_tests
