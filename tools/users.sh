# SPDX-License-Identifier: Apache-2.0
# shellcheck shell=bash
# shellcheck disable=SC2034 # used by those who source this
# The SNMPv3 users of a state folder, and the running agent that is told of them. Sourced
# after common.sh and agent.sh, with engine.sh.
#
#   agent/users.conf         the users: their keys, and what they may do
#   agent/users.lock         held while they change, and while an agent is about to read them
#   users/NAME/snmp.conf     for the owner's own tools: makes them NAME, without a password
#   run/snmpd.pid            the number of the running agent

# A folder for the making of keys, and the number of the snmpd that makes them, while they are there.
KEYS_FOLDER=
KEY_MAKER=

# lock_users FOLDER: waits until nobody else changes the users, nor starts an agent.
lock_users() {
    { exec 8>>"$1/agent/users.lock"; } 2>/dev/null || fail "cannot write to $1/agent/users.lock"
    setpriv --pdeathsig TERM -- flock -w 60 8 || fail "$1/agent/users.lock has been held for a minute"
}

# users FOLDER: prints each user with the group that says what they may do.
users() {
    sed -n 's/^group \([a-z]*\) usm \(.*\)$/\2 \1/p' "$1/agent/users.conf" 2>/dev/null
}

# has_user FOLDER NAME: true when that one was made by snmp_user.sh.
has_user() {
    users "$1" | grep -q "^$(literally "$2") "
}

# configured_users FOLDER: prints the users that stand in the operator's own lines.
configured_users() {
    sed -nE 's/^[[:space:]]*createUser[[:space:]]+(-e[[:space:]]+[^[:space:]]+[[:space:]]+)?"?([^"[:space:]]+).*/\2/Ip' \
        "$1/agent/snmpd.local.conf" 2>/dev/null
}

# literally NAME: prints a regular expression that matches the name and nothing else.
literally() { printf '%s' "${1//./\\.}"; }

# stored_name NAME: prints it as the agent writes it into a line of keys: in quotes when it has
# nothing but letters and digits, else in hex.
stored_name() {
    local LC_ALL=C
    if [[ $1 =~ ^[A-Za-z0-9]+$ ]]; then
        printf '"%s"' "$1"
    else
        printf '0x'
        printf %s "$1" | od -An -v -tx1 | tr -d ' \n'
    fi
}

# replace_file FILE: its new contents are standard input; a reader sees the old or the new.
replace_file() {
    local new=$1.new problem
    problem=$({ cat >"$new" && chmod 600 "$new" && sync "$new" && mv -f "$new" "$1"; } 2>&1) && return
    rm -f "$new"
    fail "cannot write to $1${problem:+: ${problem##*: }}"
}

# without_user FOLDER NAME: prints the users' file without that one.
without_user() {
    sed -E "/^(usmUser [^ ]+ [^ ]+ [^ ]+ $(stored_name "$2") |group [a-z]* usm $(literally "$2")\$)/d" "$1/agent/users.conf"
}

