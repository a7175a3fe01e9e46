# SPDX-License-Identifier: Apache-2.0
# shellcheck shell=bash
# shellcheck disable=SC2034 # used by those who source this
# The packages that this repository needs, all lists in this one place, and their
# installation. Sourced after common.sh.

BUILD_PACKAGES=(
    g++ gcc libc6-dev cmake ninja-build pkg-config libsnmp-dev
    libsqlitecpp-dev libsqlite3-dev libasio-dev libcli11-dev nlohmann-json3-dev libspdlog-dev libfmt-dev
)
RUN_PACKAGES=(snmpd snmp snmptrapd)
MONITORING_PACKAGES=(prometheus-snmp-exporter)
TEST_PACKAGES=(
    libgtest-dev libgmock-dev python3-pytest python3-pytest-xdist python3-pysnmp4 smitools sqlite3 faketime mount
    "${MONITORING_PACKAGES[@]}"
)
BENCH_PACKAGES=(snmpsim valgrind)
MEMCHECK_PACKAGES=(valgrind)
FUZZ_PACKAGES=(clang-14 libclang-rt-14-dev)
COVERAGE_PACKAGES=(gcovr)
FUZZ_COVERAGE_PACKAGES=(llvm-14)
LINT_PACKAGES=(git clang-format-16 clang-tidy-16 cppcheck shellcheck flake8 mypy)
TARGET_PACKAGES=(mmdebstrap arch-test util-linux)

# missing_packages PACKAGE...: prints those that are not installed.
missing_packages() {
    local package
    for package in "$@"; do
        [[ $(dpkg-query -W -f '${db:Status-Status}' "$package" 2>/dev/null) == installed ]] || printf '%s\n' "$package"
    done
}

# install_packages PACKAGE...: installs those that are missing, after saying which. Ends the
# script with one sentence when that cannot be done.
install_packages() {
    local missing list as_root=() log
    require_debian
    mapfile -t missing < <(missing_packages "$@")
    ((${#missing[@]})) || return 0
    list=${missing[*]}
    if ((EUID != 0)); then
        command -v sudo >/dev/null ||
            fail "these packages are missing, and installing them takes root or sudo: $list"
        as_root=(sudo)
        # With nobody there to type a password, sudo must not wait for one.
        [[ -t 0 ]] || as_root=(sudo -n)
    fi
    say "installing: $list"
    log=$(mktemp "${TMPDIR:-/tmp}/install-packages.XXXXXX")
    if ! apt_install "$log" "${as_root[@]}" -- "${missing[@]}"; then
        show_failure "installing packages" "$log"
        exit 1
    fi
    rm -f "$log"
    [[ " $list " != *" snmpd "* ]] || stop_system_service snmpd snmpd.service "${as_root[@]}"
    [[ " $list " != *" snmptrapd "* ]] ||
        stop_system_service snmptrapd "snmptrapd.socket snmptrapd.service" "${as_root[@]}"
    [[ " $list " != *" prometheus-snmp-exporter "* ]] ||
        stop_system_service prometheus-snmp-exporter prometheus-snmp-exporter.service "${as_root[@]}"
}

# require_debian: the packages are Debian's, and so are their names.
require_debian() {
    local id
    id=$(. /etc/os-release 2>/dev/null && printf '%s' " ${ID:-} ${ID_LIKE:-} ")
    [[ $id == *" debian "* ]] && command -v apt-get >/dev/null ||
        fail "this runs on Debian 12 and systems made from it only; tools/packages.sh lists what it installs there"
}

# apt_install LOG [AS_ROOT...] -- PACKAGE...: runs in the foreground and to its end, since a
# package half installed is worse than a Ctrl-C that has to wait.
apt_install() {
    local log=$1 as_root=()
    shift
    while [[ $1 != -- ]]; do
        as_root+=("$1")
        shift
    done
    shift
    local apt=("${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get -q -y -o APT::Install-Recommends=false)
    {
        # The lists at hand may be absent or too old to lead to a file that still exists.
        "${apt[@]}" install "$@" || { "${apt[@]}" update && "${apt[@]}" install "$@"; }
    } >"$log" 2>&1 </dev/null
}

# stop_system_service PACKAGE "UNIT..." [AS_ROOT...]: Debian starts a service of the system's
# own when one of these packages is installed. Nobody asked for that one.
stop_system_service() {
    local package=$1 units=$2
    shift 2
    [[ -d /run/systemd/system ]] || return 0
    say "stopping the system's own $package, which came with its package"
    # shellcheck disable=SC2086 # several units
    "$@" systemctl disable --now --quiet $units ||
        say "it could not be stopped; 'systemctl disable --now $units' as root does that"
}
