#!/usr/bin/env bats
# Text from other processes, which may contain anything, and what the tool prints of it.

load common

# send <packet>: sends one packet, with \x escapes, as a client of its own, and waits until the server has handled it.
send() {
    python3 -c '
import socket, sys
client = socket.socket(socket.AF_UNIX, socket.SOCK_SEQPACKET)
client.connect(sys.argv[1])
packet = sys.argv[2].encode().decode("unicode_escape").encode("latin-1")
client.send(packet)
if b".subscribe" in packet:
    client.recv(16384)
client.send(b"""{"header":".unsubscribe","payload":{"channel":"None"}}""")
client.recv(16384)' "$bus" "$1"
}

# is_clean <file>: whether the file is UTF-8 without control characters other than newlines and tabs.
is_clean() {
    python3 -c '
import sys, unicodedata
text = open(sys.argv[1], "rb").read().decode("utf-8")
sys.exit(any(unicodedata.category(c) == "Cc" and c not in "\n\t" for c in text))' "$1"
}

@test "a channel's name cannot forge lines of the server's log" {
    start_server
    send '{"header":".subscribe","payload":{"channel":"x\\n2026 forged \\u001b[2J"}}'
    await server.err "requested to subscribe to x?2026 forged ?\[2J"
    [ "$(grep -c '^2026' server.err)" -eq 0 ]
    is_clean server.err
}

@test "listen prints fields without control characters" {
    start_server
    start_listener LogData --count 2 -F '%{log}'
    send '{"header":"LogData","payload":{"log":"a\\u001b[2J\\u009b31m\xc2\x9b32m"}}'
    send '{"header":"LogData","payload":{"log":"b\x9b33m"}}'
    finish "$listener"
    is_clean listener.out
    [ "$(head -n 1 listener.out)" = "a?[2J?31m?32m" ]
    grep -q "records with bytes that are not UTF-8, printed as U+FFFD: 1" listener.err
}

@test "info prints nothing of a recording that controls the terminal" {
    printf '%b\n' \
        '{"telvaneRecording":1,"started":"2024-01-02T03:04:05Z","server":"s\\u001b[1m\\u009b2m\xc2\x9b3m","channels":[],"part":1}' \
        '{"ns":1000000000,"channel":"c\\u001b[2J\\u009b31m\xc2\x9b32m","sequence":1,"payload":{"log":"\\u001b[2J"}}' \
        '{"ns":1000000001,"channel":"LogData","sequence":2,"payload":{"log":"\\u001b[2J\xc2\x9b32m"}}' >bad.jsonl
    grep -q $'\xc2\x9b' bad.jsonl
    "$TELVANE" info bad.jsonl >info.out
    is_clean info.out
    grep -q '^server *s?\[1m?2m?3m$' info.out
    grep -q '^c?\[2J?31m?32m  *1 ' info.out
    "$TELVANE" info bad.jsonl --json >info.json
    is_clean info.json
    [ "$(jq .records info.json)" -eq 2 ]
}

@test "monitor prints units without control characters" {
    "$TELVANE" weld -o weld.jsonl --duration 1.5 --period-us 50000
    sed -i 's/"CommandVoltage":{"Unit":"V"/"CommandVoltage":{"Unit":"V\\u001b[2J\\u009b1m\xc2\x9b2m"/' weld.jsonl
    start_server
    start monitor "$TELVANE" monitor "$bus" --verbose
    monitor=$started
    await monitor.err ": listening$"
    "$TELVANE" replay "$bus" weld.jsonl --speed 0
    await monitor.out "^weld 1 ended"
    kill -INT "$monitor"
    finish "$monitor"
    [ "$status" -eq 0 ]
    is_clean monitor.out
    is_clean monitor.err
    grep -q '^weld 1 started at .*, set to 20.5 V?\[2J?1m?2m, wire feed 210 in/min$' monitor.out
}

@test "recordings and JSON output are valid even if messages are not" {
    start_server
    start_listener LogData --count 2
    start recorder "$TELVANE" record "$bus" -o bad.jsonl LogData --count 2 --verbose
    recorder=$started
    await recorder.err ": recording$"
    send '{"header":"LogData","payload":{"log":"a\xff\x7f"}}'
    send '{"header":"LogData","payload":{"log":"\\u009b"}}'
    finish "$listener"
    finish "$recorder"
    [ "$status" -eq 0 ]
    for file in listener.out bad.jsonl; do
        is_clean "$file"
        tail -n 2 "$file" | python3 -c '
import json, sys
logs = [json.loads(line)["payload"]["log"] for line in sys.stdin]
sys.exit(logs != ["a\ufffd\x7f", "\x9b"])'
    done
    grep -q "1 record had bytes that are not UTF-8, recorded as U+FFFD" recorder.err
}

@test "status answers of another client end neither top nor listen --all nor record --all" {
    start_server
    start_listener --all --wait 60
    start recorder "$TELVANE" record "$bus" -o all.jsonl --all --verbose
    recorder=$started
    await recorder.err ": recording$"
    start top "$TELVANE" top "$bus" --json --interval 0.1
    top=$started
    await top.out '"channels"'
    for name in Chan2 '' 'x\\n'; do
        "$TELVANE" publish "$bus" TelvaneChannels "{\"part\":1,\"parts\":1,\"channels\":[{\"channel\":\"TelvaneChannels\",\"subscribers\":1},{\"channel\":\"$name\"}]}"
    done
    "$TELVANE" publish "$bus" LogData '{"log":"after"}'
    await listener.out after
    lines=$(wc -l <top.out)
    while [ "$(wc -l <top.out)" -le $((lines + 3)) ]; do sleep 0.02; done
    kill "$recorder"
    finish "$recorder"
    [ "$status" -eq 0 ]
    grep -q after all.jsonl
    kill -0 "$top"
}

@test "error messages quote only the begin of long values" {
    start_server
    python3 -c 'print("{\"when\":\"" + "x" * 20000000 + "\"}")' >long.json
    run "$TELVANE" publish "$bus" TimeType --as TimeType - <long.json
    [ "$status" -eq 4 ]
    [ "${#output}" -lt 1000 ]
}

@test "the Python example survives invalid UTF-8" {
    start_server
    start example python3 "$BATS_TEST_DIRNAME/../../examples/subscribe.py" "$bus" LogData
    await example.out listening
    send '{"header":"LogData","payload":{"log":"a\xff"}}'
    "$TELVANE" publish "$bus" LogData '{"log":"after"}'
    await example.out after
}
