#!/usr/bin/env bash
# unpack.sh WHAT FOLDER PACKAGE...: unpacks Debian's packages for the architecture WHAT, or where
# WHAT is "source" the sources of one, below FOLDER, and installs nothing.
#
# apt downloads them under a state of its own, from the archives that this machine's packages come
# from, and checks their signatures: neither this machine's packages nor its list of architectures
# change. A folder that is complete is left as it is.
set -euo pipefail
what=$1 folder=$2
shift 2

# One at a time: a second run waits for the first, and finds its folder.
mkdir -p "$folder"
exec {lock}>"$folder.lock"
flock "$lock"
[ "$(cat "$folder/complete" 2>/dev/null)" != "$*" ] || exit 0
printf 'Unpacking %s\n' "$*" >&2
rm -rf "$folder"
mkdir -p "$folder"/{unpacked,packages,apt/{parts,state/lists/partial,cache/archives/partial}}
folder=$(cd "$folder" && pwd)
state=$folder/apt
: >"$state/state/status"
apt=(apt-get -qq -o APT::Sandbox::User=root
    -o Dir::State="$state/state" -o Dir::State::status="$state/state/status"
    -o Dir::Cache="$state/cache")
if [ "$what" = source ]; then
    apt-get indextargets --format 'deb-src $(REPO_URI) $(RELEASE) $(COMPONENT)' \
        'Identifier: Packages' | sort -u >"$state/sources.list"
    apt+=(-o Dir::Etc::SourceList="$state/sources.list" -o Dir::Etc::SourceParts="$state/parts")
    download=(source --download-only)
else
    apt+=(-o APT::Architecture="$what" -o APT::Architectures="$what")
    download=(download)
fi
# An archive that has nothing of it is no reason to stop: the download tells what is missing.
"${apt[@]}" update >"$state/log" 2>&1 || true
if ! (cd "$folder/packages" && "${apt[@]}" "${download[@]}" "$@" >>"$state/log" 2>&1); then
    cat "$state/log" >&2
    printf 'unpack.sh: could not download the packages above\n' >&2
    exit 1
fi
if [ "$what" = source ]; then
    tar -xf "$folder"/packages/*.orig.tar.* --strip-components 1 -C "$folder/unpacked"
else
    for package in "$folder"/packages/*.deb; do
        dpkg-deb --extract "$package" "$folder/unpacked"
    done
fi
rm -rf "$folder/packages" "$state"
printf '%s' "$*" >"$folder/complete"
