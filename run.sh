#!/bin/bash
# SPDX-License-Identifier: Apache-2.0
# Builds everything, then runs the virtual switch and an SNMP agent that serves it, both under a
# supervisor, and a receiver of the agent's notifications.
set -uo pipefail

CALLED_FROM=$PWD
cd "$(dirname "${BASH_SOURCE[0]}")" || exit 1
source tools/common.sh
source tools/packages.sh
source tools/build.sh
source tools/agent.sh
source tools/users.sh
source tools/engine.sh
source tools/receiver.sh

BUILD=$REPO/build
PORT=1161
LISTEN=127.0.0.1
STATE=$BUILD/state
START_WITH=()
# Modules that the agent starts beside those of a switch, with commas between; and all of them.
MORE_MODULES=
MODULES=
# Where notifications are received; empty for nowhere.
TRAP_PORT=1162
# What the supervisor is told beside what it starts.
SUPERVISE_WITH=()
# The number of the supervisor of the switch and the agent while it runs.
SUPERVISOR_PID=
# Set once the agent has answered.
ANSWERED=
# Where the agent listens, the folder of the sockets, and the root of the MIB.
ENDPOINT=
RUN=
ROOT=

usage() {
    cat <<HELP
Usage: ./run.sh [OPTION]...
Runs a virtual Fibre Channel switch and an SNMP agent that serves its VSANs and ports, shows
the agent's notifications, and stays until Ctrl-C. Installs missing packages and
builds first.

  --port N           UDP port of the agent (default $PORT)
  --listen ADDRESS   IPv4 or IPv6 address of the agent (default $LISTEN)
  --state DIR        folder that keeps the switch's configuration from one run to
                     the next (default $STATE)
  --empty            a new switch starts with VSAN 1 and nothing else, instead of
                     a small example configuration
  --initial FILE     a new switch starts with the configuration in this JSON file, for
                     instance what 'vswitchctl export' has printed
  --trap-port N      UDP port on 127.0.0.1 where notifications are received to be
                     shown (default $TRAP_PORT)
  --no-traps         receives and shows none
  --no-restart       ends when the switch or the agent ends; without this option, what
                     ends is started again
  --agent-modules LIST
                     starts more of the agent's own modules than a switch shows, by their
                     names with commas between; docs/running.md tells what that is for
  -h, --help         this text
  --version          which release this is

On loopback the community 'public' may read and 'private' may also change VSANs and ports.
On other addresses neither is accepted; SNMPv3 users are, and ./snmp_user.sh makes
them.
HELP
}

