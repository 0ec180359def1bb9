#!/usr/bin/env bats
# The connection to the broker: losses, limits, refusals.

load broker

# expect_numbers <channel> <last>: each number from 1 has arrived, some perhaps twice
expect_numbers() {
    local tries=0
    until [ "$(payloads "$1" | jq .n | sort -nu | wc -l)" -eq "$2" ]; do
        tries=$((tries + 1))
        [ "$tries" -lt 1500 ]
        sleep 0.1
    done
    [ "$(payloads "$1" | jq .n | sort -nu | tail -n 1)" -eq "$2" ]
}

@test "what happens while the broker is away arrives later, in order" {
    start_server
    start_broker
    start_bridge m1 --out HALInfo --drain-rate 0 --metrics-pipe metrics
    publish_hal 1 20
    stop_broker
    await m1.err ": the connection was lost\|: The connection was lost\|refused"
    publish_hal 21 60
    until metric 'accepted_total{channel="HALInfo"} 60'; do sleep 0.05; done # what comes later would overtake the others
    suspend "$bridge" # until there is a reader
    start_broker
    watch 'telvane/m1/N/#'
    kill -CONT "$bridge"
    await watch.out '"n":60'
    payloads HALInfo | jq .n >numbers
    sort -nc numbers
    [ "$(sort -nu numbers | awk '$1 > 20' | wc -l)" -eq 40 ]
    until metric 'sent_total{channel="HALInfo"} 60'; do sleep 0.05; done
    metric 'delay_microseconds_total{channel="HALInfo"} [1-9]' # they have waited
}

@test "a full queue drops the oldest, and says so in the next message" {
    start_server
    port=$(free_port)
    expect_failure=yes start_bridge m1 --out HALInfo --queue-messages 5 --drain-rate 0 --metrics-pipe metrics
    await m1.err ": connected to the bus"
    publish_hal 1 12
    until metric 'dropped_total{channel="HALInfo",reason="queue_full"} 7'; do sleep 0.05; done
    suspend "$bridge" # until there is a reader
    start_broker
    watch 'telvane/m1/N/#'
    kill -CONT "$bridge"
    await watch.out '"n":12'
    [ "$(payloads HALInfo | jq -c '[.n, .dropped]' | tr '\n' ' ')" = \
        "[8,7] [9,null] [10,null] [11,null] [12,null] " ]
}

@test "messages that are too old are dropped and counted" {
    start_server
    port=$(free_port)
    expect_failure=yes start_bridge m1 --out HALInfo --queue-age 1ms --metrics-pipe metrics
    await m1.err ": connected to the bus"
    publish_hal 1 3
    # The next record finds them too old, or the next attempt to connect.
    until metric 'dropped_total{channel="HALInfo",reason="too_old"} 3'; do sleep 0.05; done
    metric 'accepted_total{channel="HALInfo"} 3'
}

@test "a connection that no longer moves is replaced, and nothing is lost" {
    start_server
    start_broker
    start_proxy
    url=mqtt://127.0.0.1:$proxy_port start_bridge m1 --out HALInfo --ack-timeout 500ms --drain-rate 0
    watch 'telvane/m1/N/#'
    publish_hal 1 5
    await watch.out '"n":5'
    kill -USR1 "$proxy"
    publish_hal 6 20
    expect_numbers HALInfo 20
    grep -q "does not acknowledge messages" m1.err
}

@test "an acknowledgement that never comes ends the connection, and the messages are sent again" {
    start_server
    start_broker
    start_proxy --no-acknowledgements
    watch 'telvane/m1/N/#'
    url=mqtt://127.0.0.1:$proxy_port start_bridge m1 --out HALInfo --ack-timeout 500ms --drain-rate 0
    publish_hal 1 30
    expect_numbers HALInfo 30
    grep -q "does not acknowledge messages" m1.err
}

@test "a broker that allows one message in flight gets a thousand" {
    start_server
    start_broker "max_inflight_messages 1"
    start_bridge m1 --out HALInfo --drain-rate 0
    watch 'telvane/m1/N/#'
    publish_hal 1 1000
    expect_numbers HALInfo 1000
    [ "$(payloads HALInfo | wc -l)" -eq 1000 ]
    refute grep -q "refuses\|lost" m1.err
}

@test "a message above the broker's packet limit is dropped, and the others pass" {
    start_server
    start_broker "max_packet_size 2000"
    watch 'telvane/m1/N/#'
    start_bridge m1 --out LogData --metrics-pipe metrics
    printf '{"log":"%s"}\n' small "$(printf '%04000d' 0)" after | "$TELVANE" publish "$bus" LogData -
    await watch.out after
    [ "$(payloads LogData | jq -c '[.n, .dropped]' | tr '\n' ' ')" = "[1,null] [3,1] " ]
    metric 'dropped_total{channel="LogData",reason="too_large"} 1'
    grep -q "larger than the broker accepts" m1.err
}

