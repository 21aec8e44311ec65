#!/bin/bash
# Installs the packages in the root folder that it runs in, uses them as ordinary users do, upgrades, removes and purges them.
# Started by scripts/test_packages.sh in a root and a process list of its own; /packages has the packages.
#
# Prints one line a check; the exit code is that of the first that failed.
set -euo pipefail
export DEBIAN_FRONTEND=noninteractive LC_ALL=C.UTF-8
unset XDG_RUNTIME_DIR XDG_STATE_HOME DBUS_SESSION_BUS_ADDRESS DISPLAY WAYLAND_DISPLAY

contents=/opt/tessarin/TessarinUserAgent.app/Contents
agent_program=$contents/Linux/TessarinUserAgent
agent_deb=$(ls /packages/tessarin-user-agent_*.deb)
host_deb=$(ls /packages/tessarin-service-host_*.deb)

ok() { echo "ok: $*"; }
fail() {
    echo "FAILED: $*" >&2
    for file in /tmp/host.log /tmp/agent-*.log /home/*/.local/state/tessarin/*.log; do
        [[ ! -s $file ]] || { echo "-- $file" >&2; tail -n 15 "$file" >&2; }
    done
    exit 1
}
# check SENTENCE COMMAND... : the command has to succeed.
check() {
    local sentence=$1
    shift
    "$@" >/tmp/check 2>&1 || { cat /tmp/check >&2; fail "$sentence"; }
    ok "$sentence"
}
# await SENTENCE COMMAND... : the command has to succeed within a minute.
await() {
    local sentence=$1 tries=300
    shift
    until "$@" >/tmp/check 2>&1; do
        ((tries-- > 0)) || { cat /tmp/check >&2; fail "$sentence"; }
        sleep 0.2
    done
    ok "$sentence"
}
apt() { apt-get -qq -o Dpkg::Use-Pty=0 -o Dpkg::Options::=--force-confold "$@" </dev/null >/tmp/apt 2>&1 || { cat /tmp/apt >&2; fail "apt-get $*"; }; }

# Everything but what the package manager and the caches of others write, and users' files.
files() {
    find / -xdev \( -path /proc -o -path /sys -o -path /dev -o -path /tmp -o -path /run -o -path /home -o -path /packages -o \
        -path /var/lib/dpkg -o -path /var/lib/apt -o -path /var/cache -o -path /var/log/apt -o -path /var/lib/systemd \) -prune -o -print |
        grep -vE '/(mimeinfo.cache|icon-theme.cache|dpkg.log|alternatives.log)$' | sort
}
as() { # USER COMMAND...
    local user=$1
    shift
    setpriv --reuid="$user" --regid="$user" --init-groups env -i HOME="/home/$user" USER="$user" PATH=/usr/bin:/bin \
        XDG_RUNTIME_DIR="/run/user/$(id -u "$user")" DBUS_SESSION_BUS_ADDRESS="unix:path=/run/user/$(id -u "$user")/bus" "$@"
}
agents() { # [USER]
    local exe
    for exe in /proc/[0-9]*/exe; do
        if [[ $(readlink "$exe") == "$agent_program" && (-z ${1-} || $(stat -c %U "${exe%/exe}") == "$1") ]]; then
            basename "${exe%/exe}"
        fi
    done
}
log_of() { echo "/home/$1/.local/state/tessarin/com.tessarin.UserAgent_0.log"; }
count_is() { [[ $(grep -c -- "$2" "$3") -eq $1 ]]; }
at_least() { [[ $(grep -c -- "$2" "$3") -ge $1 ]]; }
agent_runs() { [[ $(agents "$1" | wc -l) -eq 1 ]]; }
no_agents() { # not of a removed file either
    ! find /proc -mindepth 2 -maxdepth 2 -path '/proc/[0-9]*/exe' -printf '%l\n' 2>/dev/null | grep -qF "$agent_program"
}
version_in_settings() { grep -q "\"Version\": \"$1\"" /opt/tessarin/settings.json; }

