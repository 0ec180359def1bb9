#!/usr/bin/env bats
# Access control and metrics of a server.

load common

me=$(id -u)
mine=$(id -g)
others=4294967290 # no such user

@test "serve refuses and reports clients beyond --max-clients" {
    start_server --max-clients 1
    start_listener LogData
    run "$TELVANE" publish "$bus" LogData '{"log":"x"}'
    await server.err "refused client [0-9]* (process [0-9]*, user $me, group $mine): there are as many clients as are allowed"
    kill "$listener"
    finish "$listener"
    await server.err "disconnected"
    start_listener LogData --count 1
    [ "$(grep -c refused server.err)" -eq 1 ]
}

@test "serve refuses subscriptions beyond --max-subscriptions" {
    start_server --max-subscriptions 2
    run "$TELVANE" listen "$bus" One Two Three
    [ "$status" -eq 3 ]
    await server.err "refused client .* for channel Three: it has as many subscriptions as are allowed"
    start_listener Three Four
}

@test "serve refuses new channels beyond --max-channels" {
    start_server --max-channels 2
    start_listener One Two
    run "$TELVANE" listen "$bus" Three
    [ "$status" -eq 3 ]
    await server.err "refused client .* for channel Three: there are as many channels as are allowed"
    start_listener Two
}

@test "serve accepts the users of --allow-user, by name and by number" {
    start_server --allow-user "$others" --allow-user "$(id -un)"
    start_listener LogData
    kill "$server"
    finish "$server"
    start_server --allow-user "$me"
    start_listener LogData
}

@test "serve accepts the members of --allow-group, by name and by number" {
    start_server --allow-group "$(id -gn)"
    start_listener LogData
    kill "$server"
    finish "$server"
    start_server --allow-user "$others" --allow-group "$mine"
    start_listener LogData
    [ "$(grep -c refused server.err)" -eq 0 ]
}

@test "serve refuses all other users, and both sides report it" {
    start_server --allow-user "$others" --allow-group "$others"
    run "$TELVANE" listen "$bus" LogData
    [ "$status" -eq 3 ]
    [ "$output" = "telvane listen: the server at $bus refused this client; see --allow-user, --allow-group and --max-clients of telvane serve" ]
    [ "$(grep -c "status requests are disabled" server.err)" -eq 0 ]
    await server.err "refused client [0-9]* (process [0-9]*, user $me, group $mine): neither its user nor one of its groups is allowed"
}

@test "serve refuses unknown users and groups, and invalid numbers" {
    for option in "--allow-user 'no such'" "--allow-group 'no such'" "--max-clients 0" "--max-channels many"; do
        run eval "$TELVANE serve $bus $option"
        [ "$status" -eq 2 ]
        [ ! -e "$bus" ]
    done
}

# await_lines <number> <file> [pattern]: waits until so many lines of the file match.
await_lines() {
    local tries=0
    until [ "$(grep -c -- "${3:-}" "$2")" -ge "$1" ]; do
        tries=$((tries + 1))
        [ "$tries" -le 1500 ]
        sleep 0.02
    done
}

# await_leavers <number>: waits until so many clients have left and all that they sent has been handled.
await_leavers() {
    await_lines "$1" server.err "disconnected"
}

# scrape: reads one page into metrics. A reader that is slow to close the pipe is given another one.
scrape() {
    sed '/^# EOF$/q' pipe >metrics
}

# value <sample>: the value of the sample whose name and labels begin so, from the page in metrics.
value() {
    sed -n "s/^$1 //p" metrics
}

@test "cat on the metrics pipe prints a page" {
    start_server --no-status --metrics-pipe "$directory/pipe"
    cat pipe >metrics
    [ "$(head -n 1 metrics)" = "# TYPE telvane_packets_received counter" ]
    [ "$(tail -n 1 metrics)" = "# EOF" ]
}

