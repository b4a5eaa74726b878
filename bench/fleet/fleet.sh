#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Measures tasks and streams through NATS beside bare NATS, with two servers in a cluster on loopback: the measuring
# client is on the first, and a device and an echo are on each.
#   fleet.sh BIN [OPTION...]: the folder with keld, nats_echo and fleet_bench, and options for the last.
set -euo pipefail
bin=$(realpath "$1")
shift
# shellcheck source=fleet/servers.sh
source "$(dirname "${BASH_SOURCE[0]}")/../../fleet/servers.sh"

start_servers 2 "${KEL_FLEET_PORT:-4222}"
for i in 1 2; do
  mkdir "$folder/device$i"
  KELHANDLER_RELEASE_BLOCKS=1 begin "$bin/keld" run --site bench --device "device-$i" --directory "$folder/device$i" \
    --server "${addresses[i - 1]}"
  devices+=($!)
  begin "$bin/nats_echo" "${addresses[i - 1]}" "echo.$i"
  devices+=($!)
done
await_log 2 "the device is offered" devices
await_log 2 "the echo is there" echoes
await_log 2 '"state":"connected"' connections

KEL_FLEET_SERVER=${addresses[0]} "$bin/fleet_bench" "$@"
