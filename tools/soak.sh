#!/bin/bash
# SPDX-License-Identifier: Apache-2.0
# Usage: tools/soak.sh FOLDER MINUTES CAMPAIGN [CMAKE_ARGUMENT...]
# Builds into a folder, lets the campaigns of the tests against real processes share so many
# minutes, printing how they get on, and ends with a line 'N passed, N failed'. CAMPAIGN is
# the only one to run, or empty. SOAK_SEED, a number, is what they draw from; without it,
# every run draws anew.
set -uo pipefail

source "$(dirname "${BASH_SOURCE[0]}")/common.sh"
source "$REPO/tools/packages.sh"
source "$REPO/tools/build.sh"
source "$REPO/tools/results.sh"

(($# > 2)) || usage_error "soak.sh takes a build folder, a number of minutes and a campaign."
FOLDER=$1
MINUTES=$2
CAMPAIGN=$3
shift 3
trap end_step EXIT
end_on_signals

configure_project "$FOLDER" -DBUILD_TESTS=OFF "$@"
build_project "$FOLDER"

export BUILD_DIR=$FOLDER PYTHONDONTWRITEBYTECODE=1
SEED=${SOAK_SEED:-$(date +%s)}
results_in "$FOLDER/test-results"
RESULT_FILES=("$RESULTS/soak.xml")
say "running ${CAMPAIGN:-all campaigns}, $MINUTES minutes together, seed $SEED"
# One after the other, so that a time that is too long is not another campaign's doing. The
# files come first: until they are known, an option with a blank in it looks like one of them.
run_group env --default-signal=INT /usr/bin/python3 -m pytest -q -s -p no:cacheprovider \
    "$REPO"/tests/agent/test_campaign_*.py "--soak=$MINUTES" "--random-seed=$SEED" \
    ${CAMPAIGN:+"--campaign=$CAMPAIGN"} --junitxml "$RESULTS/soak.xml" || FAILED=1
finish_tests
