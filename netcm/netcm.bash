# Bash completion of netcm: the program itself knows which words may follow.
_netcm() {
    local IFS=$'\n'
    mapfile -t COMPREPLY < <("$1" --complete "${COMP_WORDS[@]:1:COMP_CWORD}" 2>/dev/null)
}
complete -o default -F _netcm netcm
