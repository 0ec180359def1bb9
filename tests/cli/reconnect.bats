#!/usr/bin/env bats
# Commands with --reconnect go on after their server has been killed and started again.

load common

# restart_server [option...]
restart_server() {
    kill -KILL "$server"
    finish "$server"
    start_server "$@"
}

@test "listen --reconnect goes on with a new server and reports the loss" {
    start_server
    start_listener LogData --reconnect --count 2
    "$TELVANE" publish "$bus" LogData '{"log":"before"}'
    await listener.out before
    restart_server
    await server.err "subscribe to LogData"
    "$TELVANE" publish "$bus" LogData '{"log":"after"}'
    finish "$listener"
    [ "$status" -eq 0 ]
    [ "$(jq -r .payload.log listener.out | tr '\n' ' ')" = "before after " ]
    grep -q "listen: the server at $bus has gone away; waiting for it to return$" listener.err
    grep -q "listen: connected to $bus again$" listener.err
    grep -q "the connection was lost 1 time; records that were published meanwhile are missing" listener.err
}

@test "listen --reconnect follows patterns on a new server" {
    start_server
    start_listener 'Log*' --reconnect --count 1
    restart_server
    await server.err "subscribe to LogData"
    "$TELVANE" publish "$bus" LogData '{"log":"after"}'
    finish "$listener"
    [ "$status" -eq 0 ]
    grep -q after listener.out
}

@test "listen --reconnect ends at a signal while there is no server" {
    start_server
    start_listener LogData --reconnect
    kill -KILL "$server"
    await listener.err "has gone away"
    kill -INT "$listener"
    finish "$listener"
    [ "$status" -eq 0 ]
}

@test "a first connection fails with --reconnect as without" {
    run "$TELVANE" listen "$bus" LogData --reconnect
    [ "$status" -eq 3 ]
    [ "$output" = "telvane listen: cannot connect to $bus: no such socket; start a server with: telvane serve $bus" ]
}

@test "a first connection with --reconnect and --wait waits for the server" {
    start listener "$TELVANE" listen "$bus" LogData --reconnect --wait 60 --count 1 --verbose
    listener=$started
    start_server
    await listener.err ": listening$"
    "$TELVANE" publish "$bus" LogData '{"log":"x"}'
    finish "$listener"
    [ "$status" -eq 0 ]
}

@test "a refused channel is an error with --reconnect" {
    start_server --max-subscriptions 1
    run "$TELVANE" listen "$bus" One Two --reconnect
    [ "$status" -eq 3 ]
    [[ $output == *'cannot subscribe to "Two" on '*"the server refused"* ]]
}

@test "monitor --reconnect shows the welds of a new server" {
    start_server
    start monitor "$TELVANE" monitor "$bus" --reconnect --verbose
    monitor=$started
    await monitor.err ": listening$"
    restart_server
    await server.err "subscribe to WeldTriggerEnd"
    "$TELVANE" weld "$bus" --duration 1.5 --speed 0
    await monitor.out "^weld 1 ended"
    kill -INT "$monitor"
    finish "$monitor"
    [ "$status" -eq 0 ]
}

@test "top --reconnect shows the channels of a new server" {
    start_server
    start_listener LogData --reconnect
    start top "$TELVANE" top "$bus" --reconnect --json --interval 100ms
    top=$started
    await top.out '"LogData"'
    restart_server
    await top.err "connected to $bus again"
    "$TELVANE" publish "$bus" SystemHealth '{"code":1,"processName":"p"}' --as SystemHealth
    start other "$TELVANE" listen "$bus" NewChannel
    await top.out '"NewChannel"'
    kill -INT "$top"
    finish "$top"
    [ "$status" -eq 0 ]
}

@test "record --reconnect notes the outage in its file and goes on" {
    start_server
    start recorder "$TELVANE" record "$bus" LogData -o log.jsonl --reconnect --verbose
    recorder=$started
    await recorder.err ": recording$"
    "$TELVANE" publish "$bus" LogData '{"log":"before"}'
    await log.jsonl before
    restart_server
    await server.err "subscribe to LogData"
    "$TELVANE" publish "$bus" LogData '{"log":"after"}'
    await log.jsonl after
    kill -INT "$recorder"
    finish "$recorder"
    [ "$status" -eq 1 ]
    grep -q "the connection was lost 1 time" recorder.err
    [ "$(sed 1d log.jsonl | jq -r '.payload.log // .outage' | tr '\n' ' ')" = "before true after " ]
    [ "$(jq -s '.[2] | .from < .to and .to <= .ns' log.jsonl)" = true ]
    run "$TELVANE" info log.jsonl
    [ "$status" -eq 0 ]
    [[ $output == *"records   2 on 1 channel"*"outages   1, without a connection for "* ]]
    run "$TELVANE" show log.jsonl
    [ "$status" -eq 0 ]
    [[ $output == *"there was no connection between "* ]]
    [[ $output == *before*after* ]]
    "$TELVANE" replay "$bus" log.jsonl --speed 0
}

@test "record --reconnect notes an outage that lasts until its end" {
    start_server
    start recorder "$TELVANE" record "$bus" LogData -o log.jsonl --reconnect --verbose
    recorder=$started
    await recorder.err ": recording$"
    kill -KILL "$server"
    await recorder.err "has gone away"
    kill -INT "$recorder"
    finish "$recorder"
    [ "$status" -eq 1 ]
    [ "$(tail -n 1 log.jsonl | jq .outage)" = true ]
}