# --- the system before
apt update
apt satisfy --no-install-recommends -y "$(dpkg-deb -f "$agent_deb" Depends)" \
    "$(dpkg-deb -f "$host_deb" Depends | sed 's/tessarin-user-agent ([^)]*), //')" desktop-file-utils procps
for user in anna bert; do
    useradd --create-home --shell /bin/bash "$user"
    install -d -m 700 -o "$user" -g "$user" "/run/user/$(id -u "$user")"
done
mkdir -p /run/dbus
dbus-daemon --system --fork
files >/tmp/before

# --- installation
apt install -y --no-install-recommends "$agent_deb" "$host_deb"
check "every file of the packages is there as it was packed" test -z "$(dpkg --verify tessarin-user-agent tessarin-service-host)"
check "everything belongs to root and nobody else can write it" \
    test -z "$(find /opt/tessarin /etc/tessarin /usr/share/tessarin /var/log/tessarin \( ! -user root -o -perm /022 \) ! -type l)"
check "the settings can be read by every user's agent, and written by root alone" \
    test "$(stat -c '%a %U' /opt/tessarin/settings.json)" = "644 root"
# shellcheck disable=SC2016 # the placeholders of the template
check "the settings are filled in" test "$(grep -c '\${' /opt/tessarin/settings.json)" = 0
check "the settings know the installed place" grep -q '"InstallPath": "/opt/tessarin"' /opt/tessarin/settings.json
check "desktop files are valid" desktop-file-validate /usr/share/applications/com.tessarin.TessarinUserAgent.desktop \
    /etc/xdg/autostart/com.tessarin.UserAgent.desktop
check "the agent opens the product's URLs" \
    test "$(as anna xdg-mime query default x-scheme-handler/tessarin-scheme)" = com.tessarin.TessarinUserAgent.desktop
# shellcheck disable=SC2016 # for the other shell
check "the settings are left alone by a second installation" bash -c 'sum=$(md5sum /opt/tessarin/settings.json) &&
    /var/lib/dpkg/info/tessarin-user-agent.postinst configure "" && [[ $sum == $(md5sum /opt/tessarin/settings.json) ]]'

# --- use
# As its unit runs it: with a folder of the product that it cannot write, and the capabilities that the unit leaves it.
capabilities=$(sed -n 's/^CapabilityBoundingSet=//p' /lib/systemd/system/tessarin-service-host.service | sed 's/ *CAP_/,+/g')
# shellcheck disable=SC2016 # for the other shell
unshare --mount bash -euc 'mount --bind /opt/tessarin /opt/tessarin; mount -o remount,bind,ro /opt/tessarin; exec "$@"' sh \
    setpriv --no-new-privs --bounding-set="-all${capabilities,,}" \
    /opt/tessarin/TessarinServiceHost --bus system --json --log-level Trace --classifiers /etc/tessarin/classifiers.json \
    >/tmp/host.json 2>/tmp/host.log </dev/null &
await "the packaged host has both names on the system's bus" count_is 2 '"ready"' /tmp/host.json
await "the service's log is in the system's folder" test -s /var/log/tessarin/com.tessarin.finderExtension_0.log
check "an ordinary user may not own the service's name" bash -c '! setpriv --reuid=anna --regid=anna --init-groups \
    dbus-send --system --print-reply --dest=org.freedesktop.DBus / org.freedesktop.DBus.RequestName string:com.tessarin.UserAgent uint32:4'
check "an ordinary user may ask the service for its version" as anna dbus-send --system --print-reply --dest=com.tessarin.UserAgent \
    /com/tessarin/UserAgent com.tessarin.UserAgent.Version
for user in anna bert; do
    (cd "/home/$user" && as "$user" dbus-daemon --session --fork --address="unix:path=/run/user/$(id -u "$user")/bus")
    (cd "/home/$user" && as "$user" "$contents/Resources/session/start" </dev/null >"/tmp/agent-$user.log" 2>&1) &
    await "the agent of $user logs to its state folder" grep -q 'Starting TessarinUserAgent' "$(log_of "$user")"
