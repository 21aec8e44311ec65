#!/bin/bash
# Boots a root folder: systemd is the first process of a process list, cgroups, mounts and a host name of their own, without rights
# over the machine's clock, modules and kernel settings. It runs one program as a service; when that ends, all of it ends.
#
# Usage: boot.sh ROOT PROGRAM SECONDS     the exit code is the program's; what it prints is printed
set -euo pipefail
root=$1 program=$2 seconds=$3

cgroups=$(awk '$3 == "cgroup2" { print $2; exit }' /proc/mounts)
if [[ -z $cgroups ]]; then
    echo "boot.sh: this machine has no cgroups of version 2, which systemd needs" >&2
    exit 1
fi
group=$cgroups/tessarin-packages-$$
mkdir "$group"
output=$root/root/test.out
: >"$output"
tail -n +1 --follow "$output" &
tail=$!
# shellcheck disable=SC2317 # called at the end
end() {
    kill "$tail"
    # The processes are gone a moment after the one that was waited for.
    for _ in {1..50}; do
        ! find "$group" -depth -type d -exec rmdir {} + 2>/dev/null || break
        sleep 0.1
    done
}
trap end EXIT

echo packages >"$root/etc/hostname"
cat >"$root/etc/systemd/system/package-test.service" <<UNIT
[Unit]
After=multi-user.target systemd-logind.service
SuccessAction=exit-force
FailureAction=exit-force
[Service]
Type=oneshot
ExecStart=$program
TimeoutStartSec=$seconds
StandardOutput=append:/root/test.out
StandardError=append:/root/test.out
[Install]
WantedBy=default.target
UNIT
mkdir -p "$root/etc/systemd/system/default.target.wants"
ln -sf ../package-test.service "$root/etc/systemd/system/default.target.wants/"

status=0
# shellcheck disable=SC2016 # for the other shell
bash -c 'echo $$ >"$1/cgroup.procs"; shift; exec "$@"' sh "$group" \
    unshare --mount --pid --fork --kill-child --uts --ipc --cgroup bash -euc '
    mount --make-rprivate /
    mount --bind "$0" "$0"
    cd "$0"
    mount -t proc proc proc
    for part in sys sysrq-trigger; do
        [[ -e proc/$part ]] || continue
        mount --bind "proc/$part" "proc/$part"
        mount -o remount,bind,ro "proc/$part"
    done
    mount -t sysfs -o ro sysfs sys
    mount -t cgroup2 cgroup2 sys/fs/cgroup
    for place in run tmp dev dev/shm; do
        mkdir -p "$place"
        mount -t tmpfs -o mode=755 tmpfs "$place"
    done
    chmod 1777 tmp dev/shm
    for device in null zero full random urandom tty; do
        touch "dev/$device"
        mount --bind "/dev/$device" "dev/$device"
    done
    mkdir dev/pts
    mount -t devpts -o newinstance,ptmxmode=0666,mode=620 devpts dev/pts
    ln -s pts/ptmx dev/ptmx
    ln -s /proc/self/fd dev/fd
    mkdir -p .old
    pivot_root . .old
    umount -l .old
    rmdir .old
    exec setpriv --bounding-set=-sys_module,-sys_time,-sys_rawio,-syslog env -i container=other PATH=/usr/sbin:/usr/bin:/sbin:/bin \
        /lib/systemd/systemd --log-target=null --show-status=false' "$root" </dev/null || status=$?
sleep 0.5 # of printing
exit "$status"
