#!/bin/bash
# Usage: tools/memcheck.sh FOLDER
# Builds into a folder, runs those tests of the running agent that reach most of the module
# with the agent under valgrind's memcheck, and ends with a line 'N passed, N failed'. An
# error, or memory lost for good, ends the agent badly, and with it the test.
set -uo pipefail

source "$(dirname "${BASH_SOURCE[0]}")/common.sh"
source "$REPO/tools/packages.sh"
source "$REPO/tools/build.sh"
source "$REPO/tools/results.sh"

(($# == 1)) || usage_error "memcheck.sh takes a build folder."
FOLDER=$1
trap end_step EXIT
end_on_signals

configure_project "$FOLDER" -DBUILD_TESTS=OFF
build_project "$FOLDER"

# What is left out repeats the same code more often, measures memory or time, or kills the
# agent before it could report anything.
TESTS=(
    test_loading.py test_reading.py test_membership.py test_timers.py test_set_vsans.py test_failed_sets.py
    test_notifications.py test_restriction.py test_set_restriction.py test_random_sets.py
)
export BUILD_DIR=$FOLDER PYTHONDONTWRITEBYTECODE=1
# The module is unloaded before the agent ends; the names in a report are kept for it.
export SNMPD_UNDER="valgrind --quiet --tool=memcheck --leak-check=full --show-leak-kinds=definite \
--errors-for-leak-kinds=definite --error-exitcode=99 --keep-debuginfo=yes --num-callers=30 \
--suppressions=$REPO/tests/memcheck.supp"
JOBS=$(nproc)
results_in "$FOLDER/test-results"
run_tests "tests of the agent under memcheck" memcheck \
    env --default-signal=INT /usr/bin/python3 -m pytest -q -p no:cacheprovider -n "$JOBS" --dist loadfile \
    --random-pdus=40 --junitxml "$RESULTS/memcheck.xml" "${TESTS[@]/#/$REPO/tests/agent/}"
finish_tests
