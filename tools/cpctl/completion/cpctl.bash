# Completion of cpctl for bash. cpctl itself knows what may come next: see tools/cpctl/completion.h.

_cpctl() {
	local line word words answer typed offset
	# Not COMP_WORDS: it breaks words at colons, as in hardware addresses.
	line=${COMP_LINE:0:COMP_POINT}
	read -ra words <<<"$line"
	[[ $line != *[[:blank:]] ]] || words+=('')
	typed=${words[-1]}
	COMPREPLY=()
	answer=$("$1" --complete "${words[@]:1}" 2>/dev/null) || return 0
	if [[ $answer == :files ]]; then
		type compopt &>/dev/null && compopt -o filenames 2>/dev/null
		while IFS= read -r word; do COMPREPLY+=("$word"); done < <(compgen -f -- "$typed")
		return 0
	fi
	# What readline has before its own last break of the word, which it keeps.
	offset=$((${#typed} - ${#2}))
	while IFS=$'\t' read -r word _; do
		[[ -z $word ]] || COMPREPLY+=("${word:offset}")
	done <<<"$answer"
}

complete -F _cpctl cpctl
