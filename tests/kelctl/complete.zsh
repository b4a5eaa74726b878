# Completes with zsh at a real prompt, on a terminal of its own.
#   complete.zsh KELCTL
set -e
folder=$(mktemp -d)
trap 'rm -rf $folder' EXIT
mkdir $folder/functions
$1 completion zsh >$folder/functions/_kelctl
zsh -n $folder/functions/_kelctl
touch $folder/own-table.csv
ln -s $1 $folder/kelctl

zmodload zsh/zpty
zpty shell "cd $folder; HOME=$folder TERM=dumb PATH=$folder:/usr/bin:/bin exec zsh -f -i"
# A line comes back whole once its end mark does; the mark is typed in two parts, so that its echo does not count.
ask() { zpty -w shell "$1; echo '<''done>'" && zpty -r -m shell REPLY '*<done>*'; }
ask "fpath=($folder/functions \$fpath); PS1='> '; autoload -Uz compinit; compinit -D -u; bindkey -e; setopt no_beep"

# expect TYPED LINE: what the tabulator makes of what was typed. The line is not run but printed.
expect() {
  zpty -w -n shell "kelctl $1"$'\t\C-a'"print -r -- '\C-e';echo '<''done>'"$'\n'
  zpty -r -m shell REPLY '*<done>*'
  if [[ $REPLY != *"kelctl $2"* ]]; then
    print -r -u2 -- "kelctl $1: got \"$REPLY\", expected \"$2\""
    exit 1
  fi
}

expect 'se' 'send '
expect 'tasks fi' 'tasks find '
expect 'send TASK_ID_U' 'send TASK_ID_UMAC_INIT '
expect 'send --js' 'send --json '
expect 'tasks check own' 'tasks check own-table.csv '
expect 'help sen' 'help send '
zpty -d shell
