#!/bin/bash
# Builds everything, then runs the virtual switch and an SNMP agent that serves it.
set -uo pipefail

CALLED_FROM=$PWD
cd "$(dirname "${BASH_SOURCE[0]}")" || exit 1
source tools/common.sh
source tools/packages.sh
source tools/build.sh
source tools/agent.sh

BUILD=$REPO/build
PORT=1161
LISTEN=127.0.0.1
STATE=$BUILD/state
START_WITH=()
# The numbers of the two programs while they run.
SWITCH_PID=
AGENT_PID=
# Where the agent listens, the folder of the sockets, and the root of the MIB.
ENDPOINT=
RUN=
ROOT=

usage() {
    cat <<HELP
Usage: ./run.sh [OPTION]...
Runs a virtual Fibre Channel switch and an SNMP agent that serves its VSANs, and
stays until Ctrl-C. Installs missing packages and builds first.

  --port N           UDP port of the agent (default $PORT)
  --listen ADDRESS   IPv4 or IPv6 address of the agent (default $LISTEN)
  --state DIR        folder that keeps the switch's configuration from one run to
                     the next (default $STATE)
  --empty            a new switch starts with VSAN 1 and nothing else, instead of
                     a small example configuration
  --help             this text

On loopback the community 'public' may read and 'private' may also change VSANs.
On other addresses neither is accepted; SNMPv3 users are, and run.sh says how to
add one.
HELP
}

