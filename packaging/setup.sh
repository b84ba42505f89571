#!/usr/bin/env bash
# Installs what a task needs and what is missing, from Debian packages (Debian 12). As root, or with sudo.
#
#   packaging/setup.sh build        compiler, CMake, Ninja, image libraries: the analyzer
#   packaging/setup.sh host         libraries of the camera host
#   packaging/setup.sh video        ffmpeg: video files, streams, cameras, annotated video
#   packaging/setup.sh test         what the tests need
#   packaging/setup.sh matrix       Clang, and the compiler and emulator for aarch64
#   packaging/setup.sh fuzz         Clang and its fuzzing and sanitizer libraries
#   packaging/setup.sh lint         static analysis
#   packaging/setup.sh bench        OpenCV to compare with, and what draws the plots
#   packaging/setup.sh host video   several at once
#
# Says nothing when nothing is missing.
set -euo pipefail

packages_of() {
    case "$1" in
        build) echo g++ cmake ninja-build libjpeg62-turbo-dev libpng-dev ;; # the last two: image files, optional
        host)
            echo libcli11-dev libtomlplusplus-dev nlohmann-json3-dev libpugixml-dev libturbojpeg0-dev libpng-dev libzip-dev \
                libsodium-dev libsqlite3-dev libhowardhinnant-date-dev libmicrohttpd-dev libxxhash-dev
            ;;
        video) echo ffmpeg ;;
        test) echo libgtest-dev python3 python3-jsonschema ffmpeg xz-utils logrotate strace chromium chromium-driver python3-selenium \
            slurmctld slurmd slurm-client munge iproute2 ;;
        matrix) echo clang libgtest-dev g++-aarch64-linux-gnu qemu-user ;;
        fuzz) echo clang libclang-rt-14-dev cmake ninja-build ;;
        lint) echo clang-tidy cppcheck ;;
        bench)
            echo libopencv-dev libopencv-contrib-dev nlohmann-json3-dev ffmpeg libbenchmark-dev python3-matplotlib
            ;;
        *) return 1 ;;
    esac
}

if [ $# -eq 0 ]; then
    sed -n '2,/^set/p' "$0" | sed -n 's/^# \{0,1\}//p'
    exit 64
fi

missing=()
for verb in "$@"; do
    if ! packages=$(packages_of "$verb"); then
        echo "setup.sh: there is no '$verb' (there are build, host, video, test, matrix, fuzz, lint, bench)" >&2
        exit 64
    fi
    for package in $packages; do
        state=$(dpkg-query -W -f '${db:Status-Status}' "$package" 2>/dev/null || true)
        [ "$state" = installed ] || missing+=("$package")
    done
done
[ ${#missing[@]} -gt 0 ] || exit 0

if ! command -v apt-get >/dev/null; then
    echo "setup.sh: apt-get was not found; please install: ${missing[*]}" >&2
    exit 69
fi
as_root=()
if [ "$(id -u)" -ne 0 ]; then
    if ! command -v sudo >/dev/null; then
        echo "setup.sh: needs root or sudo to install: ${missing[*]}" >&2
        exit 77
    fi
    as_root=(sudo)
fi

echo "Installing ${missing[*]}" >&2
log=$(mktemp)
trap 'rm -f "$log"' EXIT
# Another apt may be at work, as on a machine that has just started: wait for it. Installing waits by itself, fetching
# the lists does not.
apt() { "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get -y -q -o DPkg::Lock::Timeout=600 "$@" >>"$log" 2>&1; }
update() {
    for _ in $(seq 120); do
        : >"$log"
        if apt update; then return 0; fi
        if ! grep -q 'Could not get lock' "$log"; then return 1; fi
        sleep 5
    done
    return 1
}
# The package lists may be missing (a fresh image) or out of date: fetch them only when installing fails.
if ! apt install --no-install-recommends "${missing[@]}"; then
    if ! { update && apt install --no-install-recommends "${missing[@]}"; }; then
        cat "$log" >&2
        echo "setup.sh: installing ${missing[*]} failed, see above" >&2
        exit 69
    fi
fi
