# shellcheck shell=bash
# Functions that the scripts share: help texts, packages, builds, test runs. Source this file; do not run it.
#
# Each function checks what is already done and does only the rest, so calling one twice costs little. Long output
# goes to a log file, which is printed if the step fails.

telvane_root=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)

# The compiler, the build tools, and the libraries that the project is compiled against.
# docs/dependencies.md gives the reason for each.
telvane_build_packages=(g++ cmake ninja-build pkg-config libcjson-dev uuid-dev libcli11-dev zlib1g-dev libzstd-dev
    libsqlite3-dev libpq-dev libmicrohttpd-dev libsodium-dev libmosquitto-dev libtomlplusplus-dev libssl-dev libgtest-dev
    libgmock-dev python3)

# Clang with the sanitizer runtimes and libFuzzer. The symboliser of llvm turns the addresses in a report into
# function names and lines.
# shellcheck disable=SC2034 # used by the scripts that source this file
telvane_clang_packages=(clang libclang-rt-dev llvm)

# The tests of the Python package: pytest, readers of recordings and archives, and the oldest supported Python (PyPy)
# with two modules that its pytest needs.
# shellcheck disable=SC2034 # used by the scripts that source this file
telvane_python_packages=(python3-pytest python3-pytest-xdist python3-pandas python3-matplotlib zstd python3-psycopg2
    postgresql pypy3 python3-exceptiongroup python3-tomli)

# The tests of telvane-web in a browser, and a Prometheus that scrapes it.
# shellcheck disable=SC2034 # used by the scripts that source this file
telvane_web_packages=(chromium chromium-driver python3-selenium prometheus)

telvane_say() {
    printf '%s: %s\n' "${0##*/}" "$*" >&2
}

telvane_fail() {
    telvane_say "$@"
    exit 1
}

# telvane_help <argument>: prints the comment at the top of the script and exits if the argument is -h or --help.
telvane_help() {
    case ${1:-} in
    -h | --help)
        sed -n '2,/^set /{/^#/s/^# \{0,1\}//p}' "$0"
        exit 0
        ;;
    esac
}

# telvane_no_arguments <argument...>: for scripts that take none but --help.
telvane_no_arguments() {
    telvane_help "${1:-}"
    [ "$#" -eq 0 ] || telvane_fail "unknown argument \"$1\"; see $0 --help"
}

# telvane_logged <log file> <description> <command...>: runs the command without standard input and writes its output
# to the log. If the command fails, prints the log and ends the script.
telvane_logged() {
    local log=$1 what=$2 status=0
    shift 2
    mkdir -p "${log%/*}"
    telvane_say "$what (output in ${log#"$telvane_root"/}) ..."
    "$@" </dev/null >"$log" 2>&1 || status=$?
    if [ "$status" -ne 0 ]; then
        cat "$log" >&2
        telvane_fail "$what failed with exit code $status; the output above is kept in $log"
    fi
}

# telvane_missing_packages <package...>: prints the packages that are not installed, one per line.
telvane_missing_packages() {
    local package
    for package in "$@"; do
        if [ "$(dpkg-query --show --showformat='${db:Status-Status}' "$package" 2>/dev/null)" != installed ]; then
            printf '%s\n' "$package"
        fi
    done
}

