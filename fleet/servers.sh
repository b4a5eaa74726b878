# SPDX-License-Identifier: MIT
# NATS servers in a cluster on loopback for scripts that source this, and what else they begin: all of it ends with the
# script, and nothing is left behind.
folder=$(mktemp -d)
servers=() devices=() addresses=() # processes, and where the servers are

say() { echo "fleet: $*" >&2; }
fail() {
  say "$1"
  tail -n 20 "$folder/log" >&2
  exit 1
}

clean_up() {
  set +e
  trap '' INT TERM
  # Devices first, so that each withdraws itself.
  ((${#devices[@]})) && kill -TERM "${devices[@]}" 2>/dev/null && wait "${devices[@]}" 2>/dev/null
  ((${#servers[@]})) && kill -TERM "${servers[@]}" 2>/dev/null && wait "${servers[@]}" 2>/dev/null
  rm -rf "$folder"
}
trap clean_up EXIT
trap 'exit 0' INT TERM

# In a session of its own, so that Ctrl-C reaches this script alone.
begin() { setsid "$@" >>"$folder/log" 2>&1 & }

# await_log COUNT TEXT WHAT: until the log has that many lines with this text.
await_log() {
  local _
  for _ in {1..600}; do
    if (($(grep -c "$2" "$folder/log" || true) >= $1)); then return; fi
    sleep 0.1
  done
  fail "not all $1 $3 have come"
}

# Whether nobody listens at that port of loopback.
is_free() { ! (exec 3<>"/dev/tcp/127.0.0.1/$1") 2>/dev/null; }

# start_servers COUNT FIRST_PORT: 1000 ports further up the servers speak to each other.
start_servers() {
  local count=$1 first=$2 i routes=()
  for ((i = 0; i < count; ++i)); do
    is_free $((first + i)) || fail "port $((first + i)) is taken: KEL_FLEET_PORT names another one"
    addresses+=("127.0.0.1:$((first + i))")
    routes+=("nats://127.0.0.1:$((first + 1000 + i))")
  done
  for ((i = 0; i < count; ++i)); do
    cat >"$folder/server$i.conf" <<CONF
server_name: server$i
host: 127.0.0.1
port: $((first + i))
jetstream { store_dir: "$folder/store$i" }
cluster { name: fleet, listen: "127.0.0.1:$((first + 1000 + i))", routes: [$(printf '"%s",' "${routes[@]}")] }
CONF
    begin nats-server -c "$folder/server$i.conf"
    servers+=($!)
  done
  await_log "$count" "Server is ready" servers
}
