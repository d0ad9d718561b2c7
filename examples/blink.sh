#!/bin/bash
# SPDX-License-Identifier: MIT
#
# blink.sh RELAY INPUT [COUNT [SECONDS]]: switches a relay on and off COUNT times. Meanwhile it prints
# every change of an input. RELAY and INPUT are register addresses. busctl monitor needs root.
set -euo pipefail
[ $# -ge 2 ] || { echo "usage: blink.sh RELAY INPUT [COUNT [SECONDS]]" >&2; exit 2; }
relay=$1 input=$2 count=${3-10} seconds=${4-0.5}

call() {
    busctl --system call org.mirel.IoMapping /org/mirel/register org.mirel.Register "$@"
}

# Listen before the first read: no change is lost in between.
match="sender='org.mirel.IoMapping',interface='org.mirel.Register',member='OnValueChange'"
exec {changes}< <(exec busctl --system monitor --json=short --match="$match" 2>&1)
listener=$!
trap 'kill "$listener" 2>/dev/null; wait' EXIT
read -r -u "$changes" line || true
[[ $line == Monitoring* ]] || { echo "blink.sh: cannot listen: $line" >&2; exit 1; }

value=$(call Read i "$input")
echo "input $input: ${value#i }"
while read -r -u "$changes" line; do
    [[ $line =~ \"data\":\[$input,(.*)\] ]] && echo "input $input: ${BASH_REMATCH[1]}"
done &

for ((i = 1; i <= count; i++)); do
    call Write ii "$relay" $((i % 2))
    sleep "$seconds"
done
