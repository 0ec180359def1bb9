#!/usr/bin/env bats
# Serving a bus.

load common

@test "serve ends well on SIGTERM and takes its socket away" {
    start_server
    [ -S "$bus" ]
    kill "$server"
    finish "$server"
    [ "$status" -eq 0 ]
    [ ! -e "$bus" ]
}

@test "serve ends well on SIGINT, with clients connected" {
    start_server
    start_listener LogData
    kill -INT "$server"
    finish "$server"
    [ "$status" -eq 0 ]
    finish "$listener"
    [ "$status" -eq 3 ]
}

@test "serve lets nobody but its owner in unless told otherwise" {
    start_server
    [ "$(stat -c %a "$bus")" = 600 ]
}

@test "serve gives its socket the permissions that it is told" {
    start_server --mode 0660
    [ "$(stat -c %a "$bus")" = 660 ]
}

@test "serve says once when the kernel grants subscribers less than asked for" {
    wanted=$(($(cat /proc/sys/net/core/wmem_max) * 4))
    # The kernel lets those go beyond its limit who may administer the network.
    without_privilege=()
    if [ "$(id -u)" -eq 0 ]; then
        without_privilege=(setpriv --bounding-set=-net_admin --inh-caps=-net_admin)
    fi
    start server "${without_privilege[@]}" "$TELVANE" serve "$bus" --verbose --subscriber-buffer "$wanted"
    await server.err "serving"
    start_listener LogData
    start_listener LogData
    [ "$(grep -c "instead of $wanted; net.core.wmem_max limits it" server.err)" -eq 1 ]
}

@test "serve refuses permissions that are none" {
    run "$TELVANE" serve "$bus" --mode rw
    [ "$status" -eq 2 ]
    [[ $output == *"three octal digits"* ]]
}

@test "serve leaves a file that is no socket alone" {
    echo precious >"$bus"
    run "$TELVANE" serve "$bus"
    [ "$status" -eq 2 ]
    [[ $output == *"exists and is not a socket"* ]]
    [ "$(cat "$bus")" = precious ]
}

@test "serve replaces a socket that nobody serves any more" {
    start_server
    kill -KILL "$server"
    finish "$server"
    [ -S "$bus" ]
    start_server
    "$TELVANE" publish "$bus" LogData '{"log":"x"}'
}

@test "serve says so when another server is there" {
    start_server
    run "$TELVANE" serve "$bus"
    [ "$status" -eq 3 ]
    [ "$output" = "telvane serve: cannot serve $bus: another server is running there" ]
}

@test "serve says why it cannot make its socket" {
    run "$TELVANE" serve "$directory/missing/bus"
    [ "$status" -eq 3 ]
    [[ $output == *"cannot serve $directory/missing/bus: No such file or directory"* ]]
}

@test "serve refuses a path that is too long for a socket" {
    run "$TELVANE" serve "$directory/$(head -c 108 /dev/zero | tr '\0' x)"
    [ "$status" -eq 2 ]
    [[ $output == *"it must have 1 to 107 characters"* ]]
}

@test "serve tells of connects, subscriptions and leavings when verbose" {
    start_server
    start_listener LogData --count 1
    "$TELVANE" publish "$bus" LogData '{"log":"x"}'
    finish "$listener"
    await server.err " disconnected$"
    grep -q "client [0-9]* (process $listener, user $(id -u)) connected" server.err
    kill "$server"
    finish "$server"
    grep -q "stopped; 4 messages received, 1 relayed, 0 missed" server.err
}

@test "serve is quiet by itself" {
    start server "$TELVANE" serve "$bus"
    server=$started
    "$TELVANE" publish "$bus" LogData '{"log":"x"}' --wait 30
    kill "$server"
    finish "$server"
    [ ! -s server.out ]
    [ ! -s server.err ]
}
