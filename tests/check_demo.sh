#!/bin/sh
# The demo's command line: --help, a wrong argument, a directory that does
# not exist yet (made, parents too), a second run into the same directory
# (refused with one line, the file untouched) and --walk of the file made.
set -eu
demo="$1"; work="$2"
rm -rf "$work"; mkdir -p "$work"; cd "$work"
fail() { echo "$*"; exit 1; }
usage="usage: ddb_demo [DIRECTORY]   build DIRECTORY/demo.sim (default: a fresh directory under /tmp), reopen it, walk it
       ddb_demo --walk FILE   only walk a database made elsewhere"

"$demo" --help > help.txt 2> help_err.txt || fail "--help exited with $?"
printf '%s\n' "$usage" | cmp - help.txt
test ! -s help_err.txt
for wrong in "--bogus" "a b" "--walk" "--walk a b" "-h2"; do
  status=0
  # shellcheck disable=SC2086
  "$demo" $wrong > out.txt 2> err.txt || status=$?
  [ "$status" -eq 2 ] || fail "ddb_demo $wrong exited with $status, not 2"
  test ! -s out.txt
  printf '%s\n' "$usage" | cmp - err.txt
done
test ! -e --bogus || fail "ddb_demo --bogus made a directory"

"$demo" new/nested > first.txt 2> first_err.txt || fail "a missing directory: exit $?"
test ! -s first_err.txt
head -1 first.txt | grep -qx 'database file: new/nested/demo.sim'
cp new/nested/demo.sim before.sim
status=0
"$demo" new/nested > second.txt 2> second_err.txt || status=$?
[ "$status" -eq 1 ] || fail "a second run exited with $status, not 1"
test ! -s second.txt
echo "ddb_demo: new/nested/demo.sim exists; the demo does not overwrite it (remove it or give another directory)" |
  cmp - second_err.txt
cmp before.sim new/nested/demo.sim

# --walk walks the file as the run that made it did.
"$demo" --walk new/nested/demo.sim > walk.txt
cmp first.txt walk.txt
