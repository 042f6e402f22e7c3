#!/usr/bin/env bash
# arm64_sysroot.sh FOLDER: makes a sysroot for 64-bit Arm out of Debian's own packages for it.
#
# The packages are downloaded with apt under a state of its own and unpacked, not installed: neither this
# machine's packages nor its list of architectures change. A sysroot that is complete is left as it is.
set -euo pipefail
folder=$1

packages=(
    libc6 libc6-dev linux-libc-dev libcrypt1 libgcc-s1 libgcc-12-dev libstdc++6
    libc++1-14 libc++-14-dev libc++abi1-14 libc++abi-14-dev libunwind-14 libunwind-14-dev
    android-liblog android-liblog-dev android-libcutils android-libcutils-dev android-libbase
    android-platform-system-core-headers libbsd0 libmd0
    libcli11-dev nlohmann-json3-dev
    libyuv0 libyuv-dev libjpeg62-turbo libpng16-16 libpng-dev zlib1g
)

# One at a time: a second run waits for the first, and finds its sysroot.
mkdir -p "$folder"
exec {lock}>"$folder.lock"
flock "$lock"
if [ -d "$folder/root/usr/lib/llvm-14" ] && [ "$(cat "$folder/complete" 2>/dev/null)" = "${packages[*]}" ]; then
    exit 0
fi
printf 'Making a sysroot for arm64 from %d packages\n' "${#packages[@]}" >&2
rm -rf "$folder"
mkdir -p "$folder"/apt/{state/lists/partial,cache/archives/partial} "$folder/packages" "$folder/root"
folder=$(cd "$folder" && pwd)
: >"$folder/apt/state/status"
apt=(apt-get -qq
    -o APT::Architecture=arm64 -o APT::Architectures=arm64 -o APT::Sandbox::User=root
    -o Dir::State="$folder/apt/state" -o Dir::State::status="$folder/apt/state/status"
    -o Dir::Cache="$folder/apt/cache")
# A source without packages for arm64 is no reason to stop: the download tells what is missing.
"${apt[@]}" update >"$folder/apt/log" 2>&1 || true
if ! (cd "$folder/packages" && "${apt[@]}" download "${packages[@]}" >>"$folder/apt/log" 2>&1); then
    cat "$folder/apt/log" >&2
    printf 'arm64_sysroot.sh: could not download the packages above for arm64\n' >&2
    exit 1
fi
for package in "$folder"/packages/*.deb; do
    dpkg-deb --extract "$package" "$folder/root"
done
rm -rf "$folder/packages" "$folder/apt"
printf '%s' "${packages[*]}" >"$folder/complete"
