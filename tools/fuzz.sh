#!/bin/bash
# SPDX-License-Identifier: Apache-2.0
# Usage: tools/fuzz.sh FOLDER SECONDS
# Builds the fuzz targets with clang into a folder, runs each for a while, starting from its
# corpus, prints how often each ran, and ends with a line 'N passed, N failed'. What breaks a
# target is kept in FOLDER/tests/fuzz.
set -uo pipefail

source "$(dirname "${BASH_SOURCE[0]}")/common.sh"
source "$REPO/tools/packages.sh"
source "$REPO/tools/build.sh"
source "$REPO/tools/results.sh"

(($# == 2)) || usage_error "fuzz.sh takes a build folder and a number of seconds."
FOLDER=$1
trap end_step EXIT
end_on_signals

configure_project "$FOLDER" -DCMAKE_C_COMPILER=clang-14 -DCMAKE_CXX_COMPILER=clang++-14 \
    -DBUILD_FUZZERS=ON -DBUILD_TESTS=OFF -DFUZZ_SECONDS="$2"
build_project "$FOLDER" tests/fuzz/all
results_in "$FOLDER/test-results"
run_tests "fuzz targets, $2 s each" fuzz \
    ctest --test-dir "$FOLDER" -L fuzz --output-on-failure --parallel "$(nproc)" --output-junit "$RESULTS/fuzz.xml" \
    --test-output-size-passed 10000000
[[ ! -s $RESULTS/fuzz.xml ]] || "$REPO/tools/fuzz_report.py" runs "$RESULTS/fuzz.xml"
finish_tests
