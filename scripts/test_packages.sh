#!/usr/bin/env bash
# Tests the packages: makes them, installs them in a clean minimal Debian root folder, uses, upgrades, removes and purges them there.
# Needs root and the mirror that this machine's apt uses. What the packages hold is checked by the test packages.contents of ctest.
#
# Usage: scripts/test_packages.sh [--build FOLDER] [--twice]
#   --build FOLDER   packages of the programs in that build folder instead of build/package
#   --twice          builds them a second time, in another folder and without a compiler cache, and compares the bytes
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

build=()
twice=no
while (($#)); do
    case $1 in
        --build) build=(--build "${2:?--build needs a folder}"); shift ;;
        --twice) twice=yes ;;
        -h | --help) sed -n '2,/^set/{/^set/d;s/^# \{0,1\}//;p}' "$0"; exit 0 ;;
        *) echo "test_packages.sh: unknown option '$1'" >&2; exit 2 ;;
    esac
    shift
done
if ((EUID != 0)); then
    echo "test_packages.sh: needs root, for a root folder with users of its own" >&2
    exit 1
fi
scripts/install-deps.sh package root

work=$(mktemp -d)
trap 'rm -rf --one-file-system "$work"' EXIT
SOURCE_DATE_EPOCH=${SOURCE_DATE_EPOCH:-$(git log -1 --format=%ct)}
export SOURCE_DATE_EPOCH

scripts/package.sh "${build[@]}" >"$work/packages.txt"
folder=$(dirname "$(head -1 "$work/packages.txt")")
if [[ $twice == yes ]]; then
    mkdir "$work/again"
    git ls-files -z | xargs -0 cp --parents -t "$work/again"
    (cd "$work/again" && CCACHE_DISABLE=1 scripts/package.sh)
    for package in "$folder"/*; do
        cmp "$package" "$work/again/build/package/packages/$(basename "$package")"
    done
    echo "ok: two builds give the same bytes"
    rm -rf "$work/again"
fi

# shellcheck source=/dev/null
release=$(. /etc/os-release && echo "$VERSION_CODENAME")
sources=(/etc/apt/sources.list.d/*.sources)
[[ ! -s /etc/apt/sources.list ]] || sources+=(/etc/apt/sources.list)
mmdebstrap --quiet --variant=minbase "$release" "$work/root" "${sources[@]}"
mkdir "$work/root/packages"
cp "$folder"/*.deb "$work/root/packages/"
cp scripts/lib/installed_packages.sh "$work/root/"
cp /etc/resolv.conf "$work/root/etc/resolv.conf"
# shellcheck disable=SC2016 # for the other shell
# When the first process ends, all others of the root end.
unshare --mount --pid --fork --kill-child bash -euc '
    mount --make-rprivate /
    mount --bind "$0" "$0"
    mount -t proc proc "$0/proc"
    mount -t tmpfs tmpfs "$0/run"
    mount --rbind /dev "$0/dev"
    exec chroot "$0" /installed_packages.sh' "$work/root"
echo "ok: all of it"
