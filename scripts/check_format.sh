#!/bin/sh
# Fails when clang-format, with the tree's .clang-format, would change a C or
# C++ file: every one in the source tree (build folders aside) and every one
# the build generates (the schema families, the Python bindings).
#   check_format.sh <clang-format> <source dir> [generated dir]...
set -u
format="$1"; source="$2"; shift 2
list=$(mktemp)
trap 'rm -f "$list"' EXIT
find "$source" \( -path "$source/build*" -o -path "$source/.git" \) -prune -o \
  -type f \( -name '*.h' -o -name '*.cpp' -o -name '*.cc' -o -name '*.c' \) -print > "$list"
for dir in "$@"; do
  [ -d "$dir" ] || continue
  find "$dir" -type f \( -name '*.h' -o -name '*.cpp' \) ! -path '*/CMakeFiles/*' >> "$list"
done
if [ ! -s "$list" ]; then
  echo "check_format.sh: no files found under $source"; exit 1
fi
# One run over every file; one line per file that would change.
report=$(tr '\n' '\0' < "$list" |
  xargs -0 "$format" --dry-run --Werror --style=file:"$source/.clang-format" 2>&1)
status=$?
if [ $status -ne 0 ]; then
  printf '%s\n' "$report" | sed -n 's/^\([^:]*\):[0-9]*:[0-9]*: error: .*/not formatted: \1/p' | uniq
  echo "(clang-format -i --style=file FILE formats a file)"
  exit 1
fi
