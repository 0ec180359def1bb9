#!/usr/bin/env bats
# No command hangs: without a server, with a dead or suspended server, with a closed reader, after a signal.

load common

lost="the server at"

@test "every command reports that there is no server" {
    for command in "listen $bus LogData" "publish $bus LogData {}" "request $bus LogData" \
        "reply $bus LogData {}" "weld $bus" "monitor $bus"; do
        # shellcheck disable=SC2086
        run "$TELVANE" $command
        [ "$status" -eq 3 ]
        [ "$output" = "telvane ${command%% *}: cannot connect to $bus: no such socket; start a server with: telvane serve $bus" ]
    done
}

@test "a stale socket is distinguished from a missing one" {
    start_server
    kill -KILL "$server"
    finish "$server"
    run "$TELVANE" listen "$bus" LogData
    [ "$status" -eq 3 ]
    [[ $output == *"no server is running"* ]]
}

@test "a path that is too long for a socket is refused" {
    run "$TELVANE" listen "/$(head -c 107 /dev/zero | tr '\0' x)" LogData
    [ "$status" -eq 2 ]
    [[ $output == *"it must have 1 to 107 characters"* ]]
}

@test "a command with --wait waits for its server" {
    start listener "$TELVANE" listen "$bus" LogData --count 1 --wait 60 --verbose
    listener=$started
    start_server
    await listener.err ": listening$"
    "$TELVANE" publish "$bus" LogData '{"log":"x"}'
    finish "$listener"
    [ "$status" -eq 0 ]
}

@test "listen, request, reply and monitor exit when the server dies" {
    start_server
    start listener "$TELVANE" listen "$bus" LogData
    listener=$started
    start request "$TELVANE" request "$bus" DataStatus --timeout 600
    request=$started
    start reply "$TELVANE" reply "$bus" FlagType --as FlagType
    reply=$started
    start monitor "$TELVANE" monitor "$bus"
    monitor=$started
    await server.err "subscribe to LogData"
    await server.err "subscribe to DataStatus"
    await server.err "subscribe to req_FlagType"
    await server.err "subscribe to WeldTriggerEnd"
    kill -KILL "$server"
    for name in listener request reply monitor; do
        finish "${!name}"
        [ "$status" -eq 3 ]
        grep -q "$lost $bus has gone away" "$name.err"
    done
}

@test "publish exits when the server dies, although it has more input" {
    start_server
    start_listener LogData
    mkfifo lines
    (
        exec 3>&- >lines
        while printf '{"log":"x"}\n' 2>/dev/null; do :; done
    ) &
    processes+=("$!")
    (
        exec 3>&- <lines 2>publish.err
        exec "$TELVANE" publish "$bus" LogData -
    ) &
    publish=$!
    processes+=("$publish")
    await listener.out '"log":"x"'
    kill -KILL "$server"
    finish "$publish"
    [ "$status" -eq 3 ]
    grep -q "$lost $bus has gone away" publish.err
}

@test "publish exits when the server dies, although no input arrives" {
    start_server
    mkfifo lines
    exec 4<>lines
    (
        exec 3>&- <lines 4<&- 2>publish.err
        exec "$TELVANE" publish "$bus" LogData -
    ) &
    publish=$!
    processes+=("$publish")
    await server.err "(process $publish, .* connected$"
    kill -KILL "$server"
    finish "$publish"
    exec 4<&-
    [ "$status" -eq 3 ]
    grep -q "$lost $bus has gone away" publish.err
}

@test "weld and reply can be interrupted while they wait for their input" {
    mkfifo lines
    exec 4<>lines
    for command in "weld $bus --csv - --amps a --volts v --period-us 5" "reply $bus LogData -"; do
        # shellcheck disable=SC2086
        start waiting bash -c 'exec "$0" "$@" <lines 4<&-' "$TELVANE" $command
        waiting=$started
        # From then on the signal is taken by the tool itself.
        await "/proc/$waiting/status" '^SigBlk:.*4003$'
        kill -TERM "$waiting"
        finish "$waiting"
        case $command in
        weld*) [ "$status" -eq 143 ] ;;
        reply*) [ "$status" -eq 0 ] ;;
        esac
        [ ! -s waiting.err ]
    done
    exec 4<&-
}

@test "weld exits when the server dies" {
    start_server
    start_listener WeldTraceData
    start weld "$TELVANE" weld "$bus" --duration 600
    weld=$started
    await listener.out '"amps"'
    kill -KILL "$server"
    finish "$weld"
    [ "$status" -eq 3 ]
    grep -q "$lost $bus has gone away" weld.err
}

@test "commands time out if the server does not respond" {
    start_server
    suspend "$server"
    run "$TELVANE" listen "$bus" LogData
    [ "$status" -eq 3 ]
    [[ $output == *'cannot subscribe to "LogData" on '*'the server does not respond'* ]]
    # The kernel keeps a few connections waiting; the next one would wait for ever.
    for _ in 1 2 3 4 5 6 7 8; do
        run "$TELVANE" request "$bus" LogData --timeout 0.01
        [ "$status" -eq 3 ]
    done
    [[ $output == *"the server does not accept connections"* ]]
}

