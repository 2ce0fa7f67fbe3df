# Bash completion of cm-server: the program itself knows which words may follow.
_cm_server() {
    local IFS=$'\n'
    mapfile -t COMPREPLY < <("$1" --complete "${COMP_WORDS[@]:1:COMP_CWORD}" 2>/dev/null)
}
complete -o default -F _cm_server cm-server
