#!/usr/bin/env bats
# Names of consumables, computations on wires, and the names of codes in records.

load common

@test "consumables shows the five tables" {
    run "$TELVANE" consumables
    [ "$status" -eq 0 ]
    for table in process wire-type wire-size gas alloy; do
        [[ $output == *"$table: "* ]]
    done
    run "$TELVANE" consumables wire-size
    [ "${#lines[@]}" -eq 30 ]
    [ "${lines[5]}" = "  5  0.047 (3/64)" ]
    [ "${lines[29]}" = "255  unknown" ]
}

@test "consumables prints the name of a code, also of an unknown one" {
    [ "$("$TELVANE" consumables wire-type 10)" = LoadbancCC ]
    [ "$("$TELVANE" consumables alloy 0)" = UNKNOWN ]
    [ "$("$TELVANE" consumables alloy 255)" = unknown ]
    run "$TELVANE" consumables gas 21
    [ "$status" -eq 2 ]
    [[ $output == *'"21" is not a name or code of the shielding gases'* ]]
    run "$TELVANE" consumables flux
    [ "$status" -eq 2 ]
    [[ $output == *'unknown table "flux"'* ]]
}

@test "wire prints diameter, nearest size and weight, in both systems of units" {
    run "$TELVANE" wire --size 4 --alloy STL_E70
    [ "$status" -eq 0 ]
    [ "${lines[0]}" = "diameter      0.045 in  (1.143 mm)" ]
    [ "${lines[1]}" = "nearest size  4  0.045" ]
    [ "${lines[2]}" = "alloy         1  STL_E70" ]
    [ "${lines[3]}" = "weight        0.00540111 lb/ft  (8.038 g/m)" ]
    run "$TELVANE" wire --size 4 --alloy STL_E70 --json
    [ "$(jq '.diameterMillimetres == 1.143 and (.gramsPerMetre * 1000 | floor) == 8037' <<<"$output")" = true ]
    run "$TELVANE" wire --diameter 0.2
    [ "${lines[1]}" = "nearest size  255  unknown" ]
}

@test "wire requires exactly one valid wire" {
    run "$TELVANE" wire
    [ "$status" -eq 2 ]
    run "$TELVANE" wire --size 4 --diameter 0.045
    [ "$status" -eq 2 ]
    run "$TELVANE" wire --size 11
    [ "$status" -eq 2 ]
    [[ $output == *"code 11 has no wire size"* ]]
    run "$TELVANE" wire --size 4 --alloy tin
    [ "$status" -eq 2 ]
}

@test "listen --names adds the names of codes, also in nested records" {
    start_server
    start_listener WeldTriggerStart --names --count 1
    "$TELVANE" publish "$bus" WeldTriggerStart --as WeldTriggerStart --set wireType=3 --set gas=255
    finish "$listener"
    [ "$status" -eq 0 ]
    [ "$(jq -r '.payload | [.wireType, .wireTypeName, .gasName, .data.gas] | join(",")' listener.out)" = "3,Aluminum,unknown," ]
    [ "$(jq -r '.payload | keys_unsorted | index("wireTypeName") - index("wireType")' listener.out)" -eq 1 ]
}

@test "listen --names ignores fields that are not codes" {
    start_server
    start_listener WeldTraceData --names --count 1
    "$TELVANE" publish "$bus" WeldTraceData --as WeldTraceData
    finish "$listener"
    [ "$(jq -r '.payload.data | has("gasName")' listener.out)" = false ]
}
