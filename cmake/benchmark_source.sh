#!/usr/bin/env bash
# benchmark_source.sh FOLDER: Google Benchmark's sources, out of Debian's source package.
#
# Debian's library is built against another C++ library than this project. apt downloads the sources under
# a state of its own, from the archives that this machine's packages come from, and checks their signatures.
# Sources that are there are left as they are.
set -euo pipefail
folder=$1

mkdir -p "$folder"
exec {lock}>"$folder.lock"
flock "$lock"
[ ! -f "$folder/source/CMakeLists.txt" ] || exit 0
printf 'Downloading the sources of Google Benchmark\n' >&2
rm -rf "$folder"
mkdir -p "$folder"/{state/lists/partial,cache/archives/partial,parts,download,unpacked}
folder=$(cd "$folder" && pwd)
apt-get indextargets --format 'deb-src $(REPO_URI) $(RELEASE) $(COMPONENT)' 'Identifier: Packages' |
    sort -u >"$folder/sources.list"
apt=(apt-get -qq
    -o APT::Sandbox::User=root
    -o Dir::Etc::SourceList="$folder/sources.list" -o Dir::Etc::SourceParts="$folder/parts"
    -o Dir::State="$folder/state" -o Dir::Cache="$folder/cache")
# An archive without sources is no reason to stop: the download tells what is missing.
"${apt[@]}" update >"$folder/log" 2>&1 || true
if ! (cd "$folder/download" && "${apt[@]}" source --download-only benchmark >>"$folder/log" 2>&1); then
    cat "$folder/log" >&2
    printf 'benchmark_source.sh: could not download the source package "benchmark"\n' >&2
    exit 1
fi
tar -xf "$folder"/download/benchmark_*.orig.tar.* -C "$folder/unpacked"
mv "$folder"/unpacked/* "$folder/source"
rm -rf "$folder"/{state,cache,parts,download,unpacked,sources.list,log}
