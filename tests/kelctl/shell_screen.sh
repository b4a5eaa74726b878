# SPDX-License-Identifier: MIT
# The shell at a terminal: lines are edited, completed and kept, and Ctrl-C ends a verb and not the shell.
#
#   shell_screen.sh KELCTL
set -euo pipefail
readonly kelctl=$1
terminal=(tmux -L "kelctl-shell-$$" -f /dev/null)
home=$(mktemp -d)
readonly home
trap '"${terminal[@]}" kill-server 2>/dev/null || true; rm -r "$home"' EXIT

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
begin() { HOME=$home LC_ALL=C.UTF-8 "${terminal[@]}" new-session -d -x 100 -y 30 "'$kelctl' shell; echo \"status \$?\"; cat"; }

begin
shows "kel>$"
press "sen" Tab "TASK_ID_APPLICATION_DEBUG_V" Tab " --val 7 8 9" Enter
shows $'send TASK_ID_APPLICATION_DEBUG_VAL +--val 7 8 9\n7 8 9\nkel>$'
press "send TASK_ID_APPLICATION_DEBUG" Tab Tab
shows $'TASK_ID_APPLICATION_DEBUG_REF\nTASK_ID_APPLICATION_DEBUG_REF_FW\n'
press C-c
press "ping --interval 50" Enter
shows "number 3, "
press C-c
shows $'sent, .*\nkel>$'
press Up
shows "kel> ping --interval 50$"
press C-c
press "send T 'open" Enter
shows "a quotation has no end"
press exit Enter
shows "status 0"
"${terminal[@]}" kill-server
grep -q "ping" "$home/.kelctl_history"
terminal=(tmux -L "kelctl-shell-again-$$" -f /dev/null)
begin
shows "kel>$"
press Up Up Up
shows "kel> ping --interval 50$"
