# SPDX-License-Identifier: Apache-2.0
# shellcheck shell=bash
# Who the agent of a state folder is: its engine id, for which the keys of all users are made, and
# its boots, how often it has started under that id. The boots must never go back, since a client
# that has seen more of them takes the agent's messages for old ones. Sourced after common.sh,
# agent.sh and users.sh; whoever changes something here holds the lock of the users.
#
#   agent/persistent/snmpd.conf   where the agent stores both, among other things: it begins a new
#                                 file at each start and end, which a full disk leaves empty or cut
#   agent/engine                  kept beside it, in the same words, for when it is lost

# read_engine FILE: sets ENGINE and BOOTS to what a file says in whole lines, else to nothing and 0.
# A line that a full disk has cut short has no end, or goes on as another one.
read_engine() {
    local line
    ENGINE='' BOOTS=0
    while IFS= read -r line; do
        if [[ $line =~ ^oldEngineID\ (0x([0-9a-f]{2}){5,32})$ ]]; then
            ENGINE=${BASH_REMATCH[1]}
        elif [[ $line =~ ^engineBoots\ ([0-9]{1,10})$ ]]; then
            BOOTS=$((10#${BASH_REMATCH[1]}))
        fi
    done 2>/dev/null <"$1"
}

# read_engines FOLDER: sets KEPT_ENGINE and KEPT_BOOTS to what is kept, ENGINE and BOOTS to what the
# agent has stored.
read_engines() {
    read_engine "$1/agent/engine"
    KEPT_ENGINE=$ENGINE KEPT_BOOTS=$BOOTS
    read_engine "$1/agent/persistent/snmpd.conf"
}

# engine_id FOLDER: prints what the keys of an agent's users hold for: the number that it made
# up for itself when it first ran.
engine_id() {
    read_engine "$1/agent/persistent/snmpd.conf"
    printf %s "$ENGINE"
}

# engine_is_lost FOLDER: true when the agent would start as another one than it was.
engine_is_lost() {
    read_engines "$1"
    [[ -n $KEPT_ENGINE && -z $ENGINE ]]
}

# engine_lines ENGINE BOOTS: prints them in the agent's words.
engine_lines() { printf 'engineBoots %d\noldEngineID %s\n' "$2" "$1"; }

# restore_engine FOLDER: puts back what the agent's file has lost, or has from earlier than what is
# kept, as after a kill. An agent that was given another id goes on with that one.
restore_engine() {
    local stored=$1/agent/persistent/snmpd.conf
    read_engines "$1"
    [[ -n $KEPT_ENGINE ]] || return 0
    [[ -z $ENGINE ]] || { [[ $ENGINE == "$KEPT_ENGINE" ]] && ((BOOTS < KEPT_BOOTS)); } || return 0
    {
        grep -vsE '^(engineBoots|oldEngineID)' "$stored"
        engine_lines "$KEPT_ENGINE" $(((BOOTS > KEPT_BOOTS ? BOOTS : KEPT_BOOTS) + 1))
    } | replace_file "$stored" || exit 1
    [[ -n $ENGINE ]] || say "put back the agent's engine id, which $stored had lost"
}

# keep_engine FOLDER MORE: keeps what the agent has stored, with so many more boots, or those kept
# already where these are more. An agent counts one more whenever it reads its file.
keep_engine() {
    read_engines "$1"
    [[ -n $ENGINE ]] || return 0
    BOOTS=$((BOOTS + $2))
    [[ $ENGINE != "$KEPT_ENGINE" ]] || ((BOOTS > KEPT_BOOTS)) || return 0
    engine_lines "$ENGINE" "$BOOTS" | replace_file "$1/agent/engine" || exit 1
}

# strangers FOLDER: prints the users whose keys are for another agent, or who have none.
strangers() {
    local engine name
    engine=$(engine_id "$1")
    while read -r name _; do
        grep -q "^usmUser [^ ]* [^ ]* $engine $(stored_name "$name") " "$1/agent/users.conf" || say "$name"
    done < <(users "$1")
}
