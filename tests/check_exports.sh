#!/bin/sh
# Checks the dynamic symbol table of the library: the start-up functions and
# the container instantiations are exported, hidden visibility keeps internal
# helpers out, and no static constructor runs at load.
set -eu
lib="$1"
syms=$(nm -D --defined-only -C "$lib")
fail=0
need() {
  if ! printf '%s\n' "$syms" | grep -qF -- "$1"; then
    echo "missing export: $1"; fail=1
  fi
}
for f in DDB_PDM_Core_initialize DDB_PDM_Core_finalize ada_initialize ada_finalize \
         gbb_initialize gbb_finalize fesD_initialize fesD_finalize msfD_initialize msfD_finalize; do
  need "T $f(int&)"
done
need "ada_string::ada_string(char const*)"
need "ada_string::swap(ada_string&)"
need "ada_string::cStr() const"
need "ada_string::byteCount() const"
for t in QELSimDSetID QELSimDistributionID QELSimCSetID QELSimCollectionID ada_string \
         double float long int "unsigned char" bool ada_none; do
  need "ada_List<$t>::append($t const&, int)"
  need "ada_List<$t>::operator[](int)"
  need "ada_List<$t>::reserve(int)"
done
# The DOF numbering.
need "fesD_NodalDofDefinition::fesD_NodalDofDefinition(int*, int, int, bool)"
need "fesD_NodalDofDefinition::SetupSolverDofs(int, int const*)"
need "fesD_NodalDofDefinition::SetupSolverDofs(int const*, int const*)"
need "fesD_NodalDofDefinition::SolverDofsFromNodes(bool const*, int&) const"
# Internal helpers of the list stay hidden.
if printf '%s\n' "$syms" | grep -q "ScratchSlot\|ReportOutOfBounds"; then
  echo "internal helper exported"; fail=1
fi
# No per-file static initialisers: loading the library must run no constructor.
if nm "$lib" | grep -q "_GLOBAL__sub_I_"; then
  echo "static initialisers found:"; nm "$lib" | grep "_GLOBAL__sub_I_"; fail=1
fi
exit $fail
