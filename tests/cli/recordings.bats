#!/usr/bin/env bats
# Recording, describing and replaying what travels on a bus.

load common

# start_recorder <file> <option or channel...>: returns when it misses nothing any more.
start_recorder() {
    local file=$1
    shift
    start recorder "$TELVANE" record "$bus" -o "$file" --verbose "$@"
    recorder=$started
    await recorder.err ": recording$"
}

# publish_logs <text...>: one record on LogData for each.
publish_logs() {
    printf '{"log":"%s"}\n' "$@" | "$TELVANE" publish "$bus" LogData -
}

payloads() {
    tail -n +2 "$1" | jq -c .payload
}

@test "a recording replayed and recorded again has the same payloads" {
    start_server
    welding=(WeldTriggerStart WeldTraceData WeldTriggerEnd)
    for weld in 1 2 3; do
        printf '%s\n' "time,amps,volts" "0.0,0,0" "0.1,150.5,17.25" "0.2,151.125,17.5" "0.3,149.0625,17.1" "0.4,0,0" |
            awk -v weld="$weld" 'NR > 1 || weld == 1 { print (NR == 1 ? "group" : weld) "," $0 }'
    done >weld.csv
    start_recorder first.jsonl "${welding[@]}" --count 15
    "$TELVANE" weld "$bus" --csv weld.csv --amps amps --volts volts --time time --group group --speed 0
    finish "$recorder"
    [ "$status" -eq 0 ]
    start_recorder second.jsonl "${welding[@]}" --count 15
    "$TELVANE" replay "$bus" first.jsonl --speed 0
    finish "$recorder"
    [ "$status" -eq 0 ]
    sed '1d; s/.*"payload"://' first.jsonl >first
    sed '1d; s/.*"payload"://' second.jsonl >second
    [ "$(wc -l <first)" -eq 15 ]
    cmp first second
}

@test "a recording keeps payloads of any shape" {
    start_server
    start_recorder a.jsonl Anything --count 1
    "$TELVANE" publish "$bus" Anything '{"b":[1,null,1.5e-7],"a":{"c":"}\"é"},"a":true}'
    finish "$recorder"
    [ "$(sed '1d; s/.*"payload"://' a.jsonl)" = '{"b":[1,null,1.5e-07],"a":{"c":"}\"é"},"a":true}}' ]
}

@test "info tells what a recording holds" {
    start_server
    start_recorder a.jsonl LogData Other --count 3
    publish_logs 1 2
    "$TELVANE" publish "$bus" Other '{}'
    finish "$recorder"
    run "$TELVANE" info a.jsonl
    [ "$status" -eq 0 ]
    [[ $output == *"records   3 on 2 channels"*"sequence  without gaps"*"LogData"*"Other"* ]]
    "$TELVANE" info a.jsonl --json >info.json
    [ "$(jq -c '[.records, .tornBytes, .damagedLines, .sequenceGaps, [.channels[] | [.channel, .records]]]' info.json)" = \
        '[3,0,0,0,[["LogData",2],["Other",1]]]' ]
}

@test "a recording with a torn end is used up to there" {
    start_server
    start_recorder a.jsonl LogData --count 2
    publish_logs 1 2
    finish "$recorder"
    truncate -s -5 a.jsonl
    run "$TELVANE" info a.jsonl
    [ "$status" -eq 0 ]
    [[ $output == *"a.jsonl: the last line is incomplete"*"records   1 on 1 channel,"*"torn end"* ]]
    start_listener LogData --count 1
    run "$TELVANE" replay "$bus" a.jsonl
    [ "$status" -eq 0 ]
    [[ $output == *"the last line is incomplete"* ]]
    finish "$listener"
    [ "$(jq -r .payload.log listener.out)" = 1 ]
}

