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

# refuses_or_finds_nothing COMMAND...: fails if the command crashes, or prints a weld
refuses_or_finds_nothing() {
    local found status=0
    found=$("$@" 2>/dev/null) || status=$?
    [ "$status" -lt 12 ] || return 1
    ! grep -q '"uid"' <<<"$found"
}

@test "no argument reaches SQL" {
    make_archive
    local attack="x'; DROP TABLE weld; --" option
    for option in --where --part --program --verdict --from --to --order; do
        refuses_or_finds_nothing "$TELVANE" welds list welds.db "$option" "$attack" --json
    done
    for option in --where --program; do
        refuses_or_finds_nothing "$TELVANE" welds list welds.db "$option" "1 OR 1=1" --json
    done
    refuses_or_finds_nothing "$TELVANE" welds export welds.db --format jsonl --part "$attack"
    refuses_or_finds_nothing "$TELVANE" welds trend welds.db mean_volts --verdict "x' OR '1'='1" --json
    refuses_or_finds_nothing "$TELVANE" welds trend welds.db "$attack"
    refuses_or_finds_nothing "$TELVANE" welds show welds.db "$attack" --json
    refuses_or_finds_nothing "$TELVANE" welds compare welds.db "$attack" 1
    refuses_or_finds_nothing "$TELVANE" welds plot welds.db "$attack" -o x.svg
    refuses_or_finds_nothing "$TELVANE" welds plot welds.db 1 --over --like "$attack" -o x.svg
    for option in --where --reference --limit --rules; do
        run "$TELVANE" archive judge --database welds.db "$option" "$attack" --dry-run
        [[ $status -eq 2 || $status -eq 4 ]]
    done
    printf '[%s]\nlimit mean_amps=1..2\n' "$attack" >rules
    run -4 "$TELVANE" archive judge --database welds.db --rules rules
    for option in --keep-samples --max-samples --keep-rows; do
        run -2 "$TELVANE" archive retain --database welds.db "$option" "$attack"
    done
    [ "$("$TELVANE" welds welds.db --json | wc -l)" -eq 3 ]
    "$TELVANE" archive import welds.jsonl --database welds.db --module "$attack" --set "operator=$attack" \
        --set "part_number=$attack" 2>/dev/null
    [ "$("$TELVANE" welds list welds.db --part "$attack" --json | jq -r .operator | sort -u)" = "$attack" ]
    [ "$("$TELVANE" welds welds.db --json | wc -l)" -eq 6 ]
}

@test "a weld is judged when it ends, and its verdict is published" {
    start_server
    start_listener WeldVerdicts
    printf '[part_number is empty]\nlimit mean_amps=1..2\n[*]\nlimit mean_amps=10..1000\n' >rules
    start archive "$TELVANE" archive "$bus" --database welds.db --verbose --rules rules --verdict-channel WeldVerdicts \
        --set-from part
    archive=$started
    await archive.err following
    echo "part_number=A-17" >part
    "$TELVANE" weld "$bus" --duration 1.5 2>/dev/null
    await archive.err "weld 1: complete.*, ok"
    await listener.out '"verdict": *"ok"'
    : >part
    "$TELVANE" weld "$bus" --duration 1.5 2>/dev/null
    await archive.err "weld 2: complete.*, not_ok"
    await listener.out '"verdict": *"not_ok"'
    grep -q '"metric": *"mean_amps"' listener.out
    kill "$archive"
    [ "$("$TELVANE" welds welds.db --json | jq -c .verdict | sort | tr '\n' ' ')" = '"not_ok" "ok" ' ]
    "$TELVANE" welds show welds.db 2 | grep -q "not_ok: mean_amps is .*, limits 1 to 2 (absolute)"
    run -11 "$TELVANE" archive judge --database welds.db --rules rules --dry-run
    [ "$(grep "^weld" <<<"$output" | tr '\n' ' ')" = "weld 1: ok weld 2: not_ok " ]
    echo "limit" >rules
    run -4 "$TELVANE" archive "$bus" --database welds.db --rules rules
    run -2 "$TELVANE" archive "$bus" --database welds.db --verdict-channel WeldVerdicts
}

