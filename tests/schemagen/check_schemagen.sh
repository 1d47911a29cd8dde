#!/bin/sh
# The schema generator: four classes' output compared byte for byte with
# their golden pairs, and tables with mistakes refused with a clear message and a
# non-zero exit.
#   check_schemagen.sh <ddb_schemagen> <source dir> <work dir> <clang-format or "">
set -u
generator="$1"; source="$2"; work="$3"; format="$4"
rm -rf "$work"; mkdir -p "$work"
fail=0

# The golden classes: plain values only (the damping), required members and
# maps (the modal event), a base part and a sub-object (the substructure
# system), an array, maps and required members (the mesh).
for table in fes/fesD_SubDamp fes/fesD_ModalEvent fes/fesD_SubstructureSystem sim_schema/msfD_Mesh; do
  name=$(basename "$table")
  (cd "$source" && "$generator" "$table.schema" "$work") || fail=1
  if [ -n "$format" ]; then
    "$format" -i --style=file:"$source/.clang-format" "$work/$name.h" "$work/$name.cpp"
  fi
  for f in "$name.h" "$name.cpp"; do
    cmp -s "$work/$f" "$source/tests/schemagen/golden/$f" ||
      { echo "generated $f differs from tests/schemagen/golden/$f"; fail=1; }
  done
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
