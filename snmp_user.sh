#!/bin/bash
# SPDX-License-Identifier: Apache-2.0
# Makes, lists and removes the SNMPv3 users of the agent that run.sh starts.
set -uo pipefail

CALLED_FROM=$PWD
cd "$(dirname "${BASH_SOURCE[0]}")" || exit 1
source tools/common.sh
source tools/agent.sh
source tools/users.sh
source tools/engine.sh

STATE=$REPO/build/state
COMMAND=
NAME=
GROUP=operators
SHORTEST=8
LONGEST=128
# The passwords while they are needed, and the running agent, if there is one.
AUTHENTICATION=
PRIVACY=
AGENT_PID=
SNMPD=
# When a user that no running agent was told of is there.
THERE="once ./run.sh is started"
# What `find` gets to find all that is made for a new state folder; empty for one that was there.
NEW=()
# The files to put back as they were should the script fail now; FILE.old is what FILE was.
UNDO=()

usage() {
    cat <<HELP
Usage: ./snmp_user.sh [--state DIR] COMMAND
Makes, lists and removes the SNMPv3 users of the agent that ./run.sh starts. A running
agent follows at once; otherwise the users are there when it starts.

  add NAME              makes a user, who may read the switch and change VSANs
  add NAME --read-only  makes a user who may read the switch and change nothing
  passwd NAME           gives a user other passwords
  remove NAME           removes a user
  list                  shows the users

  --state DIR           the state folder of run.sh (default build/state)
  -h, --help            this text
  --version             which release this is

Passwords of $SHORTEST characters or more, one for authentication (SHA-256) and one for privacy (AES),
are asked for twice on a terminal. Elsewhere they are the first and the second line of
standard input. Without the second, the first serves for both. Only keys are stored.
HELP
}

