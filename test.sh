#!/bin/bash
# SPDX-License-Identifier: Apache-2.0
# Installs, builds and tests.
set -uo pipefail

cd "$(dirname "${BASH_SOURCE[0]}")" || exit 1
source tools/common.sh
source tools/packages.sh
source tools/build.sh
source tools/target_root.sh

BUILD=$REPO/build
FUZZ_SECONDS=15
SOAK_MINUTES=10
SOAK_CAMPAIGN=
SOAK_FOLDER=soak
SOAK_RUN=run_group
SOME=()

usage() {
    cat <<HELP
Usage: ./test.sh [--target | --sanitize | --fuzz [SECONDS] | --memcheck | --coverage |
                  --fuzz-coverage | --lint]
       ./test.sh [--sanitize] --soak [MINUTES [CAMPAIGN]]
       ./test.sh unit [FILTER] | agent [FILTER]
Installs missing packages, builds, runs every test on this machine, and ends with
a line 'N passed, N failed'. Ends with 0 only when none failed.

  unit [FILTER]      the unit tests alone, or those whose names have FILTER in them, a regular
                     expression; builds only what they need
  agent [FILTER]     likewise the tests of the running agent; FILTER is what pytest -k takes, or
                     the path of one of their files
  --target           the same inside a 32-bit root, which is made first; needs root
  --sanitize         the same under AddressSanitizer and UndefinedBehaviorSanitizer
  --fuzz [SECONDS]   runs each fuzz target for a while instead (default $FUZZ_SECONDS)
  --soak [MINUTES [CAMPAIGN]]
                     breaks everything that can be broken while the agent is used, again and
                     again, for so many minutes instead (default $SOAK_MINUTES): kills and stops
                     the switch and the agent, fills the disk, damages the database, sets the
                     clock, takes descriptors away, and watches the memory under mixed load.
                     CAMPAIGN is one of these, "mixed load" for instance; a wrong name lists
                     them. SOAK_SEED=NUMBER draws what an earlier run drew
  --memcheck         runs tests of the agent under valgrind's memcheck instead
  --coverage         runs the module's unit tests instead, reports which of its lines and
                     branches they reach, and fails when one is missed
  --fuzz-coverage    runs each fuzz target once over its seeds and what earlier runs have
                     found instead, and reports how much of the code each reaches
  --lint             checks format and scripts and analyses the code instead
  -h, --help         this text
  --version          which release this is
HELP
}

# install_with_mibs PACKAGE...: installs, and sees to the standard MIB modules in BUILD.
install_with_mibs() {
    local for_mibs
    mapfile -t for_mibs < <(packages_for_standard_mibs "$BUILD")
    install_packages "$@" "${for_mibs[@]}"
    provide_standard_mibs "$BUILD"
}

test_here() {
    install_with_mibs "${BUILD_PACKAGES[@]}" "${RUN_PACKAGES[@]}" "${TEST_PACKAGES[@]}"
    # What bench/run.sh measures with is not run here, but must not rot either.
    run_group tools/suite.sh "$BUILD" -DBUILD_BENCHMARKS=ON
}

# test_some: one suite, or some of its tests.
test_some() {
    install_with_mibs "${BUILD_PACKAGES[@]}" "${RUN_PACKAGES[@]}" "${TEST_PACKAGES[@]}"
    run_group tools/suite.sh "$BUILD" "${SOME[@]}"
}

test_in_target_root() {
    ((EUID == 0)) || fail "--target makes a 32-bit root, and only root can do that"
    install_with_mibs "${TARGET_PACKAGES[@]}"
    make_target_root
    share_standard_mibs "$BUILD" "$TARGET_ROOT/root/build"
    in_target_root /src/tools/suite.sh /build
}

# with_sanitizers COMMAND FOLDER ARGUMENT...: the command with what a build with sanitizers needs.
# The agent itself is not built with sanitizers, so their runtimes have to be in it before
# anything that was is loaded. It has no frame pointers either: only the slow way of walking
# its stack shows where it allocated what it leaks by itself (tests/lsan.supp).
with_sanitizers() {
    run_group env SNMPD_PRELOAD="$(g++ -print-file-name=libasan.so) $(g++ -print-file-name=libubsan.so)" \
        ASAN_OPTIONS=fast_unwind_on_malloc=0:detect_stack_use_after_return=1:strict_string_checks=1 \
        UBSAN_OPTIONS=print_stacktrace=1 \
        LSAN_OPTIONS="suppressions='$REPO/tests/lsan.supp':print_suppressions=0" \
        "$@" -DSANITIZE=address,undefined -DCMAKE_CXX_FLAGS_RELWITHDEBINFO="-O1 -g1" \
        -DCMAKE_C_FLAGS_RELWITHDEBINFO="-O1 -g1"
}

