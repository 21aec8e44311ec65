#!/bin/bash
# Installs into the root folder that it runs in what the packages depend on and what the tests use: a desktop and a browser.
# shellcheck source-path=SCRIPTDIR source=checks.sh
. "${BASH_SOURCE[0]%/*}/checks.sh"

apt update
apt satisfy --no-install-recommends -y "$(dpkg-deb -f "$agent_deb" Depends)" \
    "$(dpkg-deb -f "$host_deb" Depends | sed 's/tessarin-user-agent ([^)]*), //')" desktop-file-utils procps
apt install --no-install-recommends -y systemd-sysv libpam-systemd dbus polkitd rpm \
    xvfb openbox xdotool x11-utils imagemagick fonts-dejavu-core xfce4-panel xfconf thunar firefox-esr python3 python3-jeepney
apt clean
