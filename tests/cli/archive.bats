#!/usr/bin/env bats
# The archive's programs as their users start them.

bats_require_minimum_version 1.5.0
load common

# make_archive: three simulated welds from a recording, in welds.db
make_archive() {
    "$TELVANE" weld -o welds.jsonl --force --welds 3 --duration 1.5 --program 7 2>/dev/null
    "$TELVANE" archive import welds.jsonl --database welds.db --set part_number=A-17 --set operator=Kim 2>import
}

@test "a weld on the bus is in the archive" {
    start serve "$TELVANE" serve "$bus"
    start archive "$TELVANE" archive "$bus" --database welds.db --verbose --set operator=Kim
    archive=$started
    await archive.err following
    "$TELVANE" weld "$bus" --duration 1.5 2>/dev/null
    await archive.err complete
    [ "$("$TELVANE" welds welds.db --json | jq -c '[.ending, .missed, .operator, .source]')" = \
        '["complete",0,"Kim","bus"]' ]
    kill "$archive"
}

@test "a recording adds its welds once" {
    make_archive
    grep -q "imported 3 welds with .*, 0 already there" import
    "$TELVANE" archive import welds.jsonl --database welds.db 2>import
    grep -q "imported 0 welds with 0 samples, 3 already there" import
    [ "$("$TELVANE" welds welds.db --json | wc -l)" -eq 3 ]
}

@test "welds are listed, shown, compared, exported and summarised" {
    make_archive
    [ "$("$TELVANE" welds welds.db --where 'mean_amps > 100 and program = 7' --json | wc -l)" -eq 3 ]
    [ "$("$TELVANE" welds welds.db --where 'mean_amps > 1000' --json | wc -l)" -eq 0 ]
    [ "$("$TELVANE" welds welds.db --order energy --limit 1 --json | wc -l)" -eq 1 ]
    "$TELVANE" welds welds.db show 1 | grep -q "part_number *A-17"
    [ "$("$TELVANE" welds compare welds.db 1 2 --json | jq '.mean_amps | length')" -eq 2 ]
    "$TELVANE" welds export welds.db --samples samples >welds.csv
    [ "$(wc -l <welds.csv)" -eq 4 ]
    [ "$(wc -l <samples/weld-2.csv)" -eq "$(($("$TELVANE" welds show welds.db 2 --json | jq .samples) + 1))" ]
    [ "$("$TELVANE" welds export welds.db --format jsonl | jq -s length)" -eq 3 ]
    [ "$("$TELVANE" welds trend welds.db mean_volts --by-part --json | jq -c '[.group, .welds]')" = '["A-17",3]' ]
}

@test "no argument reaches SQL" {
    make_archive
    attack="x'; DROP TABLE weld; --"
    for option in --where --part --program --verdict --from --to --order; do
        "$TELVANE" welds list welds.db "$option" "$attack" >/dev/null 2>&1 || [ $? -eq 2 ]
    done
    run ! "$TELVANE" welds trend welds.db "$attack"
    run ! "$TELVANE" welds show welds.db "1; DROP TABLE weld"
    "$TELVANE" archive import welds.jsonl --database welds.db --module "$attack" --set "operator=$attack" \
        --set "part_number=$attack" 2>/dev/null
    [ "$("$TELVANE" welds list welds.db --part "$attack" --json | jq -r .operator | sort -u)" = "$attack" ]
    [ "$("$TELVANE" welds welds.db --json | wc -l)" -eq 6 ]
}

@test "samples that are too old are deleted, and their welds stay" {
    make_archive
    "$TELVANE" archive retain --database welds.db --max-samples 1 2>retained
    grep -q "samples of 3 welds" retained
    [ "$("$TELVANE" welds welds.db --json | wc -l)" -eq 3 ]
}

@test "the queries of the documentation work" {
    make_archive
    /usr/bin/python3 "$BATS_TEST_DIRNAME/run_queries.py" "$BATS_TEST_DIRNAME/../../docs/archive.md" >results
    [ "$(head -n 2 results | tr '\n' ' ')" = "3 rows 3 rows " ]
    grep -q "A-17" results
}

@test "good welds are judged by each other" {
    "$TELVANE" weld -o welds.jsonl --welds 6 --duration 3 2>/dev/null
    "$TELVANE" archive import welds.jsonl --database welds.db 2>/dev/null
    run -0 "$TELVANE" archive judge --database welds.db --limit mean_amps=100..300
    run -11 "$TELVANE" archive judge --database welds.db --limit mean_amps=10..20 --where "tag = 3"
    [ "$("$TELVANE" welds welds.db --verdict not_ok --json | jq .tag)" = 3 ]
    "$TELVANE" welds welds.db show 3 | grep -q "not_ok: mean_amps is .*, limits 10 to 20 (absolute)"
    "$TELVANE" archive judge --database welds.db --reference "samples > 0" --leave-one-out --dry-run >judged || [ $? -ge 10 ]
    [ "$(grep -c "^weld" judged)" -eq 6 ]
    run -4 "$TELVANE" archive judge --database welds.db --reference "tag = 1"
    run -2 "$TELVANE" archive judge --database welds.db --limit "mean_amps=1;DROP TABLE weld..2"
}

@test "mistakes are reported" {
    run -4 "$TELVANE" welds missing.db
    run -2 "$TELVANE" archive "$bus" --database postgresql://nobody@/x
    run -2 "$TELVANE" archive import --database welds.db
    echo "no database" >text.db
    run -4 "$TELVANE" welds text.db
}
