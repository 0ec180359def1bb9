#!/usr/bin/env bats
# Help, manual pages and completion.

load common

commands() {
    "$TELVANE" --help | sed -n '/^Commands:/,/^$/s/^  \([a-z]*\) .*/\1/p'
}

@test "the help of every command has examples and fits a terminal" {
    [ "$(commands | wc -l)" -ge 10 ]
    for command in "" $(commands); do
        # shellcheck disable=SC2086 # for the tool itself there is to be no word at all
        "$TELVANE" $command --help >help
        [ "$(LC_ALL=C.UTF-8 awk '!/^Examples:/ && length > 80 { print } /^Examples:/ { exit }' help)" = "" ]
        [ -z "$command" ] || grep -q "^Examples:" help
    done
}

@test "the examples of records, consumables and wire work" {
    for command in records consumables wire; do
        "$TELVANE" $command --help | sed -n "s/^  telvane /telvane /p" >examples
        [ -s examples ]
        while read -r example; do
            bash -c "set -eo pipefail; telvane() { \"\$TELVANE\" \"\$@\"; }; $example" >output
            [ -s output ]
        done <examples
    done
}

@test "tables are also available as JSON" {
    [ "$("$TELVANE" consumables --json | jq -c 'keys')" = '["alloy","gas","process","wire-size","wire-type"]' ]
    [ "$("$TELVANE" consumables gas 2 --json)" = '{"code":2,"name":"AR75_CO225"}' ]
    [ "$("$TELVANE" consumables gas --json | jq -r '.[2].name')" = AR75_CO225 ]
    [ "$("$TELVANE" wire --size 0.045 --json | jq -c '[.diameterInches, .nearestSizeName]')" = '[0.045,"0.045"]' ]
    [ "$("$TELVANE" records --json | jq length)" -eq "$("$TELVANE" records | wc -l)" ]
    [ "$("$TELVANE" records WeldTraceData --json | jq -c '.fields[2], .default.sequence')" = \
        $'{"key":"data","kind":"record","class":"WeldTraceDataPoint"}\n0' ]
}

@test "bash completes commands, options and values" {
    offered() { # <word...>, of which the last is unfinished
        bash --norc -c '
            source "$0"
            compopt() { [ "$*" = "-o filenames" ]; }
            COMP_WORDS=(telvane "$@") COMP_CWORD=$#
            _telvane "$TELVANE" "${!#}"
            printf "%s\n" "${COMPREPLY[@]}"' "$BATS_TEST_DIRNAME/../../tools/completion/telvane.bash" "$@"
    }
    [ "$(offered lis)" = listen ]
    [ "$(offered listen "$bus" HALI)" = HALInfo ]
    [ "$(offered listen "$bus" --pre)" = --pretty ]
    [ "$(offered consumables process "MIG Sh")" = 'MIG\ Short\ Arc' ]
    touch some-socket
    [ "$(offered listen some)" = some-socket ]
    [ "$(offered lissen "")" = "" ]
}

@test "zsh completes commands, options and values" {
    offered() {
        zsh -f -c '
            _files() { print files }
            _describe() { print -l "${(@P)4}" }
            script=$0 words=("$TELVANE" "$@") CURRENT=$(($# + 1))
            ask() { source $script }
            ask' "$BATS_TEST_DIRNAME/../../tools/completion/_telvane" "$@"
    }
    [ "$(offered lis)" = "listen:Print the records of channels as lines of JSON" ]
    [ "$(offered listen "$bus" HALI)" = "HALInfo:record class" ]
    [ "$(offered consumables process "MIG Sh")" = "MIG Short Arc:code 4" ]
    [ "$(offered listen some)" = files ]
}

@test "the channels of the given server are completed" {
    start_server
    start_listener ShopFloor
    [ "$("$TELVANE" complete -- listen "$bus" Sh)" = $'ShopFloor\tchannel' ]
    [ "$("$TELVANE" complete -- listen "$bus" Telvane | grep -c TelvaneChannels)" -eq 0 ]
    kill "$server"
    finish "$server"
    [ "$("$TELVANE" complete -- listen "$bus" Sh 2>/dev/null)" = "" ]
}

# program <name> <line...>: makes a script telvane-NAME in a directory of PATH
program() {
    mkdir -p programs
    printf '%s\n' '#!/bin/sh' "${@:2}" >"programs/telvane-$1"
    chmod +x "programs/telvane-$1"
    PATH=$PWD/programs:$PATH
}

@test "telvane NAME executes telvane-NAME with all arguments" {
    # shellcheck disable=SC2016 # for the program
    program greeting 'printf "%s|" "$0" "$@"' 'exit 7'
    [ "$("$TELVANE" greeting a 'b c' --version)" = "$PWD/programs/telvane-greeting|a|b c|--version|" ]
    status=0
    "$TELVANE" greeting >output || status=$?
    [ "$status" -eq 7 ]
}

@test "a program that is executed has no blocked signals" {
    # exec, because a shell blocks signals while it starts a program.
    program mask 'exec sed -n "s/^SigBlk:[[:space:]]*//p" /proc/self/status'
    [ "$("$TELVANE" mask)" = 0000000000000000 ]
}

@test "a command that is unknown and not installed is an error" {
    program web
    status=0
    "$TELVANE" lissen 2>error || status=$?
    [ "$status" -eq 2 ]
    grep -q '^telvane: unknown command "lissen", and no program telvane-lissen is installed (installed: .*web' error
    grep -q 'see telvane --help$' error
    status=0
    "$TELVANE" ../x 2>error || status=$?
    [ "$status" -eq 2 ]
    grep -q '^telvane: unknown command "../x" (installed' error
}

@test "only programs that complete their options are called for it" {
    program other 'touch called'
    [ "$("$TELVANE" complete -- other --x)" = "" ]
    [ ! -e called ]
}

@test "programs that are installed are in the help and completed" {
    program welds
    "$TELVANE" --help | sed -n '/^Programs:/,/^$/p' | grep -q "^  welds  *Query archived welds$"
    "$TELVANE" complete -- weld | grep -qx $'welds\tQuery archived welds'
}
