# Finds out which packages are missing and installs them; sourced by run.sh, test.sh and .ci/run.
# shellcheck shell=bash
#
#   need CONDITION PACKAGE PURPOSE   notes PACKAGE as missing unless the command CONDITION succeeds
#   install_missing                  installs what was noted, saying for each package what it is for

missing_packages=()

fail() {
    echo "${0##*/}: $*" >&2
    exit 1
}

# The build's own tools cannot cope with these characters.
check_path() {
    case $1 in
        *[\"\\\;\#]*) fail "a folder with one of \" \\ ; # in its name cannot be built in: $1" ;;
    esac
}

need() {
    eval "$1" >/dev/null 2>&1 && return
    echo "${0##*/}: installing $2: $3" >&2
    missing_packages+=("$2")
}

have_googletest() {
    [ -e /usr/include/gtest/gtest.h ] || [ -e /usr/local/include/gtest/gtest.h ]
}

need_for_building() {
    need "command -v cmake" cmake "describes the build"
    need "command -v ninja" ninja-build "runs the build"
    need "command -v g++" g++ "compiles the program"
}

# What the tests are run with, and whom they compare with.
need_for_tests() {
    need have_googletest libgtest-dev "the tests are written with it"
    need "command -v python3" python3 "runs the tests of the scripts"
    need "command -v ffmpeg" ffmpeg "decodes what was recorded"
    need "command -v djpeg" libjpeg-turbo-progs "decodes JPEG pictures"
    need "command -v gst-launch-1.0" gstreamer1.0-tools "decodes what was recorded"
    need "gst-inspect-1.0 jpegdec" gstreamer1.0-plugins-good "decodes JPEG pictures"
    need "gst-inspect-1.0 openh264dec" gstreamer1.0-plugins-bad "decodes H.264 pictures"
    need "echo 'int main(){}' | g++ -m32 -xc++ - -o /dev/null" g++-multilib "builds for 32 bits"
}

install_missing() {
    [ ${#missing_packages[@]} -gt 0 ] || return 0
    local names="${missing_packages[*]}" as_root=() output
    command -v apt-get >/dev/null || fail "no apt-get here; install by hand: $names"
    if [ "$(id -u)" -ne 0 ]; then
        command -v sudo >/dev/null || fail "neither root nor sudo; install by hand: $names"
        as_root=(sudo)
    fi
    as_root+=(env DEBIAN_FRONTEND=noninteractive)
    output=$("${as_root[@]}" apt-get -qq update 2>&1) ||
        fail "apt-get update failed: $(tail -n 1 <<<"$output")"
    output=$("${as_root[@]}" apt-get -qq install -y --no-install-recommends \
        "${missing_packages[@]}" </dev/null 2>&1) ||
        fail "apt-get install $names failed: $(tail -n 1 <<<"$output")"
}