@test "damaged lines are counted and skipped, and are an error" {
    start_server
    start_recorder a.jsonl LogData --count 2
    publish_logs 1 2
    finish "$recorder"
    sed -i '2s/.*/rubbish/' a.jsonl
    run "$TELVANE" info a.jsonl
    [ "$status" -eq 4 ]
    [[ $output == *"a.jsonl: skipped damaged lines: 1, the first is line 2"*"records   1 on"* ]]
}

@test "a file that is not a recording is refused before anything is sent" {
    echo '{"log":"x"}' >a.jsonl
    for command in "info" "replay $bus"; do
        # shellcheck disable=SC2086
        run "$TELVANE" $command a.jsonl
        [ "$status" -eq 4 ]
        [ "$output" = "telvane ${command%% *}: a.jsonl: not a recording: the first line has no telvaneRecording key" ]
        # shellcheck disable=SC2086
        run "$TELVANE" $command missing.jsonl
        [ "$status" -eq 4 ]
        [[ $output == *"cannot read missing.jsonl: No such file or directory" ]]
    done
}

@test "whoever ends the recorder hard finds whole lines" {
    start_server
    start_recorder a.jsonl LogData
    publish_logs 1 2
    await a.jsonl '"log":"2"'
    kill -KILL "$recorder"
    finish "$recorder"
    [ "$("$TELVANE" info a.jsonl --json | jq -c '[.records, .tornBytes]')" = '[2,0]' ]
}

@test "a file that is there already is left alone" {
    start_server
    echo precious >a.jsonl
    run "$TELVANE" record "$bus" -o a.jsonl LogData
    [ "$status" -eq 5 ]
    [ "$output" = "telvane record: a.jsonl exists; use --force to replace it" ]
    [ "$(cat a.jsonl)" = precious ]
    start_recorder a.jsonl LogData --force --count 1
    publish_logs 1
    finish "$recorder"
    [ "$(payloads a.jsonl)" = '{"log":"1"}' ]
}

@test "a recording is split by size into numbered files" {
    start_server
    start_recorder a.jsonl LogData --split-size 1 --count 3
    publish_logs 1 2 3
    finish "$recorder"
    for i in 1 2 3; do
        [ "$(payloads "a-000$i.jsonl")" = "{\"log\":\"$i\"}" ]
        [ "$(head -1 "a-000$i.jsonl" | jq .part)" -eq "$i" ]
    done
    [ ! -e a-0004.jsonl ]
    grep -q "3 records, .* in 3 files" recorder.err
}

@test "what was before a trigger and what came after it is written" {
    start_server
    start_recorder fault.jsonl LogData --keep 10m --trigger Fault --after 10m
    start_listener LogData Fault
    publish_logs 1 2
    # Each publisher is a client of its own: without waiting, the server may receive them in another order.
    await listener.out '"log":"2"'
    "$TELVANE" publish "$bus" Fault '{"code":7}'
    await listener.out '"code":7'
    publish_logs 3
    await fault-0001.jsonl '"log":"3"'
    kill -TERM "$recorder"
    finish "$recorder"
    [ "$status" -eq 0 ]
    [ "$(tail -n +2 fault-0001.jsonl | jq -r '.channel + (.payload.log // "")' | xargs)" = "LogData1 LogData2 Fault LogData3" ]
    grep -q "saving the buffered records: Fault [0-9]" recorder.err
}

# save_until <payloads>: signals the recorder to save its buffer until the file has these payloads. The records may
# still be on their way to the recorder, of which there is no sign from outside.
save_until() {
    local saved='' name
    until [ "$saved" = "$1" ]; do
        file=$((file + 1))
        name=$(printf 'kept-%04d.jsonl' "$file")
        kill -USR1 "$recorder"
        await recorder.err "$name" || return
        saved=$(payloads "$name" | xargs)
        [[ $1 == "$saved"* ]] || return
    done
}

@test "what is kept is written on SIGUSR1, and nothing without it" {
    start_server
    start_recorder kept.jsonl LogData --keep 10m --after 0
    publish_logs 1 2
    [ -z "$(ls kept*)" ]
    file=0
    save_until "{log:1} {log:2}"
    publish_logs 3
    # Each file is complete by itself: a later one begins with the same records.
    save_until "{log:1} {log:2} {log:3}"
}

