#!/bin/bash
# SPDX-License-Identifier: Apache-2.0
# Usage: tools/memcheck.sh FOLDER
# Builds into a folder, runs the tests of the running agent with the agent and the switch under
# valgrind's memcheck, and ends with a line 'N passed, N failed'. An error, or memory lost for
# good, ends the process badly, and with it the test.
set -uo pipefail

source "$(dirname "${BASH_SOURCE[0]}")/common.sh"
source "$REPO/tools/packages.sh"
source "$REPO/tools/build.sh"
source "$REPO/tools/results.sh"

(($# == 1)) || usage_error "memcheck.sh takes a build folder."
FOLDER=$1
trap end_step EXIT
end_on_signals

configure_project "$FOLDER" -DBUILD_TESTS=ON
build_project "$FOLDER"

# What is left out measures memory or time, kills the processes before they could report
# anything, or starts them by scripts of its own.
LEFT_OUT="campaign_.*|event_storms|monitoring|readme|resources|run_sh|snmp_users"
TESTS=()
for test in "$REPO"/tests/agent/test_*.py; do
    [[ $test =~ /test_($LEFT_OUT)\.py$ ]] || TESTS+=("$test")
done
export BUILD_DIR=$FOLDER PYTHONDONTWRITEBYTECODE=1
# The module is unloaded before the agent ends; the names in a report are kept for it.
export RUN_UNDER="valgrind --quiet --tool=memcheck --leak-check=full --show-leak-kinds=definite \
--errors-for-leak-kinds=definite --error-exitcode=99 --keep-debuginfo=yes --num-callers=30 \
--suppressions=$REPO/tests/memcheck.supp"
JOBS=$(nproc)
results_in "$FOLDER/test-results"
run_tests "tests of the agent under memcheck" memcheck \
    env --default-signal=INT /usr/bin/python3 -m pytest -q -p no:cacheprovider -n "$JOBS" --dist loadfile \
    --random-pdus=40 --junitxml "$RESULTS/memcheck.xml" "${TESTS[@]}"
finish_tests
