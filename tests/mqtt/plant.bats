#!/usr/bin/env bats
# The plant on one machine, with the programs as they are built.

load ../cli/common

@test "the plant shows what arrives, checks it and leaves nothing behind" {
    mkdir temporary
    TMPDIR=$directory/temporary run "$BATS_TEST_DIRNAME/../../scripts/plant" 1
    [ "$status" -eq 0 ]
    [[ $output == *"telvane/m1/N/WeldTriggerEnd {"*"2 kinds of events of 1 modules, 1 of each"* ]]
    [ -z "$(ls temporary)" ]
}