@test "a recording goes to standard output, and ends without a word when its reader has left" {
    start_server
    mkfifo records
    start head head -n 2 records
    head=$started
    (
        exec 3>&- >records 2>recorder.err
        exec "$TELVANE" record "$bus" -o - LogData --verbose
    ) &
    recorder=$!
    processes+=("$recorder")
    await recorder.err ": recording$"
    publish_logs 1
    finish "$head"
    [ "$(payloads head.out)" = '{"log":"1"}' ]
    finish "$recorder"
    [ "$status" -eq 141 ]
}

@test "a disk that is full ends the recording with an error" {
    start_server
    run "$TELVANE" record "$bus" -o /dev/full --force LogData
    [ "$status" -eq 5 ]
    [ "$output" = "telvane record: cannot write /dev/full: No space left on device" ]
    echo '{"telvaneRecording":1,"started":"2024-01-02T03:04:05Z"}' >a.jsonl
    run bash -c '"$0" info a.jsonl >/dev/full' "$TELVANE"
    [ "$status" -eq 5 ]
    [ "$output" = "telvane info: cannot write to standard output: No space left on device" ]
}

@test "a recorder whose server dies has written what came before" {
    start_server
    start_recorder a.jsonl LogData
    publish_logs 1
    await a.jsonl '"log":"1"'
    kill -KILL "$server"
    finish "$recorder"
    [ "$status" -eq 3 ]
    grep -q "the server at $bus has gone away" recorder.err
    [ "$(payloads a.jsonl)" = '{"log":"1"}' ]
}

@test "record and replay say so when there is no server" {
    echo '{"telvaneRecording":1,"started":"2024-01-02T03:04:05Z"}' >a.jsonl
    run "$TELVANE" record "$bus" -o b.jsonl LogData
    [ "$status" -eq 3 ]
    [[ $output == "telvane record: cannot connect to $bus: no such socket"* ]]
    [ ! -e b.jsonl ]
    run "$TELVANE" replay "$bus" a.jsonl
    [ "$status" -eq 3 ]
    [[ $output == "telvane replay: cannot connect to $bus: no such socket"* ]]
}

# recording_of <second...>: a recording with one record at each second, which holds it.
recording_of() {
    local second
    echo '{"telvaneRecording":1,"started":"2024-01-02T03:04:05Z"}'
    for second in "$@"; do
        echo "{\"ns\":${second}000000000,\"channel\":\"LogData\",\"sequence\":1,\"payload\":{\"log\":\"$second\"}}"
    done
}

@test "replay takes a part of a recording, from and until seconds of its first record" {
    start_server
    recording_of 100 101 102 103 >a.jsonl
    start_listener LogData --count 2
    "$TELVANE" replay "$bus" a.jsonl --speed 0 --from 1 --until 3s
    finish "$listener"
    [ "$(jq -r .payload.log listener.out | xargs)" = "101 102" ]
}

@test "replay renames channels, and leaves out those that are not wanted" {
    start_server
    recording_of 1 2 >a.jsonl
    sed -i '3s/LogData/Other/' a.jsonl
    start_listener Renamed Other --count 1
    "$TELVANE" replay "$bus" a.jsonl --speed 0 --only 'Log*' --rename LogData=Renamed
    finish "$listener"
    [ "$(jq -c '[.channel, .payload.log]' listener.out)" = '["Renamed","1"]' ]
}

@test "replay in a loop goes on until it is interrupted, and that is no error" {
    start_server
    recording_of 1 2 >a.jsonl
    start_listener LogData --count 5
    start replay "$TELVANE" replay "$bus" a.jsonl --speed 1000 --loop
    replay=$started
    finish "$listener"
    [ "$(jq -r .payload.log listener.out | xargs)" = "1 2 1 2 1" ]
    kill -INT "$replay"
    finish "$replay"
    [ "$status" -eq 0 ]
}

