#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Three NATS servers in a cluster on loopback, and 15 devices with different scenarios, until Ctrl-C. Nothing is left
# behind.
#   trial.sh KELD SCENARIOS
set -euo pipefail
keld=$(realpath "$1")
scenarios=$(realpath "$2")
readonly FIRST_PORT=${KEL_FLEET_PORT:-4222} # and the two behind it; 1000 further up the servers speak to each other
folder=$(mktemp -d)
servers=() devices=() # their processes

say() { echo "fleet: $*" >&2; }

clean_up() {
  set +e
  trap '' INT TERM
  # Devices first, so that each withdraws itself.
  ((${#devices[@]})) && kill -TERM "${devices[@]}" 2>/dev/null && wait "${devices[@]}"
  ((${#servers[@]})) && kill -TERM "${servers[@]}" 2>/dev/null && wait "${servers[@]}"
  rm -rf "$folder"
}
trap clean_up EXIT
trap 'exit 0' INT TERM

# In a session of its own, so that Ctrl-C reaches this script alone.
begin() { setsid "$@" >>"$folder/log" 2>&1 & }

addresses=() routes=()
for i in 0 1 2; do
  addresses+=("127.0.0.1:$((FIRST_PORT + i))")
  routes+=("nats://127.0.0.1:$((FIRST_PORT + 1000 + i))")
done
for i in 0 1 2; do
  cat >"$folder/server$i.conf" <<CONF
server_name: server$i
host: 127.0.0.1
port: $((FIRST_PORT + i))
jetstream { store_dir: "$folder/store$i" }
cluster { name: fleet, listen: "127.0.0.1:$((FIRST_PORT + 1000 + i))", routes: [$(printf '"%s",' "${routes[@]}")] }
CONF
  begin nats-server -c "$folder/server$i.conf"
  servers+=($!)
done
for _ in {1..300}; do
  ready=$(grep -c "Server is ready" "$folder/log" || true)
  ((ready == 3)) && break
  for server in "${servers[@]}"; do
    kill -0 "$server" 2>/dev/null || { say "a server did not start:" && cat "$folder/log" >&2 && exit 1; }
  done
  sleep 0.1
done

all=$(IFS=, && echo "${addresses[*]}")
number=0
for scenario in quiet busy slow loses-every-tenth drops-the-link; do
  for _ in 1 2 3; do
    number=$((number + 1))
    mkdir "$folder/device$number"
    SLUICEHUB_SCENARIO=$scenarios/$scenario.json begin "$keld" run --site trial --device "device-$number" \
      --model "$scenario" --replicas 3 --directory "$folder/device$number" \
      --server "$all"
    devices+=($!)
  done
done
for _ in {1..600}; do
  offered=$(grep -c "the device is offered" "$folder/log" || true)
  ((offered == number)) && break
  sleep 0.1
done
((offered == number)) || { say "only $offered of $number devices came:" && tail -n 20 "$folder/log" >&2 && exit 1; }

cat <<TEXT
$number devices are offered on three servers: $all.
Their names are device-1 to device-$number, three of each model: quiet, busy, slow, loses-every-tenth, drops-the-link.

  in programs:  kel::fleet::connect("nats://$all/trial/device-1")
  by NATS:      subjects below kel.v1.trial.device-1; docs/fleet.md has the table

Ctrl-C ends all of it.
TEXT
wait
