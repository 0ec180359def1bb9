#!/usr/bin/env bats
# The table of channels and clients.

load common

@test "top shows channels and clients once" {
    start_server
    start_listener LogData
    "$TELVANE" publish "$bus" LogData '{"log":"x"}'
    await server.err " disconnected$"
    run "$TELVANE" top "$bus" --once --interval 0.1 --wait 60
    [ "$status" -eq 0 ]
    [[ $output == "$bus  "*" 1 channels, 2 clients  "* ]]
    [[ $output == *"CHANNEL  CLASS  SUBS  RATE/S"*"LogData  same      1 "* ]]
    [[ $output == *"CLIENT "*" $listener  $(id -un) "*"LogData"* ]]
    [[ $output != *$'\e'* ]]
}

@test "top prints JSON, one line per update" {
    start_server
    start_listener LogData
    start publisher bash -c 'while printf "{\"log\":\"x\"}\n"; do sleep 0.02; done | "$0" publish "$1" LogData -' "$TELVANE" "$bus"
    await listener.out '"log":"x"'
    run "$TELVANE" top "$bus" --json --count 2 --interval 1 --wait 60
    [ "$status" -eq 0 ]
    [ "$(wc -l <<<"$output")" -eq 2 ]
    [ "$(tail -1 <<<"$output" | jq -c '.channels[0] | [.channel, .class, .subscribers, .value, .rate > 0, .bytesPerSecond > .rate]')" = \
        '["LogData","LogData",1,{"log":"x"},true,true]' ]
    [ "$(tail -1 <<<"$output" | jq -c "[.clients[] | select(.pid == $listener) | .subscriptions, .missed]")" = '[["LogData"],0]' ]
}

@test "top draws on a terminal, and restores it when interrupted" {
    start_server
    start terminal script -qec "stty cols 100 rows 30; echo \$\$ >pid; exec '$TELVANE' top '$bus' --interval 0.1 --wait 60" page
    terminal=$started
    await page "0 channels, 1 clients"
    kill -INT "$(cat pid)"
    finish "$terminal"
    [ "$status" -eq 0 ]
    grep -q $'\e\\[?1049h' page
    grep -q $'\e\\[?25h\e\\[?1049l' page
    grep -q $'\e\\[7m' page
}

# on_terminal <step...> -- <command...>: see on_terminal.py.
on_terminal() {
    run python3 "$BATS_TEST_DIRNAME/on_terminal.py" "$@"
}

@test "top takes keys" {
    start_server
    start_listener LogData WeldTraceData
    on_terminal "expect:LogData.*(\n|.)*WeldTraceData(\n|.)*q quit  s sort:name" type:s "expect:s sort:rate" \
        type:/Log "expect:filter: Log_" 'type:\r' "expect:/ filter:Log .*channels 1-1/1" \
        type:p "expect:PAUSED  q quit" type:p "expect:\nq quit" type:h "expect:Keys of telvane top" \
        type:x "expect:s sort:rate" type:q -- "$TELVANE" top "$bus" --interval 0.1 --wait 60
    [ "$status" -eq 0 ]
}

@test "top restores the keys of the terminal" {
    start_server
    on_terminal "expect:q quit" type:q -- bash -c "stty -g >before; '$TELVANE' top '$bus' --wait 60; stty -g >after"
    [ "$status" -eq 0 ]
    cmp before after
    on_terminal "expect:q quit" 'type:\x03' -- \
        bash -c "trap : INT; stty -g >before; '$TELVANE' top '$bus' --wait 60; stty -g >after"
    [ "$status" -eq 0 ]
    cmp before after
}

@test "top shows the clients beside many channels in 24 lines" {
    start_server
    start listener "$TELVANE" listen "$bus" --verbose C{a,b,c,d,e,f}{a,b,c,d,e,f}
    await listener.err ": listening$"
    on_terminal "expect:channels 1-16/36 clients 1-2/2" "expect:CLIENT(\n|.)*telvane listen" 'type:\x1b[F' \
        "expect:channels 21-36/36" "expect:\nCff" type:q -- "$TELVANE" top "$bus" --interval 0.1 --wait 60
    [ "$status" -eq 0 ]
}

@test "top uses no colours with NO_COLOR" {
    start_server
    NO_COLOR=1 start terminal script -qec "echo \$\$ >pid; exec '$TELVANE' top '$bus' --interval 0.1 --wait 60" page
    terminal=$started
    await page "0 channels, 1 clients"
    kill -INT "$(cat pid)"
    finish "$terminal"
    [ "$(grep -c $'\e\\[[0-9]*m' page)" -eq 0 ]
}

@test "top restores the terminal when the server dies or hangs" {
    start_server
    start terminal script -qec "echo \$\$ >pid; exec '$TELVANE' top '$bus' --interval 0.1 --wait 60" page
    terminal=$started
    await page "0 channels, 1 clients"
    suspend "$server"
    kill -INT "$(cat pid)"
    finish "$terminal"
    kill -CONT "$server"
    grep -q $'\e\\[?25h\e\\[?1049l' page
    start terminal script -qec "echo \$\$ >pid; exec '$TELVANE' top '$bus' --interval 0.1 --wait 60" page2
    terminal=$started
    await page2 "0 channels, 1 clients"
    kill -KILL "$server"
    finish "$terminal"
    [ "$status" -eq 3 ]
    grep -q "has gone away" page2
    grep -q $'\e\\[?25h\e\\[?1049l' page2
}

@test "top reports a missing server, and one without status" {
    run "$TELVANE" top "$bus" --once
    [ "$status" -eq 3 ]
    [[ $output == "telvane top: cannot connect to $bus: no such socket"* ]]
    start_server --no-status
    run "$TELVANE" top "$bus" --once
    [ "$status" -eq 3 ]
    [[ $output == "telvane top: the server does not report its channels"* ]]
}

@test "top exits without a message when its reader closes the pipe" {
    start_server
    mkfifo tables
    start head head -n 1 tables
    head=$started
    (
        exec 3>&- >tables 2>top.err
        exec "$TELVANE" top "$bus" --interval 0.05 --wait 60
    ) &
    top=$!
    processes+=("$top")
    finish "$head"
    finish "$top"
    [ "$status" -eq 141 ]
    [ ! -s top.err ]
}

@test "top refuses invalid options" {
    for option in "--sort size" "--interval soon" "--count 0" "--once --count 2"; do
        # shellcheck disable=SC2086
        run "$TELVANE" top "$bus" $option
        [ "$status" -eq 2 ]
    done
}
