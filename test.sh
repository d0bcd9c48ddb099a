#!/usr/bin/env bash
# Builds everything and runs the tests; ends with the summary of ctest and its exit status.
set -u

root=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd) || exit 1
. "$root/.ci/packages.sh"
check_path "$root"

selection=()
for argument in "$@"; do
    case $argument in
        --quick) selection=(-LE long) ;;
        --help) echo "Usage: ./test.sh [--quick]   --quick leaves out the long tests"; exit 0 ;;
        *) fail "unknown argument $argument; ./test.sh [--quick]" ;;
    esac
done

need_for_building
need_for_tests
install_missing

# Warnings are errors where the variable CI is set.
werror=OFF
if [ -n "${CI-}" ]; then werror=ON; fi

cd "$root" || exit 1
cmake --preset release -DQM7105_TESTS=ON "-DQM7105_WERROR=$werror" &&
    cmake --build --preset release || exit 1
exec ctest --preset release -j2 "${selection[@]}"