@test "replay keeps the recorded pace, and can be interrupted" {
    start_server
    recording_of 1 100000 >a.jsonl
    start_listener LogData --count 1
    start replay "$TELVANE" replay "$bus" a.jsonl
    replay=$started
    finish "$listener"
    kill -INT "$replay"
    finish "$replay"
    [ "$status" -eq 130 ]
}

@test "replay ends when the server dies" {
    start_server
    recording_of 1 100000 >a.jsonl
    start_listener LogData --count 1
    start replay "$TELVANE" replay "$bus" a.jsonl
    replay=$started
    finish "$listener"
    kill -KILL "$server"
    finish "$replay"
    [ "$status" -eq 3 ]
    grep -q "the server at $bus has gone away" replay.err
}

@test "replay reads standard input, but not in a loop" {
    start_server
    start_listener LogData --count 2
    recording_of 1 2 | "$TELVANE" replay "$bus" - --speed 0
    finish "$listener"
    [ "$status" -eq 0 ]
    run "$TELVANE" replay "$bus" - --loop
    [ "$status" -eq 2 ]
}

@test "replay says what it cannot publish" {
    start_server
    recording_of 1 2 >a.jsonl
    sed -i '2s/{"log":"1"}/[1]/' a.jsonl
    start_listener LogData --count 1
    run "$TELVANE" replay "$bus" a.jsonl --speed 0
    [ "$status" -eq 4 ]
    [[ $output == "telvane replay: records that could not be published: 1;"* ]]
    finish "$listener"
    [ "$(jq -r .payload.log listener.out)" = 2 ]
}

@test "record --all records channels that no other client has subscribed to" {
    start_server
    start_recorder weld.jsonl --all
    "$TELVANE" weld "$bus" --duration 1.5 --period-us 20000
    await weld.jsonl '"channel":"WeldTriggerEnd"'
    kill "$recorder"
    finish "$recorder"
    [ "$status" -eq 0 ]
    "$TELVANE" info weld.jsonl --json >info.json
    [ "$(jq -c '[.missed, (.channels[] | select(.channel == "WeldTriggerStart") | .records), .welds[0].missing]' info.json)" = '[0,1,0]' ]
    [ "$(jq '.welds[0] | .ended and .samples > 50' info.json)" = true ]
}


@test "record --all goes on without a channel that the server refuses, and reports it once" {
    echo "allow * * *" >policy
    start_server --policy policy
    start_listener WeldTraceData Other # the server lists a channel from its first subscription on
    kill "$listener"
    finish "$listener"
    printf 'deny * subscribe WeldTraceData\nallow * * *\n' >policy
    kill -HUP "$server"
    await server.err "policy policy: 2 rules$"
    start_recorder a.jsonl --all
    publish_logs 1
    await a.jsonl '"channel":"LogData"'
    start_listener Later
    until grep -q '"channel":"Later"' a.jsonl; do # the recorder has handled another list of channels
        "$TELVANE" publish "$bus" Later '{}'
        sleep 0.02
    done
    "$TELVANE" publish "$bus" WeldTraceData '{}'
    "$TELVANE" publish "$bus" Other '{}'
    await a.jsonl '"channel":"Other"'
    kill "$recorder"
    finish "$recorder"
    [ "$status" -eq 0 ]
    [ "$(grep -c 'cannot subscribe' recorder.err)" -eq 1 ]
    grep -qx "telvane record: cannot subscribe to \"WeldTraceData\" on $bus: the server refused; its log has the reason, a limit or its policy" recorder.err
    [ "$(tail -n +2 a.jsonl | jq -r .channel | uniq | xargs)" = "LogData Later Other" ]
}

