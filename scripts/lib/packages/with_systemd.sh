#!/bin/bash
# The packages on a system with systemd, which runs this as a service: the units of the system and of a user's own manager, a desktop
# with a browser, an upgrade while all of it runs, removal and purge. What the user does is in user_session.py.
# shellcheck source-path=SCRIPTDIR source=checks.sh
. "${BASH_SOURCE[0]%/*}/checks.sh"

unit=tessarin-service-host.service
add_user anna
loginctl enable-linger anna
run=/run/user/$(id -u anna)
await "the user's own manager runs" test -S "$run/systemd/private"
await "the user's session has a bus" test -S "$run/bus"
files >/root/before

# --- installation
apt install -y --no-install-recommends "$agent_deb" "$host_deb"
check "the service runs after the installation" systemctl is-active "$unit"
check "it will run after the next start of the system" systemctl is-enabled "$unit"
check "the agent's unit is enabled for nobody" test "$(systemctl --global is-enabled com.tessarin.UserAgent.service)" = static
check "the units are without fault" systemd-analyze verify --man=no "$unit"
check "the agent's unit is without fault" as anna systemd-analyze --user verify --man=no com.tessarin.UserAgent.service
# docs/install.md has the figure.
check "the service is confined" systemd-analyze security --threshold=30 "$unit"
systemd-analyze security --no-pager "$unit" | tail -1
# shellcheck disable=SC2016 # for the other shell
check "a service that crashed is started again" bash -euc 'unit=$0
    before=$(systemctl show --value -p MainPID "$unit")
    kill -SEGV "$before"
    for _ in {1..150}; do
        now=$(systemctl show --value -p MainPID "$unit")
        if [[ $now != 0 && $now != "$before" ]] && systemctl -q is-active "$unit"; then exit 0; fi
        sleep 0.2
    done
    exit 1' "$unit"

# --- use
: >/tmp/host.json
journalctl --follow --lines=all --output=cat --unit="$unit" >>/tmp/host.json 2>/dev/null &
journal=$!
install -d -m 755 -o anna /tmp/steps
as anna python3 -B "${BASH_SOURCE[0]%/*}/user_session.py" &
user=$!
# step NAME: the user has come to it, and waits until it is done.
step() {
    until [[ -e /tmp/steps/$1 ]]; do
        kill -0 "$user" 2>/dev/null || fail "the user's session ended early"
        sleep 0.1
    done
}
done_with() { touch "/tmp/steps/$1.done"; chmod 644 "/tmp/steps/$1.done"; }

step upgrade
newer "$agent_deb"
newer "$host_deb"
apt install -y --no-install-recommends /tmp/tessarin-user-agent.deb /tmp/tessarin-service-host.deb
check "the service runs after the upgrade" systemctl is-active "$unit"
done_with upgrade

step removal
apt remove -y tessarin-user-agent tessarin-service-host
check "no agent runs after the removal" no_agents
check "no service runs after the removal" test -z "$(pgrep -x TessarinService)"
done_with removal
wait "$user" || fail "the user's session"
kill "$journal"
removal_is_clean /root/before
apt purge -y tessarin-user-agent tessarin-service-host
nothing_is_left /root/before
check "the purge leaves no logs in homes" test ! -e /home/anna/.local/state/tessarin
check "no unit is left" bash -c '! systemctl list-units --all "*essarin*" | grep -q tessarin'
