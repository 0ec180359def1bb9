#!/usr/bin/env bats
# The example programs of the documents.
# shellcheck disable=SC2153 # the harness sets EXAMPLES

load common

# await_count <file> <regex> <number>: waits until that many lines match.
await_count() {
    local tries=0
    until [ "$(grep -c "$2" "$1")" -ge "$3" ]; do
        tries=$((tries + 1))
        [ "$tries" -lt 2000 ]
        sleep 0.02
    done
}

# await_subscriptions <channel> <number>: waits for the log of the server, because the programs print nothing when they
# have subscribed.
await_subscriptions() {
    await_count server.err "requested to subscribe to $1" "$2"
}

@test "first_weld prints each weld" {
    start_server
    start first "$EXAMPLES/first_weld" "$bus"
    await_subscriptions WeldTriggerEnd 1
    "$TELVANE" weld "$bus" --welds 2 --duration 1.5 --period-us 20000 --speed 0
    await first.out "^weld 2: 1.5 s, [0-9.]* V$"
    grep -q "^weld 1: 1.5 s, [0-9.]* V$" first.out
}

@test "weld_monitor prints each weld and publishes an alarm" {
    start_server
    start_listener WeldAlarm --count 1
    start monitor "$EXAMPLES/weld_monitor" "$bus" 30 40
    monitor=$started
    await_subscriptions WeldTriggerEnd 1
    "$TELVANE" weld "$bus" --duration 3 --period-us 2000
    await monitor.out "^weld 1: 3.0 s, [0-9.]* V, [0-9]* A, [0-9]* samples, [0-9]* lost, ALARM$"
    finish "$listener"
    [ "$(jq -r .payload.log listener.out | sed 's/[0-9.]* V$/some V/')" = "weld 1: the arc is at some V" ]
    kill "$server"
    finish "$server"
    await monitor.err "^not connected: the connection to the server was lost$"
    start_server
    await_subscriptions WeldTriggerEnd 1
    "$TELVANE" weld "$bus" --duration 3 --period-us 2000
    await_count monitor.out "^weld 1: 3.0 s" 2
}

@test "event_loop serves two queues and a timer" {
    start_server
    start loop "$EXAMPLES/event_loop" "$bus" 600
    await_subscriptions WeldTriggerEnd 1
    await_subscriptions WeldAlarm 1
    "$TELVANE" weld "$bus" --duration 1.5 --period-us 20000 --speed 0
    await loop.out "^weld 1: 1.5 s$"
    "$TELVANE" publish "$bus" WeldAlarm '{"log":"hot"}'
    await loop.out "^alarm: hot$"
    await loop.out "^1 s$"
    kill "$server"
    finish "$server"
    await loop.out "^the server has gone$"
    start_server
    await loop.out "^connected$"
}

@test "weld_monitor raises no alarm for an arc within its limits" {
    start_server
    start monitor "$EXAMPLES/weld_monitor" "$bus" 0 100
    await_subscriptions WeldTriggerEnd 1
    "$TELVANE" weld "$bus" --duration 3 --period-us 2000
    await monitor.out "^weld 1: .* lost$"
}

@test "Python subscribes and publishes with its standard library" {
    start_server
    examples=$BATS_TEST_DIRNAME/../../examples
    start subscriber python3 "$examples/subscribe.py" "$bus" LogData
    subscriber=$started
    await subscriber.out "^listening$"
    python3 "$examples/publish.py" "$bus" LogData '{"log":"hello"}'
    await subscriber.out "^[0-9]* {'log': 'hello'}$"
    kill "$server"
    finish "$subscriber"
    [ "$status" -eq 1 ]
    grep -qx "the server has gone" subscriber.err
    start_server
    run python3 "$examples/subscribe.py" "$bus" Log-Data
    [ "$status" -eq 1 ]
    [ "$output" = "the server refuses Log-Data" ]
}

@test "a record of one's own travels" {
    run "$EXAMPLES/own_record" "$bus"
    [ "$status" -eq 0 ]
    [ "$output" = "1200 m3/h, the filter is clean" ]
}