@test "record goes on with the channels of a pattern that a limit of the server leaves it" {
    start_server --max-subscriptions 2 # one of which is for the list of channels
    start_recorder a.jsonl 'WeldTr*' --count 1
    [ "$(grep -c 'cannot subscribe to "WeldTriggerStart"' recorder.err)" -eq 1 ]
    [ "$(grep -c 'cannot subscribe to "WeldTraceData"' recorder.err)" -eq 0 ]
    grep -q "continuing without channels that are not named like a record class" recorder.err
    "$TELVANE" publish "$bus" WeldTriggerStart '{}'
    "$TELVANE" publish "$bus" WeldTraceData '{"n":1}'
    finish "$recorder"
    [ "$status" -eq 0 ]
    [ "$(payloads a.jsonl)" = '{"n":1}' ]
}

@test "record fails if the server refuses a channel that is named" {
    printf 'deny * subscribe LogData\nallow * * *\n' >policy
    start_server --policy policy
    run "$TELVANE" record "$bus" -o a.jsonl LogData
    [ "$status" -eq 3 ]
    [ "$output" = "telvane record: cannot subscribe to \"LogData\" on $bus: the server refused; its log has the reason, a limit or its policy" ]
}

@test "record goes on with the record classes if the server gives no status" {
    start_server --no-status
    start_recorder a.jsonl --all --count 1
    grep -q "continuing without channels that are not named like a record class" recorder.err
    publish_logs 1
    finish "$recorder"
    [ "$(payloads a.jsonl)" = '{"log":"1"}' ]
}

@test "what is kept is saved if the server dies" {
    start_server
    start_recorder fault.jsonl --all --keep 30s
    start_listener LogData --count 2
    publish_logs 1 2
    finish "$listener"
    "$TELVANE" request "$bus" TelvaneChannels >/dev/null # has the server relay what came before to the recorder as well
    kill -KILL "$server"
    finish "$recorder"
    [ "$status" -eq 3 ]
    grep -q "saving the buffered records: the connection was lost" recorder.err
    [ "$(payloads fault-0001.jsonl | xargs)" = "{log:1} {log:2}" ]
}

@test "what is kept is saved on SIGTERM, but not with --trigger-only or without records" {
    start_server
    for option in --verbose --trigger-only; do
        start_recorder "fault$option.jsonl" LogData --keep 30s $option
        start_listener LogData --count 1
        publish_logs 1
        finish "$listener"
        "$TELVANE" request "$bus" TelvaneChannels >/dev/null
        kill -TERM "$recorder"
        finish "$recorder"
        [ "$status" -eq 0 ]
    done
    [ "$(payloads fault--verbose-0001.jsonl)" = '{"log":"1"}' ]
    [ ! -e fault--trigger-only-0001.jsonl ]
    start_recorder none.jsonl LogData --keep 30s
    kill -TERM "$recorder"
    finish "$recorder"
    [ ! -e none-0001.jsonl ]
}

@test "what is kept is not saved on SIGINT, nor with --trigger-only if the server dies" {
    start_server
    start_recorder interrupted.jsonl LogData --keep 30s
    start_listener LogData --count 1
    publish_logs 1
    finish "$listener"
    "$TELVANE" request "$bus" TelvaneChannels >/dev/null
    kill -INT "$recorder"
    finish "$recorder"
    start_recorder only.jsonl LogData --keep 30s --trigger-only
    start_listener LogData --count 1
    publish_logs 1
    finish "$listener"
    "$TELVANE" request "$bus" TelvaneChannels >/dev/null
    kill -KILL "$server"
    finish "$recorder"
    [ "$status" -eq 3 ]
    [ -z "$(ls -- *.jsonl)" ]
}

@test "a megabyte before a trigger is kept without --keep-size" {
    start_server
    start_recorder fault.jsonl LogData --keep 10m --trigger Fault --after 10m
    start_listener LogData --count 100
    for ((i = 0; i < 100; i++)); do printf '{"log":"%010000d"}\n' "$i"; done | "$TELVANE" publish "$bus" LogData -
    finish "$listener"
    "$TELVANE" publish "$bus" Fault '{}'
    await fault-0001.jsonl '"channel":"Fault"'
    [ "$(grep -c '"payload":' fault-0001.jsonl)" -eq 101 ]
    [ "$(grep -c 'the buffer held only' recorder.err)" -eq 0 ]
}

