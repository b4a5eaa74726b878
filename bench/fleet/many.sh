#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Has many devices on three NATS servers on loopback, 15 to a host, and tells what they take.
#   many.sh BIN HOSTS: the folder with keld and fleet_many.
set -euo pipefail
bin=$(realpath "$1")
hosts=$2
readonly DEVICES=15 # of each host
# shellcheck source=fleet/servers.sh
source "$(dirname "${BASH_SOURCE[0]}")/../../fleet/servers.sh"

start_servers 3 "${KEL_FLEET_PORT:-4222}"
all=$(IFS=, && echo "${addresses[*]}")
for ((host = 1; host <= hosts; ++host)); do
  mkdir "$folder/host$host"
  KELHANDLER_RELEASE_BLOCKS=1 begin "$bin/keld" run --site many --devices $DEVICES --device "host$host" --replicas 3 \
    --directory "$folder/host$host" --server "$all"
  devices+=($!)
done
exec 3>&2 2>/dev/null # the shell would remark upon the server that is killed
KEL_FLEET_SERVERS=$all "$bin/fleet_many" $((hosts * DEVICES)) "${servers[0]}" 2>&3
