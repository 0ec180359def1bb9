# shellcheck shell=bash disable=SC2034,SC2154 # variables are shared with the tests
# Helpers of the bridge's tests: a mosquitto on a free port, bridges, and what reaches the broker.

# shellcheck source=tests/cli/common.bash
. "$BATS_TEST_DIRNAME/../cli/common.bash"

# Brokers are down for a while in some tests. The kernel gives the ports below its range to no connection, and each file
# of tests has ports of its own.
free_port() {
    python3 -c '
import random, socket, sys
first = int(open("/proc/sys/net/ipv4/ip_local_port_range").read().split()[0])
files = ["outage", "plant", "security", "spool", "topics"]
part = first // 2 // (len(files) + 1)
number = files.index(sys.argv[1]) if sys.argv[1] in files else len(files)
while True:
    port = random.randrange(first // 2 + number * part, first // 2 + (number + 1) * part)
    try:
        socket.create_server(("127.0.0.1", port)).close()
    except OSError:
        continue
    print(port)
    break' "$(basename "${BATS_TEST_FILENAME:-}" .bats)"
}

# start_broker [line of its configuration...]: the port is in $port, and stays the same for a second call.
# TELVANE_MOSQUITTO is the broker's program. It must keep its process ID, as a script does that replaces itself by it.
start_broker() {
    local line
    port=${port:-$(free_port)}
    printf '%s\n' "user root" "listener $port 127.0.0.1" "$@" >broker.conf
    for line in "$@"; do
        case $line in allow_anonymous* | password_file*) line=given && break ;; esac
    done
    [ "${line:-}" = given ] || echo "allow_anonymous true" >>broker.conf
    start broker "${TELVANE_MOSQUITTO:-mosquitto}" -c broker.conf
    broker=$started
    await broker.err " running$"
}

stop_broker() {
    kill -KILL "$broker"
    wait "$broker" 2>/dev/null || true
}

# start_bridge <module> [option...]: waits until the broker accepts it, unless $url says something else.
start_bridge() {
    start "$1" "$TELVANE" mqtt --bus "$bus" --broker "${url:-mqtt://127.0.0.1:$port}" --module "$1" \
        --first-pause 100ms --longest-pause 300ms "${@:2}"
    bridge=$started
    if [ -z "${expect_failure:-}" ]; then
        await "$1.err" ": connected to .* with MQTT"
        await "$1.err" ": connected to the bus"
    fi
}

# watch <topic...>: prints topics and payloads to watch.out
watch() {
    local topics=() topic
    for topic in "$@"; do
        topics+=(-t "$topic")
    done
    start watch stdbuf -oL mosquitto_sub -d -V 5 -p "$port" "${options[@]}" -F 'message %t %p' "${topics[@]}"
    await watch.out "SUBACK"
}

# publish_on <topic> <payload> [option...]
publish_on() {
    mosquitto_pub -p "$port" -q 1 -t "$1" -m "$2" "${@:3}"
}

hal() {
    printf '{"serialNumber":"%s","machineType":"","hardwareRevisionNumber":0,"firmwareImageType":0,"revisionNumber":0}' "$1"
}

# publish_hal <first> <last>: records with numbers as serial numbers
publish_hal() {
    seq "$1" "$2" | while read -r number; do
        hal "$number"
        echo
    done | "$TELVANE" publish "$bus" HALInfo -
}

# payloads <channel>: what arrived on N, one JSON text per line
payloads() {
    sed -n "s|^message [^ ]*/N/$1 ||p" watch.out
}

# start_proxy [option...]: its port is in $proxy_port
start_proxy() {
    rm -f proxy.port
    start proxy python3 "$BATS_TEST_DIRNAME/proxy.py" "$port" proxy.port "$@"
    proxy=$started
    until [ -f proxy.port ]; do sleep 0.02; done
    proxy_port=$(cat proxy.port)
}

# metric <pattern>: the line of a metric
metric() {
    timeout 20 sed '/^# EOF/q' metrics | grep -- "$1"
}

# refute <command...>: fails if the command succeeds, which "!" does not do in the middle of a test
refute() {
    if "$@"; then
        return 1
    fi
}
