#!/usr/bin/env bash
# Tests the packages: makes them, and installs, uses, upgrades, removes and purges them in clean minimal Debian root folders: without
# systemd, as rpms, and with systemd booted in one, where a user has a desktop and a browser. scripts/lib/packages has the steps.
# Needs root and the mirror that this machine's apt uses. What the packages hold is checked by the test packages.contents of ctest.
#
# Usage: scripts/test_packages.sh [--release NAME] [--build FOLDER] [--twice] [--pictures FOLDER]
#   --release NAME     of that Debian release (bookworm, trixie); the packages for another than this machine's are built in a root of it
#   --build FOLDER     packages of the programs in that build folder instead of build/package
#   --twice            builds them a second time, in another folder and without a compiler cache, and compares the bytes
#   --pictures FOLDER  keeps the screenshots there
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

# shellcheck source=/dev/null
own=$(. /etc/os-release && echo "$VERSION_CODENAME")
release=$own
build=()
twice=no
pictures=""
while (($#)); do
    case $1 in
        --release) release=${2:?--release needs a name}; shift ;;
        --build) build=(--build "${2:?--build needs a folder}"); shift ;;
        --twice) twice=yes ;;
        --pictures) pictures=${2:?--pictures needs a folder}; shift ;;
        -h | --help) sed -n '2,/^set/{/^set/d;s/^# \{0,1\}//;p}' "$0"; exit 0 ;;
        *) echo "test_packages.sh: unknown option '$1'" >&2; exit 2 ;;
    esac
    shift
done
if [[ $release != "$own" && (${#build[@]} -gt 0 || $twice == yes) ]]; then
    echo "test_packages.sh: --build and --twice are for this machine's own release" >&2
    exit 2
fi
if ((EUID != 0)); then
    echo "test_packages.sh: needs root, for root folders with users of their own" >&2
    exit 1
fi
scripts/install-deps.sh package root

work=$(mktemp -d)
trap 'rm -rf --one-file-system "$work"' EXIT
SOURCE_DATE_EPOCH=${SOURCE_DATE_EPOCH:-$(git log -1 --format=%ct)}
export SOURCE_DATE_EPOCH

# in_root ROOT PROGRAM [ARGUMENT...]: when its first process ends, all others of the root end.
in_root() {
    # shellcheck disable=SC2016 # for the other shell
    unshare --mount --pid --fork --kill-child bash -euc '
        mount --make-rprivate /
        mount --bind "$0" "$0"
        mount -t proc proc "$0/proc"
        mount -t tmpfs tmpfs "$0/run"
        mount --rbind /dev "$0/dev"
        exec chroot "$0" "$@"' "$@"
}
step() { echo "== $* (after $SECONDS s)"; }

step "a root of $release"
sources=(/etc/apt/sources.list.d/*.sources)
[[ ! -s /etc/apt/sources.list ]] || sources+=(/etc/apt/sources.list)
mkdir "$work/sources" "$work/packages"
cp "${sources[@]}" "$work/sources/"
sed -i "s/\b$own\b/$release/g" "$work/sources"/*
mmdebstrap --quiet --variant=minbase "$release" "$work/root" "$work/sources"/*
cp /etc/resolv.conf "$work/root/etc/resolv.conf"

step "packages"
if [[ $release == "$own" ]]; then
    scripts/package.sh "${build[@]}" >"$work/packages.txt"
    cp "$(dirname "$(head -1 "$work/packages.txt")")"/*.{deb,rpm} "$work/packages/"
else
    cp -a "$work/root" "$work/builder"
    mkdir "$work/builder/source"
    git ls-files -z | xargs -0 cp --parents -t "$work/builder/source"
    in_root "$work/builder" /source/scripts/package.sh >"$work/packages.txt" 2>"$work/build.log" ||
        { tail -n 50 "$work/build.log" >&2; exit 1; }
    cp "$work"/builder/source/build/package/packages/*.{deb,rpm} "$work/packages/"
    rm -rf --one-file-system "$work/builder"
    echo "ok: the packages are built on $release"
fi
if [[ $twice == yes ]]; then
    mkdir "$work/again"
    git ls-files -z | xargs -0 cp --parents -t "$work/again"
    (cd "$work/again" && CCACHE_DISABLE=1 scripts/package.sh)
    for package in "$work/packages"/*; do
        cmp "$package" "$work/again/build/package/packages/$(basename "$package")"
    done
    echo "ok: two builds give the same bytes"
    rm -rf "$work/again"
fi

steps=/test/scripts/lib/packages
mkdir -p "$work/root/test/scripts/lib"
mv "$work/packages" "$work/root/packages"
cp -r scripts/lib/packages scripts/lib/desktop "$work/root/test/scripts/lib/"
step "what they depend on, and a desktop"
in_root "$work/root" "$steps/prepare.sh"
cp -a "$work/root" "$work/booted"
step "without systemd"
in_root "$work/root" "$steps/without_systemd.sh"
step "rpm"
in_root "$work/root" "$steps/rpm.sh"
rm -rf --one-file-system "$work/root"
step "with systemd"
status=0
scripts/lib/packages/boot.sh "$work/booted" "$steps/with_systemd.sh" 600 || status=$?
if [[ -n $pictures ]]; then
    mkdir -p "$pictures"
    cp "$work/booted/home/anna/pictures"/*.png "$pictures/" 2>/dev/null || true
fi
((status == 0)) || exit "$status"
step "all of it is well"
