# SPDX-License-Identifier: Apache-2.0
# bash completion for vswitchctl. Source this file, or put it into the folder of the
# system's completions under the name vswitchctl. The tool itself says what may follow.
# shellcheck shell=bash

_vswitchctl() {
    local current=${COMP_WORDS[COMP_CWORD]} kind="" word tool=${COMP_WORDS[0]/#\~/$HOME}
    local -a words=("${COMP_WORDS[@]:1:COMP_CWORD-1}")
    COMPREPLY=()
    # What is half typed has its quotes and backslashes still.
    while IFS= read -r word; do
        if [[ -z $kind ]]; then
            kind=$word
        else
            COMPREPLY+=("$(printf '%q' "$word")")
        fi
    done < <("$tool" complete-words "${words[@]//[\\\'\"]/}" "${current//[\\\'\"]/}" 2>/dev/null)
    case $kind in
    files) mapfile -t COMPREPLY < <(compgen -f -- "$current") ;;
    folders) mapfile -t COMPREPLY < <(compgen -d -- "$current") ;;
    *) return ;;
    esac
    # Outside a completion there is nothing to set.
    compopt -o filenames 2>/dev/null || true
}

complete -F _vswitchctl vswitchctl
