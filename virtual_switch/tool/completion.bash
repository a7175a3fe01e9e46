# SPDX-License-Identifier: Apache-2.0
# bash completion for vswitchctl. Source this file, or put it into the folder of the
# system's completions under the name vswitchctl.
# shellcheck shell=bash

# _vswitchctl_words COMMAND SUBCOMMAND: what may follow them.
_vswitchctl_words() {
    local vsan_options="--name --state --mtu --load-balancing --interop --inorder-delivery --drop-latency"
    case "$1 $2" in
    " ") echo "show vsan port system role timers tdx event-history debug fault watch wait-until counters" ;;
    "vsan ") echo "list show create set delete" ;;
    "vsan create" | "vsan set") echo "$vsan_options" ;;
    "port ") echo "list show move up down deny speed alias enable disable traps traffic" ;;
    "port list") echo "--vsan" ;;
    "port speed") echo "2000 4000 8000 16000 32000" ;;
    "port traps") echo "on off" ;;
    "port traffic")
        echo "off --in-octets --in-frames --in-errors --in-discards --out-octets --out-frames" \
            "--out-errors --out-discards"
        ;;
    "system ") echo "show name contact location" ;;
    "role ") echo "list add remove" ;;
    "role add") echo "--vsans --interfaces --users --replace" ;;
    "timers ") echo "show set" ;;
    "timers show") echo "--vsan" ;;
    "timers set")
        echo "edtov ratov dstov fstov switch-latency network-latency inorder-delivery --vsan --force"
        ;;
    "tdx ") echo "show enable disable commit abort pending show-run refuse" ;;
    "tdx show-run" | "tdx refuse") echo "on off" ;;
    "event-history "*) echo "--name --last --class" ;;
    "debug ") echo "show set" ;;
    "debug set") echo "failures trace history debug on off" ;;
    "fault ") echo "list add clear storm" ;;
    "fault add")
        echo "client status delay no-data short drop close exit" \
            "--with-data --service --opcode --kind --vsan --port --times"
        ;;
    "fault add-client")
        echo "lose-request lose-answer delay-answer repeat-answer reorder-answers cut-answer wrong-request-id error" \
            "too-big not-in-time-window unknown-engine reboot-engine lose-notification repeat-notification" \
            "delay-notification reorder-notifications" \
            "--deviation --index --oid --pdu --user --from --to --times --after --percent --seed"
        ;;
    "fault storm") echo "--class --vsan" ;;
    "counters "*) echo "--reset" ;;
    "watch "*) echo "--count --events-only" ;;
    "wait-until "*)
        echo "ready vsan port tdx timer agents --timeout exists absent oper state name link enabled disabled session"
        ;;
    esac
}

# _vswitchctl_values OPTION: the values of an option that has few.
_vswitchctl_values() {
    case $1 in
    --state) echo "active suspended" ;;
    --load-balancing) echo "srcIdDestId srcIdDestIdOxId" ;;
    --inorder-delivery) echo "on off" ;;
    --interop) echo "none 1 2 3 4" ;;
    --pdu) echo "get get-next get-bulk set trap inform" ;;
    --service) echo "vsan port roles distribution" ;;
    --kind) echo "get get-next set delete distributed-get" ;;
    --opcode)
        echo "vsan vsan-count last-change interface interface-count timer latency inorder-delivery" \
            "status-events switch-name membership port-settings system-settings role-of-user distribution-state"
        ;;
    esac
}

_vswitchctl() {
    local current=${COMP_WORDS[COMP_CWORD]} before=${COMP_WORDS[COMP_CWORD - 1]}
    local command="" subcommand="" at values
    COMPREPLY=()
    if [[ $before == --run ]]; then
        mapfile -t COMPREPLY < <(compgen -d -- "$current")
        return
    fi
    values=$(_vswitchctl_values "$before")
    if [[ -n $values ]]; then
        mapfile -t COMPREPLY < <(compgen -W "$values" -- "$current")
        return
    fi
    # The first two words that are neither options nor the run directory.
    for ((at = 1; at < COMP_CWORD; at++)); do
        case ${COMP_WORDS[at]} in
        --run) ((at++)) ;;
        -*) ;;
        *)
            if [[ -z $command ]]; then
                command=${COMP_WORDS[at]}
            elif [[ -z $subcommand ]]; then
                subcommand=${COMP_WORDS[at]}
            elif [[ "$command $subcommand ${COMP_WORDS[at]}" == "fault add client" ]]; then
                subcommand=add-client
            fi
            ;;
        esac
    done
    values="$(_vswitchctl_words "$command" "$subcommand") --json --run --help"
    mapfile -t COMPREPLY < <(compgen -W "$values" -- "$current")
}

complete -F _vswitchctl vswitchctl
