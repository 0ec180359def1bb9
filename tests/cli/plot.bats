#!/usr/bin/env bats
# Pictures of recorded welds.

load common

# record_weld <option of telvane weld...>: what the simulated source welds, as weld.jsonl.
record_weld() {
    start_server
    start recorder "$TELVANE" record "$bus" -o weld.jsonl --verbose WeldTriggerStart WeldTraceData WeldTriggerEnd
    recorder=$started
    await recorder.err ": recording$"
    "$TELVANE" weld "$bus" --speed 0 "$@"
    await weld.jsonl '"channel":"WeldTriggerEnd"'
    kill "$recorder"
    finish "$recorder"
}

@test "plot draws a weld as SVG and as PNG" {
    record_weld --duration 1.5 --period-us 5000
    run "$TELVANE" plot weld.jsonl -o weld.svg
    [ "$status" -eq 0 ]
    [ -z "$output" ]
    python3 -c 'import xml.dom.minidom; xml.dom.minidom.parse("weld.svg")'
    for text in "current in A" "voltage in V" "wire feed in in/min" "gas in l/min" energy seconds; do
        grep -q "$text" weld.svg
    done
    run "$TELVANE" plot weld.jsonl -o weld.png --weld 1
    [ "$status" -eq 0 ]
    [ "$(head -c 4 weld.png | tail -c 3)" = PNG ]
    [ "$(ls)" = "$(printf '%s\n' bus recorder.err recorder.out server.err server.out weld.jsonl weld.png weld.svg)" ]
}

@test "plot says which package it lacks when there is no gnuplot" {
    record_weld --duration 1.5 --period-us 5000
    PATH=$directory run "$TELVANE" plot weld.jsonl -o weld.svg
    [ "$status" -eq 5 ]
    [ "$output" = "telvane plot: cannot find gnuplot, which draws the picture; on Debian, install gnuplot-nox" ]
    [ ! -e weld.svg ]
}

@test "plot leaves nothing behind when the picture cannot be written" {
    record_weld --duration 1.5 --period-us 5000
    run "$TELVANE" plot weld.jsonl -o missing/weld.svg
    [ "$status" -eq 5 ]
    [ "$output" = "telvane plot: cannot write missing/weld.svg: No such file or directory" ]
    mkdir weld.svg
    run "$TELVANE" plot weld.jsonl -o weld.svg
    [ "$status" -eq 5 ]
    [[ $output == "telvane plot: cannot write weld.svg: "* ]]
    [ "$(ls -- *.svg*)" = "" ]
}

@test "plot reports a full disk" {
    record_weld --duration 1.5 --period-us 5000
    ln -s /dev/full full.svg
    run "$TELVANE" plot weld.jsonl -o full.svg
    [ "$status" -eq 5 ]
    [ "$output" = "telvane plot: cannot write full.svg: No space left on device" ]
}

@test "plot does not write over its input" {
    record_weld --duration 1.5 --period-us 5000
    mv weld.jsonl in.svg
    cp in.svg before
    run "$TELVANE" plot in.svg -o ./in.svg
    [ "$status" -eq 2 ]
    [ "$output" = "telvane plot: FILE and --output are the same file" ]
    cmp in.svg before
}

@test "plot says when there is nothing to draw" {
    echo '{"telvaneRecording":1,"started":"2024-01-02T03:04:05Z"}' >none.jsonl
    run "$TELVANE" plot none.jsonl -o weld.svg
    [ "$status" -eq 4 ]
    [ "$output" = "telvane plot: the recording has no weld: no record on WeldTriggerStart" ]
    run "$TELVANE" plot missing.jsonl -o weld.svg
    [ "$status" -eq 4 ]
    record_weld --duration 1.5 --period-us 5000
    run "$TELVANE" plot weld.jsonl -o weld.svg --weld 9
    [ "$status" -eq 4 ]
    [ "$output" = "telvane plot: the recording has no weld 9" ]
}

@test "plot draws what is left of a torn recording" {
    record_weld --duration 1.5 --period-us 5000
    truncate -s -700 weld.jsonl
    run "$TELVANE" plot weld.jsonl -o weld.svg
    [ "$status" -eq 0 ]
    [[ $output == *"the last line is incomplete"* ]]
    grep -q "no end of this weld" weld.svg
}

@test "plot draws a weld that began before the recording, info lists it, and both report that its start is missing" {
    "$TELVANE" weld -o weld.jsonl --duration 1.5 --period-us 5000
    sed -i '/"channel":"WeldTriggerStart"/d; /"sequence":[0-9]*,"timestamp"/{/"payload":{"sequence":[0-9]\{1,2\},/d}' weld.jsonl
    run "$TELVANE" plot weld.jsonl -o weld.svg
    [ "$status" -eq 0 ]
    [ "$output" = "telvane plot: the recording has no start of weld 1, which is drawn from its sample 100 on" ]
    for text in "Weld 1  start missing, drawn from " "current, unit unknown" energy; do
        grep -q "$text" weld.svg
    done
    "$TELVANE" plot weld.jsonl -o chosen.svg --weld 1
    "$TELVANE" info weld.jsonl | grep -qE '^ +1  before [0-9]{4}-.* 0  '
    [ "$("$TELVANE" info weld.jsonl --json | jq -c '.welds | map([.tag, .start, .missing, .ended])')" = '[[1,null,0,true]]' ]
    sed -i '/"channel":"WeldTriggerEnd"/d' weld.jsonl
    run "$TELVANE" plot weld.jsonl -o weld.svg
    [ "$status" -eq 0 ]
    [ "$output" = "telvane plot: the recording has no start of a weld, which is drawn from its sample 100 on" ]
    [ "$("$TELVANE" info weld.jsonl --json | jq -c '.welds | map([.tag, .start, .missing, .ended])')" = '[[null,null,0,false]]' ]
}

