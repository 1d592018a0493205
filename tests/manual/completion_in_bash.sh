#!/bin/bash
# Usage: completion_in_bash.sh COMPLETION_FILE CPCTL
# What bash has to offer on command lines of cpctl, as readline asks it.
set -u

. "$1"
directory=$(dirname "$2")
PATH=$directory:$PATH
failed=0

# offered LINE  one word a line. Words are broken as readline does it, at colons, too.
offered() {
	local words
	COMP_LINE=$1 COMP_POINT=${#1} COMPREPLY=()
	words=${1//:/ : }
	read -ra COMP_WORDS <<<"$words"
	[[ $1 != *' ' && $1 != *: ]] || COMP_WORDS+=('')
	COMP_CWORD=$((${#COMP_WORDS[@]} - 1))
	_cpctl cpctl "${COMP_WORDS[COMP_CWORD]}" "${COMP_WORDS[COMP_CWORD - 1]}"
	((${#COMPREPLY[@]} == 0)) || printf '%s\n' "${COMPREPLY[@]}"
}

# expect LINE WORD...  exactly these words, in any order
expect() {
	local got wanted
	got=$(offered "$1" | sort | tr '\n' ' ')
	wanted=$( (($# == 1)) || printf '%s\n' "${@:2}" | sort | tr '\n' ' ')
	[[ $got == "$wanted" ]] || {
		printf 'behind "%s": wanted "%s", got "%s"\n' "$1" "$wanted" "$got"
		failed=1
	}
}

expect 'cpctl cl' client
expect 'cpctl gateway ' set show
expect 'cpctl client add m' mac-auth-fallback mirel-white mirel-black
expect 'cpctl client add login 02:00:5e:10:00:01 wlan-3-' wlan-3-1 wlan-3-2 wlan-3-3 wlan-3-4 wlan-3-5 wlan-3-6 \
	wlan-3-7 wlan-3-8
expect 'cpctl client add login 02:00:5e:10:00:01 wlan-1-1 ' # nothing may follow
expect 'cpctl client add login 02:'
expect 'cpctl client flush login a' all
expect 'cpctl interface set wlan-1-1 mode d' drop-tcp
expect 'cpctl interface set wlan-1-1 mode on b' block-https
expect 'cpctl interface set wlan-1-1 disconnection pass-all ' connected disconnected
expect 'cpctl interface owe map wlan-1-1' wlan-1-14 wlan-1-15 wlan-1-16
expect 'cpctl garden replace wlan-1-1 ' on off
expect 'cpctl garden check m' mirel mode-7
expect 'cpctl --wait 3 mirel mode ' off on internet-passes drop-tcp
expect 'cpctl status --stat' --statistics
expect 'cpctl nonsense '
expect "cpctl -d $directory/cpct" "$directory/cpctl"

[[ $(complete -p cpctl) == "complete -F _cpctl cpctl" ]] || {
	echo "bash does not ask for cpctl's words"
	failed=1
}
exit "$failed"
