#!/usr/bin/env bash
# The installed Tavrel as a user gets it, from an ordinary build (default
# ./build): the files a plain `cmake --install` puts under a prefix, then the
# Debian package CPack makes, checked by lintian, installed with apt-get, run
# from /usr/bin on generated movies, and purged again.
#   bash tools/package_test.sh [BUILD-FOLDER]
set -euo pipefail
cd "$(dirname "$0")/.."
build=$(cd "${1:-build}" && pwd)

if [[ $(id -u) -ne 0 ]]; then SUDO=sudo; else SUDO=; fi
export DEBIAN_FRONTEND=noninteractive

work=$(mktemp -d)
installed=0
maker=
cleanup() {
    kill "$maker" 2>/dev/null || true
    if ((installed)); then $SUDO apt-get purge -y -qq tavrel >/dev/null 2>&1 || true; fi
    rm -rf "$work"
}
trap cleanup EXIT
fail() {
    echo "package test: $*" >&2
    exit 1
}

# The movie to run the installed programs on, made meanwhile.
mkdir -p "$work/movies/card"
"$build/tools/tavrel-make-demo" "$work/movies/card/K0001.MP4" >"$work/make-demo.log" 2>&1 &
maker=$!

# What a plain install holds, and nothing else. The plug-in's folder is
# private, in the library folder of the architecture.
plugins=lib/$(gcc -print-multiarch)/tavrel
cmake --install "$build" --prefix "$work/prefix" >/dev/null
expected="bin/tavrel
bin/tavrel-batch
bin/tavrel-dump
$plugins/tavrel-media.so
share/bash-completion/completions/tavrel
share/bash-completion/completions/tavrel-batch
share/bash-completion/completions/tavrel-dump
share/man/man1/tavrel-batch.1.gz
share/man/man1/tavrel-dump.1.gz
share/man/man1/tavrel.1.gz"
listing=$(cd "$work/prefix" && find . ! -type d | sed 's|^\./||' | LC_ALL=C sort)
[[ $listing == "$expected" ]] || fail "cmake --install put other files under the prefix:
$(diff <(echo "$expected") <(echo "$listing"))"

for page in "$work"/prefix/share/man/man1/*.1.gz; do
    warnings=$(MANWIDTH=80 man --warnings -l "$page" 2>&1 >/dev/null)
    [[ -z $warnings ]] || fail "$(basename "$page") renders with warnings:
$warnings"
done
for program in tavrel tavrel-dump tavrel-batch; do
    bash -c 'source "$1" && complete -p "$2"' sh "$work/prefix/share/bash-completion/completions/$program" \
        "$program" >/dev/null || fail "the bash completion of $program does not load"
done

# The package.
cpack -G DEB --config "$build/CPackConfig.cmake" -B "$work/deb" >/dev/null 2>"$work/cpack.log" ||
    fail "cpack failed: $(cat "$work/cpack.log")"
debs=("$work"/deb/tavrel_*.deb)
[[ ${#debs[@]} -eq 1 && -f ${debs[0]} ]] || fail "cpack made no tavrel_*.deb"
deb=${debs[0]}
echo "package: $(basename "$deb")"
dpkg-deb --field "$deb" Depends
# Errors fail the stage; warnings are printed for whoever reads the log.
status=0
lint=$(lintian --fail-on error "$deb" 2>&1) || status=$?
grep -v '^running with root privileges' <<<"$lint" || true
((status == 0)) || fail "lintian reports errors (status $status)"

[[ -z $(dpkg-query -W -f='${Status}' tavrel 2>/dev/null | grep 'install ok installed') ]] ||
    fail "a tavrel package is installed already; purge it first"
installed=1
(cd "$work/deb" && $SUDO apt-get install -y -qq "./$(basename "$deb")") >"$work/apt.log" 2>&1 ||
    fail "apt-get could not install the package: $(cat "$work/apt.log")"

# The installed programs, with no build tree to fall back on.
out=$(/usr/bin/tavrel -h 2>&1) && fail "tavrel -h exited 0"
[[ $out == *"Tavrel 2.4.0"* && $out == *"usage:"* ]] || fail "tavrel -h printed: $out"

wait "$maker" || fail "tavrel-make-demo failed: $(cat "$work/make-demo.log")"
cp "$work/movies/card/K0001.MP4" "$work/movies/card/K0002.MP4"

out=$(/usr/bin/tavrel-dump --summary "$work/movies/card/K0001.MP4" 2>&1) ||
    fail "tavrel-dump --summary failed: $out"
[[ $out == *"size=1024x512"* && $out != *"no frame rate or size"* ]] ||
    fail "tavrel-dump --summary did not read the picture size: $out"

out=$(cd "$work/movies" && env -u TAVREL_BATCH_TOOL /usr/bin/tavrel-batch card -o out -j 2 \
    -- '-thumb:{dir}/{stem}.jpg' 2>&1) || fail "tavrel-batch failed: $out"
for file in K0001.MP4 K0002.MP4 K0001.jpg K0002.jpg; do
    [[ -s $work/movies/out/card/$file ]] || fail "tavrel-batch wrote no out/card/$file: $out"
done
[[ $(grep -c '"status":"ok"' "$work/movies/out/journal.jsonl") -eq 2 ]] ||
    fail "the journal does not record two movies done: $(cat "$work/movies/out/journal.jsonl")"

[[ $(man -w tavrel-batch) == /usr/share/man/man1/tavrel-batch.1.gz ]] || fail "man finds no tavrel-batch page"

$SUDO apt-get purge -y -qq tavrel >"$work/apt.log" 2>&1 || fail "apt-get could not purge the package: $(cat "$work/apt.log")"
installed=0
[[ ! -e /usr/bin/tavrel && ! -e /usr/$plugins ]] || fail "the purge left files behind"
echo "package test: passed in $SECONDS s"
