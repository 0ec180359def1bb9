#!/usr/bin/env bats
# The status of a server, and listening to channels by pattern.

load common

@test "a server responds to requests for its channels and clients" {
    start_server
    start_listener LogData
    "$TELVANE" publish "$bus" LogData '{"log":"x"}'
    await listener.out '"log":"x"'
    "$TELVANE" request "$bus" TelvaneChannels >channels
    [ "$(jq -c '.channels[] | select(.channel == "LogData") | [.subscribers, .publications, .missed]' channels)" = '[1,1,0]' ]
    [ "$(jq '.channels[] | select(.channel == "LogData") | .bytes > 10 and .lastSequence > 0' channels)" = true ]
    "$TELVANE" request "$bus" TelvaneClients >clients
    program="telvane listen"
    if grep -q qemu "/proc/$listener/comm"; then
        program=$(cat "/proc/$listener/comm") # under an emulator that is all the machine knows
    fi
    [ "$(jq -r ".clients[] | select(.pid == $listener) | .program" clients)" = "$program" ]
    [ "$(jq -c ".clients[] | select(.pid == $listener) | [.uid, .subscriptions]" clients)" = \
        "[$(id -u),[{\"channel\":\"LogData\",\"relayed\":1,\"missed\":0}]]" ]
}

@test "a server with --no-status does not respond" {
    start_server --no-status
    run "$TELVANE" request "$bus" TelvaneChannels --timeout 0.1
    [ "$status" -eq 1 ]
    await server.err " connected$"
    [ "$(grep -c " connected$" server.err)" -eq 1 ]
}

@test "listen --all listens on all channels, including new ones" {
    start_server
    start other "$TELVANE" listen "$bus" One
    await server.err "subscribe to One"
    start_listener --all --wait 60 --count 2
    "$TELVANE" publish "$bus" One '{"n":1}'
    await listener.out '"n":1'
    start later "$TELVANE" listen "$bus" Two
    await server.err "client .* requested to subscribe to Two"
    # The listener subscribes to it by itself. It receives records when it has the server's answer, of which there is no
    # sign from outside, so publish until it has received one.
    until grep -q '"n":2' listener.out; do
        "$TELVANE" publish "$bus" Two '{"n":2}'
        sleep 0.02
    done
    # The channels of the status requests are not counted.
    finish "$listener"
    [ "$(jq -r .channel listener.out | xargs)" = "One Two" ]
}

@test "listen listens on the channels that match a pattern" {
    start_server
    start other "$TELVANE" listen "$bus" PSOne PSTwo LogData --verbose
    await other.err ": listening$"
    start_listener 'PS*' --wait 60 --count 2
    # Each publisher is a client of its own: without waiting, the server may receive them in another order.
    for channel in LogData PSTwo PSOne; do
        "$TELVANE" publish "$bus" "$channel" '{"log":"x"}'
        await other.out "$channel"
    done
    finish "$listener"
    [ "$(jq -r .channel listener.out | xargs)" = "PSTwo PSOne" ]
    for pattern in 'PS*1' 'P-?' ''; do
        run "$TELVANE" listen "$bus" "$pattern"
        [ "$status" -eq 2 ]
    done
}

@test "listen --all goes on with the catalogue's channels if the server does not list its own" {
    start_server --no-status
    start_listener --all --count 1
    await listener.err "the server does not report its channels"
    await listener.err "continuing without channels that are not named like a record class"
    "$TELVANE" publish "$bus" HALInfo --as HALInfo --set serialNumber=7
    finish "$listener"
    [ "$(jq -r .payload.serialNumber listener.out)" = 7 ]
}

@test "listen --all can be interrupted, and exits when the server dies" {
    start_server
    start_listener --all --wait 60
    kill -INT "$listener"
    finish "$listener"
    [ "$status" -eq 0 ]
    start_listener --all --wait 60
    kill -KILL "$server"
    finish "$listener"
    [ "$status" -eq 3 ]
    grep -q "the server at $bus has gone away" listener.err
}

@test "listen requires a channel or --all" {
    run "$TELVANE" listen "$bus"
    [ "$status" -eq 2 ]
    [ "$output" = "telvane listen: CHANNEL is required; --all listens on every channel" ]
}

@test "listen prints only records that match, in the given format" {
    start_server
    start_listener Weld --count 2 --where 'n>1' --where 'log~x' -F '%c %{n}:%{log}'
    printf '{"n":%s,"log":"%s"}\n' 1 x 2 x 3 y 4 yx | "$TELVANE" publish "$bus" Weld -
    finish "$listener"
    [ "$status" -eq 0 ]
    [ "$(cat listener.out)" = $'Weld 2:x\nWeld 4:yx' ]
}

@test "listen --delta prints the time between records" {
    start_server
    start_listener LogData --count 2 --delta
    printf '{"log":"%s"}\n' 1 2 | "$TELVANE" publish "$bus" LogData -
    finish "$listener"
    [ "$(jq -r '.delta | type' listener.out | xargs)" = "number number" ]
    [ "$(head -1 listener.out | jq '.delta == 0')" = true ]
}

@test "invalid conditions and formats are refused" {
    for option in "--where amps" "--where amps>much" "-F %q" "-F 50%" "-F x --pretty"; do
        # shellcheck disable=SC2086
        run "$TELVANE" listen "$bus" LogData $option
        [ "$status" -eq 2 ]
    done
}

@test "record --all records all channels" {
    start_server
    start other "$TELVANE" listen "$bus" One
    await server.err "subscribe to One"
    start recorder "$TELVANE" record "$bus" -o all.jsonl --all --wait 60 --verbose --count 1
    recorder=$started
    await recorder.err ": recording$"
    "$TELVANE" publish "$bus" One '{"n":1}'
    finish "$recorder"
    [ "$(tail -n +2 all.jsonl | jq -c '[.channel, .payload]')" = '["One",{"n":1}]' ]
    run "$TELVANE" record "$bus" -o none.jsonl
    [ "$status" -eq 2 ]
}
