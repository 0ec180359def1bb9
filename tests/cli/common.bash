# shellcheck shell=bash disable=SC2034 # the tests use what is set here
# What the tests of the tool share: a directory and a bus of their own, processes that are all gone at the end.

setup() {
    directory=$(mktemp -d)
    bus=$directory/bus
    cd "$directory" || return
    processes=()
    # Those who run the tests may have a terminal of any kind, and any taste.
    export TERM=xterm
    unset NO_COLOR
    # Where a call hangs, as Subscribe() does when the server has left, the tool ends without waiting for its threads.
    export TSAN_OPTIONS=${TSAN_OPTIONS:-}:report_thread_leaks=0
}

teardown() {
    local process
    for process in "${processes[@]}"; do
        # Only one that stands still: a leak sanitizer at work stops its process in a way that SIGCONT undoes.
        if grep -q '^State:.T' "/proc/$process/status" 2>/dev/null; then
            kill -CONT "$process" 2>/dev/null || true
        fi
        kill "$process" 2>/dev/null || true
    done
    wait
    cd /
    rm -rf "$directory"
}

# start <name> <command...>: runs it in the background, with its output in <name>.out and <name>.err and its
# process in $started. Descriptor 3 belongs to bats, which would wait for it.
start() {
    local name=$1
    shift
    rm -f "$name.out" "$name.err" # nobody is to read what an earlier one has left
    env --default-signal=INT "$@" >"$name.out" 2>"$name.err" </dev/null 3>&- &
    started=$!
    processes+=("$started")
}

# await <file> <pattern>: waits until a line of the file matches.
await() {
    local tries=0
    until grep -q -- "$2" "$1" 2>/dev/null; do
        tries=$((tries + 1))
        if [ "$tries" -gt 1500 ]; then
            echo "no \"$2\" in $1, which holds:"
            cat "$1"
            return 1
        fi
        sleep 0.02
    done
}

# finish <process>: waits for it and puts its exit code into $status.
finish() {
    status=0
    wait "$1" || status=$?
}

start_server() {
    start server "$TELVANE" serve "$bus" --verbose "$@"
    server=$started
    await server.err "serving"
}

# start_listener <channel> [option...]: returns when it misses nothing any more. That the server has seen its
# subscription is too early: the client takes records only when it has the server's answer.
start_listener() {
    start listener "$TELVANE" listen "$bus" --verbose "$@"
    listener=$started
    await listener.err ": listening$"
}