# await_rows <pattern> <question>: waits until the archive gives this answer.
await_rows() {
    local answer=""
    local end=$((SECONDS + 60))
    until [[ $answer =~ ^$1 ]]; do
        [ "$SECONDS" -lt "$end" ]
        sleep 0.1
        answer=$(python3 -c 'import sqlite3, sys
print(sqlite3.connect("file:welds.db?mode=ro", uri=True, timeout=30).execute(sys.argv[1]).fetchone()[0])' "$2")
    done
}

@test "a verdict waits for the bus, also when the archive is killed" {
    start_server
    printf '[*]\nlimit mean_amps=1..2\n' >rules
    start archive "$TELVANE" archive "$bus" --database welds.db --verbose --silence 5s --rules rules \
        --verdict-channel WeldVerdicts
    await archive.err following
    archive=$started
    start weld "$TELVANE" weld "$bus" --duration 600
    await_rows '[1-9]' "SELECT count(*) FROM chunk"
    kill "$server"
    await archive.err "weld 1: bus, .*, not_ok"
    await archive.err "the verdict of weld 1 waits for the bus"
    kill -KILL "$archive"
    wait "$archive" || true

    # What is published before anybody listens is remembered.
    start_server --remember WeldVerdicts
    start again "$TELVANE" archive "$bus" --database welds.db --rules rules --verdict-channel WeldVerdicts
    "$TELVANE" listen "$bus" WeldVerdicts --last --count 1 --timeout 60 >verdict
    grep -q '"id": *1,' verdict
    grep -q '"verdict": *"not_ok"' verdict
    await_rows 0 "SELECT count(*) FROM unpublished"
}

@test "imported welds are judged" {
    "$TELVANE" weld -o welds.jsonl --welds 2 --duration 1.5 2>/dev/null
    printf '[*]\nlimit mean_amps=1..2\n' >rules
    "$TELVANE" archive import welds.jsonl --database welds.db --rules rules 2>/dev/null
    [ ! -e welds.db-wal ] # all is in one file
    [ "$("$TELVANE" welds welds.db --json | jq -r .verdict | tr '\n' ' ')" = "not_ok not_ok " ]
    run -4 "$TELVANE" archive import welds.jsonl --database welds.db --rules missing
    [[ $output == *"cannot read missing: No such file or directory" ]]
}

@test "welds are drawn over each other" {
    make_archive
    "$TELVANE" welds plot welds.db 1 2 3 --over -o over.svg
    grep -q "weld 3" over.svg
    "$TELVANE" welds compare welds.db 1 2 -o difference.svg --like "samples > 0" >/dev/null
    grep -q "weld 2" difference.svg
    run -2 "$TELVANE" welds compare welds.db 1 2 -o difference.txt
    run -2 "$TELVANE" welds plot welds.db 1 2 3 1 2 3 1 2 3 --over -o over.svg
}

@test "an archive in use is copied" {
    make_archive
    "$TELVANE" welds copy welds.db copy.db
    "$TELVANE" welds welds.db --json >before
    "$TELVANE" welds copy.db --json | diff before -
    "$TELVANE" welds export copy.db --samples samples >/dev/null
    "$TELVANE" welds export welds.db --samples originals >/dev/null
    diff -r samples originals
    run -5 "$TELVANE" welds copy welds.db copy.db
    "$TELVANE" welds copy welds.db rows.db --rows-only
    [ ! -e rows.db.samples ]
}

@test "what retention will delete is shown by month" {
    make_archive
    "$TELVANE" archive retain --database welds.db --keep-samples 30 --plan --json >plan
    [ "$(jq -c '[.welds, .notOk, .rowsGoneBy]' plan)" = '[3,0,""]' ]
    jq -re .samplesGoneBy plan | grep -qE '^20[0-9]{2}-[0-9]{2}-[0-9]{2}$'
    [ "$("$TELVANE" archive retain --database welds.db --max-samples 1 --plan --json | jq -r .samplesGoneBy)" = now ]
    "$TELVANE" archive retain --database welds.db --plan | grep -q "never"
    [ "$("$TELVANE" archive retain --database welds.db --max-samples 100M 2>&1 | grep -c 'samples of 0 welds')" -eq 1 ]
}

@test "a spreadsheet gets dates, decimals and texts" {
    "$TELVANE" weld -o welds.jsonl --force --duration 1.5 2>/dev/null
    "$TELVANE" archive import welds.jsonl --database welds.db --set 'part_number==1+1' --set 'operator=a;"b"' 2>/dev/null
    "$TELVANE" welds export welds.db --format spreadsheet >sheet.csv
    head -c 3 sheet.csv | cmp - <(printf '\xef\xbb\xbf')
    head -n 1 sheet.csv | grep -q ',mean_amps (A),.*,verdict$'
    [ "$(tail -n 1 sheet.csv | tail -c 2)" = , ] # no verdict, and nothing in its place
    tail -n 1 sheet.csv | grep -qE ",20[0-9]{2}-[0-9]{2}-[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2},"
    tail -n 1 sheet.csv | grep -qF ",\"'=1+1\","
    "$TELVANE" welds export welds.db --format spreadsheet --comma >comma.csv
    tail -n 1 comma.csv | grep -qE ';[0-9]+,[0-9]+;'
    tail -n 1 comma.csv | grep -qF ';"a;""b""";'
    "$TELVANE" welds export welds.db | tail -n 1 | grep -qF ",=1+1," # for programs, the text itself
    run -2 "$TELVANE" welds export welds.db --comma
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
