# shellcheck shell=bash disable=SC2034 # the tests use what is set here
# Helpers of the tool's tests: each test has its own directory and bus, and its processes are ended after it.

setup() {
    directory=$(mktemp -d)
    bus=$directory/bus
    cd "$directory" || return
    processes=()
    # Do not depend on the terminal and settings of the user.
    export TERM=xterm
    unset NO_COLOR
    # If a call blocks, as Subscribe() does after the server died, the tool exits without joining its threads.
    export TSAN_OPTIONS=${TSAN_OPTIONS:-}:report_thread_leaks=0
}

teardown() {
    local process
    for process in "${processes[@]}"; do
        # Only suspended processes: the leak sanitizer stops its process in a way that SIGCONT would undo.
        if grep -q '^State:.T' "/proc/$process/status" 2>/dev/null; then
            kill -CONT "$process" 2>/dev/null || true
        fi
        kill "$process" 2>/dev/null || true
    done
    wait
    # Reports of a sanitizer are final. bats prints them if the test has failed.
    grep -ahsE -D skip 'Sanitizer: |runtime error: ' "$directory"/* || true
    cd /
    rm -rf "$directory"
}

# start <name> <command...>: runs a command in the background, with its output in <name>.out and <name>.err and its
# process ID in $started. Closes descriptor 3, for which bats would wait.
start() {
    local name=$1
    shift
    rm -f "$name.out" "$name.err" # output of an earlier command
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

# finish <process>: waits for a process and sets $status to its exit code.
finish() {
    status=0
    wait "$1" || status=$?
}

# suspend <process>: returns when all its threads have stopped. A thread that waits for the disk stops later, and the
# others with it.
suspend() {
    kill -STOP "$1"
    until ! grep -h '^State:' /proc/"$1"/task/*/status | grep -qv 'T (stopped)'; do
        sleep 0.02
    done
}

start_server() {
    start server "$TELVANE" serve "$bus" --verbose "$@"
    server=$started
    await server.err "serving"
}

# start_listener <channel> [option...]: returns when the listener misses no more records. The server's log would be too
# early: the client takes records only after it has received the server's response.
start_listener() {
    start listener "$TELVANE" listen "$bus" --verbose "$@"
    listener=$started
    await listener.err ": listening$"
}
