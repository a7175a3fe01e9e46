#!/bin/bash
# SPDX-License-Identifier: Apache-2.0
# Usage: tools/fuzz_coverage.sh FOLDER FUZZ_FOLDER
# Builds the fuzz targets into a folder with clang's counters, runs each once over its seeds
# and over what the runs of tools/fuzz.sh have found in another, and prints which share of the
# module, the platform libraries and the switch each reaches. Ends with a line 'N passed,
# N failed'; all packages must be installed.
set -uo pipefail

source "$(dirname "${BASH_SOURCE[0]}")/common.sh"
source "$REPO/tools/packages.sh"
source "$REPO/tools/build.sh"

(($# == 2)) || usage_error "fuzz_coverage.sh takes a build folder and that of the fuzzing runs."
FOLDER=$1
FOUND=$2/tests/fuzz/corpus
RESULTS=$FOLDER/test-results
PASSED=0
FAILED=0
trap end_step EXIT
end_on_signals

configure_project "$FOLDER" -DCMAKE_C_COMPILER=clang-14 -DCMAKE_CXX_COMPILER=clang++-14 \
    -DBUILD_FUZZERS=ON -DBUILD_TESTS=OFF -DFUZZ_COVERAGE=ON \
    -DCMAKE_C_FLAGS_RELWITHDEBINFO="-O1 -DNDEBUG" -DCMAKE_CXX_FLAGS_RELWITHDEBINFO="-O1 -DNDEBUG"
build_project "$FOLDER" tests/fuzz/all
rm -rf "$RESULTS"
mkdir -p "$RESULTS" || fail "cannot write to $RESULTS"

# measure TARGET INPUTS...: leaves RESULTS/TARGET.json.
measure() {
    local target=$1 profile=$RESULTS/$1.profile
    shift
    run_step "$RESULTS/$target.log" env LLVM_PROFILE_FILE="$profile.raw" "$FOLDER/bin/$target" -runs=0 "$@" &&
        run_step "$RESULTS/$target.log" llvm-profdata-14 merge -sparse -o "$profile" "$profile.raw" &&
        llvm-cov-14 export -summary-only -instr-profile "$profile" "$FOLDER/bin/$target" \
            >"$RESULTS/$target.json" 2>>"$RESULTS/$target.log"
}

say "running every target over its inputs"
for program in "$FOLDER"/bin/fuzz_*; do
    target=${program##*/}
    inputs=("$FOLDER/tests/fuzz/seeds/$target")
    [[ ! -d $FOUND/$target ]] || inputs+=("$FOUND/$target")
    if measure "$target" "${inputs[@]}"; then
        PASSED=$((PASSED + 1))
    else
        rm -f "$RESULTS/$target.json"
        show_failure "$target" "$RESULTS/$target.log"
        FAILED=$((FAILED + 1))
    fi
done
"$REPO/tools/fuzz_report.py" coverage "$RESULTS"
say "$PASSED passed, $FAILED failed"
((FAILED == 0 && PASSED > 0))
