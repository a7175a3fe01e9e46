#!/bin/bash
# SPDX-License-Identifier: Apache-2.0
# Measures how fast and how small the module is, and prints one table.
set -uo pipefail

cd "$(dirname "${BASH_SOURCE[0]}")/.." || exit 1
source tools/common.sh
source tools/packages.sh
source tools/build.sh

BUILD=$REPO/build/release
SECONDS_EACH=5
ROWS=(get get16 bulk simulator interfaces flat set instructions memory size)
# What measure.py gets.
OPTIONS=()
# The rows that were asked for; none stands for all.
ONLY=()

usage() {
    cat <<HELP
Usage: bench/run.sh [OPTION]...
Installs missing packages, makes a release build, measures the module beside what
it is compared with, in one run on this machine, and prints one table. Ends with 0
when every row could be measured, whether it reached what it must or not.

  --seconds N   how long each side of a comparison runs (default $SECONDS_EACH)
  --only ROW    measures this row only; may be given several times. The rows:
                  get           GET of a VSAN column beside sysName.0
                  get16         the same with 16 requests outstanding
                  bulk          GETBULK 50 beside a table in the agent's memory
                  simulator     GETBULK 50 beside the SNMP simulator snmpsim
                  interfaces    GETBULK 50 of ten columns of ifTable beside vsanName
                  flat          instructions for a row, of small and large tables
                  set           durable SETs beside bare SQLite commits
                  instructions  of a GET, beside the figure on record
                  memory        that the module adds to the agent
                  size          of the 32-bit module; needs root
  --strict      ends with 1 when a row did not reach what it must, too
  --accept      puts this build's instructions of a GET on record, in
                bench/instructions_per_get.json
  -h, --help    this text
  --version     which release this is

A quiet machine gives the best figures. The two sides of a comparison take turns
in short slices, so that a busy one mostly changes both alike.
HELP
}

# parse_options ARGUMENT...: sets the variables above, or ends with 2.
parse_options() {
    while (($#)); do
        next_option "--seconds --only" "$@"
        shift "$TAKEN"
        case $OPTION in
        -h | --help | --version) tell_about "$OPTION" ;;
        --strict | --accept) OPTIONS+=("$OPTION") ;;
        --seconds)
            [[ $VALUE =~ ^[1-9][0-9]{0,3}$ ]] || usage_error "--seconds takes a number from 1 to 9999, not '$VALUE'."
            SECONDS_EACH=$VALUE
            ;;
        --only)
            [[ " ${ROWS[*]} " == *" $VALUE "* ]] || usage_error "there is no row '$VALUE'."
            ONLY+=("$VALUE")
            ;;
        *) usage_error "unknown option '$OPTION'." ;;
        esac
    done
}

# is_wanted ROW: true when a row was asked for.
is_wanted() {
    ((${#ONLY[@]} == 0)) || [[ " ${ONLY[*]} " == *" $1 "* ]]
}

# build_32_bit_module: builds it, or notes why not; the other rows do not need it.
build_32_bit_module() {
    local module=$BUILD/libvsanmib-32-bit.so log=$BUILD/module32.log
    rm -f "$module"
    if ((EUID != 0)); then
        OPTIONS+=(--no-module32 "the 32-bit root in which the module is built can be made by root only")
        return
    fi
    say "building the 32-bit module; its log is $log"
    : >"$log"
    if run_step "$log" bench/module32.sh "$module"; then
        OPTIONS+=(--module32 "$module")
    else
        OPTIONS+=(--no-module32 "the 32-bit module could not be built; see $log")
    fi
}

parse_options "$@"
trap end_step EXIT
end_on_signals
install_packages "${BUILD_PACKAGES[@]}" "${RUN_PACKAGES[@]}" "${BENCH_PACKAGES[@]}"
configure_project "$BUILD" -DCMAKE_BUILD_TYPE=Release -DBUILD_TESTS=OFF -DBUILD_BENCHMARKS=ON
build_project "$BUILD" vswitchd vsanmib netsnmpagent_oryx switchmib snmp_load memory_table
! is_wanted size || build_32_bit_module
run_group env BUILD_DIR="$BUILD" PYTHONDONTWRITEBYTECODE=1 /usr/bin/python3 bench/measure.py \
    --seconds "$SECONDS_EACH" "${ONLY[@]/#/--only=}" "${OPTIONS[@]}"
