# SPDX-License-Identifier: Apache-2.0
# shellcheck shell=bash
# The receiver of notifications that run.sh shows: a real snmptrapd on loopback, with files of
# its own in the state folder. Sourced after common.sh and agent.sh.

# The numbers of the receiver and of what makes its output readable, while they run.
RECEIVER_PID=
SHOWING_PID=

# write_receiver_configuration FOLDER PORT: lets the agent of a state folder and a receiver
# at that port understand each other. The community is made up anew at each start, so that
# nobody else on this machine can have lines of theirs shown.
write_receiver_configuration() {
    local agent=$1/agent community
    community=$(od -An -v -N16 -tx1 /dev/urandom | tr -d ' \n')
    [[ ${#community} -eq 32 ]] || fail "cannot read random numbers from /dev/urandom"
    printf 'authCommunity log %s\n' "$community" >"$agent/snmptrapd.conf"
    cat >>"$agent/snmpd.conf" <<CONF

# run.sh shows each notification that is sent; snmptrapd receives them for it.
trap2sink $(endpoint 127.0.0.1 "$2") $community
CONF
}

# start_receiver FOLDER PORT MIBS: shows each notification of the VSANs and links in one line on
# standard output. What else the receiver gets or says goes to FOLDER/snmptrapd.log.
start_receiver() {
    local program out
    program=$(PATH=$PATH:/usr/sbin:/sbin command -v snmptrapd) || fail "snmptrapd is not installed"
    # sed sees "@TIME sysUpTime.0 = ...|snmpTrapOID.0 = NAME|binding|binding". It goes on until
    # the receiver has ended, so Ctrl-C must not reach it first.
    open_log "$1" snmptrapd
    exec {out}> >(trap '' HUP INT && exec sed -u -n \
        -e 's/^@\([0-9:]*\) .*|snmpTrapOID\.0 = \(vsan[A-Za-z]*\|link[UD][a-z]*\)|/\1 \2: /; t show' \
        -e 'w /dev/stderr' -e 'b' -e ':show' -e 's/|snmpTrapEnterprise[^|]*//; s/|/, /g; s/"\([0-9A-F ]*\) "/\1/g; p' 2>&"$LOG")
    SHOWING_PID=$!
    exec {LOG}>&-
    # -X: it would register with another agent on this machine, if there were one. Strings are
    # shown in hex (-Ox), since they may hold anything, line ends included.
    plain_path "$1/agent" agent 180
    start_group env MIBS=VSAN-MIB MIBDIRS="$3" SNMPCONFPATH="$PLAIN" SNMP_PERSISTENT_DIR="$PLAIN/persistent" \
        "$program" -f -X -n -Lo -OQsx -F '@%02.2h:%02.2j:%02.2k %V|%v\n' \
        "$(endpoint 127.0.0.1 "$2")" >&"$out" 2>&1
    RECEIVER_PID=$!
    exec {out}>&-
}

# stop_receiver: ends it, with all that it received shown.
stop_receiver() {
    local showing=$SHOWING_PID
    [[ -z $RECEIVER_PID ]] || end_group "$RECEIVER_PID"
    RECEIVER_PID='' SHOWING_PID=''
    [[ -z $showing ]] || end_reader "$showing"
}
