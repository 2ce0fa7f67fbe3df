#compdef netcm
# Zsh completion of netcm: the program itself knows which words may follow.
_netcm() {
    local -a offered
    offered=("${(@f)$("${words[1]}" --complete "${(@)words[2,CURRENT]}" 2>/dev/null)}")
    offered=("${(@)offered:#}")
    if (( ${#offered} )); then
        compadd -- "${offered[@]}"
    else
        _files
    fi
}
_netcm "$@"
