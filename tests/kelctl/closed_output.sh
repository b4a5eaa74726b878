# A reader that goes away ends kelctl, which gives its connection back and tells what happened.
# shellcheck shell=bash
#   closed_output.sh KELCTL
set -uo pipefail
errors=$(mktemp)
trap 'rm -f "$errors"' EXIT
"$1" stream TASK_ID_APPLICATION_DEBUG_STREAMER --count 1000000 --interval 1 2>"$errors" | head -n 1
status=${PIPESTATUS[0]}
cat "$errors" >&2
((status == 1)) && grep -q '^kelctl: standard output: ' "$errors"