@test "gaps are reported if the server does not report what was missed" {
    start_server --no-status
    start_recorder a.jsonl LogData --count 2
    publish_logs 1
    await a.jsonl '"log":"1"'
    start_listener Other # takes a number
    publish_logs 2
    finish "$recorder"
    grep -q "the sequence numbers have gaps, and the server does not report" recorder.err
}

@test "gaps are reported if the server dies before it reports what was missed" {
    start_server --no-status
    start_recorder a.jsonl LogData
    publish_logs 1
    await a.jsonl '"log":"1"'
    start_listener Other # takes a number
    publish_logs 2
    await a.jsonl '"log":"2"'
    kill -KILL "$server"
    finish "$recorder"
    [ "$status" -eq 3 ]
    grep -q "the sequence numbers have gaps, and the server has gone away before it could report whether" recorder.err
}

@test "a recording is compressed to standard output as well" {
    start_server
    start_recorder - LogData --count 1 --compress gzip
    publish_logs 1
    finish "$recorder"
    [ "$status" -eq 0 ]
    [ "$(gzip -dc recorder.out | tail -n +2 | jq -r .payload.log)" = 1 ]
}

@test "show prints long recordings once, and outages whatever is chosen" {
    {
        recording_of
        for ((i = 0; i < 2000; i++)); do
            printf '{"ns":%d,"channel":"LogData","sequence":1,"payload":{"log":"%050d"}}\n' "$i" "$i"
        done
        echo '{"ns":2000,"outage":true,"from":0,"to":1000000000}'
    } >a.jsonl
    "$TELVANE" show a.jsonl >shown 2>errors
    [ "$(wc -l <shown)" -eq 2000 ]
    run "$TELVANE" show a.jsonl --only 'PS*'
    [[ $output == "telvane show: there was no connection between 2024-01-02T03:04:05.000000Z and 2024-01-02T03:04:06.000000Z" ]]
}

@test "missed records are reported, noted in the file and part of the exit code" {
    start_server
    start_recorder a.jsonl LogData Other
    publish_logs first
    await a.jsonl '"log":"first"'
    suspend "$recorder"
    # More than the socket's buffer holds, whatever the kernel adds to the size of each.
    seq 1 12000 | sed 's/.*/{"log":"&"}/' | "$TELVANE" publish "$bus" LogData -
    kill -CONT "$recorder"
    await recorder.err "missed [0-9]* records so far: LogData [0-9]*$"
    await a.jsonl '"missed":'
    kill "$recorder"
    finish "$recorder"
    [ "$status" -eq 1 ]
    received=$(grep -c '"payload":' a.jsonl)
    missed=$(jq -s 'map(.missed // 0) | add' a.jsonl)
    [ "$((received + missed))" -eq 12001 ]
    run "$TELVANE" info a.jsonl
    [[ $output == *"missed    $missed records"* ]]
    [ "$("$TELVANE" info a.jsonl --json | jq -c '[.missed, .channels[0].missed]')" = "[$missed,$missed]" ]
    "$TELVANE" show a.jsonl >shown 2>errors
    [ "$(wc -l <shown)" -eq "$received" ]
    grep -q "missed [0-9]* records* on LogData between 20.*Z and 20" errors
    # Notes are not messages to publish.
    run "$TELVANE" replay "$bus" a.jsonl --speed 0 --verbose
    [ "$output" = "telvane replay: published $received records" ]
}

