# Completion of wsm for bash.
_wsm() {
	local cur=${COMP_WORDS[COMP_CWORD]} word command='' arguments=0 words=()
	# With bash-completion a MAC is one word in spite of its colons.
	if declare -F _get_comp_words_by_ref >/dev/null; then
		_get_comp_words_by_ref -n : cur words
	else
		words=("${COMP_WORDS[@]}")
	fi
	for word in "${words[@]:1}"; do
		case $word in
			-* | "$cur" | '') ;;
			*) [ -n "$command" ] && arguments=1 || command=$word ;;
		esac
	done
	COMPREPLY=()
	case $command in
		'') mapfile -t COMPREPLY < <(compgen -W 'list show departed watch kick health --json --version --help' -- "$cur") ;;
		show | kick)
			[ "$arguments" -eq 0 ] || return
			mapfile -t COMPREPLY < <(compgen -W "$(wsm list 2>/dev/null | sed -n 's/^\([0-9a-f:]\{17\}\) .*/\1/p')" -- "$cur")
			if declare -F __ltrim_colon_completions >/dev/null; then __ltrim_colon_completions "$cur"; fi
			;;
	esac
}
complete -F _wsm wsm
