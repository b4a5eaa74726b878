# Completes with bash as it would at a prompt.
#   complete.bash KELCTL
# shellcheck shell=bash
set -uo pipefail
kelctl() { "$KELCTL" "$@"; }
KELCTL=$1
script=$("$KELCTL" completion bash) && bash -n <<<"$script" || exit 1
# shellcheck disable=SC1090
source <(echo "$script")
folder=$(mktemp -d)
trap 'rm -r "$folder"' EXIT
cd "$folder" || exit 1
touch 'own table.csv'

# expect WORDS COMPLETIONS: WORDS are what was typed, the last of them the one to complete.
expect() {
  IFS='|' read -ra COMP_WORDS <<<"kelctl|$1"
  [[ $1 == *'|' ]] && COMP_WORDS+=('')
  COMP_CWORD=$((${#COMP_WORDS[@]} - 1))
  _kelctl
  local got=${COMPREPLY[*]-}
  if [[ $got != "$2" ]]; then
    printf 'kelctl %s: got "%s", expected "%s"\n' "$1" "$got" "$2" >&2
    exit 1
  fi
}

expect 'se' 'send'
expect 'tasks|' 'list find check --help -h --json --table'
expect 'tasks|fi' 'find'
expect 'send|--in' '--in-flight --in'
expect 'send|TASK_ID_U' 'TASK_ID_UMAC_INIT'
expect 'send|TASK_ID_UMAC_INIT|--js' '--json'
expect 'send|TASK_ID_UMAC_INIT|--in|own' 'own table.csv'
expect 'tasks|check|own' 'own table.csv'
expect 'tasks|--table|own' 'own table.csv'
expect 'ping|--count|' ''
expect 'help|sen' 'send'
expect 'completion|' 'bash zsh fish --help -h'
