# SPDX-License-Identifier: MIT
# Presses Ctrl-C when kelctl has printed a line and so certainly waits for more, and expects it to end in order.
# shellcheck shell=bash disable=SC2154  # coproc sets kelctl_PID
set -euo pipefail
coproc kelctl { exec "$@"; }
pid=$kelctl_PID
read -r line <&"${kelctl[0]}"
echo "$line"
kill -INT "$pid"
wait "$pid"
