#!/usr/bin/env bats
# The spool on disk: what survives the bridge, and what can be asked for again.

load broker

# start_offline <option...>: a bridge of m1 whose broker is away; its port is in $port
start_offline() {
    port=${port:-$(free_port)}
    expect_failure=yes start_bridge m1 --out HALInfo --spool spool --drain-rate 0 "$@"
    await m1.err ": connected to the bus"
}

# accepted: how many records the bridge has on disk
accepted() {
    metric 'accepted_total{channel="HALInfo"}' | sed 's/.* //'
}

# arrive: starts the broker and a reader while the bridge is suspended
arrive() {
    suspend "$bridge"
    start_broker
    watch 'telvane/m1/#'
    kill -CONT "$bridge"
}

@test "what waits survives the bridge and leaves with its session and number" {
    start_server
    start_offline --metrics-pipe metrics
    publish_hal 1 20
    until [ "$(accepted)" = 20 ]; do sleep 0.05; done
    kill "$bridge"
    finish "$bridge"
    [ "$status" -eq 0 ]
    start_offline --metrics-pipe metrics
    publish_hal 21 25
    until [ "$(accepted)" = 5 ]; do sleep 0.05; done # what comes later would overtake the backlog
    arrive
    await watch.out '"serialNumber":"25"'
    payloads HALInfo | jq -c '[.n, .record.serialNumber]' | tr '\n' ' ' >arrived
    [ "$(cat arrived)" = "$({ seq 20 | sed 's/.*/[&,"&"]/'; seq 5 | while read -r n; do echo "[$n,\"$((n + 20))\"]"; done; } | tr '\n' ' ')" ]
    payloads HALInfo | jq .session | uniq >sessions
    [ "$(wc -l <sessions)" -eq 2 ]
    sort -nc sessions
}

@test "a bridge that is killed while it writes loses nothing that it accepted" {
    start_server
    port=$(free_port)
    for round in 1 2; do
        start_offline --metrics-pipe metrics
        yes "$(hal "$round")" | head -n 1500 | "$TELVANE" publish "$bus" HALInfo - 3>&- &
        flood=$!
        until [ "$(accepted)" -gt "$((round * 100))" ]; do sleep 0.01; done
        accepted >>known
        kill -KILL "$bridge"
        wait "$bridge" 2>/dev/null || true
        wait "$flood"
    done
    start_offline
    arrive
    # Each session arrives as 1, 2, 3 ... without a gap, and at least as far as the bridge said.
    for round in 1 2; do
        known=$(sed -n "${round}p" known)
        await watch.out "\"n\":$known,.*\"serialNumber\":\"$round\""
        payloads HALInfo | jq -r "select(.record.serialNumber == \"$round\") | .n" >numbers
        seq "$(tail -n 1 numbers)" | cmp - numbers
    done
    refute grep -q damaged m1.err
}

@test "a full disk is reported once, and the bridge goes on in memory" {
    start_server
    port=$(free_port)
    (
        ulimit -f 256 # in blocks of 1024 bytes
        trap '' XFSZ
        expect_failure=yes start_bridge m1 --out HALInfo --spool spool --drain-rate 0 --metrics-pipe metrics
        echo "$bridge" >pid
        wait "$bridge" || true
    ) 3>&- &
    processes+=("$!")
    until [ -s pid ]; do sleep 0.02; done
    bridge=$(cat pid)
    processes+=("$bridge")
    await m1.err ": connected to the bus"
    publish_hal 1 1200
    until [ "$(accepted)" = 1200 ]; do sleep 0.05; done
    await m1.err "messages are kept in memory only" # written after the last message, which waits for the disk
    # A few messages may still fit after many did not: then it is reported again.
    failures=$(grep -c "cannot write the spool .* messages are kept in memory only" m1.err)
    [ "$failures" -le $(($(grep -c "can be written again" m1.err) + 1)) ]
    arrive
    await watch.out '"serialNumber":"1200"'
    payloads HALInfo | jq .n | sort -n | uniq | cmp - <(seq 1200)
    kill "$bridge"
}

