# Completion for bash: its options are those that --help tells; all else is a file.
_velad() {
    local word=${COMP_WORDS[COMP_CWORD]}
    [[ $word == -* ]] || return
    mapfile -t COMPREPLY < <(compgen -W "$(velad --help 2>/dev/null | grep -o -- '--[a-z]*')" -- "$word")
}
complete -o default -F _velad velad
