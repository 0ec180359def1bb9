#!/usr/bin/env bats
# Serving a bus.

load common

@test "serve exits on SIGTERM and removes its socket" {
    start_server
    [ -S "$bus" ]
    kill "$server"
    finish "$server"
    [ "$status" -eq 0 ]
    [ ! -e "$bus" ]
}

@test "serve exits on SIGINT with clients connected" {
    start_server
    start_listener LogData
    kill -INT "$server"
    finish "$server"
    [ "$status" -eq 0 ]
    finish "$listener"
    [ "$status" -eq 3 ]
}

@test "serve allows only its owner by default" {
    start_server
    [ "$(stat -c %a "$bus")" = 600 ]
}

@test "serve sets the permissions of --mode" {
    start_server --mode 0660
    [ "$(stat -c %a "$bus")" = 660 ]
}

@test "serve reports once that the kernel limits the send buffer" {
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

@test "serve refuses invalid permissions" {
    for mode in rw 680 09 06600; do
        run timeout 20 "$TELVANE" serve "$bus" --mode "$mode"
        [ "$status" -eq 2 ]
        [[ $output == *"three octal digits"* ]]
    done
}

@test "serve does not replace a file that is not a socket" {
    echo precious >"$bus"
    run "$TELVANE" serve "$bus"
    [ "$status" -eq 2 ]
    [[ $output == *"exists and is not a socket"* ]]
    [ "$(cat "$bus")" = precious ]
}

@test "serve replaces a stale socket" {
    start_server
    kill -KILL "$server"
    finish "$server"
    [ -S "$bus" ]
    start_server
    "$TELVANE" publish "$bus" LogData '{"log":"x"}'
}

@test "serve reports that another server is running" {
    start_server
    run "$TELVANE" serve "$bus"
    [ "$status" -eq 3 ]
    [ "$output" = "telvane serve: cannot serve $bus: another server is running there" ]
}

# occupy <type> <backlog> <filled>: has another program listen on the path of the bus, with a backlog that is full if
# <filled> is 1.
occupy() {
    start other python3 -c "
import signal, socket, sys
listener = socket.socket(socket.AF_UNIX, socket.$1)
listener.bind('$bus')
listener.listen($2)
clients = []
while $3:
    client = socket.socket(socket.AF_UNIX, socket.$1)
    client.setblocking(False)
    clients.append(client)
    try:
        client.connect('$bus')
    except BlockingIOError:
        break
print('ready', flush=True)
signal.pause()"
    other=$started
    await other.out ready
}

@test "serve does not replace the socket of a program of another kind" {
    occupy SOCK_STREAM 1 0
    run "$TELVANE" serve "$bus"
    [ "$status" -eq 3 ]
    [ "$output" = "telvane serve: cannot serve $bus: a program of another kind is using this socket" ]
    [ -S "$bus" ]
}

@test "serve replaces a stale socket of another type" {
    occupy SOCK_STREAM 1 0
    kill -KILL "$other"
    finish "$other"
    start_server
}

@test "serve does not wait for a suspended server with a full backlog" {
    occupy SOCK_SEQPACKET 1 1
    run timeout 20 "$TELVANE" serve "$bus"
    [ "$status" -eq 3 ]
    [ "$output" = "telvane serve: cannot serve $bus: another server is running there" ]
    [ -S "$bus" ]
}

@test "serve does not replace a socket that it may not connect to" {
    [ "$(id -u)" -eq 0 ] || skip "only root can become another user"
    start_server
    # The other user may not be able to read the build's folder.
    ldd "$TELVANE" >libraries || skip "the tool of another architecture cannot be copied"
    install -m 755 "$TELVANE" "$(awk '$1 == "libTelvane.so.1" { print $3 }' libraries)" "$directory"
    chmod 777 "$directory"
    run env LD_LIBRARY_PATH="$directory" setpriv --reuid=65534 --regid=65534 --clear-groups \
        "$directory/telvane" serve "$bus"
    [ "$status" -eq 3 ]
    [[ $output == *"cannot check whether another server is running there: Permission denied" ]]
    [ -S "$bus" ]
}

@test "serve reports why it cannot create its socket" {
    run "$TELVANE" serve "$directory/missing/bus"
    [ "$status" -eq 3 ]
    [[ $output == *"cannot serve $directory/missing/bus: No such file or directory"* ]]
}

@test "serve refuses a path that is too long for a socket" {
    run "$TELVANE" serve "$directory/$(head -c 108 /dev/zero | tr '\0' x)"
    [ "$status" -eq 2 ]
    [[ $output == *"it must have 1 to 107 characters"* ]]
}

@test "serve --verbose logs connections, subscriptions and disconnections" {
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

@test "serve prints nothing by default" {
    start server "$TELVANE" serve "$bus"
    server=$started
    "$TELVANE" publish "$bus" LogData '{"log":"x"}' --wait 30
    kill "$server"
    finish "$server"
    [ ! -s server.out ]
    [ ! -s server.err ]
}

@test "serve --remember answers requests for last records, and listen --last prints them first" {
    start_server --remember 'Log*'
    printf '{"log":"first"}\n{"log":"last"}\n' | "$TELVANE" publish "$bus" LogData -
    await server.err disconnected # the server has read both
    "$TELVANE" request "$bus" LogData --timeout 5 | grep -q '"log":"last"'
    start_listener LogData SystemHealth --last --count 2
    await listener.out last
    "$TELVANE" publish "$bus" SystemHealth '{"code":2,"processName":"p"}'
    finish "$listener"
    [ "$(jq -r '.payload.log // .payload.code' listener.out | tr '\n' ' ')" = "last 2 " ]
}

@test "serve --remember does not keep what another client says of the server" {
    start_server --no-status --remember '*'
    "$TELVANE" publish "$bus" TelvaneChannels '{"forged":true}'
    "$TELVANE" publish "$bus" LogData '{"log":"x"}'
    until [ "$(grep -c " disconnected$" server.err)" -ge 2 ]; do sleep 0.02; done # the server has handled both
    [ "$("$TELVANE" request "$bus" LogData --timeout 5 | jq -r .log)" = x ]
    run "$TELVANE" request "$bus" TelvaneChannels --timeout 1
    [ "$status" -ne 0 ]
}

@test "without serve --remember, a request without a responder times out" {
    start_server
    "$TELVANE" publish "$bus" LogData '{"log":"x"}'
    run "$TELVANE" request "$bus" LogData --timeout 0.2
    [ "$status" -ne 0 ]
}
