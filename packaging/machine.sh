# A machine in a directory tree, for scripts that source this and have a function `fail`: systemd as
# process 1 of namespaces of its own, or, where a kernel or container refuses that, a tree without an
# init. Needs root.
# shellcheck shell=bash

machine_init=
machine_process=
machine_groups=

# Runs inside the new namespaces. The tree becomes the root by pivot_root: in a mere chroot, programs
# may not make namespaces of their own.
# shellcheck disable=SC2016 # for the inner shell
machine_start='
    set -eu
    tree=$1 init=$2 target=$3
    mount --make-rprivate /
    mount --bind "$tree" "$tree"
    cd "$tree"
    mount -t proc proc proc
    mount --bind proc/sys proc/sys
    mount -o remount,ro,bind proc/sys
    mount -t sysfs -o ro sysfs sys
    mount -t tmpfs -o mode=755 tmpfs dev
    for device in null zero full random urandom tty; do
        touch "dev/$device"
        mount --bind "/dev/$device" "dev/$device"
    done
    mkdir dev/pts dev/shm
    mount -t devpts -o newinstance,ptmxmode=0666 devpts dev/pts
    ln -s pts/ptmx dev/ptmx
    for folder in dev/shm run tmp; do mount -t tmpfs tmpfs "$folder"; done
    ip link set lo up
    case $init in
    systemd)
        mount -t cgroup2 cgroup2 sys/fs/cgroup
        set -- /lib/systemd/systemd --show-status=0 systemd.unit="$target"
        ;;
    *)
        set -- sleep infinity
        ;;
    esac
    pivot_root . mnt
    exec chroot . /bin/sh -c "umount -l /mnt && exec \"\$@\"" start \
        env -i container=other PATH=/usr/sbin:/usr/bin:/sbin:/bin TERM=dumb "$@"
'

# Makes a control group for the machine, so that nothing of its own remains in this machine's.
make_groups() {
    local all
    all=$(findmnt --noheadings --first-only --types cgroup2 --output TARGET) || return 0
    machine_groups=$all/talvensor-machine-$$
    mkdir -- "$machine_groups" 2>/dev/null || machine_groups=
}

# launch_machine TREE systemd|none [TARGET]: systemd starts what the target needs.
launch_machine() {
    machine_init=$2
    make_groups
    (
        [[ -z $machine_groups ]] || echo "$BASHPID" >"$machine_groups/cgroup.procs"
        exec unshare --mount --pid --uts --ipc --cgroup --net --fork --kill-child \
            bash -c "$machine_start" machine "$1" "$2" "${3-multi-user.target}"
    ) >"$1.console" 2>&1 </dev/null &
    machine_process=$!
}

stop_machine() {
    [[ -n $machine_process ]] || return 0
    kill -KILL "$machine_process" 2>/dev/null || true
    wait "$machine_process" 2>/dev/null || true
    machine_process=
    [[ -z $machine_groups ]] || remove_groups
}

# A group can be removed once its last process is gone.
remove_groups() {
    for _ in {1..50}; do
        # In a trap, a bare return has the status from before it.
        find "$machine_groups" -depth -type d -exec rmdir {} + 2>/dev/null && return 0
        sleep 0.1
    done
    echo "talvensor: $machine_groups: cannot be removed" >&2
}

first_process() {
    pgrep --parent "$machine_process"
}

# in_machine COMMAND...
in_machine() {
    local first
    first=$(first_process) || return 1
    nsenter --target "$first" --mount --pid --uts --ipc --cgroup --net --root --wd \
        env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin TERM=dumb LC_ALL=C.UTF-8 \
        DEBIAN_FRONTEND=noninteractive "$@"
}

# wait_for DESCRIPTION COMMAND...: until the command succeeds, for half a minute at most.
wait_for() {
    local description=$1
    shift
    for _ in {1..300}; do
        "$@" >/dev/null 2>&1 && return 0
        kill -0 "$machine_process" 2>/dev/null || return 1
        sleep 0.1
    done
    echo "talvensor: waited in vain: $description" >&2
    return 1
}

has_started() {
    # The shell before it still has this machine's root.
    [[ $(ps --no-headers --format comm --pid "$(first_process)") == @(systemd|sleep) ]] || return 1
    [[ $machine_init != systemd || $(in_machine systemctl is-system-running) == @(running|degraded) ]]
}

# start_machine TREE: with systemd if that can be.
start_machine() {
    local init
    for init in systemd none; do
        launch_machine "$1" "$init"
        wait_for "the start of the machine" has_started && return
        stop_machine
        sed 's/^/console: /' -- "$1.console" >&2
    done
    fail "no machine can be started in a directory tree here: namespaces are refused"
}
