#!/bin/bash
# Usage: page_runner.sh PAGE_PY
# What runs the pages of docs/ in the lab: that it lets a right page pass, and that it finds each kind of mistake.
set -u

directory=$(mktemp -d)
trap 'rm -rf "$directory"' EXIT
failed=0

# verdict PASSES|FAILS WHAT  of the page that stands on standard input
verdict() {
	local wanted=$1 what=$2 got=PASSES
	cat >"$directory/page.md"
	python3 -S "$page_py" "$directory/page.md" >"$directory/said" 2>&1 || got=FAILS
	[[ $got == "$wanted" ]] || {
		printf '%s: %s\n' "$what" "$got"
		cat "$directory/said"
		failed=1
	}
}

page_py=$1
touch "$directory/here"
verdict PASSES "a right page" <<-END
	Not run:
	\`\`\`sh
	false
	\`\`\`
	<!-- lab: rm $directory/here -->
	\`\`\`console
	access-point# ls $directory/here
	ls: cannot access ...: No such file or directory
	(exit code 2)
	access-point# seq 5
	1
	...
	5
	access-point# cat <<'STOP'
	two
	lines
	STOP
	two
	lines
	access-point# true
	\`\`\`
END
verdict FAILS "something else comes" <<<$'```console\naccess-point# echo one\ntwo\n```'
verdict FAILS "more comes" <<<$'```console\naccess-point# seq 2\n1\n```'
verdict FAILS "less comes" <<<$'```console\naccess-point# seq 2\n1\n2\n3\n```'
verdict FAILS "something comes where nothing is shown" <<<$'```console\naccess-point# echo one\n```'
verdict FAILS "it ends badly" <<<$'```console\naccess-point# false\n```'
verdict FAILS "it ends well" <<<$'```console\naccess-point# true\n(exit code 1)\n```'
verdict FAILS "what readers are not shown ends badly" <<<$'<!-- lab: false -->\n```console\naccess-point# true\n```'
verdict FAILS "a block without a prompt" <<<$'```console\necho one\n```'
verdict FAILS "a page without a command" <<<$'<!-- lab: true -->\n```text\naccess-point# true\n```'
exit "$failed"