@test "each read of the metrics pipe prints a page of OpenMetrics text" {
    start_server --no-status --metrics-pipe "$directory/pipe"
    start_listener LogData --count 2
    scrape
    [ "$(tail -n 1 metrics)" = "# EOF" ]
    [ "$(value telvane_packets_received_total)" -eq 1 ]
    [ "$(value telvane_clients)" -eq 1 ]
    [ "$(value 'telvane_channel_subscribers{channel="LogData"}')" -eq 1 ]
    "$TELVANE" publish "$bus" LogData '{"log":"x"}'
    "$TELVANE" publish "$bus" LogData '{"log":"y"}'
    "$TELVANE" publish "$bus" Nobody '{}'
    finish "$listener"
    await_leavers 4
    scrape
    [ "$(value telvane_packets_received_total)" -eq 4 ]
    [ "$(value telvane_relays_sent_total)" -eq 2 ]
    [ "$(value 'telvane_channel_publications_total{channel="LogData"}')" -eq 2 ]
    [ "$(value 'telvane_packets_dropped_total{reason="no_subscriber_ever"}')" -eq 1 ]
    [ "$(grep -c '^# TYPE' metrics)" -eq "$(grep -c '^# HELP' metrics)" ]
}

@test "the metrics show which client missed messages on which channel, and why" {
    start_server --no-status --metrics-pipe "$directory/pipe" --subscriber-buffer 4096
    start_listener LogData
    suspend "$listener"
    for ((i = 0; i < 400; i++)); do
        echo '{"log":"x"}'
    done | "$TELVANE" publish "$bus" LogData -
    await_leavers 1
    scrape
    kill -CONT "$listener"
    labels="{client=\"[0-9]*\",process=\"$listener\",user=\"$me\",channel=\"LogData\""
    missed=$(value "telvane_subscription_relays_missed_total$labels}")
    [ "$missed" -gt 0 ]
    [ "$(value "telvane_subscription_relays_sent_total$labels}")" -eq $((400 - missed)) ]
    [ "$(value telvane_relays_missed_total)" -eq "$missed" ]
    [ "$(value "telvane_subscription_last_error_info$labels,error=\"EAGAIN\",text=\".*\"}")" -eq 1 ]
    [ "$(value "telvane_client_unread_bytes{client=\"[0-9]*\",process=\"$listener\",user=\"$me\"}")" -gt 0 ]
}

@test "serve sums up what a suspended client misses" {
    start_server --subscriber-buffer 4096
    start_listener LogData
    suspend "$listener"
    for ((i = 0; i < 400; i++)); do echo '{"log":"x"}'; done | "$TELVANE" publish "$bus" LogData -
    await server.err "Z client [0-9]* (telvane listen, process $listener) is too slow and has missed [0-9]* messages (LogData [0-9]*)"
    [ "$(grep -c 'RELAY ERROR' server.err)" -eq 0 ]
    [ "$(grep -c 'is too slow' server.err)" -eq 1 ]
    kill -KILL "$listener"
    finish "$listener"
    await server.err "(telvane listen, process $listener) has disconnected; it missed"
}

@test "serve reports at its end what a client has missed" {
    start_server --subscriber-buffer 4096
    start_listener LogData
    suspend "$listener"
    for ((i = 0; i < 400; i++)); do echo '{"log":"x"}'; done | "$TELVANE" publish "$bus" LogData -
    await server.err "is too slow and has missed"
    kill "$server"
    finish "$server"
    grep -q "(telvane listen, process $listener) still missed messages when the server stopped; it missed" server.err
}

@test "the permissions of the metrics pipe do not depend on those of the socket" {
    umask 022
    start_server --no-status --mode 0600 --metrics-pipe "$directory/pipe"
    [ "$(stat -c %a "$bus" pipe | xargs)" = "600 644" ]
}

@test "the metrics count refusals" {
    start_server --no-status --metrics-pipe "$directory/pipe" --max-channels 1
    start_listener One
    run "$TELVANE" listen "$bus" Two
    scrape
    [ "$(value telvane_subscriptions_refused_total)" -eq 1 ]
    [ "$(value telvane_channels)" -eq 1 ]
}

@test "the metrics pipe is removed with its server, and reused after a kill" {
    start_server --no-status --metrics-pipe "$directory/pipe"
    kill -KILL "$server"
    finish "$server"
    [ -p pipe ]
    start_server --no-status --metrics-pipe "$directory/pipe"
    scrape
    [ "$(tail -n 1 metrics)" = "# EOF" ]
    kill "$server"
    finish "$server"
    [ "$status" -eq 0 ]
    [ ! -e pipe ]
    [ ! -s server.out ]
}

@test "a slow or vanishing reader of the metrics does not delay the server" {
    start_server --no-status --metrics-pipe "$directory/pipe"
    head -c 1 pipe >metrics
    exec 7<pipe
    start_listener LogData --count 1
    "$TELVANE" publish "$bus" LogData '{"log":"x"}'
    finish "$listener"
    [ "$status" -eq 0 ]
    kill "$server"
    finish "$server"
    [ "$status" -eq 0 ]
    exec 7<&-
}