@test "records that do not fit into the queue are counted as missed" {
    start_server
    start_recorder a.jsonl LogData --queue-size 40
    seq 1 200 | sed 's/.*/{"log":"&"}/' | "$TELVANE" publish "$bus" LogData -
    # The recorder notes what it missed a moment later.
    until [ "$(tail -n +2 a.jsonl | jq -s 'map(.missed // 1) | add' 2>/dev/null)" = 200 ]; do sleep 0.02; done
    kill "$recorder"
    finish "$recorder"
    [ "$status" -eq 1 ]
    received=$(grep -c '"payload":' a.jsonl)
    missed=$(jq -s 'map(.missed // 0) | add' a.jsonl)
    [ "$((received + missed))" -eq 200 ]
}

@test "the count after a full disk is that of the file" {
    start_server
    start recorder bash -c 'ulimit -f 16; trap "" XFSZ; exec "$0" "$@"' "$TELVANE" record "$bus" -o a.jsonl LogData --verbose
    recorder=$started
    await recorder.err ": recording$"
    for i in $(seq 1 40); do
        printf '{"log":"%s %01000d"}\n' "$i" 0
    done | "$TELVANE" publish "$bus" LogData -
    finish "$recorder"
    [ "$status" -eq 5 ]
    grep -q "cannot write a.jsonl: File too large" recorder.err
    records=$(tail -n +2 a.jsonl | wc -l)
    [ "$records" -ge 1 ]
    [ "$records" -lt 40 ]
    [ "$(tail -c 1 a.jsonl | od -An -tx1)" = " 0a" ]
    grep -q ": $records records*, " recorder.err
    [ "$("$TELVANE" info a.jsonl --json | jq -c '[.records, .tornBytes, .damagedLines]')" = "[$records,0,0]" ]
}

@test "record --force replaces a file and leaves the old one to its readers" {
    start_server
    echo precious >a.jsonl
    exec 5<a.jsonl
    start_recorder a.jsonl LogData --force --count 1
    publish_logs 1
    finish "$recorder"
    [ "$(cat <&5)" = precious ]
    exec 5<&-
    [ "$(payloads a.jsonl)" = '{"log":"1"}' ]
    [ "$(ls -A | grep -c a.jsonl)" -eq 1 ]
}

@test "recordings can be compressed, and read up to where the recorder was killed" {
    start_server
    for suffix in gz zst; do
        start_recorder "a.jsonl.$suffix" LogData --split-after 1h
        publish_logs 1 2
        until "$TELVANE" info "a-0001.jsonl.$suffix" 2>/dev/null | grep -q "records   2"; do
            sleep 0.02
        done
        kill -KILL "$recorder"
        finish "$recorder"
        [ "$("$TELVANE" show "a-0001.jsonl.$suffix" -F '%{log}' | xargs)" = "1 2" ]
    done
    start_recorder b.jsonl LogData --compress zstd --count 2
    publish_logs 1 2
    finish "$recorder"
    [ "$(zstd -dcq b.jsonl.zst | tail -n +2 | jq -r .payload.log | xargs)" = "1 2" ]
    start_recorder c.jsonl LogData --compress gzip --count 2
    publish_logs 1 2
    finish "$recorder"
    [ "$(gzip -dc c.jsonl.gz | tail -n +2 | jq -r .payload.log | xargs)" = "1 2" ]
    printf '\xff' | dd of=b.jsonl.zst bs=1 seek=4 conv=notrunc status=none # the header, as other bytes may be text
    run "$TELVANE" info b.jsonl.zst
    [ "$status" -eq 4 ]
    [[ $output == *"cannot read b.jsonl.zst: Bad message"* ]]
}

