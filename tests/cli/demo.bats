#!/usr/bin/env bats
# The demonstration, with the tool as it is built.

load common

demo=$BATS_TEST_DIRNAME/../../scripts/demo

@test "demo shows a simulated weld from start to summary and leaves nothing behind" {
    mkdir temporary
    TMPDIR=$directory/temporary run "$demo" --duration 1.5 --period-us 20000
    [ "$status" -eq 0 ]
    [[ $output == *"weld 1 started at "*"weld 1 ended"*"energy"*"published "*", lost 0"*"p50"* ]]
    [ -z "$(ls temporary)" ]
}

@test "demo replays a recording" {
    printf 'amps,volts\n100,20\n100,20\n0,0\n' >weld.csv
    run "$demo" weld.csv --amps amps --volts volts --period-us 1000
    [ "$status" -eq 0 ]
    [[ $output == *"published 4, received 4, lost 0"* ]]
}

@test "demo passes the errors of weld on" {
    run "$demo" missing.csv --amps amps --volts volts --period-us 1000
    [ "$status" -eq 4 ]
    [[ $output == *"cannot open"*"missing.csv: No such file or directory"* ]]
    run "$demo" --nonsense
    [ "$status" -eq 2 ]
}

@test "demo ends its weld and all processes when it is interrupted" {
    mkdir temporary
    # As from a terminal, the signal goes to all processes of the group.
    TMPDIR=$directory/temporary start demo setsid "$demo" --duration 600
    demo_process=$started
    await demo.out "weld 1 started"
    kill -INT -- "-$demo_process"
    finish "$demo_process"
    [ "$status" -eq 130 ]
    grep -q "^weld 1 ended" demo.out
    grep -q "lost 0$" demo.out
    [ -z "$(ls temporary)" ]
    run pgrep -g "$demo_process"
    [ -z "$output" ]
}

@test "demo exits quickly on SIGTERM during a weld" {
    mkdir temporary
    TMPDIR=$directory/temporary start demo "$demo" --duration 600
    demo_process=$started
    await demo.out "weld 1 started"
    kill -TERM "$demo_process"
    finish "$demo_process"
    [ "$status" -eq 143 ]
    grep -q "^weld 1 ended" demo.out
    [ -z "$(ls temporary)" ]
}