@test "serve does not replace a file with the metrics pipe" {
    echo precious >pipe
    run "$TELVANE" serve "$bus" --metrics-pipe "$directory/pipe"
    [ "$status" -eq 2 ]
    [[ $output == *"$directory/pipe exists and is not a pipe" ]]
    [ "$(cat pipe)" = precious ]
    [ ! -e "$bus" ]
}

@test "serve does not take over the metrics pipe of another user" {
    [ "$(id -u)" -eq 0 ] || skip "only root can create files of another user"
    mkfifo pipe
    chown 65534 pipe
    run "$TELVANE" serve "$bus" --metrics-pipe "$directory/pipe"
    [ "$status" -eq 2 ]
    [[ $output == *"$directory/pipe is a pipe of another user (65534)" ]]
    [ -p pipe ]
}

@test "serve does not follow a symbolic link that replaces the metrics pipe" {
    start_server --no-status --metrics-pipe "$directory/pipe"
    scrape
    mv pipe old
    echo precious >victim
    ln -s victim pipe
    for ((i = 0; i < 3; i++)); do
        timeout 20 sed '/^# EOF$/q' old >metrics
        [ "$(tail -n 1 metrics)" = "# EOF" ]
    done
    kill "$server"
    finish "$server"
    [ "$(cat victim)" = precious ]
    [ -L pipe ]
}

@test "a reader of the metrics that does not read leaves the others a new pipe" {
    start_server --no-status --metrics-pipe "$directory/pipe"
    exec 9<pipe
    before=$(stat -c %i pipe)
    tries=0
    while [ "$(stat -c %i pipe)" = "$before" ]; do
        tries=$((tries + 1))
        [ "$tries" -lt 1500 ]
        sleep 0.02
    done
    start_listener LogData
    scrape
    [ "$(value telvane_clients)" -eq 1 ]
    exec 9<&-
    kill "$server"
    finish "$server"
    [ ! -e pipe ]
}

@test "serve reports why it cannot create the metrics pipe" {
    run "$TELVANE" serve "$bus" --metrics-pipe "$directory/missing/pipe"
    [ "$status" -eq 5 ]
    [[ $output == *"cannot create the pipe $directory/missing/pipe: No such file or directory" ]]
}

@test "listen reports at its end that it missed nothing, if that is certain" {
    start_server
    start_listener LogData --count 3
    for n in 1 2 3; do
        echo "{\"log\":\"$n\"}"
    done | "$TELVANE" publish "$bus" LogData -
    finish "$listener"
    await listener.err "nothing was missed: the sequence numbers 3 to 5 have no gap"
}

@test "listen reports at its end how many records it may have missed" {
    start_server
    start other "$TELVANE" listen "$bus" Other --verbose
    await other.err ": listening$"
    start_listener LogData --count 2
    "$TELVANE" publish "$bus" LogData '{"log":"1"}'
    await_leavers 1
    "$TELVANE" publish "$bus" Other '{}'
    await_leavers 2
    "$TELVANE" publish "$bus" LogData '{"log":"2"}'
    finish "$listener"
    await listener.err "at most 1 records were missed: so many of the sequence numbers 4 to 6 are missing"
}

@test "listen reports at its end how many records it could not read" {
    start_server
    start_listener LogData --count 1
    "$TELVANE" publish "$bus" LogData '{"log":5}'
    await_leavers 1
    "$TELVANE" publish "$bus" LogData '{"log":"good"}'
    finish "$listener"
    await listener.err "records that could not be decoded: 1"
}

@test "a suspended listener reports what it missed" {
    start_server --subscriber-buffer 4096 --metrics-pipe "$directory/pipe"
    start_listener LogData
    suspend "$listener"
    for ((i = 0; i < 400; i++)); do
        echo '{"log":"x"}'
    done | "$TELVANE" publish "$bus" LogData -
    await_leavers 1
    scrape
    missed=$(value telvane_relays_missed_total)
    [ "$missed" -gt 0 ]
    kill -CONT "$listener"
    await_lines $((400 - missed)) listener.out
    "$TELVANE" publish "$bus" LogData '{"log":"last"}'
    await listener.out last
    kill -INT "$listener"
    finish "$listener"
    grep -q "at most $missed records were missed" listener.err
}