@test "a blocked weld can be interrupted" {
    start_server
    start_listener WeldTraceData
    start weld "$TELVANE" weld "$bus" --duration 600 --speed 0
    weld=$started
    await listener.out '"amps"'
    suspend "$server"
    kill -INT "$weld"
    finish "$weld"
    [ "$status" -eq 130 ]
}

@test "a blocked weld reports what it published before it is interrupted" {
    # On a busy machine, the program may be ended before it has printed.
    for _ in 1 2 3 4 5 6 7 8; do
        start_server
        start weld "$TELVANE" weld "$bus" --duration 600 --speed 0
        weld=$started
        await server.err "client [0-9]* .*connected"
        suspend "$server"
        # Until the socket's buffer is full, the program uses the processor.
        used=
        while [ "$(cut -d' ' -f 14,15 "/proc/$weld/stat")" != "$used" ]; do
            used=$(cut -d' ' -f 14,15 "/proc/$weld/stat")
            sleep 0.1
        done
        kill -INT "$weld"
        finish "$weld"
        [ "$status" -eq 130 ]
        kill -KILL "$server"
        finish "$server"
        if grep -q "published 1 weld with [0-9]* samples" weld.err; then
            return
        fi
    done
    false
}

@test "listen succeeds when interrupted, its usual end" {
    start_server
    start_listener LogData
    kill -INT "$listener"
    finish "$listener"
    [ "$status" -eq 0 ]
    start_listener DataStatus
    kill -TERM "$listener"
    finish "$listener"
    [ "$status" -eq 0 ]
}

@test "listen with --count fails when interrupted" {
    start_server
    start_listener LogData --count 5
    kill -INT "$listener"
    finish "$listener"
    [ "$status" -eq 130 ]
}

@test "a signal that is ignored stays ignored" {
    start_server
    (
        trap '' INT
        exec 3>&-
        exec "$TELVANE" listen "$bus" LogData --count 1 --verbose >listener.out 2>listener.err
    ) &
    listener=$!
    processes+=("$listener")
    await listener.err ": listening$"
    kill -INT "$listener"
    "$TELVANE" publish "$bus" LogData '{"log":"x"}'
    finish "$listener"
    [ "$status" -eq 0 ]
}

@test "listen exits without a message when its reader closes the pipe" {
    start_server
    mkfifo records
    start cat cat records
    cat=$started
    (
        exec 3>&- >records 2>listener.err
        exec "$TELVANE" listen "$bus" LogData
    ) &
    listener=$!
    processes+=("$listener")
    await server.err "subscribe to LogData"
    kill "$cat"
    finish "$listener"
    [ "$status" -eq 141 ]
    [ ! -s listener.err ]
}

@test "records that cannot be written are an error" {
    start_server
    (
        exec 3>&- >/dev/full 2>full.err
        exec "$TELVANE" listen "$bus" LogData --verbose
    ) &
    full=$!
    processes+=("$full")
    await full.err ": listening$"
    "$TELVANE" publish "$bus" LogData '{"log":"x"}'
    finish "$full"
    [ "$status" -eq 5 ]
    grep -q "cannot write to standard output: No space left on device" full.err
}

@test "a closed standard output does not get a socket's number" {
    start_server
    run bash -c '"$0" listen "$1" LogData --timeout 0.05 2>&1 >&-' "$TELVANE" "$bus"
    [ "$status" -eq 0 ]
    run bash -c '"$0" records 2>&1 >&-' "$TELVANE"
    [ "$status" -eq 5 ]
}

@test "a second signal ends listen at once, with the signal's exit code" {
    start_server
    mkfifo output
    exec 8<>output # keeps the pipe open, but does not read it
    env --default-signal=INT "$TELVANE" listen "$bus" LogData --verbose >output 2>listener.err </dev/null 3>&- &
    listener=$!
    processes+=("$listener")
    await listener.err ": listening$"
    log=$(head -c 4000 /dev/zero | tr '\0' x)
    for ((i = 0; i < 60; i++)); do echo "{\"log\":\"$log\"}"; done | "$TELVANE" publish "$bus" LogData -
    # Its output is stuck when the pipe is full.
    until python3 -c '
import fcntl, struct, sys, termios
waiting = struct.unpack("i", fcntl.ioctl(0, termios.FIONREAD, bytes(4)))[0]
sys.exit(waiting < 61440)' <&8; do sleep 0.02; done
    kill -INT "$listener"
    until grep -q '^ShdPnd:[[:space:]]*0*$' "/proc/$listener/status"; do sleep 0.02; done # it has been taken
    kill -INT "$listener"
    finish "$listener"
    [ "$status" -eq 130 ]
    exec 8<&-
}

@test "commands that read a file can be interrupted" {
    mkfifo input
    exec 4<>input
    for command in "info" "show" "plot -o weld.svg"; do
        # shellcheck disable=SC2086
        start reader "$TELVANE" $command input
        reader=$started
        tries=0
        until [ -n "$(find "/proc/$reader/fd" -lname "*/input" ! -name 4 2>/dev/null)" ]; do # 4 is inherited
            tries=$((tries + 1))
            [ "$tries" -lt 1500 ]
            sleep 0.02
        done
        kill -INT "$reader"
        finish "$reader"
        [ "$status" -eq 130 ]
    done
    exec 4>&-
    [ ! -e weld.svg ]
}
