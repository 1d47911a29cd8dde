#!/bin/sh
# The schema generator: one class's output compared byte for byte with its
# golden pair, and tables with mistakes refused with a clear message and a
# non-zero exit.
#   check_schemagen.sh <ddb_schemagen> <source dir> <work dir> <clang-format or "">
set -u
generator="$1"; source="$2"; work="$3"; format="$4"
rm -rf "$work"; mkdir -p "$work"
fail=0

(cd "$source" && "$generator" fes/fesD_SubDamp.schema "$work") || fail=1
if [ -n "$format" ]; then
  "$format" -i --style=file:"$source/.clang-format" "$work/fesD_SubDamp.h" "$work/fesD_SubDamp.cpp"
fi
for f in fesD_SubDamp.h fesD_SubDamp.cpp; do
  cmp -s "$work/$f" "$source/tests/schemagen/golden/$f" ||
    { echo "generated $f differs from tests/schemagen/golden/$f"; fail=1; }
done

# refused <expected message> <table text, \n between lines>: the generator must fail with
# exactly that line.
refused() {
  printf '%b\n' "$2" > "$work/bad.schema"
  if (cd "$work" && "$generator" "$work/bad.schema" "$work" 2> "$work/err.txt"); then
    echo "accepted a table that is wrong: $1"; fail=1; return
  fi
  printf '%s\n' "$1" | cmp -s - "$work/err.txt" ||
    { echo "expected: $1"; echo "got: $(cat "$work/err.txt")"; fail=1; }
}
refused "$work/bad.schema:2: unknown declaration 'simpel'" 'class X com.trevolo.X\nsimpel a int'
refused "$work/bad.schema: duplicate member 'a'" \
  'class X com.trevolo.X\nsimple a int\nsimple a double'
refused "$work/bad.schema:2: unknown member type 'float'" 'class X com.trevolo.X\nsimple a float'
refused "$work/bad.schema:2: unknown member type 'ada_MapString<ada_MapInt<int>>'" \
  'class X com.trevolo.X\nsimple a ada_MapString<ada_MapInt<int>>'
refused "$work/bad.schema: cannot read the table of base xyz_B ('xyz/xyz_B.schema')" \
  'class X com.trevolo.X\nbase xyz_B xyz/xyz_B.h\nsimple a int'
mkdir -p "$work/xyz"
printf 'class xyz_E com.trevolo.E\nsimple e int\n' > "$work/xyz/xyz_D.schema"
refused "xyz/xyz_D.schema: is the table of xyz_E, not xyz_D" \
  'class X com.trevolo.X\nbase xyz_D xyz/xyz_D.h\nsimple a int'
refused "$work/bad.schema:2: unknown service type 'gbb_Other'" \
  'class X com.trevolo.X\nservice s gbb_Other'
refused "$work/bad.schema: no class line" 'simple a int'
exit $fail
