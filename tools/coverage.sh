#!/bin/bash
# SPDX-License-Identifier: Apache-2.0
# Usage: tools/coverage.sh FOLDER
# Builds the module and its unit tests with gcc's counters into a folder, runs the tests,
# and prints which lines and branches of the module they reached. A branch that they did not
# reach is a failure; those that cannot be taken are marked in the code (VSAN_NEVER) and not
# counted. Ends with a line 'N passed, N failed'; all packages must be installed.
set -uo pipefail

source "$(dirname "${BASH_SOURCE[0]}")/common.sh"
source "$REPO/tools/packages.sh"
source "$REPO/tools/build.sh"
source "$REPO/tools/results.sh"

(($# == 1)) || usage_error "coverage.sh takes a build folder."
FOLDER=$1
MODULE=feature/vsan_manager/mib
trap end_step EXIT
end_on_signals

# Without optimisation, since an optimiser joins and removes branches.
configure_project "$FOLDER" -DCMAKE_C_COMPILER=gcc -DCMAKE_CXX_COMPILER=g++ -DBUILD_TESTS=ON \
    -DCMAKE_C_FLAGS=--coverage -DCMAKE_CXX_FLAGS="--coverage -DVSAN_NEVER_UNCOUNTED" \
    -DCMAKE_C_FLAGS_RELWITHDEBINFO="-O0 -g1" -DCMAKE_CXX_FLAGS_RELWITHDEBINFO="-O0 -g1"
build_project "$FOLDER" module_tests module_load_test

# The counters of earlier runs, and of the build, which asks the tests for their names. Those
# of sources that are gone would stay.
find "$FOLDER" -name '*.gcda' -delete
results_in "$FOLDER/test-results"
run_tests "unit tests of the module" unit "$FOLDER/bin/module_tests" --gtest_output="xml:$RESULTS/unit.xml"
run_tests "tests of loading it" load "$FOLDER/bin/module_load_test" --gtest_output="xml:$RESULTS/load.xml"

# Not counted: branches that exist for exceptions only, which the module is built without, and
# those that VSAN_TRACE brings to every place where it stands.
if ! run_step "$RESULTS/gcovr.log" gcovr --root "$REPO" --filter "$REPO/$MODULE/" \
    --exclude-throw-branches --exclude-unreachable-branches --exclude-branches-by-pattern '.*VSAN_TRACE\(.*' \
    --json "$RESULTS/coverage.json" "$FOLDER/$MODULE"; then
    show_failure "counting what was reached" "$RESULTS/gcovr.log"
    exit 1
fi
run_tests "every branch is reached" coverage "$REPO/tools/coverage_report.py" "$RESULTS/coverage.json" \
    "$RESULTS/coverage.xml"
cat "$RESULTS/coverage.log"
finish_tests
