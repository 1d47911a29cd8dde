#!/bin/sh
# Installs the built library into a fresh prefix, then uses it as an outside
# user would, with no environment to help (LD_LIBRARY_PATH is unset): builds
# and runs an outside client through find_package and through pkg-config,
# compiles every installed header on its own, builds and runs the client
# examples, runs the installed ddb, and (with an interpreter as fourth
# argument) the installed Python module. Then it moves the prefix and runs
# the installed programs again: their run paths are relative.
set -eu
build="$1"; consumer="$2"; work="$3"; python="${4:-}"
unset LD_LIBRARY_PATH
rm -rf "$work"; mkdir -p "$work"
prefix="$work/prefix"
cmake --install "$build" --prefix "$prefix" > "$work/install.log"
cmake -S "$consumer" -B "$work/cmake" -DCMAKE_PREFIX_PATH="$prefix" > "$work/configure.log"
cmake --build "$work/cmake" > "$work/build.log"
"$work/cmake/consumer"
PKG_CONFIG_PATH="$prefix/lib/pkgconfig" pkg-config --cflags --libs DDB_PDM_Core > "$work/pc.txt"
# shellcheck disable=SC2046
c++ -std=c++17 "$consumer/consumer.cpp" -o "$work/consumer_pc" $(cat "$work/pc.txt")
"$work/consumer_pc"
# Every installed header compiles on its own with the package's flags.
cd "$prefix/include"
for header in $(find DDB_PDM_Core -name '*.h' | sort); do
  # shellcheck disable=SC2046
  printf '#include <%s>\n' "$header" |
    c++ -std=c++17 -fsyntax-only -x c++ - $(cat "$work/pc.txt" | tr ' ' '\n' | grep -- '^-I') ||
    { echo "installed header does not compile on its own: $header"; exit 1; }
done
# The client examples, as an outside project: two through find_package, one
# through pkg-config; then they make, walk and number a database.
examples="$(dirname "$consumer")/../examples/clients"
cmake -S "$examples" -B "$work/examples" -DCMAKE_PREFIX_PATH="$prefix" > "$work/examples.log"
cmake --build "$work/examples" >> "$work/examples.log"
# shellcheck disable=SC2046
c++ -std=c++17 "$examples/number_dofs.cpp" -o "$work/number_dofs" $(cat "$work/pc.txt")
rm -f "$work/example.sim"
"$work/examples/create_database" "$work/example.sim"
"$work/examples/walk_database" "$work/example.sim" > "$work/walk.txt"
printf 'mesh: 4 nodes, 1 node sets\nsystem 0: structure\n' | cmp - "$work/walk.txt"
"$work/number_dofs" "$work/example.sim" > "$work/dofs.txt"
printf '4 nodes, 12 DOFs, permutation of 12 written\n' | cmp - "$work/dofs.txt"

# Installed programs and the module carry only run paths relative to
# themselves ($ORIGIN), never a path of the build or of the prefix.
for binary in "$prefix/bin/ddb" $(find "$prefix" -name 'ddb_pdm*.so'); do
  runpath=$(readelf -d "$binary" | sed -n 's/.*R[UN]*PATH.*\[\(.*\)\]/\1/p')
  case "$runpath" in
    '$ORIGIN'*) ;;
    *) echo "$binary: run path '$runpath' is not relative to \$ORIGIN"; exit 1 ;;
  esac
done

# The installed ddb, its module (when built), then both again from a moved prefix.
run_installed() {
  "$1/bin/ddb" --version | grep -q '^DDB_PDM_Core [0-9]'
  "$1/bin/ddb" check "$work/example.sim" > "$work/check.txt"
  printf '%s: clean\n' "$work/example.sim" | cmp - "$work/check.txt"
  [ -z "$python" ] && return 0
  module_dir=$(dirname "$(find "$1" -name 'ddb_pdm*.so' | head -1)")
  test -f "$module_dir/ddb_pdm.pyi"
  # The Python example walks the database the C++ client made.
  PYTHONPATH="$module_dir" "$python" "$examples/../python/walk_database.py" "$work/example.sim" \
    > "$work/py_walk.txt"
  head -1 "$work/py_walk.txt" | grep -q '^mesh: 4 nodes'
}
run_installed "$prefix"
mv "$prefix" "$work/moved"
run_installed "$work/moved"
