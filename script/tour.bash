# shellcheck shell=bash
# What the walks of the demonstrations have in common; they source it. The first argument is the folder of the programs.
set -euo pipefail
programs=$(cd "$1" && pwd)
PATH=$programs:$PATH:/usr/sbin:/sbin
# This /tmp is the walk's own, and so are the names in it.
mkdir /tmp/demo
cd /tmp/demo
started=()

tidy_up() {
    # Last come, first gone: applications before the server, the server before the network.
    for ((i = ${#started[@]} - 1; i >= 0; --i)); do
        kill "${started[i]}" 2>/dev/null || true
        wait "${started[i]}" 2>/dev/null || true
    done
}
trap tidy_up EXIT
trap 'echo "script/demo: this step failed" >&2' ERR
trap 'exit 130' INT TERM

if [[ -t 1 ]]; then bold=$'\e[1m' dim=$'\e[2m' plain=$'\e[0m'; else bold='' dim='' plain=''; fi
number=0
step() {
    number=$((number + 1))
    printf '\n%s%d. %s%s\n' "$bold" "$number" "$*" "$plain"
}
say() {
    local word words=()
    for word in "$@"; do
        [[ $word != *' '* || $# -eq 1 ]] || word="'$word'"
        words+=("$word")
    done
    printf '   %s$ %s%s\n' "$dim" "${words[*]}" "$plain"
}
indented() { sed -u 's/^/     /'; }
# Show a command, run it, show what it prints.
run() {
    say "$@"
    "$@" 2>&1 | indented
}
# The same for a command that goes on while the walk does; what it prints is kept in a file, too.
run_beside() {
    local output=$1
    shift
    say "$@" "&"
    "$@" > >(tee "$output" | indented) 2>&1 &
    started+=($!)
}
has() { [[ $(grep -c "$2" "$3") -ge $1 ]]; }
# Wait for up to a minute until a command succeeds: a busy machine needs a while.
until_true() {
    local tries
    for ((tries = 0; tries < 1200; ++tries)); do
        ! "$@" >/dev/null 2>&1 || return 0
        sleep 0.05
    done
    echo "script/demo: waited in vain for: $*" >&2
    for log in *.log; do sed "s/^/  $log: /" "$log" >&2; done
    exit 1
}

# A network of its own behind a link of the given name, gw0 there; in_gateway runs a command in it.
make_gateway() {
    unshare --net sleep infinity &
    gateway=$!
    started+=("$gateway")
    until_true sh -c "[ \"\$(readlink /proc/$gateway/ns/net)\" != \"\$(readlink /proc/self/ns/net)\" ]"
    ip link add "$1" type veth peer name gw0 netns "$gateway"
}
in_gateway() { nsenter --target "$gateway" --net "$@"; }
# With cm-server.toml; as often as it is started, the log has the word of it.
start_server() {
    say "cm-server --config cm-server.toml --db profiles.db 2>>server.log &"
    cm-server --config cm-server.toml --db profiles.db 2>>server.log &
    server=$!
    started+=("$server")
    until_true has "$1" listening server.log
}
# Until the process that builds it has ended; it may have been built long before.
wait_for_netcm() {
    [[ -n $1 ]] || return 0
    printf '\n   (The command line is still being built.)\n'
    while kill -0 "$1" 2>/dev/null; do sleep 0.1; done
    [[ -e ${programs%/bin}/netcm.built ]] || { cat "${programs%/bin}/netcm.log" >&2; exit 1; }
}