# from_caller PATH: prints the path as it is here, where the script has gone to its own folder.
from_caller() { [[ $1 == /* ]] && printf %s "$1" || printf %s "$CALLED_FROM/$1"; }

# parse_options ARGUMENT...: sets the variables above, or ends with 2.
parse_options() {
    while (($#)); do
        next_option "--port --trap-port --listen --state --initial --agent-modules" "$@"
        shift "$TAKEN"
        case $OPTION in
        -h | --help | --version) tell_about "$OPTION" ;;
        --empty | --initial)
            [[ ${START_WITH[0]:-$OPTION} == "$OPTION" ]] || usage_error "--empty and --initial exclude each other."
            START_WITH=("$OPTION")
            [[ $VALUE != *[[:cntrl:]]* ]] || usage_error "--initial takes a path without control characters."
            [[ $OPTION == --empty ]] || START_WITH+=("$(from_caller "$VALUE")")
            ;;
        --no-traps) TRAP_PORT= ;;
        --no-restart) SUPERVISE_WITH=(--no-restart) ;;
        --port | --trap-port)
            [[ $VALUE =~ ^[1-9][0-9]{0,4}$ ]] && ((VALUE <= 65535)) ||
                usage_error "$OPTION takes a number from 1 to 65535, not '$VALUE'."
            [[ $OPTION == --port ]] && PORT=$VALUE || TRAP_PORT=$VALUE
            ;;
        --listen)
            VALUE=${VALUE#[}
            LISTEN=${VALUE%]}
            ;;
        --state) STATE=$VALUE ;;
        --agent-modules)
            [[ $VALUE =~ ^[A-Za-z0-9_]+(,[A-Za-z0-9_]+)*$ ]] ||
                usage_error "$OPTION takes names with commas between, not '$VALUE'."
            MORE_MODULES+=,$VALUE
            ;;
        *) usage_error "unknown option '$OPTION'." ;;
        esac
    done
    [[ $TRAP_PORT != "$PORT" ]] ||
        usage_error "--port and --trap-port are both $PORT; --trap-port takes another port, and --no-traps none."
    [[ ${START_WITH[0]:-} != --initial || -r ${START_WITH[1]} ]] ||
        usage_error "--initial takes a file that can be read, not '${START_WITH[1]}'."
    choose_state "$STATE"
}

# cannot_listen PROBLEM: says why the agent cannot, and what helps.
cannot_listen() { fail "cannot listen on $ENDPOINT: $1; --port takes another port, and --listen another address"; }

# check_addresses: ends the script with one sentence when the agent or the receiver could not
# listen.
check_addresses() {
    local problem
    problem=$(address_problem "$LISTEN" "$PORT")
    (($? != 2)) || usage_error "--listen takes an IPv4 or IPv6 address, not '$LISTEN'."
    [[ -z $problem ]] || cannot_listen "$problem"
    [[ -n $TRAP_PORT ]] || return 0
    problem=$(address_problem 127.0.0.1 "$TRAP_PORT")
    [[ -z $problem ]] ||
        fail "cannot receive notifications on $(endpoint 127.0.0.1 "$TRAP_PORT"): $problem; --trap-port takes another port, and --no-traps none"
}

# stop: ends whatever was started. The supervisor ends first the agent, which is the switch's client, and then
# the switch, and may need ten seconds for each. The receiver goes last, with what the agent has sent.
stop() {
    local name
    end_step
    [[ -z $SUPERVISOR_PID ]] || end_group "$SUPERVISOR_PID" 25
    [[ -z $ANSWERED ]] || report_lost_engine
    stop_receiver
    for name in "${!LOG_PIDS[@]}"; do end_log "$name"; done
    # The agent leaves its own socket behind, and whoever was killed what it had there.
    [[ -z $RUN ]] || rm -f "$RUN"/*.sock "$RUN/snmpd.pid" "$RUN/ended"
    [[ -z $LINKS ]] || rm -rf "$LINKS"
}

# report_lost_engine: says so when the agent could not store who it is.
report_lost_engine() {
    ! engine_is_lost "$STATE" ||
        printf '%s: the agent could not store its engine id in %s/agent/persistent; the next start puts it back\n' \
            "$PROGRAM" "$STATE" >&2
}

# choose_modules SNMPD: sets MODULES to those that the agent starts, and says what is not used
# because of that.
choose_modules() {
    local unknown
    MODULES=$(IFS=, && printf %s "${AGENT_MODULES[*]}")$MORE_MODULES
    unknown=$(unknown_modules "$1" "$STATE" "${MORE_MODULES#,}" | grep . | paste -sd ' ')
    [[ -z $unknown ]] || fail "the agent has no module of this name: $unknown"
    unstarted_lines "$1" "$STATE" "$MODULES"
}

# configure_agent SNMPD: writes what the agent reads, and what the receiver reads, and starts that one.
configure_agent() {
    # The agent cuts the line that loads a library at 255 bytes.
    plain_path "$BUILD/lib" lib 180
    write_agent_configuration "$STATE" "$LISTEN" "$ROOT" "$PLAIN"
    choose_modules "$1"
    [[ -n $TRAP_PORT ]] || return 0
    write_receiver_configuration "$STATE" "$TRAP_PORT"
    plain_path "$BUILD/mibs" mibs 1000
    start_receiver "$STATE" "$TRAP_PORT" "$PLAIN"
}

# describe_program NAME OUTPUT: begins what the supervisor is to know of a program, whose output goes to a
# descriptor of this script. What it tells the supervisor, or its attendant does, goes to descriptor 3.
describe_program() { printf 'program %s\nlog %s/%s.log\noutput %d\ntells 3\n' "$1" "$STATE" "$1" "$2"; }

# describe_words KEY WORD...: goes on with a command line.
describe_words() { printf "$1 %s\n" "${@:2}"; }

describe_switch() {
    describe_program vswitchd "$1"
    describe_words run "$BUILD/bin/vswitchd" --state "$STATE/switch" --run "$RUN" --tell 3 "${START_WITH[@]}"
}

# With a list of modules snmpd starts no others, the SMUX module for instance, which opens a port
# that nobody asked for; with -r it does not mind that files only root can read are closed to it.
describe_agent() {
    describe_program snmpd "$1"
    describe_words attend "$REPO/tools/attend_agent.sh" "$STATE" "$RUN" 3
    describe_words run env VSWITCH_RUN_DIR="$RUN" MIBS= MIBDIRS= \
        SNMPCONFPATH="$3:$3/persistent" SNMP_PERSISTENT_DIR="$3/persistent" \
        "$2" -f -r -Le -I "$MODULES" -p "$RUN/snmpd.pid" "$ENDPOINT" "unix:$RUN/agent.sock"
}

# start_supervisor: starts it, and with it the switch and then the agent.
start_supervisor() {
    local snmpd switch_log agent_log
    snmpd=$(PATH=$PATH:/usr/sbin:/sbin command -v snmpd) || fail "snmpd is not installed"
    configure_agent "$snmpd"
    if [[ -n ${START_WITH[*]} && -e $STATE/switch/switch.db ]]; then
        say "the state folder holds a configuration already, so ${START_WITH[0]} changes nothing"
    fi
    open_log "$STATE" vswitchd
    switch_log=$LOG
    open_log "$STATE" snmpd
    agent_log=$LOG
    plain_path "$STATE/agent" agent 180
    { describe_switch "$switch_log" && describe_agent "$agent_log" "$snmpd" "$PLAIN"; } |
        replace_file "$RUN/supervisor.conf" || exit 1
    rm -f "$RUN/ended"
    start_group "$BUILD/bin/vswitch-supervisor" "${SUPERVISE_WITH[@]}" --report "$RUN/ended" "$RUN/supervisor.conf"
    SUPERVISOR_PID=$!
    exec {switch_log}>&- {agent_log}>&-
}

# answers: true when the agent answers a request for the number of VSANs, at the address
# where everybody may read, or else at its own socket.
answers() {
    local number=$ROOT.$VSAN_NUMBER
    if is_loopback "$LISTEN"; then
        ask "$STATE" snmpget public "$ENDPOINT" "$number"
    else
        ask_agent "$STATE" snmpget "$number"
    fi | grep -qE '^[0-9]+$'
}

# report_end NAME STATUS: says that one of the two programs ended, and why.
report_end() {
    local why='' problem
    problem=$(address_problem "$LISTEN" "$PORT")
    [[ $1 != snmpd || -z $problem ]] || cannot_listen "$problem"
    end_log "$1"
    (($2 > 128)) || why=$(grep -v '^DEBUG : ' "$STATE/$1.log" | tail -n 1)
    fail "$1 $(how_it_ended "$2")${why:+, saying \"$why\"}; its log is $STATE/$1.log"
}

# how_it_ended STATUS: prints what a program's status says.
how_it_ended() {
    if (($1 > 128)); then
        printf 'was ended by signal %d' $(($1 - 128))
    else
        printf 'ended with status %d' "$1"
    fi
}

# wait_for_end: returns only by ending the script, when the supervisor has ended. It goes on without
# the receiver.
wait_for_end() {
    local name status
    wait_for_one "$SUPERVISOR_PID" ${RECEIVER_PID:+"$RECEIVER_PID"}
    if [[ $ENDED == "$RECEIVER_PID" ]]; then
        RECEIVER_PID=
        stop_receiver
        printf '%s: snmptrapd %s; notifications are not shown any more, all else goes on; its log is %s\n' \
            "$PROGRAM" "$(how_it_ended "$STATUS")" "$STATE/snmptrapd.log" >&2
        wait_for_one "$SUPERVISOR_PID"
    fi
    SUPERVISOR_PID=
    if { read -r name status <"$RUN/ended"; } 2>/dev/null; then
        report_end "$name" "$status"
    fi
    # Where it ended by itself it has said why.
    ((STATUS == 1)) || printf '%s: vswitch-supervisor %s\n' "$PROGRAM" "$(how_it_ended "$STATUS")" >&2
    exit 1
}

# wait_for_answer: returns when the agent answers; ends the script when it never will.
wait_for_answer() {
    local deadline=$((SECONDS + 20))
    until answers; do
        kill -0 "$SUPERVISOR_PID" 2>/dev/null || wait_for_end
        ((SECONDS < deadline)) ||
            fail "the agent runs but does not serve the VSANs; see $STATE/snmpd.log and $STATE/vswitchd.log"
        sleep 0.1
    done
}

# show_commands MIBS: what to type next.
show_commands() {
    local before='' who="-v2c -c public" tools
    if ! is_loopback "$LISTEN"; then
        explain_users
        before="$(as_user "$STATE" "$(users "$STATE" | sed 's/ .*//;q' | grep . || printf NAME)") " who=
    fi
    tools="$who${who:+ }-M $1 -m VSAN-MIB"
    say "Try in another terminal:"
    say "  ${before}snmpwalk $tools $ENDPOINT vsanMIB"
    say "  ${before}snmptable $tools -Cib -Cw 120 $ENDPOINT vsanTable"
    say "  ${before}snmpget $tools $ENDPOINT vsanName.1 vsanOperState.1"
    [[ -z $TRAP_PORT ]] || show_how_to_notify
    explain_strangers
    if [[ -n $(configured_users "$STATE") ]]; then
        say "Passwords stand in plain text in $STATE/agent/snmpd.local.conf; snmp_user.sh keeps none."
    fi
    say "Ctrl-C stops everything; the configuration stays in $STATE"
}

# show_how_to_notify: what makes a notification, if the demo's last VSAN is still there. It is up
# as long as one of its two ports is.
show_how_to_notify() {
    local tool vsan turn=up
    tool="$(printf %q "$BUILD/bin/vswitchctl") --run $(printf %q "$RUN")"
    say "Notifications appear here as they arrive."
    vsan=$("$BUILD/bin/vswitchctl" --run "$RUN" vsan show 4094 2>/dev/null) && [[ $vsan == *replication* ]] || return 0
    [[ $vsan != *"operationally up"* ]] || turn=down
    say "VSAN 4094 goes $turn with its two ports:"
    say "  for port in fc47 fc48; do $tool port $turn \$port; done"
}

# explain_users: who may log in where communities are not accepted.
explain_users() {
    local names
    names=$({
        users "$STATE" | sed 's/ .*//'
        configured_users "$STATE"
    } | tr '\n' ' ')
    if [[ -n $names ]]; then
        say "SNMPv3 users: ${names% }"
    else
        say "Nobody can log in yet: 'public' and 'private' are accepted on loopback only."
        say "This makes an SNMPv3 user, also while the agent runs:"
        say "  $(user_command) add NAME"
    fi
}

# explain_strangers: who cannot log in because users and engine do not belong together.
explain_strangers() {
    local names
    mapfile -t names < <(strangers "$STATE")
    ((${#names[@]})) || return 0
    say "These SNMPv3 users cannot log in: ${names[*]}"
    say "Their keys are not for this agent, whose engine id is $(engine_id "$STATE"). New passwords make new keys:"
    say "  for name in ${names[*]}; do $(user_command) passwd \$name; done"
}

# user_command: prints the command that changes the users of this state folder.
user_command() {
    printf %s "$REPO/snmp_user.sh"
    [[ $STATE == "$BUILD/state" ]] || printf ' --state %q' "$STATE"
}

parse_options "$@"
ENDPOINT=$(endpoint "$LISTEN" "$PORT")
check_addresses
trap stop EXIT
end_on_signals
require_debian
open_state "$STATE"
mapfile -t MIB_PACKAGES < <(packages_for_standard_mibs "$BUILD")
install_packages "${BUILD_PACKAGES[@]}" "${RUN_PACKAGES[@]}" "${MIB_PACKAGES[@]}"
# What was configured for the tests serves as well; the build itself notices changed files.
is_configured "$BUILD" || configure_project "$BUILD" -DBUILD_TESTS=OFF
build_project "$BUILD" vswitchd vswitchctl vswitch-supervisor boundlog vsanmib netsnmpagent_oryx switchmib
provide_standard_mibs "$BUILD"

umask 077
ROOT=1.3.6.1.4.1.$(cached_setting "$BUILD" VENDOR_PEN).9.282
# The address of a Unix socket has room for 107 characters.
plain_path "$STATE/run" run 90
RUN=$PLAIN
start_supervisor
wait_for_answer
ANSWERED=yes
plain_path "$BUILD/mibs" mibs 1000
# Worked out before anybody is told to go on: bash can lose a signal that comes during a $(...).
ADVICE=$(show_commands "$PLAIN")
# From here on being told to stop is how this ends well.
trap 'exit 0' HUP INT TERM
say "ready $ENDPOINT"
say "$ADVICE"
wait_for_end
