#!/bin/bash
# The rpms in the root folder that it runs in, after the debs have gone: what they install, the numbers that rpm gives their scripts.
# Dependencies are not looked at, as rpm knows nothing of what dpkg has installed.
# shellcheck source-path=SCRIPTDIR source=checks.sh
. "${BASH_SOURCE[0]%/*}/checks.sh"

agent_rpm=$(ls /packages/tessarin-user-agent-[0-9]*.rpm)
host_rpm=$(ls /packages/tessarin-service-host-[0-9]*.rpm)
packages=(tessarin-user-agent tessarin-service-host)
# Debian's rpm would keep its list in the home folder.
rpms() { command rpm --dbpath /var/lib/rpm --nodeps "$@" 2>/tmp/rpm || { cat /tmp/rpm >&2; fail "rpm $*"; }; }
contents_of() { # What is installed, with modes, owners and sums, but for what only one of the formats has
    find /opt/tessarin /etc/tessarin /etc/chromium.d /usr/share/tessarin /usr/bin/tessarinctl /var/log/tessarin -printf '%p %m %u %g %l\n' | sort
    find /opt/tessarin /etc/tessarin /etc/chromium.d /usr/share/tessarin /usr/bin/tessarinctl -type f ! -name settings.json \
        -exec md5sum {} + | sort -k 2
}

mkdir -p /opt # dpkg has taken it away with the last that was in it
install -d -m 700 -o anna -g anna "/run/user/$(id -u anna)"
mkdir -p /run/dbus
dbus-daemon --system --fork
files >/tmp/rpm-before
apt install -y --no-install-recommends "$agent_deb" "$host_deb"
files >/tmp/deb-files
contents_of >/tmp/deb-contents
apt purge -y "${packages[@]}"

rpms -U "$agent_rpm" "$host_rpm"
check "the rpms install the files of the debs" diff /tmp/deb-files <(files)
check "with the same contents, modes and owners, and settings made of the template" diff /tmp/deb-contents <(contents_of)
check "every file is there as it was packed" test -z "$(rpms -V "${packages[@]}")"
check "the settings are readable for all" test "$(stat -c '%a %U' /opt/tessarin/settings.json)" = "644 root"
check "the service will run after the next start of the system" systemctl is-enabled tessarin-service-host.service

(cd /home/anna && as anna dbus-daemon --session --fork --address="unix:path=/run/user/$(id -u anna)/bus")
(cd /home/anna && as anna "$contents/Resources/session/start" </dev/null >/tmp/agent-anna.log 2>&1) &
await "an agent runs" agent_runs anna
before=$(agents anna)
sum=$(md5sum </opt/tessarin/settings.json)
# An upgrade, with the numbers that rpm gives the scripts then: two versions while the files change, one after that.
rpms -U --force --noscripts "$agent_rpm" "$host_rpm"
for one in "$agent_rpm" "$host_rpm"; do
    for script in 'POSTIN 2' 'PREUN 1' 'POSTUN 1'; do
        command rpm --dbpath /var/lib/rpm -qp --qf "%{${script% *}}" "$one" >/tmp/script
        sh /tmp/script "${script#* }"
    done
done
await "it is there again after an upgrade" agent_runs anna
check "it is a new one" test "$(agents anna)" != "$before"
check "the settings are kept" test "$(md5sum </opt/tessarin/settings.json)" = "$sum"
check "the service is enabled as before" systemctl is-enabled tessarin-service-host.service

rpms -e "${packages[@]}"
check "no agent runs after the removal" no_agents
removal_is_clean /tmp/rpm-before
# As docs/install.md says.
rm -r /opt/tessarin /var/log/tessarin /home/*/.local/state/tessarin 2>/dev/null || true
nothing_is_left /tmp/rpm-before
