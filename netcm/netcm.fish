# Fish completion of netcm: the program itself knows which words may follow.
function __complete_netcm
    set -l words (commandline --cut-at-cursor --tokenize --current-process)
    set -l begun (commandline --cut-at-cursor --current-token)
    set -l offered ($words[1] --complete $words[2..-1] "$begun" 2>/dev/null)
    if set -q offered[1]
        printf '%s\n' $offered
    else
        __fish_complete_path "$begun"
    end
end
complete --command netcm --no-files --arguments '(__complete_netcm)'
