#!/usr/bin/env bats
# What crosses the bridge, on which topics, and what is refused.

load broker

@test "records of listed channels leave, and no others" {
    start_server
    start_broker
    watch 'telvane/#'
    start_bridge m1 --out HALInfo
    "$TELVANE" publish "$bus" LogData '{"log":"stays"}'
    publish_hal 7 7
    await watch.out "m1/N/HALInfo"
    [ "$(payloads HALInfo | jq -c '[.class, .n, .record.serialNumber]')" = '["HALInfo",1,"7"]' ]
    refute grep -q LogData watch.out
}

@test "every message can be understood alone" {
    start_server
    start_broker
    start_bridge m1 --out HALInfo
    watch 'telvane/m1/N/#' # no state, no schema
    publish_hal 1 2
    await watch.out '"n":2'
    payloads HALInfo | jq -e 'has("class") and has("session") and has("n") and has("clockSet") and has("record") and
        (.time | test("^20[0-9-]+T[0-9:]+\\.[0-9]{3}Z$"))' >/dev/null
    [ "$(payloads HALInfo | jq .session | sort -u | wc -l)" -eq 1 ]
}

# consume: reads payloads, without their topics, and prints the records of each class in the order of their numbers
consume() {
    jq -sc 'group_by(.class) | map({(.[0].class): (sort_by([.session, .n]) | map(if has("batch")
        then .batch as $batch | range($batch.count) as $i | $batch.same + ($batch.columns | map_values(.[$i]))
        else .record end))}) | add'
}

@test "messages of several topics are understood in any order" {
    start_server
    start_broker
    start_bridge m1 --out HALInfo --out LogData:batch=100ms --out SystemHealth
    watch 'telvane/m1/N/#' # no state, no schema
    publish_hal 1 3
    for i in 1 2 3; do printf '{"log":"%s"}\n' "$i"; done | "$TELVANE" publish "$bus" LogData -
    for i in 1 2 3; do printf '{"code":%s,"processName":"p"}\n' "$i"; done | "$TELVANE" publish "$bus" SystemHealth -
    await watch.out '"class":"HALInfo".*"n":3'
    await watch.out '"class":"SystemHealth".*"n":3'
    until [ "$(payloads LogData | jq -s 'map(.batch.count) | add')" = 3 ]; do sleep 0.05; done
    printf '{"HALInfo":[%s,%s,%s],"LogData":[{"log":"1"},{"log":"2"},{"log":"3"}],"SystemHealth":[%s]}\n' \
        "$(hal 1)" "$(hal 2)" "$(hal 3)" \
        '{"code":1,"processName":"p"},{"code":2,"processName":"p"},{"code":3,"processName":"p"}' >expected
    sed -n 's|^message [^ ]*/N/[^ ]* ||p' watch.out >arrived
    for order in cat tac sort 'sort -r' 'shuf --random-source=arrived' 'shuf --random-source=expected'; do
        $order <arrived | consume | diff expected -
    done
}

@test "a channel that goes out and comes in is refused" {
    status=0
    "$TELVANE" mqtt --bus "$bus" --broker mqtt://localhost --out 'HAL*' --in HALInfo 2>error || status=$?
    [ "$status" -eq 2 ]
    grep -q "the channel HALInfo goes out and comes in" error
}

@test "only listed channels come in" {
    start_server
    start_broker
    start_bridge m1 --in LogData
    start_listener LogData
    start other "$TELVANE" listen "$bus" HALInfo --verbose
    await other.err ": listening$"
    publish_on telvane/m1/W/HALInfo "$(hal 1)"
    publish_on telvane/m1/W/LogData '{"log":"comes in"}'
    await listener.out "comes in"
    [ ! -s other.out ]
    status=0
    "$TELVANE" mqtt --bus "$bus" --broker mqtt://localhost --in 'Log*' 2>error || status=$?
    [ "$status" -eq 2 ]
    grep -q "list what comes in by name" error
}

@test "a payload as it leaves may come in again" {
    start_server
    start_broker
    start_bridge m1 --in LogData
    start_listener LogData
    publish_on telvane/m1/W/LogData '{"class":"LogData","session":5,"n":9,"record":{"log":"enveloped"}}'
    await listener.out '"payload":{"log":"enveloped"}'
}

@test "an invalid record is refused with its key and not published" {
    start_server
    start_broker
    watch 'telvane/m1/state/errors'
    start_bridge m1 --in LogData
    start_listener LogData
    publish_on telvane/m1/W/LogData '{"log":5}'
    await watch.out 'log: expected a string, got a number'
    publish_on telvane/m1/W/LogData 'no JSON'
    publish_on telvane/m1/W/LogData '{"class":"HALInfo","record":{"log":"x"}}'
    await watch.out 'class: expected LogData, got HALInfo'
    publish_on telvane/m1/W/LogData "{\"log\":\"$(printf '%020000d' 0)\"}"
    await watch.out '16363'
    publish_on telvane/m1/W/LogData '{"log":"good"}'
    await listener.out good
    [ "$(wc -l <listener.out)" -eq 1 ]
}

@test "retained records and requests are ignored" {
    start_server
    start_broker
    publish_on telvane/m1/W/LogData '{"log":"old"}' -r
    publish_on telvane/m1/R/LogData '' -r
    start_listener LogData
    start_bridge m1 --in LogData
    publish_on telvane/m1/W/LogData '{"log":"new"}'
    await listener.out new
    refute grep -q old listener.out
}

