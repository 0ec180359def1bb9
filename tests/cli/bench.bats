#!/usr/bin/env bats
# Measurements between processes.

load common

@test "bench measures on a bus of its own and leaves nothing behind" {
    TMPDIR=$directory run "$TELVANE" bench --self --duration 0.2 --rate 200 --publishers 2 --subscribers 2
    [ "$status" -eq 0 ]
    [[ $output == "2 publishers, 2 subscribers, payloads of 200 bytes, "*$'\npublished  '*$'\nlost       0\nlatency    p50 '* ]]
    [ "$(ls)" = "" ]
}

@test "bench measures on a running server and prints JSON" {
    start_server
    "$TELVANE" bench "$bus" --duration 0.2 --rate 100 --size 1000 --json >result
    [ "$(jq -c '[.publishers, .subscribers, .size, .published > 0, .received == .published, .lost]' result)" = \
        '[1,1,1000,true,true,0]' ]
    [ "$(jq '.latencyMicroseconds | .p50 > 0 and .p50 <= .p99 and .p99 <= .longest' result)" = true ]
    [ "$(grep -c " connected$" server.err)" -ge 2 ]
}

@test "bench reports once that there is no server" {
    run "$TELVANE" bench "$bus" --subscribers 3
    [ "$status" -eq 3 ]
    [ "$output" = "telvane bench: cannot connect to $bus: no such socket; start a server with: telvane serve $bus" ]
}

@test "bench exits when the server dies, and reports it once" {
    start_server
    start bench "$TELVANE" bench "$bus" --duration 10m --publishers 2 --subscribers 2 --rate 10
    bench=$started
    until "$TELVANE" request "$bus" TelvaneChannels |
        jq -e '.channels[] | select(.channel | startswith("TelvaneBench")) | .publications > 0' >publishing; do
        sleep 0.02
    done
    kill -KILL "$server"
    finish "$bench"
    [ "$status" -eq 3 ]
    [ "$(cat bench.err)" = "telvane bench: the server at $bus has gone away" ]
}

@test "bench reports how many clients the server accepted" {
    start_server --max-clients 2
    run "$TELVANE" bench "$bus" --subscribers 3
    [ "$status" -eq 3 ]
    [ "$output" = "telvane bench: only 2 clients could connect to $bus" ]
}

@test "bench ends its processes when it is interrupted" {
    start_server
    start bench "$TELVANE" bench "$bus" --duration 10m --publishers 2 --subscribers 2
    bench=$started
    await server.err "subscribe to TelvaneBench"
    read -ra workers <<<"$(cat "/proc/$bench/task/$bench/children")"
    [ "${#workers[@]}" -ge 1 ]
    kill -INT "$bench"
    finish "$bench"
    [ "$status" -eq 130 ]
    [ ! -s bench.err ]
    for worker in "${workers[@]}"; do
        [ ! -e "/proc/$worker" ]
    done
}

@test "bench shows its progress on a terminal" {
    start terminal script -qec "'$TELVANE' bench --self --duration 0.5 --rate 100" page
    finish "$started"
    [ "$status" -eq 0 ]
    grep -q '\[#*-*\] [0-9]* %.*published' page
}

@test "bench reports that its result cannot be written" {
    run bash -c '"$0" bench --self --duration 0.01 --rate 100 >/dev/full' "$TELVANE"
    [ "$status" -eq 5 ]
}

@test "bench refuses invalid options" {
    for arguments in "" "$bus --self" "--self --size 1" "--self --size 20000" "--self --publishers 0" \
        "--self --publishers 100" "--self --rate -1" "--self --duration long"; do
        # shellcheck disable=SC2086
        run "$TELVANE" bench $arguments
        [ "$status" -eq 2 ]
    done
}
