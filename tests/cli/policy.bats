#!/usr/bin/env bats
# Rights by channel: telvane serve --policy. What real users may do needs root.

load common

me=$(id -un)

# client_as <user> <group,...> <action...>: acts as another user, see client_as.py.
client_as() {
    chmod 711 "$directory"
    python3 "$BATS_TEST_DIRNAME/client_as.py" "$bus" "$@"
}

@test "serve --policy refuses subscriptions and publications that no rule allows" {
    cat >policy <<RULES
# the last rule is the one that matters
deny user:$me publish Weld*
allow user:$me publish,subscribe LogData WeldAlarm
RULES
    start_server --policy policy --metrics-pipe "$directory/pipe"
    grep -q "policy policy: 2 rules$" server.err
    start_listener LogData WeldAlarm --count 1
    run "$TELVANE" listen "$bus" PSFeedback
    [ "$status" -eq 3 ]
    await server.err "refused client [0-9]* (.*) for channel PSFeedback: the policy does not let it subscribe"
    "$TELVANE" publish "$bus" WeldAlarm '{"log":"no"}'
    await server.err "refused client [0-9]* (.*) for channel WeldAlarm: the policy does not let it publish"
    "$TELVANE" publish "$bus" LogData '{"log":"yes"}'
    finish "$listener"
    [ "$(jq -r .payload.log listener.out)" = yes ]
    sed '/^# EOF$/q' pipe >metrics
    grep -qx 'telvane_packets_dropped_total{reason="not_permitted"} 1' metrics
}

@test "serve --policy distinguishes users and groups" {
    [ "$(id -u)" -eq 0 ] || skip "only root can act as other users"
    cat >policy <<RULES
allow user:4201 publish LogData
allow group:4301 subscribe LogData
allow user:root * *
RULES
    start_server --mode 0666 --policy policy
    start_listener LogData --count 2
    client_as 4202 4302 publish:LogData
    await server.err "refused client [0-9]* (process [0-9]*, user 4202, group 4302) for channel LogData: the policy does not let it publish"
    client_as 4201 4302 publish:LogData
    "$TELVANE" publish "$bus" LogData '{"log":"root"}'
    finish "$listener"
    [ "$(jq -r .payload.log listener.out)" = "4201
root" ]
    [ "$(client_as 4201 4302 subscribe:LogData)" = "LogData refused" ]
    [ "$(client_as 4202 4302,4301 subscribe:LogData subscribe:Other)" = "LogData subscribed
Other refused" ]
    [ "$(client_as 4202 4301 subscribe:LogData)" = "LogData subscribed" ]
}

@test "serve --policy sums up a client that repeats what it may not do" {
    echo "allow * subscribe *" >policy
    start_server --policy policy
    for ((i = 0; i < 500; i++)); do echo '{"log":"x"}'; done | "$TELVANE" publish "$bus" LogData -
    await server.err disconnected
    kill "$server"
    finish "$server"
    grep -q "for channel LogData: the policy does not let it publish$" server.err
    [ "$(sed -n 's/.*let it publish; \([0-9]*\) more$/\1/p' server.err | jq -s add)" -eq 499 ]
}

@test "the status of a server works under its policy" {
    echo "allow user:$me request,subscribe TelvaneChannels" >policy
    start_server --policy policy
    run "$TELVANE" request "$bus" TelvaneChannels
    [ "$status" -eq 0 ]
    [[ $output == *'"channel":"req_TelvaneChannels"'* ]]
    run "$TELVANE" request "$bus" TelvaneClients --timeout 1
    [ "$status" -eq 3 ]
}

@test "serve --policy-audit only logs what the policy would refuse" {
    : >policy
    start_server --policy policy --policy-audit
    start_listener LogData --count 2
    "$TELVANE" publish "$bus" LogData '{"log":"1"}'
    "$TELVANE" publish "$bus" LogData '{"log":"2"}'
    finish "$listener"
    [ "$status" -eq 0 ]
    grep -q "would refuse client [0-9]* (.*) for channel LogData: the policy does not let it subscribe" server.err
    grep -q "would refuse client [0-9]* (.*) for channel LogData: the policy does not let it publish" server.err
    [ "$(grep -c ": refused" server.err)" -eq 0 ]
}

@test "SIGHUP loads the policy again, and an invalid one changes nothing" {
    echo "deny * publish LogData" >policy
    echo "allow * * *" >>policy
    start_server --policy policy
    start_listener LogData --count 1
    "$TELVANE" publish "$bus" LogData '{"log":"refused"}'
    echo "allow all * *" >policy
    kill -HUP "$server"
    await server.err "policy:1: \"all\" is not a client; use user:NAME, group:NAME or \*"
    await server.err "the former policy stays"
    "$TELVANE" publish "$bus" LogData '{"log":"still refused"}'
    until [ "$(grep -c " disconnected$" server.err)" -ge 2 ]; do sleep 0.02; done # the server has handled both
    echo "allow * publish,subscribe LogData" >policy
    kill -HUP "$server"
    await server.err "policy policy: 1 rule$"
    "$TELVANE" publish "$bus" LogData '{"log":"allowed"}'
    finish "$listener"
    [ "$(jq -r .payload.log listener.out)" = allowed ]
    run "$TELVANE" listen "$bus" Other
    [ "$status" -eq 3 ]
    kill "$server"
    finish "$server"
    [ "$status" -eq 0 ]
}

@test "serve does not start without the policy that it is given" {
    run timeout 10 "$TELVANE" serve "$bus" --policy ""
    [ "$status" -eq 2 ]
    [[ "$output" == *"--policy: "*"the name of the file is empty"* ]]
}

@test "serve does not start with an invalid policy" {
    printf 'allow * * *\nallow user:no-such-user * *\n' >policy
    run "$TELVANE" serve "$bus" --policy policy
    [ "$status" -eq 2 ]
    [ "$output" = 'telvane serve: policy:2: unknown user "no-such-user"' ]
    [ ! -e "$bus" ]
    run "$TELVANE" serve "$bus" --policy none
    [ "$status" -eq 2 ]
    [ "$output" = "telvane serve: cannot read none: No such file or directory" ]
    run "$TELVANE" serve "$bus" --policy-audit
    [ "$status" -eq 2 ]
}

@test "SIGHUP ends a server without a policy" {
    start_server
    kill -HUP "$server"
    finish "$server"
    [ "$status" -eq 0 ]
    [ ! -e "$bus" ]
}
