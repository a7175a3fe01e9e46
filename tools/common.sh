# SPDX-License-Identifier: Apache-2.0
# shellcheck shell=bash
# shellcheck disable=SC2034 # used by those who source this
# What the scripts of this repository share: messages, steps with a log, and an orderly
# end. Sourced by scripts in the top folder and beside this file; REPO is set for them.

REPO=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd -P)
PROGRAM=$(basename "$0")

# The process that run_step waits for, which leads a process group of its own.
STEP_PID=

# say TEXT...: one line for the user.
say() { printf '%s\n' "$*"; }

# fail TEXT...: says why, and ends the script with 1.
fail() {
    printf '%s: %s\n' "$PROGRAM" "$*" >&2
    exit 1
}

# usage_error TEXT...: says what is wrong with the command line, and ends with 2.
usage_error() {
    printf '%s: %s Try %s --help.\n' "$PROGRAM" "$*" "$0" >&2
    exit 2
}

# tell_about OPTION: what --help and --version print, wherever they stand; ends the script with 0.
# The script's usage prints its help. The release is named in CMakeLists.txt and nowhere else.
tell_about() {
    if [[ $1 == --version ]]; then
        say "$PROGRAM $(sed -nE 's/^project\(.* VERSION ([0-9.]+).*/\1/p' "$REPO/CMakeLists.txt")"
    else
        usage
    fi
    exit 0
}

# next_option NAMES ARGUMENT...: takes the first argument of a command line apart. OPTION is its
# name and TAKEN how many arguments it is; for one of NAMES, which have values, VALUE is that, given
# as '--x VALUE' or '--x=VALUE'. A missing value ends the script with 2.
next_option() {
    OPTION=${2%%=*} VALUE='' TAKEN=1
    if [[ " $1 " != *" $OPTION "* ]]; then
        OPTION=$2
        return
    fi
    if [[ $2 == *=* ]]; then
        VALUE=${2#*=}
    elif (($# > 2)); then
        VALUE=$3 TAKEN=2
    fi
    [[ -n $VALUE ]] || usage_error "$OPTION needs a value."
}

# end_on_signals: makes Ctrl-C, SIGTERM and a closed terminal end the script through its
# EXIT trap, at once even while it waits for a step.
end_on_signals() {
    trap 'exit 129' HUP
    trap 'exit 130' INT
    trap 'exit 143' TERM
}

# start_group COMMAND...: starts a command in the background, leading a process group of its
# own, so that a Ctrl-C reaches this script alone and the script decides the order in which
# things end. The kernel ends it too should this script be killed outright. Its number is $!.
start_group() {
    set -m
    setpriv --pdeathsig TERM -- "$@" </dev/null &
    set +m
}

# end_group PID [SECONDS]: asks a group started by start_group to end, and insists after ten seconds or as
# many as it may need.
end_group() {
    local tenths patience=$((${2:-10} * 10))
    kill -TERM -- "-$1" 2>/dev/null
    for ((tenths = 0; tenths < patience + 10; tenths++)); do
        kill -0 -- "-$1" 2>/dev/null || break
        ((tenths == patience)) && kill -KILL -- "-$1" 2>/dev/null
        sleep 0.1
    done
    wait "$1" 2>/dev/null
}

# find_ended PID...: sets ENDED to the first child that has ended; false when none has. Neither here nor
# where the shell waits for a signal may there be a `continue` or `break`: bash drops what a trap says
# when the signal comes while one of these takes effect.
find_ended() {
    for ENDED in "$@"; do
        kill -0 "$ENDED" 2>/dev/null || return 0
    done
    return 1
}

# wait_for_one PID...: waits until one of several children has ended; sets ENDED to its number and
# STATUS to its status. It looks now and then: `wait -n` misses those that ended while the shell did
# other things.
wait_for_one() {
    until find_ended "$@"; do
        # In the background, since a signal ends a wait at once and a program not. It must not keep
        # the state folder's lock, nor anybody who reads this script's output, when that has ended.
        sleep 0.5 >/dev/null 2>&1 9>&- &
        wait "$!"
    done
    wait "$ENDED" 2>/dev/null
    STATUS=$?
}

# end_reader PID: waits for a program that reads what others write to come to the end of its
# input, and insists after two seconds: somebody may be left who could still write, or nobody who
# takes its output.
end_reader() {
    local tenths
    for ((tenths = 0; tenths < 20; tenths++)); do
        kill -0 "$1" 2>/dev/null || return 0
        sleep 0.1
    done
    kill -KILL "$1" 2>/dev/null
}

# end_step: ends the step that is running, if any. For the EXIT trap.
end_step() {
    if [[ -n $STEP_PID ]]; then
        end_group "$STEP_PID"
        STEP_PID=
    fi
}

# wait_for_step: returns the status of the step that is running when it has ended.
wait_for_step() {
    local status
    wait "$STEP_PID" 2>/dev/null
    status=$?
    STEP_PID=
    return "$status"
}

# run_group COMMAND...: runs a command as start_group does, and returns its status.
run_group() {
    start_group "$@"
    STEP_PID=$!
    wait_for_step
}

# run_step LOG COMMAND...: the same for a command that writes to a log file.
run_step() {
    local log=$1
    shift
    run_group "$@" >>"$log" 2>&1
}

# run_watched_step LOG WATCH COMMAND...: the same, with WATCH called several times a second meanwhile.
run_watched_step() {
    local log=$1 watch=$2
    shift 2
    start_group "$@" >>"$log" 2>&1
    STEP_PID=$!
    while kill -0 "$STEP_PID" 2>/dev/null; do
        "$watch"
        sleep 0.2
    done
    wait_for_step
}

# show_failure WHAT LOG: tells which step failed, with the end of its log, the tests that
# passed left out. In the 32-bit root, LOGS_UNDER is where the root is for everybody else.
show_failure() {
    printf '%s failed. The end of %s:\n' "$1" "${LOGS_UNDER:-}$2" >&2
    grep -vE '^ +Start +[0-9]+: | +Passed +[0-9.]+ sec$' "$2" | tail -n 40 | sed 's/^/    /' >&2
}
