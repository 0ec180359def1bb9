#!/usr/bin/env bats
# Error messages state what is wrong and what was expected, and what cannot be meant is refused.

load common

# refuses <message> <argument...>: the tool refuses its arguments with this message.
refuses() {
    local message=$1
    shift
    run "$TELVANE" "$@"
    echo "$output"
    [ "$status" -eq 2 ]
    [[ $output == "$message"* ]]
}

@test "an unknown option is called so, also without a command" {
    refuses 'telvane: unknown option "--bogus"; see telvane --help' --bogus
    refuses 'telvane: a command is required; see telvane --help'
}

@test "numbers that are refused come with what was expected" {
    refuses 'telvane listen: --timeout: expected a number greater than 0, got "-5"' listen "$bus" A --timeout -5
    refuses 'telvane listen: --count: expected a number greater than 0, got "0"' listen "$bus" A --count 0
    refuses 'telvane listen: --count: expected an integer, got "-1"' listen "$bus" A --count -1
    refuses 'telvane weld: --welds: expected an integer, got "1.5"' weld "$bus" --welds 1.5
    refuses 'telvane weld: --welds: expected at most 4294967295, got "99999999999"' weld "$bus" --welds 99999999999
    refuses 'telvane serve: --max-clients: expected an integer, got "abc"' serve "$bus" --max-clients abc
    refuses 'telvane weld: --duration: expected a number from 1.5 to 100000, got "0"' weld "$bus" --duration 0
    refuses 'telvane replay: --speed: expected a number, got "fast"' replay "$bus" file --speed fast
    "$TELVANE" weld --help | grep -q "at least 1.5"
}

@test "durations and sizes of 0 are refused" {
    refuses 'telvane record: --duration: expected a duration greater than 0' record "$bus" A -o out --duration 0
    refuses 'telvane record: --split-size: expected a size greater than 0' record "$bus" A -o out --split-size 0
    refuses 'telvane record: --split-after: expected a duration greater than 0' record "$bus" A -o out --split-after 0s
    refuses 'telvane bench: --duration: expected a duration greater than 0' bench "$bus" --duration 0
}

@test "options without effect are refused" {
    refuses 'telvane weld: --amps requires --csv' weld "$bus" --amps current
    refuses 'telvane weld: --decimal requires --csv' weld "$bus" --decimal ,
    refuses 'telvane listen: --format excludes --delta' listen "$bus" A --delta -F %c
}

@test "conditions with an unknown operator are refused" {
    refuses 'telvane listen: --where: unknown operator "=>"' listen "$bus" WeldTraceData --where 'data.amps=>3'
    refuses 'telvane listen: --where: unknown operator "=="' listen "$bus" WeldTraceData --where 'data.amps==3'
}

@test "fields that the class does not have are refused" {
    local message='telvane listen: WeldTraceData has no field "data.amp"; see telvane records WeldTraceData'
    refuses "$message" listen "$bus" WeldTraceData -F '%{data.amp}'
    refuses "$message" listen "$bus" WeldTraceData --where 'data.amp>3'
    refuses "$message" listen "$bus" WeldTraceData --csv sequence,data.amp
    refuses "$message" listen "$bus" Samples --as WeldTraceData --csv data.amp
    refuses 'telvane show: WeldTraceData has no field "amps"' show none.jsonl --only WeldTraceData --csv amps
    refuses 'telvane listen: PSCommand has no field "mModes[first].Label"' listen "$bus" PSCommand --csv 'mModes[first].Label'
    # Fields of any class of several channels, any case, arrays, and channels of unknown classes.
    start_server
    for arguments in "WeldTraceData LogData --csv data.amps,log" "WeldTraceData --csv DATA.AMPS" "Other --csv any" \
        "PSCommand --csv mModes[0].Label,_id"; do
        # shellcheck disable=SC2086
        run "$TELVANE" listen "$bus" $arguments --timeout 0.01
        [ "$status" -eq 0 ]
    done
}

@test "a path that is not a socket is called so" {
    echo text >file
    run "$TELVANE" listen "$directory/file" A
    [ "$status" -eq 3 ]
    [ "$output" = "telvane listen: cannot connect to $directory/file: not a socket" ]
}

@test "weld names the forms of times if the first row has none, and reads decimal commas" {
    printf 't;a\n8/17/2022;1,5\n' >bad.csv
    run "$TELVANE" weld -o out.jsonl --csv bad.csv --amps a --volts a --time t --delimiter ';' --decimal ,
    [[ $output == *'"8/17/2022" is not a time: seconds, a time of day, or a date and a time'* ]]
    { echo 't;a;v'; for ((i = 0; i < 100; i++)); do echo "0,$((1000 + i));200,5;24,5"; done; echo '0,2;0,0;0,0'; echo '9,0;0,0;0,0'; } >good.csv
    "$TELVANE" weld -o good.jsonl --csv good.csv --amps a --volts v --time t --delimiter ';' --decimal ,
    [ "$("$TELVANE" show good.jsonl --only WeldTraceData --csv data.amps,data.volts | sed -n 2p | cut -d, -f4-)" = "200.5,24.5" ]
}
