# SPDX-License-Identifier: MIT
# What a person at a terminal sees: headings, bars and sparing colour, and no colour where NO_COLOR says so.
# shellcheck shell=bash
#   terminal.sh KELCTL
set -euo pipefail
kelctl=$1

on_terminal() { script -qec "$*" /dev/null </dev/null | tr -d '\r'; }
expect() {
  if ! grep -q -- "$2" <<<"$1"; then
    printf 'this is missing: %s\n in: %s\n' "$2" "$1" >&2
    exit 1
  fi
}

export TERM=xterm
unset NO_COLOR
tasks=$(on_terminal "'$kelctl' tasks")
expect "$tasks" 'TUI      TYPE  PRI  TARGET       NAME'
expect "$tasks" '^0x38240  VAL     3  upper DSPs   TASK_ID_APPLICATION_DEBUG_VAL$'
expect "$tasks" '^50 tasks$'
demo=$(on_terminal "'$kelctl' demo")
expect "$demo" '\[###########\.*\] 9 of 14: '
expect "$demo" $'\e\[32mok\e\[0m$'
expect "$(on_terminal "'$kelctl' ping --count 2 --interval 1")" $'^from .* us .*\e\[32m##*\e'

for plain in NO_COLOR=1 TERM=dumb; do
  if [[ $(on_terminal "env $plain '$kelctl' demo") == *$'\e'* ]]; then
    echo "there are colours with $plain" >&2
    exit 1
  fi
done
