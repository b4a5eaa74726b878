# Presses Ctrl-C once kelctl has printed a broadcast, and so listens for sure, and wants it to end in order.
set -euo pipefail
coproc listener { exec "$1" listen --trigger; }
pid=$listener_PID
read -r line <&"${listener[0]}"
echo "$line"
kill -INT "$pid"
wait "$pid"
