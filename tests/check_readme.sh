#!/bin/sh
# The README's shown output, checked by running it. Every ```console block
# of the README is a transcript: "$ command" lines, each followed by what the
# command prints (standard output and error together). The transcripts run
# in the order they appear, in one fresh folder, with the built ddb on PATH
# and build/release naming the build tree, and each output must equal the
# README's text exactly. Nothing is normalised: the demo writes its file
# under the folder it is given, so paths are the same on every run, and the
# file is the same bytes wherever it is made (sizes are HDF5 1.10.8's, Debian
# 12's). The README's Python tour is run by the module's tests.
set -eu
build="$1"; readme="$2"; work="$3"
rm -rf "$work"; mkdir -p "$work/build"
ln -s "$build" "$work/build/release"
PATH="$build/tools/ddb:$PATH"; export PATH
cd "$work"
awk -v dir="$work" '
  /^```console$/ { block = 1; next }
  block && /^```$/ { block = 0; next }
  block && /^\$ / { n++; print substr($0, 3) > (dir "/command." n); printf "" > (dir "/expected." n); next }
  block && n == 0 { print "a console block that does not start with a command"; exit 1 }
  block { print > (dir "/expected." n) }
  END { print n + 0 > (dir "/count") }
' "$readme"
count=$(cat count)
[ "$count" -gt 0 ] || { echo "no console transcripts in $readme"; exit 1; }
failed=0
i=1
while [ "$i" -le "$count" ]; do
  sh -c "$(cat "command.$i")" > "actual.$i" 2>&1 || true
  if ! cmp -s "expected.$i" "actual.$i"; then
    echo "README: \$ $(cat "command.$i")"
    diff -u "expected.$i" "actual.$i" | tail -n +3 || true
    failed=1
  fi
  i=$((i + 1))
done
[ "$failed" -eq 0 ] && echo "$count README transcripts print what the README shows"
exit "$failed"
