#!/usr/bin/env bats
# The catalogue.

load common

# The number of record classes, from a table that is written by hand.
classes=$(jq length "$BATS_TEST_DIRNAME/../golden/catalogue.json")

@test "records lists every class with its fields" {
    run "$TELVANE" records
    [ "$status" -eq 0 ]
    [ "${#lines[@]}" -eq "$classes" ]
    [[ $output == *"UnitValuePair "*" Unit, Value"* ]]
}

@test "records shows a class: fields in order, kinds, defaults, limits, a default record" {
    run "$TELVANE" records PSCommand
    [ "$status" -eq 0 ]
    [[ $output == "PSCommand (derives from PSCommandBase)"* ]]
    [[ $output == *'mLabel            string                    "PSCommand"'*'mModes            up to 100 ValueLabelType  []'* ]]
    [ "$(sed '1,/A default record:/d' <<<"$output" | jq -r .mCommandType)" -eq 3 ]
}

@test "records shows the initial size of lists, and classes that are strings in JSON" {
    run "$TELVANE" records PSMemorySlot
    [[ $output == *'mPrograms      up to 100 ProgramType  8 times {"PROC":0,"WT":0,"WS":0,"GT":0}'* ]]
    run "$TELVANE" records DateTime
    [ "${lines[1]}" = "  A string in JSON: milliseconds since the Unix epoch." ]
    [ "${lines[3]}" = '"/Date(0)/"' ]
}

@test "records prints a schema of one class, and of all" {
    run "$TELVANE" records WeldTriggerEnd --schema
    [ "$status" -eq 0 ]
    [ "$(jq -r '."$schema"' <<<"$output")" = "https://json-schema.org/draft/2020-12/schema" ]
    [ "$(jq -r '.required | join(" ")' <<<"$output")" = "timestamp tag lifetimeArcHours metrics messageSerial" ]
    run "$TELVANE" records --schema
    [ "$(jq '."$defs" | length' <<<"$output")" -eq "$classes" ]
}

@test "records refuses an unknown class" {
    run "$TELVANE" records Nothing
    [ "$status" -eq 2 ]
    [ "$output" = 'telvane records: CLASS: unknown record class "Nothing"; telvane records lists all classes (see telvane records --help)' ]
}
