#!/usr/bin/env bash
# Builds the program and starts it with an environment file, in a working directory of its own.
# On a terminal it frees Ctrl-Z for the program and puts the terminal back, however the run ends.
set -u

root=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd) || exit 1
. "$root/.ci/packages.sh"
check_path "$root"

build=$root/build/release
program=$build/qm7105
tool=$build/qmtool
work=$root/build/run

usage() {
    cat <<'END'
Usage: ./run.sh [ENVFILE] [--tour] [--help]

  ENVFILE   environment file to start with (default: demo/qm7105.ini)
  --tour    watch a session that types itself and checks what it sees (under 30 seconds)
  --help    this text

Installs what the build needs, builds build/release/qm7105 and starts it in build/run/, where
the recordings are kept until you delete them. build/release/qmtool, built beside it, looks into
them. Leave the program with Q in each menu.
END
}

# Runs a command in silence; shows what it said only when it fails.
quietly() {
    local output
    output=$("$@" 2>&1 </dev/null) && return
    printf '%s\n' "$output" >&2
    fail "failed: $*"
}

build_program() {
    need_for_building
    install_missing
    [ -x "$program" ] || echo "run.sh: building the program" >&2
    cd "$root" || exit 1
    # An existing configuration stays as it is: test.sh may have chosen it.
    if [ ! -e "$build/build.ninja" ]; then
        local tests=ON
        have_googletest || tests=OFF
        quietly cmake --preset release "-DQM7105_TESTS=$tests"
    fi
    quietly cmake --build "$build" --target qm7105 qmtool
}

# Ends the program and the run after signal number $1. A terminal that hangs up has ended the
# program's input: it gets 5 seconds to close its session in order.
stop() {
    trap '' HUP INT QUIT TERM
    if [ -n "${!-}" ]; then
        if [ "$1" -eq 1 ]; then
            for _ in {1..50}; do kill -0 "$!" 2>/dev/null && sleep 0.1; done
        fi
        kill -TERM "$!" 2>/dev/null
        kill -CONT "$!" 2>/dev/null  # a stopped program takes no other signal
        wait "$!" 2>/dev/null
    fi
    stty "$terminal" 2>/dev/null
    exit $((128 + $1))
}

# A child in the background, because the shell answers no signal while it waits for one in front.
# It ignores INT and QUIT, as all such children do; stop() ends it.
run_on_terminal() {
    terminal=$(stty -g) || fail "cannot read the terminal's settings"
    trap 'stop 1' HUP
    trap 'stop 2' INT
    trap 'stop 3' QUIT
    trap 'stop 15' TERM
    stty susp undef
    "$program" "$environment" <&0 &
    wait "$!"
    local status=$?
    trap '' HUP INT QUIT TERM
    stty "$terminal"
    exit "$status"
}

environment=
tour=
for argument in "$@"; do
    case $argument in
        --help) usage; exit 0 ;;
        --tour) tour=yes ;;
        -*) fail "unknown option $argument; ./run.sh --help tells which there are" ;;
        *)
            [ -z "$environment" ] || fail "one environment file, not two: $argument"
            [ -n "$argument" ] || fail "the name of the environment file is empty"
            environment=$argument
            ;;
    esac
done
environment=$(realpath -m -- "${environment:-$root/demo/qm7105.ini}")
[ -f "$environment" ] || fail "no such environment file: $environment"

if [ -n "$tour" ]; then need "command -v python3" python3 "types the tour"; fi
build_program
{ mkdir -p "$work" && cd "$work"; } || fail "cannot enter $work"

if [ -n "$tour" ]; then exec python3 "$root/demo/tour.py" "$program" "$tool" "$environment"; fi
if [ -t 0 ]; then run_on_terminal; fi
exec "$program" "$environment"