# parse_options ARGUMENT...: sets the variables above, or ends with 2.
parse_options() {
    # Letters are those without accents, whatever the user's language is.
    local words=() read_only='' LC_ALL=C
    while (($#)); do
        next_option --state "$@"
        shift "$TAKEN"
        case $OPTION in
        -h | --help | --version) tell_about "$OPTION" ;;
        --read-only) read_only=yes ;;
        --state) STATE=$VALUE ;;
        -*) usage_error "unknown option '$OPTION'." ;;
        *) words+=("$OPTION") ;;
        esac
    done
    choose_state "$STATE"
    COMMAND=${words[0]-}
    NAME=${words[1]-}
    case $COMMAND in
    add | passwd | remove)
        ((${#words[@]} > 1)) || usage_error "$COMMAND needs the name of a user."
        # A password among the arguments would be refused here, and not repeated.
        ((${#words[@]} == 2)) || usage_error "$COMMAND takes one name and nothing else."
        [[ $NAME =~ ^[A-Za-z0-9_][A-Za-z0-9_.@-]{0,31}$ ]] ||
            usage_error "a name has 1 to 32 letters, digits or any of _ . @ - and does not begin with a sign."
        ;;
    list) ((${#words[@]} == 1)) || usage_error "list takes no name." ;;
    "") usage_error "a command is missing." ;;
    *) usage_error "unknown command '$COMMAND'." ;;
    esac
    if [[ -n $read_only ]]; then
        [[ $COMMAND == add ]] || usage_error "--read-only goes with add."
        GROUP=viewers
    fi
}

# password_problem PASSWORD: prints why a password will not do, or nothing when it will.
password_problem() {
    if ((${#1} < SHORTEST)); then
        printf 'it has fewer than %d characters' "$SHORTEST"
    elif ((${#1} > LONGEST)); then
        printf 'it has more than %d characters' "$LONGEST"
    elif [[ $1 == *[[:cntrl:]]* ]]; then
        printf 'it holds characters that cannot be typed'
    fi
}

# ask_twice WHAT [OTHERWISE]: sets REPLY to a password typed twice on the terminal. With
# OTHERWISE, Enter alone leaves it empty.
ask_twice() {
    local again problem
    while true; do
        IFS= read -rsp "$1 password for $NAME${2:+ ($2)}: " REPLY || fail "no password was given"
        say >&2
        [[ -n $REPLY || -z ${2-} ]] || return 0
        problem=$(password_problem "$REPLY")
        if [[ -n $problem ]]; then
            say "That will not do: $problem." >&2
            continue
        fi
        IFS= read -rsp "Once more: " again || fail "no password was given"
        say >&2
        [[ $REPLY != "$again" ]] || return
        say "These were not the same." >&2
    done
}

# read_passwords: sets both, from the terminal or from standard input.
read_passwords() {
    local problem which
    if [[ -t 0 ]]; then
        ask_twice Authentication
        AUTHENTICATION=$REPLY
        ask_twice Privacy "Enter for the same"
        PRIVACY=${REPLY:-$AUTHENTICATION}
        REPLY=
        return
    fi
    IFS= read -r AUTHENTICATION || [[ -n $AUTHENTICATION ]] || fail "no password on standard input"
    IFS= read -r PRIVACY || [[ -n $PRIVACY ]] || PRIVACY=$AUTHENTICATION
    for which in AUTHENTICATION PRIVACY; do
        problem=$(password_problem "${!which}")
        [[ -z $problem ]] || fail "the ${which,,} password will not do: $problem"
    done
}

# hold_state: keeps run.sh from starting an agent meanwhile, or finds the one that runs.
hold_state() {
    lock_users "$STATE"
    { exec 9>>"$STATE/lock"; } 2>/dev/null || fail "cannot write to $STATE"
    if ! flock -n 9; then
        AGENT_PID=$(running_agent "$STATE")
        THERE="once the agent is back"
    fi
    restore_engine "$STATE"
}

# find_state: ends the script unless the state folder can be used, or be made for a first user.
find_state() {
    local problem top
    if problem=$(LC_ALL=C ls -A "$STATE/" 2>&1 >/dev/null); then
        if [[ $COMMAND != add ]]; then
            [[ -e $STATE/lock ]] || fail "$STATE is not a state folder of run.sh"
            check_state "$STATE"
        elif [[ -z $(ls -A "$STATE") ]]; then
            NEW=("$STATE" -mindepth 1)
        else
            make_state "$STATE"
        fi
    elif [[ $problem != *"No such file or directory" ]]; then
        fail "cannot read the state folder $STATE: ${problem##*: }"
    elif [[ $COMMAND != add ]]; then
        fail "there is no state folder $STATE; run.sh makes it, or 'snmp_user.sh add'"
    else
        top=$STATE
        while [[ ! -e $(dirname "$top") ]]; do top=$(dirname "$top"); done
        NEW=("$top")
    fi
    ((${#NEW[@]} == 0)) || say "$STATE is a new state folder"
}

# open_users: the state folder is there, and its users can be read.
open_users() {
    ((${#NEW[@]} == 0)) || make_state "$STATE"
    umask 077
    make_users_file "$STATE"
    [[ -r $STATE/agent/users.conf ]] || fail "cannot read $STATE/agent/users.conf"
}

# need_user: ends the script unless the user can be changed here.
need_user() {
    has_user "$STATE" "$NAME" && return
    if configured_users "$STATE" | grep -qx "$(literally "$NAME")"; then
        fail "$NAME is one of your own lines in $STATE/agent/snmpd.local.conf; change it there and start run.sh again"
    fi
    fail "there is no user $NAME; 'snmp_user.sh list' shows the users"
}

# need_new_user: ends the script when the name is taken.
need_new_user() {
    if configured_users "$STATE" | grep -qx "$(literally "$NAME")"; then
        fail "$NAME is a user of your own lines in $STATE/agent/snmpd.local.conf; remove them there first"
    fi
    ! has_user "$STATE" "$NAME" || fail "there is a user $NAME already; 'snmp_user.sh passwd $NAME' changes the passwords"
}

# remember FILE: has it put back as it is now, or removed if it is not there, should the script fail.
# That takes no room on a disk.
remember() {
    [[ ! -e $1 ]] || ln -f "$1" "$1.old" 2>/dev/null || fail "cannot write to $1.old"
    UNDO+=("$1")
}

# undo: nothing of what was begun stays.
undo() {
    local file
    for file in "${UNDO[@]}"; do
        if [[ -e $file.old ]]; then
            mv -f "$file.old" "$file"
        else
            rm -f "$file"
            rmdir --ignore-fail-on-non-empty "$(dirname "$file")" 2>/dev/null
        fi
    done
    # It may have read what is not so any more.
    [[ ${#UNDO[@]} == 0 || -z $AGENT_PID ]] || kill -HUP "$AGENT_PID" 2>/dev/null
    ((${#NEW[@]} == 0)) || undo_new_state
}

# undo_new_state: a state folder that was made for nothing goes, unless somebody else uses it by now.
undo_new_state() {
    exec 9>&-
    [[ -d $STATE && -z $(users "$STATE") && ! -e $STATE/switch/switch.db ]] || return 0
    flock -n "$STATE/lock" find "${NEW[@]}" -delete
}

# keep_all: what was done stays.
keep_all() {
    ((${#UNDO[@]} == 0)) || rm -f "${UNDO[@]/%/.old}"
    NEW=() UNDO=()
}

# save_user: makes the keys and stores them; the agent reads them.
save_user() {
    if [[ -z $AGENT_PID && -z $(engine_id "$STATE") ]]; then
        # The keys are the first thing that is made for this agent.
        remember "$STATE/agent/persistent/snmpd.conf"
        remember "$STATE/agent/engine"
    fi
    make_keys "$STATE" "$NAME" "$AUTHENTICATION" "$PRIVACY"
    AUTHENTICATION='' PRIVACY=''
    remember "$STATE/users/$NAME/snmp.conf"
    remember "$STATE/agent/users.conf"
    { without_user "$STATE" "$NAME" && printf '%s\ngroup %s usm %s\n' "$KEYS" "$GROUP" "$NAME"; } |
        replace_file "$STATE/agent/users.conf" || exit 1
    write_client_configuration "$STATE" "$NAME" "$KEYS"
    if [[ -n $AGENT_PID ]]; then
        reload_agent "$STATE" "$AGENT_PID"
        agent_knows "$STATE" "$NAME" ||
            fail "the running agent did not take the keys of $NAME, so all stays as it was; see $STATE/snmpd.log"
    fi
    keep_all
}

# show_commands: what to type next.
show_commands() {
    local address=udp:127.0.0.1:1161 words
    if [[ -n $AGENT_PID ]]; then
        mapfile -d '' -t words <"/proc/$AGENT_PID/cmdline"
        address=${words[-2]}
    fi
    say "On this machine, with keys that only this agent takes:"
    say "  $(as_user "$STATE" "$NAME") snmpwalk -M $(printf %q "$REPO/build/mibs") -m VSAN-MIB $address vsanMIB"
    say "Elsewhere the tools find name and passwords in ~/.snmp/snmp.conf; docs/running.md has its lines."
    say "A user sees every VSAN until a role says which:"
    say "  build/bin/vswitchctl --run $(printf %q "$STATE/run") role add ROLE --vsans 1,10-20 --users $NAME"
}

add() {
    need_new_user
    read_passwords
    open_users
    hold_state
    need_new_user
    save_user
    local may="read the switch and change VSANs"
    [[ $GROUP == operators ]] || may="read the switch and change nothing"
    if [[ -n $AGENT_PID ]]; then
        say "$NAME may $may, from now on."
    else
        say "$NAME may $may, $THERE."
    fi
    show_commands
}

passwd() {
    open_users
    need_user
    read_passwords
    hold_state
    need_user
    GROUP=$(users "$STATE" | sed -n "s/^$(literally "$NAME") //p")
    save_user
    say "$NAME has other passwords${AGENT_PID:+, from now on}."
}

remove() {
    local status
    open_users
    hold_state
    need_user
    without_user "$STATE" "$NAME" | replace_file "$STATE/agent/users.conf" || exit 1
    rm -rf "${STATE:?}/users/$NAME"
    if [[ -n $AGENT_PID ]]; then
        # Without a group, who is still logged in may do nothing; without keys, nobody logs in.
        reload_agent "$STATE" "$AGENT_PID"
        status=$(user_status "$STATE" "$NAME")
        ask_agent "$STATE" snmpset "$status" i 6 >/dev/null
        [[ $(ask_agent "$STATE" snmpget "$status") == *"No Such Instance"* ]] ||
            fail "$NAME may do nothing any more, but the agent still has the keys; start run.sh again"
    fi
    # The agent wrote the keys down once more while it read its users.
    forget_users "$STATE"
    say "$NAME is removed${AGENT_PID:+, and locked out from now on}."
}

list() {
    local name group
    open_users
    while read -r name group; do
        case $group in
        operators) say "$name  reads the switch, changes VSANs" ;;
        viewers) say "$name  reads the switch" ;;
        esac
    done < <(users "$STATE")
    while read -r name; do
        say "$name  as your own lines in $STATE/agent/snmpd.local.conf say"
    done < <(configured_users "$STATE")
}

# clean_up: what was of use only meanwhile goes, however this ends, and so does what was only begun.
clean_up() {
    [[ ! -t 0 ]] || stty echo
    end_key_maker
    rm -rf ${LINKS:+"$LINKS"} ${KEYS_FOLDER:+"$KEYS_FOLDER"}
    undo
}

parse_options "$@"
trap clean_up EXIT
end_on_signals
find_state
SNMPD=$(PATH=$PATH:/usr/sbin:/sbin command -v snmpd) && command -v snmpget >/dev/null ||
    fail "snmpd or its tools are not installed; ./run.sh installs them"
"$COMMAND"