# quoted TEXT: prints it as one word of the agent's configuration.
quoted() {
    local text=${1//\\/\\\\}
    printf '"%s"' "${text//\"/\\\"}"
}

# end_key_maker: ends the snmpd that makes keys, if there is one, and returns when it has ended: at its
# end it writes to its folder, and makes it once more if it is gone.
end_key_maker() {
    [[ -n $KEY_MAKER ]] || return 0
    kill "$KEY_MAKER" 2>/dev/null
    wait "$KEY_MAKER" 2>/dev/null
    KEY_MAKER=
}

# make_keys FOLDER NAME AUTHENTICATION PRIVACY: sets KEYS to the line that lets a user in who
# knows these passwords. An snmpd of its own, which ends at once, works it out. It reads the
# passwords from a file without a name, in memory where there is such a file system.
make_keys() {
    local work=$1/agent/keys.tmp engine unnamed memory=/dev/shm secret tenths log
    engine=$(engine_id "$1")
    [[ -d $memory && -w $memory ]] || memory=$1/agent
    KEYS_FOLDER=$work
    rm -rf "$work"
    mkdir "$work" 2>/dev/null || fail "cannot write to $1/agent"
    # The snmpd would not say that it has no room for the keys.
    head -c 16384 /dev/zero | replace_file "$work/room" || exit 1
    rm -f "$work/room"
    unnamed=$(mktemp "$memory/vsan.XXXXXX") || fail "cannot write to $memory"
    exec {secret}<>"$unnamed"
    rm -f "$unnamed"
    printf 'createUser %s %s SHA-256 %s AES %s\n' "${engine:+-e $engine}" "$2" "$(quoted "$3")" "$(quoted "$4")" >&"$secret"
    log=$work/log
    : >"$log"
    plain_path "$work" keys 90
    env MIBS='' MIBDIRS='' SNMP_PERSISTENT_DIR="$PLAIN" setpriv --pdeathsig TERM -- \
        "$SNMPD" -f -r -C -c /dev/stdin -Le -I usmConf "unix:$PLAIN/sock" <"/dev/fd/$secret" >"$log" 2>&1 &
    KEY_MAKER=$!
    exec {secret}>&-
    # It has written everything when it says that it is ready.
    for ((tenths = 0; tenths < 100; tenths++)); do
        grep -q '^NET-SNMP version' "$log" && break
        kill -0 "$KEY_MAKER" 2>/dev/null || break
        sleep 0.1
    done
    end_key_maker
    KEYS=$(grep "^usmUser .* $(stored_name "$2") " "$work/snmpd.conf" 2>/dev/null)
    # An agent that has never run takes over the number that the keys are made for.
    if [[ -n $KEYS && -z $engine ]]; then
        grep -E '^(engineBoots|oldEngineID) ' "$work/snmpd.conf" | replace_file "$1/agent/persistent/snmpd.conf" || exit 1
        keep_engine "$1" 0
    fi
    rm -rf "$work"
    [[ -n $KEYS ]] || fail "snmpd could not make keys from these passwords"
}

# running_agent FOLDER: prints the number of the agent that uses a state folder, if one does.
running_agent() {
    local pid
    pid=$(cat "$1/run/snmpd.pid" 2>/dev/null) || return
    [[ $pid =~ ^[0-9]+$ && $(cat "/proc/$pid/comm" 2>/dev/null) == snmpd ]] && printf '%s' "$pid"
}

# ask FOLDER TOOL COMMUNITY ADDRESS ARGUMENT...: a request to a state folder's agent; what the tools
# are configured to do otherwise does not count.
ask() {
    local persistent=$1/agent/persistent tool=$2 community=$3
    shift 3
    # The tool's own time limit is not for sockets like the agent's: there it would wait for ever.
    SNMPCONFPATH=$persistent SNMP_PERSISTENT_DIR=$persistent MIBS='' MIBDIRS='' \
        timeout 3 "$tool" -v2c -c "$community" -t 1 -r 0 -Oqvn "$@" 2>/dev/null
}

# ask_agent FOLDER TOOL ARGUMENT...: the same over the socket that only the owner can reach.
ask_agent() {
    plain_path "$1/run" run 90
    ask "$1" "$2" probe "unix:$PLAIN/agent.sock" "${@:3}"
}

# reload_agent FOLDER PID: makes the running agent read its users again, and returns when it
# has done so.
reload_agent() {
    local deadline=$((SECONDS + 20)) before now
    before=$(next_library "$1" "$deadline")
    # What it wrote down itself it would read last.
    forget_users "$1"
    keep_engine "$1" 1
    kill -HUP "$2" || fail "cannot tell the agent (process $2) to read its users again"
    # The agent sees the signal when it has a request, and answers none while it reads. It loads its
    # libraries again, under other numbers.
    until now=$(next_library "$1" "$deadline") && [[ -n $now && $now != "$before" ]]; do
        ((SECONDS < deadline)) || fail "the agent (process $2) does not read its users again; see $1/snmpd.log"
        sleep 0.1
    done
}

# next_library FOLDER DEADLINE: prints the number that the agent will give to the next library;
# nothing when it has not answered by then.
next_library() {
    until ask_agent "$1" snmpget "$NEXT_LIBRARY" | grep -x '[0-9]*'; do
        ((SECONDS < $2)) || return
        sleep 0.1
    done
}

# user_status FOLDER NAME: prints the name of a user's usmUserStatus.
user_status() {
    local engine i
    engine=$(engine_id "$1")
    engine=${engine#0x}
    printf '%s.%d' "$USM_USER_STATUS" $((${#engine} / 2))
    for ((i = 0; i < ${#engine}; i += 2)); do printf '.%d' "0x${engine:i:2}"; done
    printf '.%d' "${#2}"
    for ((i = 0; i < ${#2}; i++)); do printf '.%d' "'${2:i:1}"; done
}

# agent_knows FOLDER NAME: true when the running agent has the user. On a busy machine it has answered before
# it had read all users, so it is asked for two seconds.
agent_knows() {
    local tries object
    object=$(user_status "$1" "$2")
    for ((tries = 0; tries < 20; tries++)); do
        [[ $(ask_agent "$1" snmpget "$object") != 1 ]] || return 0
        sleep 0.1
    done
    return 1
}

# write_client_configuration FOLDER NAME KEYS: what the Net-SNMP tools need to be that user.
write_client_configuration() {
    local folder=$1/users/$2 authentication privacy
    read -r _ _ _ _ _ _ _ _ authentication _ privacy _ <<<"$3"
    mkdir -p "$folder" 2>/dev/null || fail "cannot write to $folder"
    replace_file "$folder/snmp.conf" <<CONF
# Makes the Net-SNMP tools the user $2 of the agent of this state folder, and of no other: these
# keys are made from the passwords for that agent alone. Written by snmp_user.sh.
defVersion 3
defSecurityName $2
defSecurityLevel authPriv
defAuthType SHA-256
defAuthLocalizedKey $authentication
defPrivType AES
defPrivLocalizedKey $privacy
CONF
}

# as_user FOLDER NAME: prints what goes in front of a tool's command to make it that user. A
# search path cannot name a folder with a colon in its name.
as_user() {
    if [[ $1 == *:* ]]; then
        printf 'cd %q && SNMPCONFPATH=users/%s' "$1" "$2"
    else
        printf 'SNMPCONFPATH=%q' "$1/users/$2"
    fi
}
