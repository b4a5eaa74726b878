# SPDX-License-Identifier: MIT
# The monitor on a terminal of some size: what it shows, and what its keys do.
#
#   monitor_screen.sh KELCTL COLUMNS
set -euo pipefail
readonly kelctl=$1 columns=$2
readonly terminal=(tmux -L "kelctl-monitor-$$" -f /dev/null)
trap '"${terminal[@]}" kill-server 2>/dev/null || true' EXIT

# Waits until the screen has a text that fits the pattern.
shows() {
  local screen=""
  for ((i = 0; i < 200; ++i)); do
    screen=$("${terminal[@]}" capture-pane -p)
    [[ $screen =~ $1 ]] && return
    sleep 0.1
  done
  echo "the screen never showed: $1" >&2
  echo "$screen" >&2
  exit 1
}
press() { "${terminal[@]}" send-keys "$@"; }

# Keys of the shell behind it must not start anything: it is cat.
LC_ALL=C.UTF-8 "${terminal[@]}" new-session -d -x "$columns" -y 24 \
  "echo before; '$kelctl' monitor TASK_ID_APPLICATION_DEBUG_VAL --rate 20 --stream TASK_ID_APPLICATION_DEBUG_STREAMER; \
   echo \"status \$?\"; cat"
shows "link +connected for 00:00:0"
shows "task +TASK_ID_APPLICATION_DEBUG_VAL"
shows "latency +50% .*99% .*longest"
shows $'last 60 s .*\u2588'
shows "TASK_ID_APPLICATION_DEBUG_STREAMER finished .* 6  5 5 0"
shows "p pause   s sort by name   / filter   q quit"
[[ $("${terminal[@]}" capture-pane -p | wc -l) -le 24 ]]
press s
shows "s sort by rate"
press p
shows "PAUSED  00:00:"
press /
shows "filter: _"
press x BSpace other
shows "filter: other_"
press Enter
shows "none has the filter in its name"
press / Escape
shows "/ filter   q quit"
press q
shows "before.*answered.*status 0"