@test "plot draws a recording with damaged lines, and reports them" {
    "$TELVANE" weld -o weld.jsonl --duration 1.5 --period-us 5000
    sed -i '10s/.*/{"ns":/' weld.jsonl
    run "$TELVANE" plot weld.jsonl -o weld.svg
    [ "$status" -eq 4 ]
    grep -q "current in A" weld.svg
}

@test "plot draws a recording with undecodable records, and reports them" {
    "$TELVANE" weld -o weld.jsonl --duration 1.5 --period-us 5000
    sed -i '10s/"payload":.*/"payload":{"sequence":"one"}}/' weld.jsonl
    run "$TELVANE" plot weld.jsonl -o weld.svg
    [ "$status" -eq 4 ]
    [[ $output == *"undecodable records of welds: 1"* ]]
    grep -q "current in A" weld.svg
}

@test "plot does not take an empty picture for one" {
    "$TELVANE" weld -o weld.jsonl --duration 1.5 --period-us 5000
    mkdir programs
    printf '#!/bin/sh\nexec cat >/dev/null\n' >programs/gnuplot
    chmod +x programs/gnuplot
    PATH=$directory/programs:$PATH run "$TELVANE" plot weld.jsonl -o weld.svg
    [ "$status" -eq 5 ]
    [ "$output" = "telvane plot: gnuplot could not draw the picture" ]
    [ ! -e weld.svg ]
}

# titles <picture>: the tags of the welds in it and how many samples are drawn of each.
titles() {
    sed -n 's/.*Weld \([0-9]*\)  .* \([0-9]*\) samples.*/\1:\2/p' "$1" | xargs
}

@test "plot draws only the welds between --from and --to" {
    "$TELVANE" weld -o weld.jsonl --welds 3 --duration 1.5 --period-us 5000
    mapfile -t begins < <("$TELVANE" info weld.jsonl --json | jq -r '.welds[].start')
    run "$TELVANE" plot weld.jsonl -o weld.svg --from "${begins[1]}" --to "${begins[2]}"
    [ "$status" -eq 0 ]
    [ -z "$output" ]
    [ "$(titles weld.svg)" = 2:300 ]
    run "$TELVANE" plot weld.jsonl -o cut.svg --to 0.5
    [ "$status" -eq 0 ]
    [ "$(titles cut.svg)" = 1:100 ]
    grep -q "no end of this weld" cut.svg
    run "$TELVANE" plot weld.jsonl -o none.svg --from 1h
    [ "$status" -eq 4 ]
    [ "$output" = "telvane plot: the recording has no weld: no record on WeldTriggerStart" ]
    [ ! -e none.svg ]
}

@test "plot draws the welds of several recordings, compressed ones as well" {
    "$TELVANE" weld -o first.jsonl --welds 2 --duration 1.5 --period-us 5000
    "$TELVANE" weld -o second.jsonl.gz --duration 1.5 --period-us 5000 --tag 7
    [ "$(od -An -tx1 -N2 second.jsonl.gz)" = " 1f 8b" ]
    run "$TELVANE" plot second.jsonl.gz -o second.svg
    [ "$status" -eq 0 ]
    [ -z "$output" ]
    [ "$(titles second.svg)" = 7:300 ]
    run "$TELVANE" plot first.jsonl second.jsonl.gz -o both.svg
    [ "$status" -eq 0 ]
    [ -z "$output" ]
    [ "$(titles both.svg)" = "1:300 2:300 7:300" ]
    run "$TELVANE" plot second.jsonl.gz missing.jsonl -o rest.svg
    [ "$status" -eq 4 ]
    [ "$output" = "telvane plot: cannot read missing.jsonl: No such file or directory" ]
    [ "$(titles rest.svg)" = 7:300 ]
}

@test "plot draws 40 welds in one picture, and refuses 41" {
    "$TELVANE" weld -o many.jsonl --welds 40 --duration 1.5 --period-us 50000
    run "$TELVANE" plot many.jsonl -o many.svg
    [ "$status" -eq 0 ]
    [ -s many.svg ]
    "$TELVANE" weld -o more.jsonl --welds 41 --duration 1.5 --period-us 50000
    run "$TELVANE" plot more.jsonl -o more.svg
    [ "$status" -eq 4 ]
    [[ $output == *"41 welds, a picture can show 40; select some with --weld" ]]
    [ ! -e more.svg ]
}

@test "plot refuses pictures that it cannot make" {
    for arguments in "plot x -o x.jpeg" "plot x" "plot -o x.svg"; do
        # shellcheck disable=SC2086
        run "$TELVANE" $arguments
        [ "$status" -eq 2 ]
    done
}

@test "plot ends gnuplot when it is interrupted" {
    record_weld --duration 1.5 --period-us 5000
    mkdir programs
    # shellcheck disable=SC2016
    printf '#!/bin/sh\necho $$ >%s/pid\nexec sleep 600\n' "$directory" >programs/gnuplot
    chmod +x programs/gnuplot
    PATH=$directory/programs:$PATH start plot "$TELVANE" plot weld.jsonl -o weld.svg
    plot=$started
    await pid '[0-9]'
    kill -TERM "$plot"
    finish "$plot"
    [ "$status" -eq 143 ]
    run kill -0 "$(cat pid)"
    [ "$status" -ne 0 ]
    [ ! -e weld.svg ]
}
