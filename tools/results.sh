# SPDX-License-Identifier: Apache-2.0
# shellcheck shell=bash
# Running tests and counting them. Sourced after common.sh.

# Where the runners leave their results, the result files so far, and 1 once one went wrong.
RESULTS=
RESULT_FILES=()
FAILED=0

# results_in FOLDER: starts afresh in a folder.
results_in() {
    RESULTS=$1
    rm -rf "$RESULTS"
    mkdir -p "$RESULTS" || fail "cannot write to $RESULTS"
}

# run_tests WHAT NAME COMMAND...: runs one test runner, which is to write RESULTS/NAME.xml, and
# says how it went; shows the end of what it printed when something failed.
run_tests() {
    local what=$1 name=$2 started=$SECONDS status
    shift 2
    say "running the $what"
    RESULT_FILES+=("$RESULTS/$name.xml")
    run_step "$RESULTS/$name.log" "$@"
    status=$?
    say "  $("$REPO/tools/count_results.py" "$RESULTS/$name.xml") ($((SECONDS - started)) s)"
    if ((status)); then
        FAILED=1
        show_failure "the $what" "$RESULTS/$name.log"
    fi
}

# finish_tests: prints the closing line, 'N passed, N failed', and ends the script.
finish_tests() {
    "$REPO/tools/count_results.py" "${RESULT_FILES[@]}" || FAILED=1
    exit "$FAILED"
}
