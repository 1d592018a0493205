#!/bin/bash
# Usage: pages.sh PAGE...
# Manual pages without a warning of the formatter, and with what makes them manual pages.
set -u
command -v mandoc >/dev/null || { echo "mandoc is not installed" && exit 77; }

failed=0
for page; do
	# Below a warning it has opinions, such as on the length of lines.
	mandoc -T lint -W warning "$page" || failed=1
	for section in NAME SYNOPSIS DESCRIPTION FILES 'SEE ALSO'; do
		mandoc -T ascii "$page" | sed "s/.\x08//g" | grep -qx "$section" || {
			echo "$page has no $section"
			failed=1
		}
	done
done
# cpctl(8) tells every command that there is: one that stands for all.
mandoc -T ascii "${@: -1}" | sed "s/.\x08//g" | grep -q 'client add TABLE MAC \[IFACE\]' || {
	echo "cpctl(8) does not tell of client add"
	failed=1
}
exit "$failed"
