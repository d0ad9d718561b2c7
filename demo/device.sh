#!/bin/bash
# SPDX-License-Identifier: MIT
#
# tour and fleet/device source this file. It makes a simulated device in a temporary directory: a
# private bus, simulated boards, and the real service. The device ends with the script.

root=          # the checkout
build=         # where iomappingd has been built
device=        # the directory of the device; removed at the end
map=           # the map file of the service
board=         # a directory in $device: the files of the simulated device, for iomap-sim
service_pid=   # the process of the sandbox; it ends with the exit status of the service
background=()  # the processes that must not outlive the script

fail() {
    echo "tour: $1" >&2
    exit 1
}

one_line() {
    paste -sd ' ' "$1"
}

require_tools() {
    local tool package
    while read -r tool package; do
        command -v "$tool" >/dev/null || fail "$tool is missing; apt-get install $package"
    done <<'END'
bwrap bubblewrap
dbus-daemon dbus-daemon
gdbus libglib2.0-bin
busctl systemd
END
    for tool in iomappingd iomap iomap-sim; do
        [ -x "$build/$tool" ] || fail "no program $build/$tool; make it with ./dev build"
    done
}

# start OUTPUT COMMAND...: runs a command in the background. The command ends with this script, even
# if the script is killed. The command runs in its own session: Ctrl-C then reaches only this script,
# and the script can end the whole session.
start() {
    setpriv --pdeathsig KILL -- setsid "${@:2}" >"$1" 2>&1 &
    background+=($!)
}

# The main board with two sensors, an IO board and two expanders.
make_board() {
    iomap-sim make kr62 pd5-1 pd5-2
    iomap-sim plug 28-00000a1b2c3d 21500
    iomap-sim plug 28-031264e5a1ff -4250
    echo 'IMAGE_VERSION=2.3.4' >"$board/os-release"
}

start_bus() {
    local log=$device/bus.log
    mkfifo "$device/bus-address"
    # shellcheck disable=SC2016 # the inner shell expands it
    start "$log" bash -c 'exec dbus-daemon --print-address "$@" >"$0"' \
        "$device/bus-address" --address="unix:path=$device/bus" --nofork --nopidfile \
        --config-file="$root/tests/support/private-bus.conf"
    read -r -t 10 <"$device/bus-address" ||
        fail "dbus-daemon did not start a bus at $device/bus; try another TMPDIR: $(one_line "$log")"
    export DBUS_SYSTEM_BUS_ADDRESS=unix:path=$device/bus
}

# The service has fixed paths. The sandbox binds these paths to the simulated device, and its /dev has
# no real hardware. The sandbox has an empty /tmp. The directories that are needed are bound again,
# because they may lie below /tmp.
start_service() {
    local status=0 ended='' waiter
    start "$device/iomappingd.log" bwrap --dev-bind / / --dev /dev --bind "$board/sys" /sys --tmpfs /tmp \
        --bind "$root" "$root" --bind "$build" "$build" --bind "$device" "$device" \
        --bind "$board/tmp/factory_info_partition" /tmp/factory_info_partition \
        --ro-bind "$board/os-release" "$(realpath /etc/os-release)" --ro-bind "$map" "$map" \
        --die-with-parent --info-fd 9 -- \
        "$build/iomappingd" --map "$map" 9>"$device/sandbox.json"
    service_pid=$!
    start /dev/null gdbus wait --system --timeout 10 org.mirel.IoMapping
    waiter=$!
    wait -n -p ended "$service_pid" "$waiter" || status=$?
    if [ "$ended" = "$service_pid" ]; then
        explain_early_end "$status"
    fi
    [ "$status" -eq 0 ] ||
        fail "iomappingd is not on the bus after 10 s: $(one_line "$device/iomappingd.log")"
}

explain_early_end() {
    local log
    log=$(one_line "$device/iomappingd.log")
    case $log in
        bwrap:*) fail "bwrap cannot make a sandbox; allow user namespaces, or run with more privileges: $log" ;;
        *) fail "iomappingd ended during its start, with status $1: $log" ;;
    esac
}

# start_device CHECKOUT BUILD_DIR MAP
start_device() {
    root=$1
    build=$2
    map=$3
    [ -r "$map" ] || fail "cannot read the map $map"
    require_tools
    # However the script ends, it leaves no process and no file.
    trap end_device EXIT
    device=$(mktemp -d -t io-mapping.XXXXXX 2>/dev/null) ||
        fail "cannot make a directory in ${TMPDIR:-/tmp}; set TMPDIR to another one"
    board=$device/board
    export PATH=$build:$PATH IOMAP_SIM_ROOT=$board
    # The labels belong to the map of the demonstration. Another map has none.
    export IO_MAPPING_LABELS=$device/labels.json
    if [ "$map" = "$root/data/maps/device.json" ]; then
        IO_MAPPING_LABELS=$root/data/labels/device.json
    fi
    make_board
    start_bus
    start_service
}

end_device() {
    trap '' INT TERM HUP
    [ -n "$device" ] || return 0
    # End the service first. The sandbox is its parent and waits for it; then wait for the sandbox.
    if [[ -s $device/sandbox.json && $(<"$device/sandbox.json") =~ \"child-pid\":\ ([0-9]+) ]] &&
        kill -0 "$service_pid" 2>/dev/null; then
        kill -KILL "${BASH_REMATCH[1]}" || true
        wait "$service_pid" || true
    fi
    if [ ${#background[@]} -gt 0 ]; then
        kill -KILL "${background[@]}" "${background[@]/#/-}" || true
        wait "${background[@]}" || true
    fi
    rm -rf "$device"
} 2>/dev/null
