# Completion for bash: the tool itself knows its commands, tables and profiles; what is no such word
# is a file.
_velatable() {
    local word words=() joined=
    # "sim:FILE" comes as three words, and so does "--profile=NAME", which is an option and its value.
    for word in "${COMP_WORDS[@]:1:COMP_CWORD}"; do
        if [[ $word == = ]]; then
            words+=("")
        elif [[ $word == : || $joined ]]; then
            words[-1]+=$word
        else
            words+=("$word")
        fi
        [[ $word == [:=] ]] && joined=1 || joined=
    done
    if [[ ${words[-1]} == sim:* ]]; then
        mapfile -t COMPREPLY < <(compgen -f -- "${words[-1]#sim:}")
        compopt -o filenames 2>/dev/null
        return
    fi
    mapfile -t COMPREPLY < <(velatable complete -- "${words[@]}" 2>/dev/null)
    [[ ${COMPREPLY[0]-} == sim* ]] && compopt -o nospace
}
complete -o default -F _velatable velatable
