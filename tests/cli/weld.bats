#!/usr/bin/env bats
# Simulating a power source.

load common

# Two welds in two groups, five samples of 10 ms each, idle around them.
write_recording() {
    cat >weld.csv <<'CSV'
part,t_ms,current_dA,volts
A,0,0,70
A,10,1800,20.5
A,20,1820,20
A,30,1790,21.25
A,40,1810,19
A,50,1800,20.5
A,60,3,0
A,70,0,0
B,0,2000,22
B,10,2010,22
B,20,0,0
CSV
    mapping=(--csv weld.csv --amps 'current_dA*0.1' --volts volts --time 't_ms*0.001' --group part --hold 0.02)
}

start_weld_listener() { # <count>
    start_listener WeldTriggerStart WeldTraceData WeldTriggerEnd --count "$1"
}

trace() { # <jq expression on a payload>
    jq -c "select(.channel == \"WeldTraceData\") | .payload | $1" listener.out
}

@test "weld publishes the start, every sample and the end of each weld" {
    start_server
    start_weld_listener 11
    write_recording
    run "$TELVANE" weld "$bus" "${mapping[@]}"
    [ "$status" -eq 0 ]
    [ "$output" = "telvane weld: published 2 welds with 7 samples" ]
    finish "$listener"
    [ "$(jq -r '.channel | sub("Weld";"")' listener.out | tr '\n' ' ')" = "TriggerStart TraceData TraceData \
TraceData TraceData TraceData TriggerEnd TriggerStart TraceData TraceData TriggerEnd " ]
    [ "$(jq .payload.messageSerial listener.out | tr '\n' ' ')" = "1 2 3 4 5 6 7 8 9 10 11 " ]
}

@test "weld publishes samples equal to their rows" {
    start_server
    start_weld_listener 11
    write_recording
    "$TELVANE" weld "$bus" "${mapping[@]}" --speed 0
    finish "$listener"
    awk -F, 'NR > 1 && $3 > 100 { printf "[%.12g,%.12g]\n", $3 * 0.1, $4 }' weld.csv >expected
    trace '[.data.amps, .data.volts]' >received
    diff expected received
    [ "$(trace .sequence | tr '\n' ' ')" = "0 1 2 3 4 0 1 " ]
    [ "$(trace '.data.power * 100 | round | . / 100' | head -1)" = 3690 ]
}

@test "weld tells units, set points and consumables at the start" {
    start_server
    start_weld_listener 11
    write_recording
    "$TELVANE" weld "$bus" "${mapping[@]}" --speed 0 --set-volts 20.5 --set-wfs 210 --tag 41 --program 3 \
        --feeder-side left --wire-size '0.0472 (1.2mm)' --gas-type CO2 --alloy 8
    finish "$listener"
    jq -c 'select(.channel == "WeldTriggerStart") | .payload' listener.out >starts
    [ "$(head -1 starts | jq -c '[.tag, .samplePeriodus, .program, .process, .wireType, .wireSize, .alloy, .gas, .FeederSide]')" = \
        '[41,10000,3,4,0,18,8,0,"left"]' ]
    [ "$(head -1 starts | jq -c '[.settings[] | [.Value, .Unit]]')" = '[[20.5,"V"],[0,"A"],[210,"in/min"],[0,""]]' ]
    [ "$(head -1 starts | jq -c .data)" = '{"amps":"A","volts":"V","wfs":"","gas":"","power":"W","motor":""}' ]
    [ "$(jq .tag starts | tr '\n' ' ')" = "41 42 " ]
}

@test "weld computes the metrics from the samples" {
    start_server
    start_weld_listener 11
    write_recording
    "$TELVANE" weld "$bus" "${mapping[@]}" --speed 0 --wfs 240 --lifetime-hours 100
    finish "$listener"
    jq -c 'select(.channel == "WeldTriggerEnd") | .payload' listener.out | head -1 >end
    [ "$(jq -c '.metrics.ArcDuration' end)" = '{"Unit":"s","Value":0.05}' ]
    [ "$(jq -c '.metrics.AverageVoltage' end)" = '{"Unit":"V","Value":20.25}' ]
    [ "$(jq -c '.metrics.AverageAmperage' end)" = '{"Unit":"A","Value":180}' ]
    [ "$(jq -c '.metrics.AverageWFS' end)" = '{"Unit":"in/min","Value":240}' ]
    # 3690 + 3640 + 3803.75 + 3439 + 3690 watts for 10 ms each
    [ "$(jq -c '.metrics.TotalEnergy' end)" = '{"Unit":"J","Value":183}' ]
    # 0.2 in of steel wire of 0.045 in
    [ "$(jq -c '.metrics.TotalDeposition' end)" = '{"Unit":"lb","Value":9e-05}' ]
    [ "$(jq '.lifetimeArcHours > 100 and .lifetimeArcHours < 100.0001' end)" = true ]
}