# telvane_need_packages <package...>: installs the packages that are missing, as root or with sudo. Needs the network
# only if a package is missing.
telvane_need_packages() {
    if ! command -v dpkg-query >/dev/null || ! command -v apt-get >/dev/null; then
        telvane_say "this is not a Debian system; install these packages yourself (Debian's names): $*"
        return 0
    fi
    local missing
    mapfile -t missing < <(telvane_missing_packages "$@")
    if [ "${#missing[@]}" -eq 0 ]; then
        return 0
    fi

    local become=()
    if [ "$(id -u)" -ne 0 ]; then
        if ! command -v sudo >/dev/null; then
            telvane_fail "packages are missing and sudo is not installed; run this as root
  apt-get update && apt-get install --no-install-recommends ${missing[*]}
and start this script again"
        elif sudo -n true 2>/dev/null; then
            become=(sudo -n)
        elif [ -z "${CI:-}" ] && { : </dev/tty; } 2>/dev/null; then
            # sudo asks for the password on the terminal, not on standard input.
            become=(sudo)
        else
            telvane_fail "packages are missing and sudo needs a password, but there is no terminal; run
  sudo apt-get update && sudo apt-get install --no-install-recommends ${missing[*]}
and start this script again"
        fi
    fi

    # A failed update may be caused by an unrelated package source, so only the result of the installation counts.
    # If another apt is running, such as an automatic upgrade, wait for it.
    local log=$telvane_root/build/packages.log
    # shellcheck disable=SC2016 # the inner shell expands its own variables
    telvane_logged "$log" "installing ${missing[*]}" \
        "${become[@]}" env DEBIAN_FRONTEND=noninteractive sh -c '
            options="-y -o Acquire::Retries=3 -o DPkg::Lock::Timeout=300"
            apt-get $options update || echo "apt-get update failed; trying the package lists on this machine"
            apt-get $options install --no-install-recommends "$@"' sh "${missing[@]}"
}

# telvane_setup_build [preset [target...]]: installs the build packages, then configures and builds the preset in
# build/<preset>. Without targets, builds everything.
telvane_setup_build() {
    local preset=${1:-release} targets=()
    if [ "$#" -gt 1 ]; then
        targets=(--target "${@:2}")
    fi
    telvane_need_packages "${telvane_build_packages[@]}"
    # Debian's npm conflicts with the one that comes with other builds of Node.js.
    if ! command -v npm >/dev/null; then
        telvane_need_packages npm
    fi

    cd "$telvane_root" || exit
    local directory=$telvane_root/build/$preset
    if [ ! -f "$directory/build.ninja" ]; then
        # A compiler cache does not know results that depend on precompiled headers.
        local precompile=()
        if [ -z "${CMAKE_CXX_COMPILER_LAUNCHER:-}" ]; then
            precompile=(-D TELVANE_PRECOMPILE_HEADERS=ON)
        fi
        telvane_logged "$directory/configure.log" "configuring the preset $preset" \
            cmake --preset "$preset" "${precompile[@]}"
    fi
    # The build reconfigures by itself if a CMake file or the list of sources has changed.
    telvane_logged "$directory/build.log" "building the preset $preset" \
        cmake --build --preset "$preset" --parallel "$(nproc)" "${targets[@]}"
}

# telvane_each <command> <item...>: runs the command for each item, with TELVANE_JOBS processes (default: one per
# processor). Runs all of them, then fails if one has failed.
telvane_each() {
    local command=$1 item failed=0 running=0 jobs=${TELVANE_JOBS:-$(nproc)}
    shift
    trap 'kill $(jobs -p) 2>/dev/null || true' EXIT
    for item in "$@"; do
        if [ "$running" -ge "$jobs" ]; then
            wait -n || failed=$((failed + 1))
            running=$((running - 1))
        fi
        "$command" "$item" &
        running=$((running + 1))
    done
    while [ "$running" -gt 0 ]; do
        wait -n || failed=$((failed + 1))
        running=$((running - 1))
    done
    trap - EXIT
    [ "$failed" -eq 0 ] || telvane_fail "$failed of $# failed; see the messages above"
}

# telvane_library_tests [part of a name]: prints the test programs of the library, without those of the tool and of the
# other programs, one per line.
telvane_library_tests() {
    find "$telvane_root/tests" -regex '.*/tests/\(tool\|archive\|mqtt\|web\)' -prune -o -name "*${1:-}*Test.cpp" -printf '%f\n' |
        sed 's/\.cpp$//' | sort
}

