# SPDX-License-Identifier: MIT
# Each verb has a man page, which has its sections and which groff sets without a complaint.
#   man_pages.sh KELCTL FOLDER
# shellcheck shell=bash
set -euo pipefail
kelctl=$1 folder=$2
faults=0
fault() {
  echo "$*" >&2
  faults=1
}

check() {
  local name=$* page verb section
  page=$folder/${name// /-}.1
  if [[ ! -f $page ]]; then
    fault "$page is missing"
    return
  fi
  for section in NAME SYNOPSIS DESCRIPTION OPTIONS 'EXIT STATUS' EXAMPLES 'SEE ALSO'; do
    grep -qE "^\.SH \"?$section\"?\$" "$page" ||
      fault "$page has no section $section"
  done
  complaints=$(groff -man -ww -z -Tutf8 "$page" 2>&1)
  [[ -z $complaints ]] || fault "$complaints"
  for verb in $("$kelctl" "${@:2}" --help | sed -n '/^Verbs:/,/^$/s/^  \([a-z][a-z]*\) .*/\1/p'); do
    check "$@" "$verb"
  done
}

check kelctl
exit "$faults"