@test "weld stamps records with the recorded time" {
    start_server
    start_weld_listener 4
    cat >weld.csv <<'CSV'
date,time,amps,volts
8/17/2022,07:50:26.295,100,20
8/17/2022,07:50:26.404,100,20
8/17/2022,07:50:26.514,0,0
CSV
    TZ=UTC "$TELVANE" weld "$bus" --csv weld.csv --amps amps --volts volts --time date+time --speed 0
    finish "$listener"
    [ "$(jq -r .payload.timestamp listener.out | tr '\n' ' ')" = \
        "/Date(1660722626295)/ /Date(1660722626295)/ /Date(1660722626404)/ /Date(1660722626514)/ " ]
}

@test "weld stamps records with the time of the replay where the recording has none" {
    start_server
    start_weld_listener 11
    write_recording
    before=$(date +%s%3N)
    "$TELVANE" weld "$bus" "${mapping[@]}" --speed 0
    finish "$listener"
    [ "$(jq -r '.payload.timestamp[6:-2] | tonumber' listener.out | sort -c && echo sorted)" = sorted ]
    [ "$(jq -r '.payload.timestamp[6:-2]' listener.out | head -1)" -ge "$before" ]
    [ "$(trace '.timestamp[6:-2] | tonumber' | jq -s '.[1] - .[0]')" -eq 10 ]
}

@test "weld reports invalid rows by file, line and column, and does not publish them" {
    start_server
    start_weld_listener 4
    printf 'amps,volts\n100,20\n100,x\n100,20,7\n101,21\n0,0\n' >weld.csv
    run "$TELVANE" weld "$bus" --csv weld.csv --amps amps --volts volts --period-us 1000 --speed 0
    [ "$status" -eq 4 ]
    [ "${lines[0]}" = 'telvane weld: weld.csv:3:2: volts: "x" is not a number; skipped the row' ]
    [ "${lines[1]}" = 'telvane weld: weld.csv:4:3: the row has 3 fields, the header 2; skipped the row' ]
    [[ $output == *"2 invalid rows were skipped"* ]]
    finish "$listener"
    [ "$(trace .data.volts | tr '\n' ' ')" = "20 21 " ]
}

@test "weld reads a recording from standard input" {
    start_server
    start_weld_listener 3
    printf 'amps;volts\n100;20\n' |
        "$TELVANE" weld "$bus" --csv - --delimiter ';' --amps amps --volts volts --period-us 1000 --speed 0
    finish "$listener"
    [ "$status" -eq 0 ]
}

@test "weld ends a weld that the recording cuts off" {
    start_server
    start_weld_listener 4
    printf 'amps,volts\n100,20\n100,20\n' >weld.csv
    "$TELVANE" weld "$bus" --csv weld.csv --amps amps --volts volts --period-us 1000 --speed 0
    finish "$listener"
    [ "$(jq 'select(.channel == "WeldTriggerEnd") | .payload.metrics.ArcDuration.Value' listener.out)" = 0.002 ]
}

@test "weld ends the weld when it is interrupted" {
    start_server
    start_weld_listener 100000
    start weld "$TELVANE" weld "$bus" --duration 600
    weld=$started
    await listener.out '"amps":[1-9]'
    kill -INT "$weld"
    finish "$weld"
    [ "$status" -eq 130 ]
    await listener.out WeldTriggerEnd
}

@test "weld says when there is no weld in the recording" {
    start_server
    printf 'amps,volts\n1,20\n' >weld.csv
    run "$TELVANE" weld "$bus" --csv weld.csv --amps amps --volts volts --period-us 1000
    [ "$status" -eq 4 ]
    [[ $output == *"no weld found: the current never exceeded --threshold"* ]]
}

@test "weld says which option a recording needs" {
    printf 'amps,volts\n' >weld.csv
    run "$TELVANE" weld "$bus" --csv weld.csv --amps amps
    [ "$status" -eq 2 ]
    [[ $output == *"--amps COLUMN and --volts COLUMN are required"* ]]
    run "$TELVANE" weld "$bus" --csv weld.csv --amps amps --volts volts
    [ "$status" -eq 2 ]
    [[ $output == *"--time COLUMN or --period-us N"* ]]
    run "$TELVANE" weld "$bus" --csv weld.csv --amps current --volts volts --period-us 5
    [ "$status" -eq 4 ]
    [ "$output" = 'telvane weld: weld.csv: --amps: there is no column "current"; the columns are amps, volts' ]
}

@test "weld refuses a consumable that it does not know" {
    run "$TELVANE" weld "$bus" --alloy unobtainium
    [ "$status" -eq 2 ]
    [[ $output == *'"unobtainium" is not a name or code'* ]]
}