# parse_options ARGUMENT...: sets the variables above, or ends with 2.
parse_options() {
    local option value
    while (($#)); do
        option=$1
        shift
        case $option in
        --help)
            usage
            exit 0
            ;;
        --empty)
            START_WITH=(--empty)
            continue
            ;;
        --port | --listen | --state)
            (($#)) || usage_error "$option needs a value."
            value=$1
            shift
            ;;
        --port=* | --listen=* | --state=*)
            value=${option#*=}
            option=${option%%=*}
            ;;
        *) usage_error "unknown option '$option'." ;;
        esac
        [[ -n $value ]] || usage_error "$option needs a value."
        case $option in
        --port)
            [[ $value =~ ^[1-9][0-9]{0,4}$ ]] && ((value <= 65535)) ||
                usage_error "--port takes a number from 1 to 65535, not '$value'."
            PORT=$value
            ;;
        --listen)
            value=${value#[}
            LISTEN=${value%]}
            ;;
        --state) STATE=$value ;;
        esac
    done
    [[ $STATE == /* ]] || STATE=$CALLED_FROM/$STATE
}

# check_address: ends the script with one sentence when the agent could not listen.
check_address() {
    local problem
    problem=$(address_problem "$LISTEN" "$PORT")
    (($? != 2)) || usage_error "--listen takes an IPv4 or IPv6 address, not '$LISTEN'."
    [[ -z $problem ]] || fail "cannot listen on $(endpoint "$LISTEN" "$PORT"): $problem"
}

# stop: ends whatever was started. The agent goes first: it is the switch's client.
stop() {
    end_step
    [[ -z $AGENT_PID ]] || end_group "$AGENT_PID"
    [[ -z $SWITCH_PID ]] || end_group "$SWITCH_PID"
    # The agent leaves its own socket behind.
    [[ -z $AGENT_PID ]] || rm -f "$RUN/agent.sock"
    [[ -z $LINKS ]] || rm -rf "$LINKS"
}

start_switch() {
    if [[ -n ${START_WITH[*]} && -e $STATE/switch/switch.db ]]; then
        say "the state folder holds a configuration already, so --empty changes nothing"
    fi
    start_group "$BUILD/bin/vswitchd" --state "$STATE/switch" --run "$RUN" "${START_WITH[@]}" >"$STATE/vswitchd.log" 2>&1
    SWITCH_PID=$!
}

start_agent() {
    local snmpd conf
    snmpd=$(PATH=$PATH:/usr/sbin:/sbin command -v snmpd) || fail "snmpd is not installed"
    # The agent cuts the line that loads a library at 255 bytes.
    plain_path "$BUILD/lib" lib 180
    write_agent_configuration "$STATE" "$LISTEN" "$ROOT" "$PLAIN"
    forget_users "$STATE"
    plain_path "$STATE/agent" agent 180
    conf=$PLAIN
    # Without the SMUX module snmpd does not open a port that nobody asked for; with -r it
    # does not mind that files only root can read are closed to it.
    start_group env VSWITCH_RUN_DIR="$RUN" MIBS= MIBDIRS= \
        SNMPCONFPATH="$conf:$conf/persistent" SNMP_PERSISTENT_DIR="$conf/persistent" \
        "$snmpd" -f -r -Le -I -smux "$ENDPOINT" "unix:$RUN/agent.sock" >"$STATE/snmpd.log" 2>&1
    AGENT_PID=$!
}

# answers: true when the agent answers a request for the number of VSANs, at the address
# where everybody may read, or else at its own socket.
answers() {
    local community=probe address=unix:$RUN/agent.sock
    if is_loopback "$LISTEN"; then
        community=public address=$ENDPOINT
    fi
    SNMPCONFPATH=$STATE/agent/persistent SNMP_PERSISTENT_DIR=$STATE/agent/persistent MIBS='' MIBDIRS='' \
        snmpget -v2c -c "$community" -t 1 -r 0 -Oqv "$address" "$ROOT.1.1.1.0" 2>/dev/null | grep -qE '^[0-9]+$'
}

# report_end NAME STATUS: says that one of the two programs ended, and why.
report_end() {
    local why problem
    problem=$(address_problem "$LISTEN" "$PORT")
    if [[ $1 == snmpd && -n $problem ]]; then
        fail "cannot listen on $ENDPOINT: $problem"
    fi
    if (($2 > 128)); then
        fail "$1 was ended by signal $(($2 - 128)); its log is $STATE/$1.log"
    fi
    why=$(grep -v '^DEBUG : ' "$STATE/$1.log" | tail -n 1)
    fail "$1 ended with status $2${why:+, saying \"$why\"}; its log is $STATE/$1.log"
}

# wait_for_end: returns only by ending the script, when either program has ended.
wait_for_end() {
    local ended status
    wait -n -p ended "$SWITCH_PID" "$AGENT_PID" 2>/dev/null
    status=$?
    if [[ $ended == "$AGENT_PID" ]]; then
        AGENT_PID=
        report_end snmpd "$status"
    fi
    SWITCH_PID=
    report_end vswitchd "$status"
}

# wait_for_answer: returns when the agent answers; ends the script when it never will.
wait_for_answer() {
    local deadline=$((SECONDS + 20))
    until answers; do
        kill -0 "$SWITCH_PID" 2>/dev/null && kill -0 "$AGENT_PID" 2>/dev/null || wait_for_end
        ((SECONDS < deadline)) ||
            fail "the agent runs but does not serve the VSANs; see $STATE/snmpd.log and $STATE/vswitchd.log"
        sleep 0.1
    done
}

# show_commands: what to type next.
show_commands() {
    local who="-v2c -c public" tools
    if ! is_loopback "$LISTEN"; then
        who="-v3 -l authPriv -u NAME"
        explain_users
    fi
    plain_path "$BUILD/mibs" mibs 1000
    tools="$who -M $PLAIN -m VSAN-MIB"
    say "Try in another terminal:"
    say "  snmpwalk $tools $ENDPOINT vsanMIB"
    say "  snmptable $tools -Cib -Cw 120 $ENDPOINT vsanTable"
    say "  snmpget $tools $ENDPOINT vsanName.1 vsanOperState.1"
    say "Ctrl-C stops everything; the configuration stays in $STATE"
}

explain_users() {
    if has_users "$STATE"; then
        say "NAME below is a user of $STATE/agent/snmpd.local.conf."
    else
        say "Nobody can log in yet: 'public' and 'private' are accepted on loopback only. To add an"
        say "SNMPv3 user, put two lines like these, with passwords of eight characters or more, into"
        say "$STATE/agent/snmpd.local.conf and start run.sh again:"
        say '  createUser NAME SHA-256 "authentication password" AES "privacy password"'
        say '  group operators usm NAME'
    fi
    say "The commands below read the passwords from ~/.snmp/snmp.conf on the machine they are typed on:"
    say '  defAuthType SHA-256'
    say '  defAuthPassphrase authentication password'
    say '  defPrivType AES'
    say '  defPrivPassphrase privacy password'
}

parse_options "$@"
check_address
ENDPOINT=$(endpoint "$LISTEN" "$PORT")
trap stop EXIT
end_on_signals
require_debian
open_state "$STATE"
STATE=$(cd "$STATE" && pwd -P)
mapfile -t MIB_PACKAGES < <(packages_for_standard_mibs "$BUILD")
install_packages "${BUILD_PACKAGES[@]}" "${RUN_PACKAGES[@]}" "${MIB_PACKAGES[@]}"
# What was configured for the tests serves as well; the build itself notices changed files.
is_configured "$BUILD" || configure_project "$BUILD" -DBUILD_TESTS=OFF
build_project "$BUILD" vswitchd vswitchctl vsanmib netsnmpagent_oryx
provide_standard_mibs "$BUILD"

umask 077
ROOT=1.3.6.1.4.1.$(cached_setting "$BUILD" VENDOR_PEN).9.282
# The address of a Unix socket has room for 107 characters.
plain_path "$STATE/run" run 90
RUN=$PLAIN
start_switch
start_agent
wait_for_answer
say "ready $ENDPOINT"
show_commands
# From here on being told to stop is how this ends well.
trap 'exit 0' HUP INT TERM
wait_for_end
