#!/bin/bash
# SPDX-License-Identifier: Apache-2.0
# Usage: bench/module32.sh FILE
# Builds a release of the module in the 32-bit root, which is made first, and puts it into a
# file, stripped. Needs root.
set -uo pipefail

source "$(dirname "${BASH_SOURCE[0]}")/../tools/common.sh"
source "$REPO/tools/packages.sh"
source "$REPO/tools/target_root.sh"

(($# == 1)) || usage_error "module32.sh takes the file to write."
trap end_step EXIT
end_on_signals
install_packages "${TARGET_PACKAGES[@]}"
make_target_root
in_target_root bash -c '
    cmake -S /src -B /build/release -G Ninja -DCMAKE_BUILD_TYPE=Release -DBUILD_TESTS=OFF &&
        ninja -C /build/release vsanmib &&
        strip -o /build/release/stripped.so /build/release/lib/libvsanmib.so' &&
    cp "$TARGET_ROOT/root/build/release/stripped.so" "$1"