@test "weld simulates the same weld for the same seed" {
    start_server
    for run in 1 2; do
        start_weld_listener 76
        "$TELVANE" weld "$bus" --seed 5 --duration 1.5 --period-us 20000 --speed 0
        finish "$listener"
        trace .data >"data$run"
    done
    [ "$(wc -l <data1)" -eq 74 ]
    diff data1 data2
}

@test "monitor shows the welds and sums up with the ledger" {
    start_server
    start monitor "$TELVANE" monitor "$bus" --ledger ledger
    monitor=$started
    write_recording
    "$TELVANE" weld "$bus" "${mapping[@]}" --ledger ledger
    finish "$monitor"
    [ "$status" -eq 0 ]
    grep -q "^weld 1 started at " monitor.out
    grep -q "^  arc duration       0.05 s$" monitor.out
    grep -q "^weld 2 ended$" monitor.out
    grep -q "^published 11, received 11, lost 0$" monitor.out
    grep -Eq "^from publish to callback: p50 [0-9.]+ (us|ms|s), p99 " monitor.out
}

@test "monitor without a ledger sums up when it is interrupted" {
    start_server
    start monitor "$TELVANE" monitor "$bus" --verbose
    monitor=$started
    await monitor.err ": listening$"
    write_recording
    "$TELVANE" weld "$bus" "${mapping[@]}" --speed 0
    await monitor.out "^weld 2 ended"
    kill -INT "$monitor"
    finish "$monitor"
    [ "$status" -eq 0 ]
    grep -q "^received 11, lost 0 by the samples' numbers$" monitor.out
}

@test "weld converts a CSV file to a recording without a bus" {
    printf 'part,t,amps,volts\n"a ""1""",0,0,0\n"a ""1""",0.1,150,17\n"a ""1""",0.2,151,18\n"a ""1""",0.3,0,0\nb,0,0,0\nb,0.1,152,17\nb,0.2,0,0\n' >robot.csv
    convert=("$TELVANE" weld --csv robot.csv --amps amps --volts volts --time t --group part)
    run "${convert[@]}" -o robot.jsonl
    [ "$status" -eq 0 ]
    [ "$output" = "telvane weld: wrote 2 welds with 3 samples" ]
    [ "$(tail -n +2 robot.jsonl | jq -r .channel | xargs)" = "WeldTriggerStart WeldTraceData WeldTraceData WeldTriggerEnd WeldTriggerStart WeldTraceData WeldTriggerEnd" ]
    [ "$(tail -n +2 robot.jsonl | jq -s -c 'map(select(.group)) | map([.channel, .group, .payload.tag])')" = \
        '[["WeldTriggerStart","a \"1\"",1],["WeldTriggerStart","b",2]]' ]
    [ "$("$TELVANE" info robot.jsonl --json | jq -c '[.records, .missed, (.welds | map([.tag, .samples, .missing, .ended, .group]))]')" = '[7,0,[[1,2,0,true,"a \"1\""],[2,1,0,true,"b"]]]' ]
    run "${convert[@]}" -o robot.jsonl
    [ "$status" -eq 5 ]
    [ "$output" = "telvane weld: robot.jsonl exists; use --force to replace it" ]
    "${convert[@]}" -o robot.jsonl.gz
    [ "$("$TELVANE" info robot.jsonl.gz --json | jq .records)" = 7 ]
    # The sequence numbers are those that a server would give.
    "$TELVANE" weld -o long.jsonl --duration 1.5 --period-us 20
    [ "$(wc -l <long.jsonl)" -gt 65538 ]
    [ "$(grep -c '^{"ns":[0-9]*,"channel":"[A-Za-z]*","sequence":65535,' long.jsonl)" -eq 1 ]
    [ "$(grep -c '^{"ns":[0-9]*,"channel":"[A-Za-z]*","sequence":65536,' long.jsonl)" -eq 0 ]
    for arguments in "weld" "weld $bus -o x" "weld --force"; do
        # shellcheck disable=SC2086
        run "$TELVANE" $arguments
        [ "$status" -eq 2 ]
    done
}

@test "weld counts one weld in the singular" {
    start_server
    run "$TELVANE" weld "$bus" --duration 1.5 --period-us 500000
    [[ $output == *"published 1 weld with "* ]]
}

@test "weld and monitor refuse a ledger that is another file" {
    start_server
    echo precious >notes
    for command in weld monitor; do
        run "$TELVANE" "$command" "$bus" --ledger notes
        [ "$status" -eq 5 ]
        [ "$output" = "telvane $command: cannot use notes as a ledger: the file exists and is not a ledger" ]
        [ "$(cat notes)" = precious ]
    done
}
