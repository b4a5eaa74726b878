#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Installs the wheels of a folder into bare ones, and uses them from there: wheels.sh FOLDER
set -euo pipefail
wheels=$1
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
unset PYTHONPATH LD_LIBRARY_PATH
cd "$scratch"

send() { PYTHONPATH=$1 /usr/bin/python3 -B -m kelhandler send TASK_ID_APPLICATION_DEBUG_VAL --val 7 8 9; }
install() { /usr/bin/python3 -m pip --disable-pip-version-check install --quiet --no-index --no-deps "$@"; }

install --target root "$wheels"/kelhandler-*.whl
if send root 2>message; then
  echo "there was a pipe library"
  exit 1
fi
grep -q 'kelhandler\[simulator\]' message

install --target simulator "$wheels"/kelhandler_simulator-*.whl
[[ $(send root:simulator) == "7 8 9" ]]

# pytest knows the plugin of an installed package.
echo 'def test(kel_device): assert kel_device.task("TASK_ID_APPLICATION_DEBUG_VAL", values=(7, 8, 9)).values == (7, 8, 9)' \
  >test_plugin.py
PYTHONPATH=root:simulator /usr/bin/python3 -B -m pytest -q -p no:cacheprovider test_plugin.py
