# shellcheck shell=bash
# What the scripts share: getting the machine ready and building. Sourced, not run.
#
# Everything here may be called again and again: it looks first and does only what is missing. Long output
# goes to a log file that is shown when the step fails, so that a person and a CI page see one line a step
# while all goes well and the whole story when it does not.

telvane_root=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)

# The compiler, the build tools and what the library, the tool and the tests are compiled against.
# docs/dependencies.md gives the reason for each.
telvane_build_packages=(g++ cmake ninja-build pkg-config libcjson-dev uuid-dev libcli11-dev
    libgtest-dev libgmock-dev python3)

# Clang with what the sanitizers and the fuzzer link; the symboliser of llvm turns the addresses of a finding into
# names and lines.
# shellcheck disable=SC2034 # the scripts that source this use it
telvane_clang_packages=(clang libclang-rt-dev llvm)

# The tests of the Python package: pytest, types and style, what reads recordings into tables, and an older Python,
# PyPy's, with the modules that its pytest lacks.
# shellcheck disable=SC2034 # the scripts that source this use it
telvane_python_packages=(python3-pytest python3-pytest-xdist mypy flake8 python3-pandas python3-matplotlib zstd
    pypy3 python3-exceptiongroup python3-tomli)

telvane_say() {
    printf '%s: %s\n' "${0##*/}" "$*" >&2
}

telvane_fail() {
    telvane_say "$@"
    exit 1
}

# telvane_logged <log file> <what it does> <command...>: runs the command without a standard input and with
# its output in the log; on failure shows the log and ends the script.
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

# telvane_missing_packages <package...>: those that are not installed, one a line.
telvane_missing_packages() {
    local package
    for package in "$@"; do
        if [ "$(dpkg-query --show --showformat='${db:Status-Status}' "$package" 2>/dev/null)" != installed ]; then
            printf '%s\n' "$package"
        fi
    done
}

# telvane_need_packages <package...>: installs those that are missing, as root or through sudo. Needs the
# network only when something is missing.
telvane_need_packages() {
    if ! command -v dpkg-query >/dev/null || ! command -v apt-get >/dev/null; then
        telvane_say "this is not a Debian system, so nothing was installed; needed are (Debian's names): $*"
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
            telvane_fail "these packages are missing and there is no sudo to install them with; as root, run
  apt-get update && apt-get install --no-install-recommends ${missing[*]}
and start this script again"
        elif sudo -n true 2>/dev/null; then
            become=(sudo -n)
        elif [ -z "${CI:-}" ] && { : </dev/tty; } 2>/dev/null; then
            # sudo asks at the terminal, whatever standard input is.
            become=(sudo)
        else
            telvane_fail "these packages are missing and sudo asks for a password, with nobody here to type it; run
  sudo apt-get update && sudo apt-get install --no-install-recommends ${missing[*]}
and start this script again"
        fi
    fi

    # A package source that is none of ours may be out of order without harm, so only the installation decides.
    # Another run of apt (the nightly upgrades, say) is waited for.
    local log=$telvane_root/build/packages.log
    # shellcheck disable=SC2016 # the inner shell expands its own variables
    telvane_logged "$log" "installing ${missing[*]}" \
        "${become[@]}" env DEBIAN_FRONTEND=noninteractive sh -c '
            options="-y -o Acquire::Retries=3 -o DPkg::Lock::Timeout=300"
            apt-get $options update || echo "apt-get update failed, trying with the lists that are here"
            apt-get $options install --no-install-recommends "$@"' sh "${missing[@]}"
}

# telvane_setup_build [preset [target...]]: installs what building takes, then configures and builds the
# preset in build/<preset>. Without targets it builds everything.
telvane_setup_build() {
    local preset=${1:-release} targets=()
    if [ "$#" -gt 1 ]; then
        targets=(--target "${@:2}")
    fi
    telvane_need_packages "${telvane_build_packages[@]}"

    cd "$telvane_root" || exit
    local directory=$telvane_root/build/$preset
    if [ ! -f "$directory/build.ninja" ]; then
        telvane_logged "$directory/configure.log" "configuring the preset $preset" cmake --preset "$preset"
    fi
    # The build configures again by itself when a CMake file or the list of sources has changed.
    telvane_logged "$directory/build.log" "building the preset $preset" \
        cmake --build --preset "$preset" --parallel "$(nproc)" "${targets[@]}"
}

# telvane_each <command> <item...>: runs the command for every item, as many at a time as there are processors, and
# fails when one of them has failed, after all of them have run.
telvane_each() {
    local command=$1 item failed=0 running=0
    shift
    trap 'kill $(jobs -p) 2>/dev/null || true' EXIT
    for item in "$@"; do
        if [ "$running" -ge "$(nproc)" ]; then
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
    [ "$failed" -eq 0 ] || telvane_fail "$failed of $# have failed; they are told of above"
}

# telvane_library_tests [part of a name]: the programs that test the library and not the tool, one a line.
telvane_library_tests() {
    find "$telvane_root/tests" -path "$telvane_root/tests/tool" -prune -o -name "*${1:-}*Test.cpp" -printf '%f\n' |
        sed 's/\.cpp$//' | sort
}

# telvane_run_test <directory of logs> <command...>: runs a test program, the last word of the command, with its
# output in a log that is shown when it fails. On a machine that stands still for a second the exchanges of a bus
# end without an answer, so a test that fails has a second try; what else goes wrong has none.
telvane_run_test() {
    local logs=$1 begin=$SECONDS status=0
    shift
    local name=${*: -1}
    name=${name##*/}
    local log=$logs/$name.log
    mkdir -p "$logs"
    "$@" >"$log" 2>&1 </dev/null || status=$?
    if [ "$status" -eq 1 ]; then
        telvane_say "$name: failed, which is told of in $log.first; a second try ..."
        mv "$log" "$log.first"
        status=0
        "$@" >"$log" 2>&1 </dev/null || status=$?
    fi
    if [ "$status" -ne 0 ]; then
        cat "$log" >&2
        telvane_say "$name: FAILED with exit code $status ($((SECONDS - begin)) s); the output above is kept in $log"
        return 1
    fi
    telvane_say "$name: passed ($((SECONDS - begin)) s)"
}