# telvane_run_test <log directory> <command...>: runs a test program, the last word of the command, and prints its log
# if it fails. A program that tests time-outs of exchanges gets a second try if one of its tests failed, which is reported;
# see telvane_ctest. One that crashed or in which a checker found an error does not.
telvane_run_test() {
    local logs=$1 begin=$SECONDS status=0 tries=
    shift
    local name=${*: -1}
    name=${name##*/}
    local log=$logs/$name.log
    mkdir -p "$logs"
    "$@" >"$log" 2>&1 </dev/null || status=$?
    if [ "$status" -eq 1 ] && grep -qx "$name" "$telvane_root/tests/exchange_tests"; then
        telvane_say "$name: failed, see $log.first; repeating it once ..."
        mv "$log" "$log.first"
        status=0 tries=" on the second try"
        "$@" >"$log" 2>&1 </dev/null || status=$?
    fi
    if [ "$status" -ne 0 ]; then
        cat "$log" >&2
        telvane_say "$name: FAILED with exit code $status ($((SECONDS - begin)) s); the output above is kept in $log"
        return 1
    fi
    telvane_say "$name: passed$tries ($((SECONDS - begin)) s)"
}

# telvane_ctest <preset> <command prefix...> -- <ctest option...>: runs the tests in random order, several at a time.
#
# With TELVANE_REPEAT_FAILED=1, repeats failed tests with the label "exchange" once, one at a time, and prints their names:
# an exchange on the bus fails after one second without an answer, and a loaded machine can stall for that long. A defect
# fails twice. All other failures are final: a failed test without the label, a crash, a report of a sanitizer, and more
# than telvane_max_repeated failures. tests/exchange_tests lists the tests with the label.
telvane_max_repeated=10
telvane_ctest() {
    local preset=$1 prefix=()
    shift
    while [ "$1" != -- ]; do
        prefix+=("$1")
        shift
    done
    shift
    local status=0 failed final count
    local logs=$telvane_root/build/$preset/Testing
    local list=$logs/Temporary/LastTestsFailed.log output=$logs/first-run.log
    mkdir -p "$logs"
    rm -f "$list"
    "${prefix[@]}" ctest --preset "$preset" --schedule-random --no-tests=error --output-log "$output" "$@" \
        </dev/null || status=$?
    if [ -z "${TELVANE_REPEAT_FAILED:-}" ]; then
        return "$status"
    fi
    if [ "$status" -eq 0 ]; then
        telvane_say "0 tests repeated"
        return 0
    fi
    if [ ! -s "$list" ]; then
        return "$status" # ctest itself failed
    fi
    failed=$(sed 's/^[0-9]*://' "$list" | LC_ALL=C sort)
    count=$(wc -l <<<"$failed")
    if [ "$count" -gt "$telvane_max_repeated" ]; then
        telvane_say "0 tests repeated; $count failed"
        return "$status"
    fi
    if grep -aE '\*\*\*Exception|Sanitizer: |runtime error: |Segmentation fault|\bAborted\b' "$output" >&2; then
        telvane_say "0 tests repeated; a crash or a report of a sanitizer is final"
        return "$status"
    fi
    # ctest would repeat all of them.
    final=$(LC_ALL=C comm -23 <(printf '%s\n' "$failed") \
        <("${prefix[@]}" ctest --preset "$preset" --show-only -L '^exchange$' | sed -n 's/^ *Test *#[0-9]*: //p' | LC_ALL=C sort))
    if [ -n "$final" ]; then
        telvane_say "0 tests repeated; these are never repeated:"
        printf '  %s\n' "${final//$'\n'/$'\n  '}" >&2
        return "$status"
    fi
    telvane_say "repeating $count failed tests; the first output is in $output:"
    printf '  %s\n' "${failed//$'\n'/$'\n  '}" >&2
    status=0
    "${prefix[@]}" ctest --preset "$preset" --rerun-failed "$@" --parallel 1 </dev/null || status=$?
    telvane_say "$count tests repeated"
    return "$status"
}
