#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# run_in_wine_test.sh RUN_IN_WINE: a start that fails at once is made again, and nothing else is.
set -euo pipefail
readonly RUN_IN_WINE=$1
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT

# A Wine that counts its starts. STATUSES are those of its starts, one digit each.
cat >"$folder/wine" <<'WINE'
#!/usr/bin/env bash
echo "$*" >>"$0.starts"
exit "${STATUSES:$(wc -l <"$0.starts") - 1:1}"
WINE
chmod +x "$folder/wine"

# expect STATUS STARTS
expect() {
  local status=0 starts
  rm -f "$folder/wine.starts"
  WINE=$folder/wine "$RUN_IN_WINE" program.exe --option || status=$?
  starts=$(grep -cx "program.exe --option" "$folder/wine.starts")
  [[ $status == "$1" && $starts == "$2" ]] || {
    echo "statuses $STATUSES within $SOONEST us: status $status and $starts starts, not $1 and $2"
    exit 1
  }
}

export STATUSES SOONEST=1000000000
STATUSES=0 expect 0 1
STATUSES=2 expect 2 1
STATUSES=10 expect 0 2
STATUSES=111 expect 1 3
SOONEST=0 STATUSES=1 expect 1 1
