# What the tests of installed packages share; read by shells that run in the root folder. /packages has the packages.
# shellcheck shell=bash disable=SC2034
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

# Everything but what the package manager, systemd and the caches of others write, and users' files.
files() {
    find / -xdev \( -path /proc -o -path /sys -o -path /dev -o -path /tmp -o -path /run -o -path /home -o -path /packages -o \
        -path /var/lib/dpkg -o -path /var/lib/apt -o -path /var/lib/rpm -o -path /var/cache -o -path /var/log/apt -o \
        -path /var/log/journal -o -path /var/lib/systemd -o -path /var/tmp \) -prune -o -print |
        grep -vE '/(mimeinfo.cache|icon-theme.cache|dpkg.log|alternatives.log)$' | sort
}
# removal_is_clean BEFORE: what the list of files has beyond the one in the file BEFORE is settings and logs.
removal_is_clean() {
    local allowed='^/opt/tessarin(/settings\.json|/\.purge)?$|^/var/log/tessarin|^/etc/(tessarin|chromium\.d|xdg/autostart)'
    files | comm -13 "$1" - | grep -vE "$allowed" >/tmp/left || true
    check "the removal leaves nothing but settings and logs" diff /dev/null /tmp/left
    check "the settings are there after the removal" test -s /opt/tessarin/settings.json
}
# nothing_is_left BEFORE: the list of files is that in the file BEFORE again.
nothing_is_left() {
    # dpkg removes /opt when nothing else is in it.
    files | diff "$1" - | grep '^[<>]' | grep -vx '< /opt' >/tmp/left || true
    check "nothing is left" diff /dev/null /tmp/left
}
add_user() {
    useradd --create-home --shell /bin/bash "$1"
}
as() { # USER COMMAND...
    local user=$1
    shift
    setpriv --reuid="$user" --regid="$user" --init-groups env -i HOME="/home/$user" USER="$user" PATH=/usr/bin:/bin LANG=C.UTF-8 \
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

newer() { # PACKAGE-FILE: the same, a release later, in /tmp
    local folder
    folder=$(mktemp -d)
    dpkg-deb -R "$1" "$folder"
    sed -i 's/^Version: .*/Version: 1.0.99-1/; s/(= [0-9.]*-1)/(= 1.0.99-1)/' "$folder/DEBIAN/control"
    dpkg-deb -b "$folder" "/tmp/$(dpkg-deb -f "$1" Package).deb" >/dev/null
    rm -rf "$folder"
}
