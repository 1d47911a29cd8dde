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
need "fesD_NodalDofDefinition::fesD_NodalDofDefinition(QELSimDistributionID, int, bool)"
need "fesD_NodalDofDefinition::SetupSolverDofs(QELSimCSetID)"
need "fesD_NodalDofDefinition::WritePermutation(QELSimCollectionID) const"
need "fesD_NodalDofDefinition::SetupSolverDofs(int, int const*)"
need "fesD_NodalDofDefinition::SetupSolverDofs(int const*, int const*)"
need "fesD_NodalDofDefinition::SolverDofsFromNodes(bool const*, int&) const"
# The node label conversions.
need "fesD_Utilities::InternalToUserNodes(fesD_FESystem, int&)"
need "fesD_Utilities::UserToInternalNodes(fesD_FESystem, int&)"
# The maps, their iterators and the int-keyed tree, for every element type.
for t in QELSimDSetID QELSimDistributionID QELSimCSetID QELSimCollectionID ada_string \
         double float long int "unsigned char" bool ada_none; do
  need "ada_MapInt<$t>::insert(int, $t const&)"
  need "ada_MapInt<$t>::get(int)"
  need "ada_MapInt<$t>::count() const"
  need "ada_MapInt<$t>::swap(ada_MapInt<$t>&)"
  need "ada_MapString<$t>::insert(ada_string const&, $t const&)"
  need "ada_MapString<$t>::isMember(ada_string const&) const"
  need "ada_MapString<$t>::remove(ada_string const&)"
  need "ada_MapIntIterator<$t>::next()"
  need "ada_MapIntIterator<$t>::key() const"
  need "ada_MapStringIterator<$t>::first()"
  need "ada_MapStringIterator<$t>::key() const"
  need "omi_Btree<ada_MapIntKey, $t>::Insert(ada_MapIntKey const&, $t const&)"
  need "omi_Btree<ada_MapIntKey, $t>::Remove(ada_MapIntKey const&)"
  need "omi_Btree<ada_MapIntKey, $t>::ConstGet(ada_MapIntKey const&) const"
  need "omi_Btree<ada_MapIntKey, $t>::operator=(omi_Btree<ada_MapIntKey, $t> const&)"
  need "omi_BtreeNode<ada_MapIntKey, $t>::Find(ada_MapIntKey const&) const"
  need "omi_BtreeIterator<ada_MapIntKey, $t>::Previous()"
  need "omi_BtreeNodeLink<ada_MapIntKey, $t>::omi_BtreeNodeLink("
done
# The database API, the framework and the generated schema families.
for f in "msfD_Root::createSim(cow_String, cow_String, int)" "msfD_Root::openSimReadOnly(" \
         "msfD_Root::closeSim(msfD_Sim)" "msfD_Root::getByAlias(cow_String)" \
         "gbb_Handle::gbb_Handle(void const*, int, gbb_Class)" "gbb_Class::IsA(gbb_Class) const" \
         "gbb_TraverseContext::Advance()" "gbb_SimpleLink::gbb_SimpleLink(gbb_Path, cow_String)" \
         "gbb_LinkImpl::Get(unsigned int)" "gbb_MemoryStream::GetBuffer()" \
         "gbb_SchemaSnapshot::GetClass(gbb_ClassID const&) const" "gbb_Group::ReadClassID() const" \
         "gbb_DistributionService::StaticClass()"; do
  need "$f"
done
for c in msfD_Sim msfD_DiscreteModel msfD_Mesh fesD_FESystem fesD_GenericSystem fesD_ModalSystem \
         fesD_SubstructureSystem fesD_ModalEvent fesD_SubDamp; do
  need "${c}Interface::StaticClass()"
  need "${c}::operator gbb_Handle() const"
  need "${c}Holder::Get() const"
  need "${c}Holder::Traverse(gbb_TraverseContext&)"
  need "${c}Impl::Bind("
done
need "msfD_Mesh::nodes() const"
need "msfD_Mesh::NodeSets(ada_MapString<QELSimCSetID> const&) const"
need "fesD_ModalSystemHolder::FESystemSubobject() const"
need "gbb_Array<fesD_FESystem, fesD_FESystemHolder, gbb_Repository, msfD_Mesh>::ArrayClass()"
need "gbb_Array<fesD_ModalEvent, fesD_ModalEventHolder, gbb_Repository, fesD_ModalSystem>::ArrayClass()"
# Only the int-keyed trees are exported: the string-keyed trees under
# ada_MapString and any tree the library makes for its own keys stay inside.
leaked=$(printf '%s\n' "$syms" | grep -oE 'omi_Btree[A-Za-z]*<[^,]*' | grep -v '<ada_MapIntKey$' || true)
if [ -n "$leaked" ]; then
  echo "tree instantiations exported:"; printf '%s\n' "$leaked" | sort -u; fail=1
fi
# The trees' private operations stay hidden.
if printf '%s\n' "$syms" | grep -qE \
    'omi_Btree[A-Za-z]*<[^>]*>::(UpdateHeight|Balance|ReplaceChild|PrefetchSibling|New|NewCopy|Delete|Push|Pop|PopAll|Descend|Step)\(|omi_BtreeNode\(omi_BtreeNode|ada_MapInsert'; then
  echo "private tree operation exported"; fail=1
fi
# Internal helpers of the list stay hidden.
if printf '%s\n' "$syms" | grep -q "ScratchSlot\|ReportOutOfBounds"; then
  echo "internal helper exported"; fail=1
fi
# No per-file static initialisers: loading the library must run no constructor.
if nm "$lib" | grep -q "_GLOBAL__sub_I_"; then
  echo "static initialisers found:"; nm "$lib" | grep "_GLOBAL__sub_I_"; fail=1
fi
exit $fail
