#!/usr/bin/env bats
# Serving under a service manager: inherited sockets and notifications.

load common

# listen_to_states <name>: writes the notifications to a service manager at <name> to states.out.
listen_to_states() {
    start states python3 -u -c '
import socket, sys
listener = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
listener.bind(sys.argv[1].replace("@", "\0"))
print("listening")
while True:
    print(listener.recv(4096).decode())
' "$1"
    await states.out listening
}

@test "serve starts when the first client connects to an inherited socket" {
    start activation systemd-socket-activate --seqpacket --listen="$bus" "$TELVANE" serve --verbose
    server=$started
    await activation.err "Listening on"
    [ -S "$bus" ]
    # Whoever subscribes waits a second for the answer, which may be too short for a server to begin in.
    "$TELVANE" publish "$bus" Early '{}'
    await activation.err "serving $bus"
    start_listener LogData --count 1
    "$TELVANE" publish "$bus" LogData '{"log":"x"}'
    finish "$listener"
    [ "$status" -eq 0 ]
    kill "$server"
    finish "$server"
    [ "$status" -eq 0 ]
    grep -q "stopped; 5 messages received, 1 relayed" activation.err
    [ -S "$bus" ] # it belongs to who made it
}

@test "pending connections are served by the next server on the same socket" {
    # A service manager in small: keeps the socket, starts servers on it one after the other.
    start manager python3 -u -c '
import os, socket, sys
kept = socket.socket(socket.AF_UNIX, socket.SOCK_SEQPACKET)
kept.bind(sys.argv[1])
kept.listen(16)
client = socket.socket(socket.AF_UNIX, socket.SOCK_SEQPACKET)
for server in "first", "second":
    process = os.fork()
    if process == 0:
        os.dup2(kept.fileno(), 3)
        os.set_inheritable(3, True)
        os.environ.update(LISTEN_FDS="1", LISTEN_PID=str(os.getpid()))
        os.execv(sys.argv[2], [sys.argv[2], "serve", "--verbose"])
    print(server, process)
    print(server, "ended with", os.waitstatus_to_exitcode(os.waitpid(process, 0)[1]))
    if server == "first":
        client.connect(sys.argv[1])
        client.send(b"""{"header":".subscribe","payload":{"channel":"C"}}""")
print(client.recv(16384).decode())
' "$bus" "$TELVANE"
    manager=$started
    await manager.err "serving"
    kill "$(sed -n 's/^first \([0-9]*\)$/\1/p' manager.out)"
    await manager.out "^first ended with 0"
    await manager.err "requested to subscribe to C$"
    kill "$(sed -n 's/^second \([0-9]*\)$/\1/p' manager.out)"
    finish "$manager"
    [ "$status" -eq 0 ]
    [ "$(tail -n 1 manager.out)" = '{"header":".subscribe","success":true,"channel":"C"}' ]
}

@test "serve notifies its service manager when it is ready and when it stops" {
    listen_to_states "$directory/notify"
    start server env NOTIFY_SOCKET="$directory/notify" "$TELVANE" serve "$bus"
    server=$started
    await states.out "^READY=1$"
    await states.out "^STATUS=Serving $bus$"
    "$TELVANE" publish "$bus" LogData '{"log":"x"}'
    kill "$server"
    finish "$server"
    [ "$status" -eq 0 ]
    await states.out "^STOPPING=1$"
}

@test "serve notifies a service manager on an abstract socket" {
    name=telvane-test-$$-$RANDOM
    listen_to_states "@$name"
    start server env NOTIFY_SOCKET="@$name" "$TELVANE" serve "$bus"
    await states.out "^READY=1$"
}

@test "serve works if its service manager does not listen" {
    start server env NOTIFY_SOCKET="$directory/nobody" "$TELVANE" serve "$bus" --verbose
    await server.err "serving"
    "$TELVANE" publish "$bus" LogData '{"log":"x"}'
}

@test "serve refuses an inherited socket of another type" {
    start activation systemd-socket-activate --listen="$directory/stream" "$TELVANE" serve
    await activation.err "Listening on"
    python3 -c 'import socket, sys; socket.socket(socket.AF_UNIX).connect(sys.argv[1])' "$directory/stream"
    finish "$started"
    [ "$status" -eq 2 ]
    grep -q "telvane serve: the inherited socket is not a listening SOCK_SEQPACKET socket" activation.err
}

@test "serve refuses PATH with an inherited socket" {
    # shellcheck disable=SC2016 # the inner shell expands its own variables
    run env LISTEN_FDS=1 sh -c 'LISTEN_PID=$$ exec "$0" serve "$1"' "$TELVANE" "$bus"
    [ "$status" -eq 2 ]
    [ "$output" = "telvane serve: PATH cannot be used with an inherited socket; omit it" ]
    [ ! -e "$bus" ]
}

@test "serve refuses several inherited sockets" {
    # shellcheck disable=SC2016
    run env LISTEN_FDS=2 sh -c 'LISTEN_PID=$$ exec "$0" serve' "$TELVANE"
    [ "$status" -eq 2 ]
    [ "$output" = "telvane serve: 2 sockets were inherited; a bus has one" ]
}

@test "serve ignores sockets passed to another process" {
    run env LISTEN_FDS=1 LISTEN_PID=1 "$TELVANE" serve
    [ "$status" -eq 2 ]
    [[ $output == "telvane serve: PATH is required unless a service manager passes a socket"* ]]
}
