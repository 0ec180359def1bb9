#!/usr/bin/env bats
# Publishing and listening.

load common

@test "listen prints arrival time, channel, sequence and payload of each record" {
    start_server
    start_listener LogData --count 1
    "$TELVANE" publish "$bus" LogData '{"log":"hello"}' --as LogData
    finish "$listener"
    [ "$status" -eq 0 ]
    [ "$(jq -r '[keys_unsorted[]] | join(" ")' listener.out)" = "time channel sequence payload" ]
    [ "$(jq -c '[.channel, .sequence, .payload]' listener.out)" = '["LogData",3,{"log":"hello"}]' ]
    grep -Eq '"time":"20[0-9]{2}-[01][0-9]-[0-3][0-9]T[0-2][0-9]:[0-5][0-9]:[0-6][0-9]\.[0-9]{6}Z"' listener.out
}

@test "listen prints payloads as received if no class has the channel's name" {
    start_server
    start_listener Anything --count 1
    "$TELVANE" publish "$bus" Anything '{"b":[1,null],"a":{"c":"d"}}'
    finish "$listener"
    [ "$(jq -c .payload listener.out)" = '{"b":[1,null],"a":{"c":"d"}}' ]
}

@test "listen decodes payloads as the class of --as" {
    start_server
    start_listener Anything --as UnitValuePair --count 1
    "$TELVANE" publish "$bus" Anything '{"VALUE":5.9,"unit":"A","more":1}'
    finish "$listener"
    [ "$(jq -c .payload listener.out)" = '{"Unit":"A","Value":5}' ]
}

@test "listen reports undecodable records with the reason, and continues" {
    start_server
    start_listener LogData --count 1
    printf '{"log":5}\n{"log":"good"}\n' | "$TELVANE" publish "$bus" LogData -
    finish "$listener"
    [ "$status" -eq 0 ]
    [ "$(jq -r .payload.log listener.out)" = good ]
    [ "$(grep -v listening listener.err | head -n 1)" = "telvane listen: LogData 3: log: expected a string, got a number" ]
}

@test "listen follows several channels" {
    start_server
    start_listener One Two --count 2
    "$TELVANE" publish "$bus" Two '{"n":1}'
    await listener.out Two # the server serves two publishers in any order
    "$TELVANE" publish "$bus" One '{"n":2}'
    finish "$listener"
    [ "$(jq -r .channel listener.out | tr '\n' ' ')" = "Two One " ]
}

@test "listen --pretty prints indented JSON" {
    start_server
    start_listener LogData --pretty --count 1
    "$TELVANE" publish "$bus" LogData '{"log":"x"}'
    finish "$listener"
    [ "$(wc -l <listener.out)" -gt 5 ]
    [ "$(jq -r .payload.log listener.out)" = x ]
}

@test "listen without --count succeeds at its time-out" {
    start_server
    run "$TELVANE" listen "$bus" LogData --timeout 0.05
    [ "$status" -eq 0 ]
    [ -z "$output" ]
}

@test "a time-out of centuries is refused" {
    for command in listen request; do
        run "$TELVANE" "$command" "$bus" LogData --timeout 1e10
        [ "$status" -eq 2 ]
        [[ $output == "telvane $command: --timeout: "*'expected a number from 0 to 1e+09, got "1e10"'* ]]
    done
}

@test "listen prints no more than --count records of a burst" {
    start_server
    start_listener LogData --count 2
    suspend "$listener"
    for ((i = 0; i < 20; i++)); do echo '{"log":"x"}'; done | "$TELVANE" publish "$bus" LogData -
    "$TELVANE" request "$bus" TelvaneChannels >/dev/null # has the server relay them
    kill -CONT "$listener"
    finish "$listener"
    [ "$status" -eq 0 ]
    [ "$(wc -l <listener.out)" -eq 2 ]
}

@test "listen with --count reports the number of missing records at its time-out" {
    start_server
    run "$TELVANE" listen "$bus" LogData --count 3 --timeout 0.05
    [ "$status" -eq 1 ]
    [ "$output" = "telvane listen: only 0 of 3 records arrived in time" ]
}

@test "listen refuses invalid channel names" {
    run "$TELVANE" listen "$bus" Channel1
    [ "$status" -eq 2 ]
    [[ $output == *'"Channel1" is not a channel name'* ]]
}

@test "publish refuses invalid channel names" {
    start_server --no-status
    run "$TELVANE" publish "$bus" Chan2 '{}'
    [ "$status" -eq 2 ]
    [ "$output" = 'telvane publish: CHANNEL: "Chan2" is not a channel name; use ASCII letters and underscores only (see telvane publish --help)' ]
    kill "$server"
    finish "$server"
    [ "$(grep -c " connected$" server.err)" -eq 0 ]
}

