#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Makes the man pages of kelctl and of each of its verbs from what --help prints, as they are and compressed.
#   man_pages.sh KELCTL VERSION FOLDER
set -euo pipefail
kelctl=$1 version=$2 folder=$3
PATH=$(cd "$(dirname "$kelctl")" && pwd):$PATH
export LC_ALL=C

# The help with a mark where help2man is to begin a section that it does not know by itself.
readonly HELP='--help | sed "s/^Exit status:/*Exit status*\n/"'

# page PARENT WORD...: the page of `kelctl find`, say, and those of its verbs. PARENT is the page above it, if any.
page() {
  local parent=$1 name verb verbs summary
  shift
  name=$*
  name=${name// /-}
  mapfile -t verbs < <("$@" --help | sed -n '/^Verbs:/,/^$/s/^  \([a-z][a-z]*\) .*/\1/p')
  summary=$("$@" --help | sed -n '2{s/\.$//;p}')
  {
    echo '[SEE ALSO]'
    {
      if [[ -n $parent ]]; then echo "$parent"; fi
      if ((${#verbs[@]})); then printf "$name-%s\n" "${verbs[@]}"; fi
    } | sed 's/.*/.BR & (1),/; $s/,$//'
  } >"$folder/see-also"
  help2man --no-info --manual=KELHandler --source="KELHandler $version" --name="${summary,}" \
    --version-string="$name $version" --help-option="$HELP" --include="$folder/see-also" \
    --output="$folder/$name.1" "$*"
  for verb in "${verbs[@]}"; do page "$name" "$@" "$verb"; done
}

rm -f "$folder"/*.1 "$folder"/*.1.gz
page '' kelctl
rm "$folder/see-also"
gzip -9nk "$folder"/*.1