@test "show prints a part of recordings in the requested form" {
    recording_of 100 101 102 103 >a.jsonl
    run "$TELVANE" show a.jsonl --from 1 --to 3s
    [ "$status" -eq 0 ]
    [ "$(jq -r .payload.log <<<"$output" | xargs)" = "101 102" ]
    [ "$(jq -r .time <<<"${lines[0]}")" = 2024-01-02T03:05:46.000000Z ]
    [ "$("$TELVANE" show a.jsonl --from 2024-01-02T03:05:47Z --to 2024-01-02T03:05:48Z -F '%{log}')" = 102 ]
    [ "$("$TELVANE" show a.jsonl --where log=103 -F '%d %c %n %{log}')" = "0.000000 LogData 1 103" ]
    [ "$("$TELVANE" show a.jsonl --csv log,none --to 1)" = "$(printf 'time,channel,sequence,log,none\n2024-01-02T03:05:45.000000Z,LogData,1,100,')" ]
    [ -z "$("$TELVANE" show a.jsonl --only 'PS*')" ]
    # Several files are one recording: times count from the first one.
    recording_of 5 | sed 's/03:04:05Z/03:06:05Z/' >b.jsonl
    [ "$("$TELVANE" show a.jsonl b.jsonl -F '%u' | tail -1)" = "$(date -u -d 2024-01-02T03:06:10Z +%s).000000" ]
    [ "$("$TELVANE" show a.jsonl b.jsonl --from 20 -F '%{log}')" = 5 ]
    run "$TELVANE" show a.jsonl missing.jsonl -F '%{log}'
    [ "$status" -eq 4 ]
    [[ $output == *"cannot read missing.jsonl"* ]]
    run bash -c '"$0" show a.jsonl >/dev/full' "$TELVANE"
    [ "$status" -eq 5 ]
}

@test "info summarizes several files and a part of one" {
    recording_of 100 101 102 >a.jsonl
    recording_of 5 >b.jsonl
    [ "$("$TELVANE" info a.jsonl b.jsonl --json | jq -s -c 'map(.records)')" = "[3,1]" ]
    [ "$("$TELVANE" info a.jsonl --from 1 --to 2 --json | jq .records)" = 1 ]
    run "$TELVANE" info missing.jsonl b.jsonl
    [ "$status" -eq 4 ]
    [[ $output == *"records   1 on 1 channel,"* ]]
}

@test "options that make no sense are refused" {
    for arguments in "record $bus LogData" "record $bus -o x 1" "record $bus -o x LogData --keep never" \
        "record $bus -o x LogData --after 5" "record $bus -o - LogData --keep 5" "record $bus -o x LogData --split-size -1" \
        "replay $bus" "replay $bus x --rename a" "replay $bus x --rename a=1" "replay $bus x --speed -1" "info" "show" "show x --from never" "show x --csv a,,b" \
        "show x --csv a --pretty" "show x --where a" "record $bus -o x LogData --compress lzma" \
        "record $bus -o x LogData --trigger-only"; do
        # shellcheck disable=SC2086
        run "$TELVANE" $arguments
        [ "$status" -eq 2 ]
    done
}

@test "an error while reading standard input is not taken for its end" {
    start_server
    reading=(python3 "$BATS_TEST_DIRNAME/reset_input.py")
    cat >input.jsonl <<'LINES'
{"telvaneRecording":1,"started":"2024-01-02T03:04:05.000000Z","server":"","channels":["LogData"],"part":1}
{"ns":1,"channel":"LogData","sequence":1,"payload":{"log":"x"}}
LINES
    echo '{"log":"x"}' >record.json
    printf 'amps,volts\n100,20\n100,20\n' >weld.csv
    for command in "info -" "show -" "replay $bus -"; do
        # shellcheck disable=SC2086
        run "${reading[@]}" input.jsonl "$TELVANE" $command
        [ "$status" -eq 4 ]
        [[ $output == *"cannot read standard input: Connection reset by peer"* ]]
    done
    run "${reading[@]}" record.json "$TELVANE" publish "$bus" LogData -
    [ "$status" -eq 4 ]
    [[ $output == *"cannot read standard input: Connection reset by peer"* ]]
    run "${reading[@]}" weld.csv "$TELVANE" weld "$bus" --csv - --amps amps --volts volts --period-us 500
    [ "$status" -eq 4 ]
    [[ $output == *"cannot read -: Connection reset by peer"* ]]
}