done
await "both agents reach the packaged host" at_least 2 'URLExtractor has been set' /tmp/host.log
check "nothing but the state folder came into a home" test "$(cd /home/anna && find . -newer /tmp/before ! -path './.local*' ! -path '.')" = ""
check "the state folder is its user's alone" test "$(stat -c %a /home/anna/.local/state/tessarin)" = 700
# It waits for an answer that does not come: who has left the bus is not known.
as anna dbus-send --system --print-reply --reply-timeout=3000 --dest=com.tessarin.UserAgent /com/tessarin/UserAgent \
    com.tessarin.UserAgent.SendURL string:https://example.com/packaged string:Firefox int32:1 >/tmp/sent 2>&1 || true
await "a report reaches the packaged host with its user" grep -q "packaged.*\"user\":\"\\?$(id -u anna)\|\"user\":\"\\?$(id -u anna).*packaged" /tmp/host.json
check "a second launch hands over and ends" as anna "$agent_program" 'tessarin-scheme://showProperties?path=/etc/hostname'
check "one agent of each user runs" bash -c "[[ $(agents anna | wc -l) == 1 && $(agents bert | wc -l) == 1 ]]"


install -m 600 -o anna -g anna <(echo 'card 4111 1111 1111 1111') /home/anna/cards.txt
findings_of() { # USER: what he is told of that file
    as "$1" dbus-send --system --print-reply --dest=com.tessarin.FinderExtension /com/tessarin/FinderExtension \
        com.tessarin.FinderExtension.GetScanResult string:/home/anna/cards.txt
}
check "the packaged host finds what the packaged classifiers describe" grep -q 'Payment card' <(findings_of anna)
check "it tells nobody else" test -z "$(findings_of bert | grep "Payment card" || true)"

# --- upgrade while agents run
sed -i 's/"ServerURL": ""/"ServerURL": "kept", "KeyOfAnotherVersion": [1]/' /opt/tessarin/settings.json
before=$(agents | sort | xargs)
newer() { # PACKAGE-FILE: the same, a release later
    local folder
    folder=$(mktemp -d)
    dpkg-deb -R "$1" "$folder"
    sed -i 's/^Version: .*/Version: 1.0.99-1/; s/(= [0-9.]*-1)/(= 1.0.99-1)/' "$folder/DEBIAN/control"
    dpkg-deb -b "$folder" "/tmp/$(dpkg-deb -f "$1" Package).deb" >/dev/null
    rm -rf "$folder"
}
newer "$agent_deb"
newer "$host_deb"
apt install -y --no-install-recommends /tmp/tessarin-user-agent.deb /tmp/tessarin-service-host.deb
for user in anna bert; do
    await "the agent of $user is there again after an upgrade" agent_runs "$user"
done
await "the agents of the new version reach the host" at_least 4 'URLExtractor has been set' /tmp/host.log
check "they are new ones" test -z "$(comm -12 <(xargs -n1 <<<"$before" | sort) <(agents | sort))"
check "the agents ended in order" bash -c "! grep -q 'Ended by' $(log_of anna) $(log_of bert)"
check "the settings are kept, with keys of other versions" grep -q '"KeyOfAnotherVersion"' /opt/tessarin/settings.json

# --- removal
kill %1
apt remove -y tessarin-user-agent tessarin-service-host
check "no agent runs after the removal" no_agents
# They were not written by the packages' programs.
allowed='^/opt/tessarin(/settings\.json|/\.purge)?$|^/var/log/tessarin|^/etc/(tessarin|chromium\.d|xdg/autostart)'
files | comm -13 /tmp/before - | grep -vE "$allowed" >/tmp/left || true
check "the removal leaves nothing but settings and logs" diff /dev/null /tmp/left
check "the settings are there after the removal" test -s /opt/tessarin/settings.json

apt purge -y tessarin-user-agent tessarin-service-host
# dpkg removes /opt when nothing else is in it.
files | diff /tmp/before - | grep '^[<>]' | grep -vx '< /opt' >/tmp/left || true
check "the purge leaves nothing" diff /dev/null /tmp/left
check "the purge leaves no logs in homes" test -z "$(find /home -path '*tessarin*')"
