#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# The files for a service do what they say:
#   service.sh EXAMPLES KELCTL FOLDER
# systemd takes the unit. Rotation takes the log files away from beneath a program that runs, and loses none of its lines.
# FOLDER, which is made new, stands for the folders of the system.
set -euo pipefail
service=$1/service kelctl=$2 folder=$3

rm -rf "$folder"
mkdir -p "$folder/etc" "$folder/logs"
cd "$folder/etc"
here() { sed -e "s|/etc/kel-listen|$folder/etc|" -e "s|/var/log/kel-listen|$folder/logs|" "$service/$1"; }

here kel-listen.service | sed "s|/usr/bin/kelctl|$kelctl|" >kel-listen.service
systemd-analyze verify ./kel-listen.service 2>complaints
if grep kel-listen complaints; then exit 1; fi

here Brel.registry | sed 's/Info=0/Info=1/' >Brel.registry
here kel-listen.logrotate >rotation
chmod 644 rotation
chmod 755 "$folder/logs"

"$kelctl" ping --interval 10 >ping.txt &
ping=$!
trap 'kill $ping' EXIT
until compgen -G "$folder/logs/*-Brel.logs" >/dev/null; do sleep 0.05; done
logrotate --force --state "$folder/state" rotation
until compgen -G "$folder/logs/*-Brel.logs" >/dev/null; do sleep 0.05; done
kill -INT $ping
wait $ping
trap - EXIT

sent=$(sed -n 's/ sent, .*//p' ping.txt)
logged=$(cat "$folder"/logs/*-Brel.logs* | grep -o 'Send END' | wc -l)
# A task that Ctrl-C meets on its way is not counted.
((logged == sent || logged == sent + 1)) || {
  echo "$sent tasks were sent, $logged are in the log"
  exit 1
}
