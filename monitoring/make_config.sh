#!/bin/bash
# SPDX-License-Identifier: Apache-2.0
# Makes the configuration of prometheus-snmp-exporter from the built MIB.
set -uo pipefail

CALLED_FROM=$PWD
source "$(dirname "${BASH_SOURCE[0]}")/../tools/common.sh"
source "$REPO/tools/packages.sh"
source "$REPO/tools/build.sh"

BUILD=$REPO/build
OUTPUT=
AUTH=
# A folder of this run's own, for what may hold passwords.
WORK=
UNFINISHED=

usage() {
    cat <<HELP
Usage: monitoring/make_config.sh [OPTION]...
Writes the configuration of prometheus-snmp-exporter for a switch, made from the MIB of a
build: modules 'vsan' and, for its ports, 'if_mib'. Installs the exporter when it is missing.

  --auth FILE     how the exporter logs in to the agents: lines of YAML as in
                  docs/monitoring.md, in a file that only its owner can read. Without
                  it, version 2c and the community 'public'
  --output FILE   where to write (default monitoring/snmp.yml in the build folder);
                  only its owner can read it when there is an --auth
  --build DIR     the build folder (default $BUILD)
  -h, --help      this text
  --version       which release this is
HELP
}

# parse_options ARGUMENT...: sets the variables above, or ends with 2.
parse_options() {
    while (($#)); do
        next_option "--auth --output --build" "$@"
        shift "$TAKEN"
        [[ $VALUE == /* ]] || VALUE=$CALLED_FROM/$VALUE
        case $OPTION in
        -h | --help | --version) tell_about "$OPTION" ;;
        --auth) AUTH=$VALUE ;;
        --output) OUTPUT=$VALUE ;;
        --build) BUILD=$VALUE ;;
        *) usage_error "unknown option '$OPTION'." ;;
        esac
    done
    OUTPUT=${OUTPUT:-$BUILD/monitoring/snmp.yml}
}

# check_auth: ends the script when the passwords cannot be read, or by too many.
check_auth() {
    local mode
    [[ -f $AUTH && -r $AUTH ]] || fail "cannot read $AUTH"
    mode=$(stat -Lc %a "$AUTH")
    (((8#$mode & 8#077) == 0)) || fail "others than its owner can read $AUTH; 'chmod 600' changes that"
}

# check_mib: ends the script when the build folder has no MIB that the generator can read.
check_mib() {
    local vendor
    [[ -s $BUILD/mibs/VSAN-MIB.txt ]] || fail "$BUILD has no MIB yet; ./run.sh builds it"
    vendor=$(cached_setting "$BUILD" VENDOR_PEN)
    ((vendor <= 2147483647)) ||
        fail "the MIB's enterprise number is $vendor; the generator cannot read one above 2147483647"
}

tidy_up() {
    end_step
    [[ -z $WORK ]] || rm -rf "$WORK"
    [[ -z $UNFINISHED ]] || rm -f "$UNFINISHED"
}

# generate: runs the generator in WORK, on the modules, each with how to log in.
generate() {
    sed -e 's/^/    /' -e "\$a\\" "${AUTH:-/dev/null}" >"$WORK/login"
    sed "/^  [a-z_]*:\$/r $WORK/login" "$REPO/monitoring/generator.yml" >"$WORK/generator.yml"
    # MIBDIRS would take a colon in the folder's name for the end of it.
    ln -s "$BUILD/mibs" "$WORK/mibs"
    run_step "$WORK/log" env -C "$WORK" MIBS=VSAN-MIB MIBDIRS=mibs SNMPCONFPATH=/nonexistent \
        prometheus-snmp-generator generate --fail-on-parse-errors &&
        run_step "$WORK/log" prometheus-snmp-exporter --dry-run --config.file="$WORK/snmp.yml"
}

# reason: prints the last complaint in the generator's log, without time and place, and once for all
# modules.
reason() { grep -v 'level=info' "$WORK/log" | tail -n 1 | sed -e 's/^.* \(err\|msg\)="\(.*\)"$/\2/' -e 's/\\n  line [0-9]*: \([^\\]*\)\\n.*/ \1/'; }

# put_in_place: the exporter may be reading the file that is there already.
put_in_place() {
    local mode=644
    [[ -z $AUTH ]] || mode=600
    [[ ! -d $OUTPUT ]] && mkdir -p "$(dirname "$OUTPUT")" 2>/dev/null &&
        UNFINISHED=$(mktemp "$OUTPUT.XXXXXX" 2>/dev/null) || fail "cannot write $OUTPUT"
    cat "$WORK/snmp.yml" >"$UNFINISHED" && chmod "$mode" "$UNFINISHED" && mv -fT "$UNFINISHED" "$OUTPUT" ||
        fail "cannot write $OUTPUT"
    UNFINISHED=
}

parse_options "$@"
[[ -z $AUTH ]] || check_auth
check_mib
trap tidy_up EXIT
end_on_signals
mapfile -t MIB_PACKAGES < <(packages_for_standard_mibs "$BUILD")
install_packages "${MONITORING_PACKAGES[@]}" "${MIB_PACKAGES[@]}"
provide_standard_mibs "$BUILD"
WORK=$(mktemp -d "${TMPDIR:-/tmp}/make-config.XXXXXX") || fail "cannot make a folder for the generator"
generate || fail "the generator refuses ${AUTH:-$BUILD/mibs/VSAN-MIB.txt}: $(reason)"
put_in_place
say "written $OUTPUT"