@test "a damaged spool is set aside, and the bridge goes on" {
    start_server
    start_broker
    head -c 20000 /dev/urandom >spool
    start_bridge m1 --out HALInfo --spool spool
    grep -q "the spool spool is damaged (.*); it is now spool.damaged, and a new one begins" m1.err
    [ "$(stat -c %s spool.damaged)" -eq 20000 ]
    watch 'telvane/m1/N/#'
    publish_hal 1 1
    await watch.out '"serialNumber":"1"'
}

@test "a spool that another bridge uses is refused" {
    start_server
    start_broker
    start_bridge m1 --out HALInfo --spool spool
    status=0
    "$TELVANE" mqtt --bus "$bus" --broker "mqtt://127.0.0.1:$port" --module m2 --out HALInfo --spool spool 2>error || status=$?
    [ "$status" -eq 5 ]
    grep -q "cannot use the spool spool: database is locked" error
}

@test "messages can be asked for again by their numbers" {
    start_server
    start_broker
    start_bridge m1 --out HALInfo --spool spool --metrics-pipe metrics
    watch 'plant/answers' 'telvane/m1/N/#'
    publish_hal 1 9
    await watch.out '"n":9'
    session=$(payloads HALInfo | jq .session | sort -u)
    ask() {
        mosquitto_pub -p "$port" -V 5 -q 1 -t telvane/m1/R/HALInfo -m "$1" \
            -D publish response-topic plant/answers -D publish correlation-data c7
    }
    answers() { sed -n 's|^message plant/answers ||p' watch.out; }
    ask "{\"session\":$session,\"from\":4,\"to\":6}"
    await watch.out '"repeated"'
    [ "$(answers | jq -c '[.session, .n, .record.serialNumber] | select(.[1])' | tr '\n' ' ')" = \
        "[$session,4,\"4\"] [$session,5,\"5\"] [$session,6,\"6\"] " ]
    [ "$(answers | jq -c 'select(.repeated) | .repeated')" = "{\"session\":$session,\"from\":4,\"to\":6,\"count\":3}" ]
    ask "{\"session\":$session,\"from\":8,\"to\":12}"
    await watch.out '"from":8,"to":12,"count":2'
    ask '{"from":1}'
    await watch.out 'answers .*"error":"expected {'
    metric 'mqtt_repeated_total 5'
    mosquitto_rr -p "$port" -V 5 -t telvane/m1/R/HALInfo -e plant/again -F %P -W 30 \
        -m "{\"session\":$session,\"from\":7,\"to\":7}" >properties
    grep -q "class:HALInfo session:$session n:7 time:[0-9]" properties
    # They are asked for on the topic of a request, which still works.
    kill "$bridge"
    finish "$bridge"
    start responder "$TELVANE" reply "$bus" HALInfo "$(hal 42)"
    start_bridge m1 --out HALInfo --request HALInfo --spool spool
    until answers | grep -q '"serialNumber":"42"'; do
        ask '{}'
        sleep 0.1
    done
    ask "{\"session\":$session,\"from\":1,\"to\":1}"
    await watch.out '"from":1,"to":1,"count":1'
}

@test "the backlog does not replace the retained record by an older one" {
    start_server
    port=$(free_port)
    expect_failure=yes start_bridge m1 --out HALInfo:retain --drain-rate 20
    await m1.err ": connected to the bus"
    publish_hal 1 40
    start_broker
    watch 'telvane/m1/N/#'
    await m1.err ": connected to .* with MQTT"
    publish_hal 41 41
    await watch.out '"n":41'
    await watch.out '"n":40'
    mosquitto_sub -p "$port" -t telvane/m1/N/HALInfo -C 1 -W 30 | jq -e '.n == 41'
}
