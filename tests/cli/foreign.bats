#!/usr/bin/env bats
# The tool with another implementation of the server.

load common

start_foreign_server() {
    start server python3 "$BATS_TEST_DIRNAME/foreign_server.py" "$bus"
    await server.out serving
}

@test "publish and listen work on any server of the bus" {
    start_foreign_server
    start listener "$TELVANE" listen "$bus" LogData --count 2 --verbose
    listener=$started
    await listener.err ": listening$"
    printf '{"log":"1"}\n{"log":"2"}\n' | "$TELVANE" publish "$bus" LogData - --as LogData
    finish "$listener"
    [ "$status" -eq 0 ]
    [ "$(jq -c '[.sequence, .payload.log]' listener.out | tr '\n' ' ')" = '[0,"1"] [1,"2"] ' ]
}

@test "request and reply work on any server of the bus" {
    start_foreign_server
    start reply "$TELVANE" reply "$bus" LogData '{"log":"yes"}' --count 1 --verbose
    await reply.err ": listening$"
    run "$TELVANE" request "$bus" LogData
    [ "$status" -eq 0 ]
    [ "$output" = '{"log":"yes"}' ]
}

@test "weld and monitor work on any server of the bus" {
    start_foreign_server
    start monitor "$TELVANE" monitor "$bus" --ledger ledger
    monitor=$started
    "$TELVANE" weld "$bus" --ledger ledger --duration 1.5 --period-us 20000
    finish "$monitor"
    [ "$status" -eq 0 ]
    grep -Eq "^published ([0-9]+), received \1, lost 0$" monitor.out
}

@test "a server that closes a connection after its answers has not refused the client" {
    start_foreign_server
    start listener "$TELVANE" listen "$bus" LogData --verbose
    listener=$started
    await listener.err ": listening$"
    "$TELVANE" publish "$bus" CloseAll '{}'
    finish "$listener"
    [ "$status" -eq 3 ]
    grep -q "the server at $bus has gone away" listener.err
}
