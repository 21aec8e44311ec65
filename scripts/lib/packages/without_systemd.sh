#!/bin/bash
# The packages on a system without systemd: installs them in the root folder that it runs in, uses them as ordinary users do,
# upgrades, removes and purges them; then the same with the rpms.
# shellcheck source-path=SCRIPTDIR source=checks.sh
. "${BASH_SOURCE[0]%/*}/checks.sh"

# --- the system before
for user in anna bert; do
    add_user "$user"
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
check "a second launch hands over and ends" as anna "$agent_program"
check "who asks for a window where nothing can be shown is told" \
    test "$(as anna "$agent_program" 'tessarin-scheme://showProperties?path=/etc/hostname' 2>&1)" = \
    "TessarinUserAgent: the running agent did not take the request: 1 of 1 URLs are not opened"
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
removal_is_clean /tmp/before

apt purge -y tessarin-user-agent tessarin-service-host
nothing_is_left /tmp/before
check "the purge leaves no logs in homes" test -z "$(find /home -path '*tessarin*')"
