#!/usr/bin/env bash
# Installs the packages of Debian 12 or 13 that building, testing and the demo need. Safe to run again: quick when all is there.
#
# Usage: scripts/install-deps.sh [GROUP...]     groups: build test demo package filemanagers sessions root lint bench fuzz coverage macos; without any: build test demo lint
set -euo pipefail

# The one list of packages.
declare -A packages=(
    [build]="cmake ninja-build g++ pkg-config libfmt-dev libboost1.81-dev rapidjson-dev qt6-base-dev qt6-svg-dev
             libxcb1-dev libxcb-res0-dev libsystemd-dev libre2-dev
             libisal-dev"
    [test]="libgtest-dev libgmock-dev desktop-file-utils bubblewrap xdg-dbus-proxy"
    [demo]="python3 python3-jeepney procps dbus dbus-daemon at-spi2-core xvfb openbox xdotool x11-utils imagemagick fonts-dejavu-core
            xfce4-panel xfconf xdg-utils qt6-wayland
            fonts-noto-color-emoji trayer firefox-esr chromium sway foot grim"
    [package]="dpkg-dev binutils gzip rpm rpm2cpio cpio lintian rpmlint appstream desktop-file-utils man-db systemd"
    [filemanagers]="nautilus nemo caja dolphin thunar"
    [sessions]="gnome-shell xfce4-session xfwm4 xfce4-settings xfdesktop4 kwin-wayland qtwayland5 plasma-workspace
               plasma-desktop"
    [root]="mmdebstrap"
    [lint]="clang-format clang-tidy shellcheck python3"
    [bench]="libbenchmark-dev libspdlog-dev libatspi2.0-dev python3-matplotlib"
    [fuzz]="clang libclang-rt-dev"
    [coverage]="clang libclang-rt-dev llvm"
    [macos]="nodejs llvm cmake ninja-build python3 googletest"
)
# Debian 13 has a later one only.
# shellcheck source=/dev/null
if (. /etc/os-release && ((${VERSION_ID%%.*} >= 13))) 2>/dev/null; then
    packages[build]=${packages[build]/libboost1.81-dev/libboost1.83-dev}
fi
# Some packages of nodejs bring npm along and do not go together with the one of that name.
command -v npm >/dev/null || packages[macos]+=" npm"
# Tests and benchmarks run the same desktop as the demo; tests also look at the packages.
packages[test]+=" ${packages[demo]} ${packages[package]}"
packages[bench]+=" ${packages[demo]}"

wanted=""
(($# > 0)) || set -- build test demo lint
for group; do
    [[ -n ${packages[$group]:-} ]] || { echo "install-deps: no group '$group'" >&2; exit 2; }
    wanted+=" ${packages[$group]}"
done

missing=()
for package in $wanted; do
    [[ $(dpkg-query -W -f='${db:Status-Status}' "$package" 2>/dev/null) == installed ]] || missing+=("$package")
done
if ((${#missing[@]} == 0)); then
    exit 0
fi

as_root=()
if ((EUID != 0)); then
    if ! command -v sudo >/dev/null; then
        echo "install-deps: not root and no sudo; please install: ${missing[*]}" >&2
        exit 1
    fi
    as_root=(sudo)
fi

echo "install-deps: installing ${missing[*]}" >&2
apt=("${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get -qq -o Dpkg::Use-Pty=0)
# Package lists are refreshed only when they are missing or too old.
if ! compgen -G '/var/lib/apt/lists/*Packages*' >/dev/null; then
    "${apt[@]}" update </dev/null >&2
fi
if ! "${apt[@]}" install -y --no-install-recommends "${missing[@]}" </dev/null >&2; then
    "${apt[@]}" update </dev/null >&2
    "${apt[@]}" install -y --no-install-recommends "${missing[@]}" </dev/null >&2
fi