@test "an answer that is too large because of its correlation data is dropped, and the connection lasts" {
    start_server
    start_broker "max_packet_size 2000"
    start responder "$TELVANE" reply "$bus" HALInfo "$(hal 42)"
    start_bridge m1 --request HALInfo
    mosquitto_pub -p "$port" -V 5 -q 1 -t telvane/m1/R/HALInfo -m '{}' -D publish response-topic plant/answers \
        -D publish correlation-data "$(printf '%01800d' 0)"
    await m1.err "larger than the broker accepts"
    until mosquitto_rr -p "$port" -V 5 -t telvane/m1/R/HALInfo -e plant/others -m '{}' -W 30 | grep -q '"serialNumber":"42"'; do
        sleep 0.1
    done
    [ "$(grep -c ": connected to .* with MQTT" m1.err)" -eq 1 ]
}

@test "a broker that speaks only MQTT 3.1.1 is used with 3.1.1" {
    start_server
    start_broker
    start_proxy --refuse-5
    watch 'telvane/m1/N/#'
    url=mqtt://127.0.0.1:$proxy_port start_bridge m1 --out HALInfo
    grep -q "with MQTT 3.1.1" m1.err
    publish_hal 1 3
    expect_numbers HALInfo 3
}

@test "a refused channel is reported with its reason code and does not stop the others" {
    start_server
    printf '%s\n' "topic readwrite #" >acl
    printf '%s\n' "topic deny telvane/m1/N/LogData" "topic readwrite telvane/#" >acl
    start_broker "acl_file $directory/acl"
    watch 'telvane/m1/N/#'
    start_bridge m1 --out HALInfo --out LogData --metrics-pipe metrics
    "$TELVANE" publish "$bus" LogData '{"log":"forbidden"}'
    publish_hal 1 2
    expect_numbers HALInfo 2
    await m1.err "refuses messages on telvane/m1/N/LogData (reason code 135)"
    until metric 'dropped_total{channel="LogData",reason="refused"} 1'; do sleep 0.05; done
}

@test "the state is retained, says offline after an orderly end, and a foreign one is corrected" {
    start_server
    start_broker
    start_bridge m1 --out HALInfo
    state() { mosquitto_sub -p "$port" -t telvane/m1/state -C 1 -W 30; }
    [ "$(state | jq -c '[.online, .channels]')" = '[true,{"HALInfo":"HALInfo"}]' ]
    session=$(state | jq .session)
    publish_on telvane/m1/state '{"online":false,"session":1}' -r
    until [ "$(state | jq .session)" = "$session" ]; do sleep 0.05; done
    [ "$(state | jq .online)" = true ]
    kill "$bridge"
    finish "$bridge"
    [ "$status" -eq 0 ]
    [ "$(state | jq -c '[.online, .session]')" = "[false,$session]" ]
}

@test "the will of a killed bridge has the session of its birth" {
    start_server
    start_broker
    start_bridge m1 --out HALInfo --protocol 3.1.1 # where a will has no delay
    session=$(mosquitto_sub -p "$port" -t telvane/m1/state -C 1 -W 30 | jq .session)
    watch telvane/m1/state
    kill -KILL "$bridge"
    await watch.out '"online":false'
    [ "$(grep '"online":false' watch.out | sed 's/^message [^ ]* //' | jq .session)" = "$session" ]
}

@test "the schemas of the bridged classes are retained" {
    start_server
    start_broker
    start_bridge m1 --out HALInfo --in LogData
    mosquitto_sub -p "$port" -t 'telvane/m1/schema/#' -C 2 -W 30 -F '%t %p' >schemas
    [ "$(sed 's/ .*//' schemas | sort | tr '\n' ' ')" = "telvane/m1/schema/HALInfo telvane/m1/schema/LogData " ]
    sed 's/^[^ ]* //' schemas | jq -e '.type == "object"'
}

@test "a second bridge of a module does not start, and a takeover is reported" {
    start_server
    start_broker
    start_bridge m1 --out HALInfo
    status=0
    "$TELVANE" mqtt --bus "$bus" --broker "mqtt://127.0.0.1:$port" --module m1 --out HALInfo 2>error || status=$?
    [ "$status" -eq 2 ]
    grep -q "runs already" error
    # A broker of this version closes the old connection without a reason.
    start thief python3 -c '
import socket, sys
connect = b"\x10\x16\0\4MQTT\4\2\0\x0f\0\x0atelvane-m1"
while True:
    connection = socket.create_connection(("127.0.0.1", int(sys.argv[1])))
    connection.sendall(connect)
    try:
        while connection.recv(1000):
            pass # until the bridge has taken the identifier over
    except ConnectionError:
        pass' "$port"
    await m1.err "another client may use the identifier telvane-m1"
}

@test "samples leave as batches, summaries or changes" {
    start_server
    start_broker
    watch 'telvane/#'
    start_bridge m1 --out WeldTraceData --out HALInfo:changes --out LogData:batch=50ms:qos=1
    start summary "$TELVANE" mqtt --bus "$bus" --dry-run --out WeldTraceData:every=50ms
    "$TELVANE" publish "$bus" WeldTraceData --as WeldTraceData
    publish_hal 1 2
    "$TELVANE" publish "$bus" LogData '{"log":"a"}'
    await watch.out '/N/LogData .*"batch":{"count":1,"us":\[0\],"same":{"log":"a"}'
    await watch.out '/N/WeldTraceData .*"batch":{"count":'
    await watch.out '/N/HALInfo .*"n":2.*"changes":{"serialNumber":"2"}'
    until grep -q '"summary":{"count":.*"min":' summary.out; do
        "$TELVANE" publish "$bus" WeldTraceData --as WeldTraceData
        sleep 0.1
    done
}
