#!/bin/sh
# Installs the built library into a scratch prefix, then builds and runs an
# outside client twice: once through find_package, once through pkg-config.
# With an interpreter as fourth argument, the installed Python module too.
set -eu
build="$1"; consumer="$2"; work="$3"; python="${4:-}"
rm -rf "$work"; mkdir -p "$work"
cmake --install "$build" --prefix "$work/prefix" > "$work/install.log"
cmake -S "$consumer" -B "$work/cmake" -DCMAKE_PREFIX_PATH="$work/prefix" > "$work/configure.log"
cmake --build "$work/cmake" > "$work/build.log"
LD_LIBRARY_PATH="$work/prefix/lib" "$work/cmake/consumer"
PKG_CONFIG_PATH="$work/prefix/lib/pkgconfig" pkg-config --cflags --libs DDB_PDM_Core > "$work/pc.txt"
# shellcheck disable=SC2046
c++ -std=c++17 "$consumer/consumer.cpp" -o "$work/consumer_pc" $(cat "$work/pc.txt")
LD_LIBRARY_PATH="$work/prefix/lib" "$work/consumer_pc"
# Every installed header compiles on its own with the package's flags.
cd "$work/prefix/include"
for header in $(find DDB_PDM_Core -name '*.h' | sort); do
  # shellcheck disable=SC2046
  printf '#include <%s>\n' "$header" |
    c++ -std=c++17 -fsyntax-only -x c++ - $(cat "$work/pc.txt" | tr ' ' '\n' | grep -- '^-I') ||
    { echo "installed header does not compile on its own: $header"; exit 1; }
done
# The client examples, as an outside project: two through find_package, one
# through pkg-config; then they make, walk and number a database.
examples="$(dirname "$consumer")/../examples/clients"
cmake -S "$examples" -B "$work/examples" -DCMAKE_PREFIX_PATH="$work/prefix" > "$work/examples.log"
cmake --build "$work/examples" >> "$work/examples.log"
# shellcheck disable=SC2046
c++ -std=c++17 "$examples/number_dofs.cpp" -o "$work/number_dofs" $(cat "$work/pc.txt")
rm -f "$work/example.sim"
LD_LIBRARY_PATH="$work/prefix/lib" "$work/examples/create_database" "$work/example.sim"
LD_LIBRARY_PATH="$work/prefix/lib" "$work/examples/walk_database" "$work/example.sim" > "$work/walk.txt"
printf 'mesh: 4 nodes, 1 node sets\nsystem 0: structure\n' | cmp - "$work/walk.txt"
LD_LIBRARY_PATH="$work/prefix/lib" "$work/number_dofs" "$work/example.sim" > "$work/dofs.txt"
printf '4 nodes, 12 DOFs, permutation of 12 written\n' | cmp - "$work/dofs.txt"
# The Python module and its stub, from the prefix alone (its run path finds
# the library): the Python example walks the database the C++ client made.
[ -z "$python" ] && exit 0
module_dir=$(dirname "$(find "$work/prefix" -name 'ddb_pdm*.so' | head -1)")
test -f "$module_dir/ddb_pdm.pyi"
PYTHONPATH="$module_dir" "$python" "$examples/../python/walk_database.py" "$work/example.sim" \
  > "$work/py_walk.txt"
head -1 "$work/py_walk.txt" | grep -q '^mesh: 4 nodes'