@test "publish sends one record for each line of its input" {
    start_server
    start_listener LogData --count 3
    printf '{"log":"1"}\n\n{"log":"2"}\n{"log":"3"}' | "$TELVANE" publish "$bus" LogData - --as LogData
    finish "$listener"
    [ "$(jq -r .payload.log listener.out | tr '\n' ' ')" = "1 2 3 " ]
}

@test "publish stops at the first invalid line and reports its number" {
    start_server
    start_listener LogData --count 1
    run "$TELVANE" publish "$bus" LogData - --as LogData <<<$'{"log":"1"}\n{"log":2}\n{"log":"3"}'
    [ "$status" -eq 4 ]
    [ "$output" = "telvane publish: line 2: log: expected a string, got a number" ]
    finish "$listener"
    [ "$(jq -r .payload.log listener.out)" = 1 ]
}

@test "publish checks a record before it connects" {
    run "$TELVANE" publish "$bus" LogData '{"lag":"x"}' --as LogData
    [ "$status" -eq 4 ]
    [ "$output" = "telvane publish: log: missing; expected a string" ]
}

@test "publish sets keys over the defaults of the class" {
    start_server
    start_listener WeldTriggerStart --count 1
    "$TELVANE" publish "$bus" WeldTriggerStart --as WeldTriggerStart --set tag=7 \
        --set settings.CommandWFS.Value=210.5 --set FeederSide=left
    finish "$listener"
    [ "$(jq -c '.payload | [.tag, .settings.CommandWFS.Value, .FeederSide, .program]' listener.out)" = \
        '[7,210.5,"left",0]' ]
}

@test "publish refuses a record that is too large, with its size and the limit" {
    start_server
    start_listener LogData --count 1
    # The envelope around the text takes 54 bytes.
    fitting=$(head -c $((16363 - 54)) /dev/zero | tr '\0' x)
    run "$TELVANE" publish "$bus" LogData "{\"log\":\"${fitting}x\"}"
    [ "$status" -eq 4 ]
    [[ $output == *"the message is too large: 16364 bytes; the limit is 16363 bytes"* ]]
    "$TELVANE" publish "$bus" LogData "{\"log\":\"$fitting\"}"
    finish "$listener"
    [ "$(jq -r '.payload.log | length' listener.out)" -eq $((16363 - 54)) ]
}

@test "publish refuses an unknown class" {
    run "$TELVANE" publish "$bus" LogData '{}' --as logdata
    [ "$status" -eq 2 ]
    [ "$output" = 'telvane publish: --as: unknown record class "logdata"; did you mean LogData? (see telvane publish --help)' ]
}

@test "request prints the response of reply" {
    start_server
    start reply "$TELVANE" reply "$bus" UnitValuePair --as UnitValuePair --set Unit=A --set Value=5 --count 2 --verbose
    reply=$started
    await reply.err ": listening$"
    run "$TELVANE" request "$bus" UnitValuePair
    [ "$status" -eq 0 ]
    [ "$output" = '{"Unit":"A","Value":5}' ]
    run "$TELVANE" request "$bus" UnitValuePair --pretty
    [ "$status" -eq 0 ]
    [ "$(jq -c . <<<"$output")" = '{"Unit":"A","Value":5}' ]
    finish "$reply"
    [ "$status" -eq 0 ]
}

@test "request reports an undecodable response" {
    start_server
    start reply "$TELVANE" reply "$bus" Status '{"ttl":"soon"}' --count 1 --verbose
    await reply.err ": listening$"
    run "$TELVANE" request "$bus" Status --as DataStatus
    [ "$status" -eq 4 ]
    [ "$output" = 'telvane request: cannot decode the response on "Status": ttl: expected an integer, got a string' ]
}

@test "request times out without a response" {
    start_server
    run "$TELVANE" request "$bus" LogData --timeout 0.05
    [ "$status" -eq 1 ]
    [ "$output" = 'telvane request: no response on "LogData" in time; check that a client responds to req_LogData' ]
}

@test "reply reads its response from standard input" {
    start_server
    printf '{"log":\n"from afar"}' >answer
    start reply bash -c '"$0" reply "$1" LogData - --as LogData --count 1 --verbose <answer' "$TELVANE" "$bus"
    await reply.err ": listening$"
    run "$TELVANE" request "$bus" LogData
    [ "$output" = '{"log":"from afar"}' ]
}

@test "an unknown command is reported" {
    run "$TELVANE" lissen
    [ "$status" -eq 2 ]
    [[ $output == 'telvane: unknown command "lissen", and no program telvane-lissen is installed'*'; see telvane --help' ]]
}

@test "the help lists the exit codes" {
    run "$TELVANE" --help
    [ "$status" -eq 0 ]
    [[ $output == *"Exit codes:"* ]]
}
