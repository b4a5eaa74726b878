# SPDX-License-Identifier: MIT
# A reader that goes away ends kelctl without a word, which gives its connection back.
# shellcheck shell=bash
#   closed_output.sh KELCTL WORD...
set -uo pipefail
folder=$(mktemp -d)
trap 'rm -r "$folder"' EXIT
SLUICEHUB_CAPTURE=$folder/capture "$@" 2>"$folder/errors" | head -n 5 # the demo is connected by then
status=${PIPESTATUS[0]}
cat "$folder/errors" >&2
((status == 0)) && ! grep -q 'standard output' "$folder/errors" || exit 1

# The last that passes is the event of the disconnect.
PYTHONPATH=$(dirname "$0")/../captures /usr/bin/python3 -B - "$folder/capture" <<'END'
import sys
import pcapng

*_, last = pcapng.packets(sys.argv[1])
sys.exit(last.data[1] != pcapng.EVENT)
END
