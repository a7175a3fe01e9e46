#!/bin/bash
# SPDX-License-Identifier: Apache-2.0
# Usage: tools/lint.sh
# Checks format and looks for mistakes that need no running program; ends with a line
# 'N passed, N failed'. The packages must be installed.
set -uo pipefail

source "$(dirname "${BASH_SOURCE[0]}")/common.sh"
source "$REPO/tools/build.sh"
cd "$REPO" || exit 1

PASSED=0
FAILED=0
LOGS=$REPO/build/lint
mkdir -p "$LOGS" || fail "cannot write to $LOGS"
end_on_signals

# files PATTERN...: the files of the repository that match, new ones included.
files() { git ls-files --cached --others --exclude-standard -- "$@"; }

# check WHAT COMMAND...: one check; shows what it found when it fails.
check() {
    local what=$1 log=$LOGS/${1// /-}.log
    shift
    if "$@" >"$log" 2>&1; then
        say "  $what: fine"
        PASSED=$((PASSED + 1))
    else
        show_failure "$what" "$log"
        FAILED=$((FAILED + 1))
    fi
}

every_script_parses() {
    local script status=0
    for script in "${SCRIPTS[@]}"; do
        bash -n "$script" || status=1
    done
    return "$status"
}

# One run a folder: each is a program of its own, and some have modules of the same name.
python_types_fit() {
    local folder status=0
    for folder in tests/agent tests/mib tests/porting tests/fuzz bench tools; do
        (cd "$folder" && mypy --config-file "$REPO/tools/mypy.ini" --cache-dir "$LOGS/mypy/$folder" .) || status=1
    done
    return "$status"
}

# One process a few files: it holds all that it has read. What it looks for is in .clang-tidy.
code_is_tidy() {
    files 'agent/*.cpp' 'feature/*.cpp' 'platform/*.cpp' 'virtual_switch/*.cpp' |
        xargs -d '\n' -n 4 -P "$(nproc)" clang-tidy-16 --quiet -p "$LOGS/tidy" 2> >(grep -v "warnings generated" >&2)
}

# The lock file pins checksums; where packages come from is npm's own setting.
lock_file_names_no_registry() {
    ! grep -n '"resolved"\|://' tools/standard-mibs/package-lock.json
}

# What has no place for a comment (JSON, what a fuzzer found) and what people read is left out.
every_source_names_its_licence() {
    files '*.c' '*.cpp' '*.h' '*.py' '*.sh' '*.pl' '*.bash' '*.cmake' '*CMakeLists.txt' '*.map' '*.yml' '*.ini' \
        '*.cfg' '*.supp' '*.suppressions' .ci/run .clang-format .shellcheckrc |
        xargs -d '\n' awk 'FNR == 1 { if (named == "no") missing = missing last "\n"; named = "no"; last = FILENAME }
            FNR <= 2 && /SPDX-License-Identifier: Apache-2\.0/ { named = "yes" }
            END { if (named == "no") missing = missing last "\n"; printf "%s", missing; exit missing != "" }'
}

mapfile -t SOURCES < <(files '*.c' '*.cpp' '*.h')
mapfile -t SCRIPTS < <(files '*.sh' .ci/run)
mapfile -t PYTHON < <(files '*.py')

say "checking format and code"
check "format of C and C++" clang-format-16 --dry-run -Werror "${SOURCES[@]}"
check "cppcheck" cppcheck --quiet --std=c++20 --language=c++ --enable=warning,performance,portability \
    --inline-suppr --suppressions-list=tools/cppcheck.suppressions --error-exitcode=1 -j "$(nproc)" \
    -I platform/include -I . -I virtual_switch -I platform agent contract feature platform virtual_switch
configure_project "$LOGS/tidy" -DBUILD_TESTS=OFF
check "clang-tidy" code_is_tidy
check "shell scripts parse" every_script_parses
check "shellcheck" shellcheck "${SCRIPTS[@]}"
check "flake8" flake8 --config tools/flake8.cfg "${PYTHON[@]}"
check "types of the Python code" python_types_fit
check "licence of every source" every_source_names_its_licence
check "lock file of the MIB package" lock_file_names_no_registry
say "$PASSED passed, $FAILED failed"
((FAILED == 0))
