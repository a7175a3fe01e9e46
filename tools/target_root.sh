# SPDX-License-Identifier: Apache-2.0
# shellcheck shell=bash
# The 32-bit root: a small Debian of the other word size in which everything is built and
# tested as it is on the product. Sourced after common.sh and packages.sh; needs root.

TARGET_ROOT=$REPO/build/target-root
TARGET_ARCHITECTURE=i386

# debian_source: prints the one source line for the root. The base address is the one that
# this machine installs from; the suite of security updates is left out, since its index for
# another architecture can be out of step for hours.
debian_source() {
    local codename address
    codename=$(. /etc/os-release && printf '%s' "${VERSION_CODENAME:-}")
    # shellcheck disable=SC2016 # apt-get fills it in
    address=$(apt-get indextargets --format '$(REPO_URI)' 'Created-By: Packages' 'Origin: Debian' 'Label: Debian' \
        "Codename: $codename" | head -n 1)
    [[ -n $address ]] && printf 'deb %s %s main' "$address" "$codename"
}

# make_target_root: makes the root, or keeps the one that was made for the same packages.
make_target_root() {
    local packages key source log=$TARGET_ROOT/mmdebstrap.log started=$SECONDS
    packages=("${BUILD_PACKAGES[@]}" "${RUN_PACKAGES[@]}" "${TEST_PACKAGES[@]}" util-linux)
    mkdir -p "$TARGET_ROOT"
    source=$(debian_source) || {
        apt-get update >"$log" 2>&1
        source=$(debian_source)
    } || fail "cannot tell where this machine installs Debian's packages from; 'apt-get update' may help"
    key="$source ${packages[*]}"
    if [[ -d $TARGET_ROOT/root && $(cat "$TARGET_ROOT/made-for" 2>/dev/null) == "$key" ]]; then
        return
    fi
    say "making a 32-bit root in $TARGET_ROOT"
    rm -rf "$TARGET_ROOT/root" "$TARGET_ROOT/made-for"
    if ! run_step "$log" mmdebstrap --variant=apt --architectures="$TARGET_ARCHITECTURE" \
        --include="$(IFS=, && printf '%s' "${packages[*]}")" --aptopt='APT::Install-Recommends "false"' \
        --dpkgopt=force-unsafe-io --dpkgopt='path-exclude=/usr/share/doc/*' --dpkgopt='path-exclude=/usr/share/man/*' \
        --dpkgopt='path-exclude=/usr/share/locale/*' \
        "$(. /etc/os-release && printf '%s' "$VERSION_CODENAME")" "$TARGET_ROOT/root" "$source"; then
        rm -rf "$TARGET_ROOT/root"
        show_failure "making the 32-bit root" "$log"
        exit 1
    fi
    printf '%s\n' "$key" >"$TARGET_ROOT/made-for"
    say "  done ($((SECONDS - started)) s)"
}

# in_target_root COMMAND...: runs a command in the root, where the repository is /src, read
# only, and /build stays from one run to the next. It gets mounts and process numbers of its
# own, so that nothing stays mounted or running afterwards, however this ends.
in_target_root() {
    # unshare shrugs off the signal that tells it of this script's death; nothing survives KILL.
    # shellcheck disable=SC2016 # the inner shell fills these in
    run_group setpriv --pdeathsig KILL -- unshare --mount --propagation private --pid --fork --kill-child setarch linux32 bash -c '
        set -e
        root=$1 repository=$2
        shift 2
        mkdir -p "$root/src" "$root/build"
        mount --bind "$repository" "$root/src"
        mount -o remount,bind,ro "$root/src"
        mount -t proc proc "$root/proc"
        mount --rbind /dev "$root/dev"
        mount -t tmpfs tmpfs "$root/tmp"
        exec chroot "$root" env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin HOME=/root LANG=C.UTF-8 LOGS_UNDER="$root" "$@"
    ' in-target-root "$TARGET_ROOT/root" "$REPO" "$@"
}
