#!/bin/sh
# `pip install .` as the README gives it for a venv, offline: a fresh venv
# over Debian's interpreter (--system-site-packages for Debian's numpy,
# setuptools and wheel), pip building from a copy of the source tree (pip
# writes its metadata and build folders beside the sources) with no index at
# all, then the module's pytest suite run by the venv's interpreter, which
# finds ddb_pdm in the venv only. Then the module refuses to import without
# numpy, and pip uninstall leaves nothing behind.
# The environment of the tests (DDB_TEST_HELPER and the like) is the caller's.
set -eu
python="$1"; source="$2"; work="$3"
unset PYTHONPATH LD_LIBRARY_PATH
rm -rf "$work"; mkdir -p "$work/src"
tar -C "$source" --exclude=./build --exclude=./.git --exclude=./.venv \
  --exclude='./*.egg-info' -cf - . | tar -C "$work/src" -xf -
"$python" -m venv --system-site-packages "$work/venv"
venv_python="$work/venv/bin/python"
"$venv_python" -m pip install --no-build-isolation --no-index --no-cache-dir "$work/src" \
  > "$work/pip.log" 2>&1 || { tail -30 "$work/pip.log"; exit 1; }
site=$("$venv_python" -c 'import sysconfig; print(sysconfig.get_paths()["platlib"])')
test -f "$site/ddb_pdm.pyi"
module=$("$venv_python" -c 'import ddb_pdm; print(ddb_pdm.__file__)')
case "$module" in
  "$site"/*) ;;
  *) echo "ddb_pdm imported from $module, not from the venv"; exit 1 ;;
esac
# It finds the library beside it, not in the build.
readelf -d "$module" | grep -q 'RUNPATH.*\[\$ORIGIN/ddb_pdm.libs\]$' ||
  { echo "$module: run path is not \$ORIGIN/ddb_pdm.libs"; readelf -d "$module"; exit 1; }
cd "$work"
PYTHONDONTWRITEBYTECODE=1 "$venv_python" -m pytest -q -p no:cacheprovider "$source/tests/python"

# Without numpy: one line, at the import.
status=0
"$venv_python" -c 'import sys; sys.modules["numpy"] = None; import ddb_pdm' > /dev/null \
  2> "$work/no_numpy.txt" || status=$?
[ "$status" -eq 1 ] || { echo "importing without numpy exited with $status"; exit 1; }
tail -1 "$work/no_numpy.txt" | cmp - /dev/fd/3 3<<'LINE'
ImportError: ddb_pdm needs numpy, which this interpreter cannot import (Debian: apt-get install python3-numpy; a venv: pip install numpy)
LINE
[ "$(grep -c 'Error' "$work/no_numpy.txt")" -eq 1 ] ||
  { echo "more than one error on importing without numpy:"; cat "$work/no_numpy.txt"; exit 1; }

"$venv_python" -m pip uninstall -y ddb_pdm > "$work/uninstall.log"
left=$(find "$site" -maxdepth 1 -name 'ddb_pdm*')
[ -z "$left" ] || { echo "pip uninstall left: $left"; exit 1; }