@test "a request is answered on its response topic with its correlation data" {
    start_server
    start_broker
    start responder "$TELVANE" reply "$bus" HALInfo "$(hal 42)" --verbose
    await responder.err "answering\|replying\|listening" || true
    start_bridge m1 --request HALInfo
    answer=$(mosquitto_rr -p "$port" -V 5 -t telvane/m1/R/HALInfo -e plant/answers -m '{}' -W 30 \
        -D publish correlation-data c7 -F '%t %D %p')
    [ "${answer%% \{*}" = "plant/answers c7" ]
    [ "$(jq -r .record.serialNumber <<<"${answer#* c7 }")" = 42 ]
}

@test "a request that the bus does not answer gets an error" {
    start_server
    start_broker
    start_bridge m1 --request HALInfo --request-timeout 100ms
    mosquitto_rr -p "$port" -V 5 -t telvane/m1/R/HALInfo -e plant/answers -m '{}' -W 30 >answer
    jq -e '.error | length > 0' answer
    watch telvane/m1/state/errors
    mosquitto_pub -p "$port" -V 5 -q 1 -t telvane/m1/R/HALInfo -m '{}' -D publish response-topic telvane/m1/W/LogData
    await watch.out "response topic"
}

@test "with MQTT 3.1.1 a request is answered on N" {
    start_server
    start_broker
    watch 'telvane/m1/N/#'
    start responder "$TELVANE" reply "$bus" HALInfo "$(hal 42)"
    start_bridge m1 --request HALInfo --protocol 3.1.1
    until grep -q '"serialNumber":"42"' watch.out; do
        publish_on telvane/m1/R/HALInfo '{}'
        sleep 0.1
    done
}

@test "only the record of a retained channel stays on the broker" {
    start_server
    start_broker
    watch 'telvane/m1/N/#'
    start_bridge m1 --out HALInfo:retain --out LogData
    publish_hal 1 2
    "$TELVANE" publish "$bus" LogData '{"log":"x"}'
    await watch.out LogData
    await watch.out '"n":2'
    until [ -s retained ]; do
        mosquitto_sub -p "$port" -t 'telvane/m1/N/#' -W 1 -F '%t %p' >retained || true
    done
    [ "$(wc -l <retained)" -eq 1 ]
    grep -q '^telvane/m1/N/HALInfo .*"n":2' retained
}

@test "nothing circles between two buses that are connected in both directions" {
    start_server
    start second "$TELVANE" serve "$directory/second" --verbose
    await second.err serving
    start_broker
    # What leaves one bus enters the other one, as a broker's rules may do it.
    forward() { # <from> <to> <channel>
        # In a process group of its own, so that the end of the shell ends both.
        start "forward-$1" setsid bash -c 'trap "trap - TERM; kill 0" TERM
            mosquitto_sub -p "$0" -q 1 -t "telvane/$1/N/$3" | mosquitto_pub -p "$0" -q 1 -t "telvane/$2/W/$3" -l &
            wait' "$port" "$1" "$2" "$3"
    }
    forward m1 m2 HALInfo
    forward m2 m1 LogData
    start_bridge m1 --out HALInfo --in LogData
    bus=$directory/second start_bridge m2 --out LogData --in HALInfo
    watch telvane/m2/N/HALInfo telvane/m1/N/LogData # what came in must not go out
    start_listener LogData
    start far "$TELVANE" listen "$directory/second" HALInfo --verbose
    await far.err ": listening$"
    # meet <text>: sends it from both buses until it has arrived at both, whatever a busy machine loses on the way
    meet() {
        until grep -q "\"serialNumber\":\"$1\"" far.out && grep -q "\"log\":\"$1\"" listener.out; do
            "$TELVANE" publish "$bus" HALInfo "$(hal "$1")"
            "$TELVANE" publish "$directory/second" LogData "{\"log\":\"$1\"}"
            sleep 0.1
        done
    }
    meet ready # the forwarders have no other sign of it
    # 500 records a second in each direction, for a second or TELVANE_LOOP_SECONDS.
    local count=$((500 * ${TELVANE_LOOP_SECONDS:-1}))
    numbers() {
        python3 -c '
import sys, time
start = time.monotonic()
for number in range(1, int(sys.argv[1]) + 1):
    print(number, flush=number % 10 == 0)
    time.sleep(max(0, start + number / 500 - time.monotonic()) if number % 10 == 0 else 0)' "$count"
    }
    numbers | sed -u "s/.*/$(hal '&')/" | "$TELVANE" publish "$bus" HALInfo - 3>&- &
    local publisher=$!
    numbers | sed -u 's/.*/{"log":"&"}/' | "$TELVANE" publish "$directory/second" LogData -
    wait "$publisher"
    # What goes out again is there before end2 has crossed; what arrives twice is there before end3.
    meet end1
    meet end2
    meet end3
    for output in far.out listener.out; do
        jq -r '.payload | .serialNumber // .log' "$output" | grep -vxE 'ready|end[123]' | sort >arrived
        [ "$(wc -l <arrived)" -gt "$((count / 2))" ]
        uniq -d arrived | refute grep .
    done
    refute grep message watch.out
}