test_with_sanitizers() {
    local folder=$BUILD/sanitize
    install_with_mibs "${BUILD_PACKAGES[@]}" "${RUN_PACKAGES[@]}" "${TEST_PACKAGES[@]}"
    share_standard_mibs "$BUILD" "$folder"
    with_sanitizers tools/suite.sh "$folder"
}

fuzz() {
    install_packages "${BUILD_PACKAGES[@]}" "${TEST_PACKAGES[@]}" "${FUZZ_PACKAGES[@]}"
    run_group tools/fuzz.sh "$BUILD/fuzz" "$FUZZ_SECONDS"
}

soak() {
    install_packages "${BUILD_PACKAGES[@]}" "${RUN_PACKAGES[@]}" "${TEST_PACKAGES[@]}"
    "$SOAK_RUN" tools/soak.sh "$BUILD/$SOAK_FOLDER" "$SOAK_MINUTES" "$SOAK_CAMPAIGN"
}

memcheck() {
    local folder=$BUILD/memcheck
    install_with_mibs "${BUILD_PACKAGES[@]}" "${RUN_PACKAGES[@]}" "${TEST_PACKAGES[@]}" "${MEMCHECK_PACKAGES[@]}"
    share_standard_mibs "$BUILD" "$folder"
    run_group tools/memcheck.sh "$folder"
}

coverage() {
    install_packages "${BUILD_PACKAGES[@]}" "${TEST_PACKAGES[@]}" "${COVERAGE_PACKAGES[@]}"
    run_group tools/coverage.sh "$BUILD/coverage"
}

fuzz_coverage() {
    install_packages "${BUILD_PACKAGES[@]}" "${TEST_PACKAGES[@]}" "${FUZZ_PACKAGES[@]}" "${FUZZ_COVERAGE_PACKAGES[@]}"
    run_group tools/fuzz_coverage.sh "$BUILD/fuzz-coverage" "$BUILD/fuzz"
}

lint() {
    install_packages "${BUILD_PACKAGES[@]}" "${LINT_PACKAGES[@]}"
    run_group tools/lint.sh
}

# campaigns: prints their names. The tests' own list is read as text, since what could run them may
# not be installed yet.
campaigns() { sed -n '/^SHARES = {/,/^}/ s/^ *"\(.*\)": .*/\1/p' tests/agent/harness/campaign.py; }

# take_soak_values ARGUMENT...: reads what follows --soak; TAKEN is how many arguments that is.
take_soak_values() {
    TAKEN=0
    (($#)) || return 0
    [[ $1 =~ ^[1-9][0-9]{0,4}$ ]] || usage_error "--soak takes a number of minutes, not '$1'."
    SOAK_MINUTES=$1 TAKEN=1
    (($# > 1)) || return 0
    campaigns | grep -qxF -e "$2" ||
        usage_error "there is no campaign '$2', only these: $(campaigns | paste -sd , | sed 's/,/, /g')."
    SOAK_CAMPAIGN=$2 TAKEN=2
}

TASK=test_here
if (($#)); then
    case $1 in
    -h | --help | --version) tell_about "$1" ;;
    unit | agent)
        TASK=test_some
        SOME=(--only "$1")
        if (($# > 1)); then
            [[ -n $2 && $2 != -* ]] || usage_error "$1 takes part of a test's name, not '$2'."
            SOME+=(--filter "$2")
            shift
        fi
        ;;
    --target) TASK=test_in_target_root ;;
    --sanitize)
        TASK=test_with_sanitizers
        if [[ ${2-} == --soak ]]; then
            shift
            TASK=soak SOAK_FOLDER=soak-sanitize SOAK_RUN=with_sanitizers
            take_soak_values "${@:2}"
            shift "$TAKEN"
        fi
        ;;
    --fuzz)
        TASK=fuzz
        if (($# > 1)); then
            [[ $2 =~ ^[1-9][0-9]{0,5}$ ]] || usage_error "--fuzz takes a number of seconds, not '$2'."
            FUZZ_SECONDS=$2
            shift
        fi
        ;;
    --soak)
        TASK=soak
        take_soak_values "${@:2}"
        shift "$TAKEN"
        ;;
    --memcheck) TASK=memcheck ;;
    --coverage) TASK=coverage ;;
    --fuzz-coverage) TASK=fuzz_coverage ;;
    --lint) TASK=lint ;;
    *) usage_error "unknown option '$1'." ;;
    esac
    shift
fi
(($# == 0)) || usage_error "one thing at a time: '$1' is too much."

trap end_step EXIT
end_on_signals
"$TASK"
