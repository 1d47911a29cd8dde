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
# One line per file that would change; clang-format's own report goes with it.
bad=0
while IFS= read -r file; do
  if ! "$format" --dry-run --Werror --style=file:"$source/.clang-format" "$file" 2>/dev/null; then
    echo "not formatted: $file (clang-format -i --style=file $file)"
    bad=1
  fi
done < "$list"
exit $bad
