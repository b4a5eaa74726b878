#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Three NATS servers in a cluster on loopback, and 15 devices with different scenarios: with their console until Ctrl-C,
# or as long as a command runs, whose status is this script's. The command finds the servers' addresses in
# KEL_FLEET_SERVERS and their processes in KEL_FLEET_PROCESSES.
#   trial.sh KELD SCENARIOS KELCONSOLE
#   trial.sh KELD SCENARIOS --run COMMAND...
set -euo pipefail
keld=$(realpath "$1")
scenarios=$(realpath "$2")
shift 2
# shellcheck source=fleet/servers.sh
source "$(dirname "${BASH_SOURCE[0]}")/servers.sh"

start_servers 3 "${KEL_FLEET_PORT:-4222}"
all=$(IFS=, && echo "${addresses[*]}")
models=(quiet busy slow loses-every-tenth drops-the-link)
for model in "${models[@]}"; do
  mkdir "$folder/$model"
  SLUICEHUB_SCENARIO=$scenarios/$model.json begin "$keld" run --site trial --devices 3 --device "$model" \
    --model "$model" --replicas 3 --directory "$folder/$model" --server "$all"
  devices+=($!)
done
await_log 15 "the device is offered" devices

if [[ $1 == --run ]]; then
  shift
  # It may kill some of them, which the shell would remark upon.
  exec 3>&2 2>/dev/null
  KEL_FLEET_SERVERS=$all KEL_FLEET_PROCESSES="${servers[*]}" "$@" 2>&3
  exit
fi
begin "$(realpath "$1")" --fleet "nats://$all/trial" --port 0
devices+=($!)
await_log 1 "^The console is at" console
console=$(sed -n 's/^The console is at //p' "$folder/log")
cat <<TEXT
15 devices are offered on three servers: $all.
Their names are quiet-1 to quiet-3, and so on for busy, slow, loses-every-tenth and drops-the-link.

  in programs:  kel::fleet::connect("nats://$all/trial/quiet-1")
  in a browser: $console
  by NATS:      subjects below kel.v1.trial.quiet-1; docs/fleet.md has the table

Ctrl-C ends all of it.
TEXT
# Where somebody has a screen.
if [[ -n ${DISPLAY:-}${WAYLAND_DISPLAY:-} ]] && command -v xdg-open >/dev/null; then begin xdg-open "$console"; fi
wait
