#!/bin/bash
# Usage: completion_in_zsh.sh COMPLETION_FILE CPCTL
# What zsh has to offer on command lines of cpctl: an interactive zsh on a terminal of its own gets lines and the key that
# completes them.
set -u
command -v zsh >/dev/null || { echo "zsh is not installed" && exit 77; }

home=$(mktemp -d)
trap 'rm -rf "$home"' EXIT
directory=$(dirname "$2")
mkdir "$home/functions"
cp "$1" "$home/functions/_cpctl"
zsh -n "$1" || exit 1

cat >"$home/ask.zsh" <<'ZSH'
zmodload zsh/zpty
zpty shell "HOME=$1 PATH=$2:$PATH TERM=dumb zsh -f -i"
zpty -w shell "PS1='> '; fpath=($1/functions \$fpath); autoload -Uz compinit; compinit -u -D"
zpty -w shell "unsetopt beep list_beep; zstyle ':completion:*' menu no; bindkey '^I' complete-word; echo rea''dy"
zpty -r -m shell line '*ready*' || exit 1
ask() {
	zpty -n -w shell "cpctl $1"$'\t'
	# The marker is typed behind what was completed.
	zpty -n -w shell $'\x01echo "[\x05]"\n'
	zpty -r -m shell line $'*\n\\[*\\]*' || exit 1
	print -r -- "$1 = ${${line##*$'\n'\[}%%\]*}"
}
shift 2
for words; do ask "$words"; done
zpty -d shell
ZSH
got=$(timeout 240 zsh -f "$home/ask.zsh" "$home" "$directory" 'cl' 'client add ga' \
	'client add login 02:00:5e:10:00:01 wlan-3-8' 'interface set wlan-1-1 mode dr' 'status --stat' 'gateway sh')
wanted='cl = cpctl client
client add ga = cpctl client add ga-white
client add login 02:00:5e:10:00:01 wlan-3-8 = cpctl client add login 02:00:5e:10:00:01 wlan-3-8
interface set wlan-1-1 mode dr = cpctl interface set wlan-1-1 mode drop-tcp
status --stat = cpctl status --statistics
gateway sh = cpctl gateway show'
diff <(echo "$wanted") <(echo "$got" | tr -d '\r' | sed 's/ *$//')
