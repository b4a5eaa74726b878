# Presses Ctrl-C once kelctl has printed a broadcast, and so listens for sure, and wants it to end in order.
# shellcheck shell=bash disable=SC2154  # coproc sets listener_PID
set -euo pipefail
coproc listener { exec "$1" listen --trigger; }
pid=$listener_PID
read -r line <&"${listener[0]}"
echo "$line"
kill -INT "$pid"
wait "$pid"
