#!/bin/bash
# Usage: completion_in_fish.sh COMPLETION_FILE CPCTL
# What fish has to offer on command lines of cpctl.
set -u
command -v fish >/dev/null || { echo "fish is not installed" && exit 77; }

home=$(mktemp -d)
trap 'rm -rf "$home"' EXIT
directory=$(dirname "$2")
export HOME=$home XDG_CONFIG_HOME=$home XDG_DATA_HOME=$home PATH=$directory:$PATH

# One fish for all lines: "= LINE", then what is offered.
{
	cat "$1"
	for line in 'cl' 'client add m' 'client add login 02:00:5e:10:00:01 wlan-3-' 'interface set wlan-1-1 mode ' \
		'gateway show ' 'status --stat'; do
		printf "echo '= %s'; complete -C 'cpctl %s'\n" "$line" "$line"
	done
} >"$home/asked.fish"
got=$(fish --no-config "$home/asked.fish" 2>&1)
wanted=$(printf '%s\t%s\n' client 'Tables of client MAC addresses' | sed '1i= cl')
wanted+=$'\n'$(printf '= client add m\n'; printf '%s\tTABLE\n' mac-auth-fallback mirel-white mirel-black)
wanted+=$'\n'$(printf '= client add login 02:00:5e:10:00:01 wlan-3-\n'; printf '%s\tIFACE\n' wlan-3-{1..8})
wanted+=$'\n'$(printf '= interface set wlan-1-1 mode \n'; printf '%s\tthe portal\n' off on internet-passes drop-tcp)
wanted+=$'\n= gateway show '
wanted+=$'\n'$(printf '= status --stat\n'; printf '%s\t%s\n' --statistics 'Also what became of frames, by reason')
diff <(echo "$wanted") <(echo "$got")
