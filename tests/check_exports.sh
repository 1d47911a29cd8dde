#!/bin/sh
# Checks the dynamic symbol table of the library: the start-up functions and
# the container instantiations are exported, hidden visibility keeps internal
# helpers out, and no static constructor runs at load.
set -eu
lib="$1"
syms=$(nm -D --defined-only -C "$lib")
fail=0
need() {
  for symbol in "$@"; do
    if ! printf '%s\n' "$syms" | grep -qF -- "$symbol"; then
      echo "missing export: $symbol"; fail=1
    fi
  done
}
for f in DDB_PDM_Core_initialize DDB_PDM_Core_finalize ada_initialize ada_finalize \
         gbb_initialize gbb_finalize fesD_initialize fesD_finalize msfD_initialize msfD_finalize; do
  need "T $f(int&)"
done
need "T DDB_PDM_Core_version()"
need "ada_string::ada_string(char const*)" "ada_string::swap(ada_string&)" \
     "ada_string::cStr() const" "ada_string::byteCount() const"
# The DOF numbering and the node label conversions.
need "fesD_NodalDofDefinition::fesD_NodalDofDefinition(int*, int, int, bool)" \
     "fesD_NodalDofDefinition::fesD_NodalDofDefinition(QELSimDistributionID, int, bool)" \
     "fesD_NodalDofDefinition::SetupSolverDofs(QELSimCSetID)" \
     "fesD_NodalDofDefinition::WritePermutation(QELSimCollectionID) const" \
     "fesD_NodalDofDefinition::SetupSolverDofs(int, int const*)" \
     "fesD_NodalDofDefinition::SetupSolverDofs(int const*, int const*)" \
     "fesD_NodalDofDefinition::SolverDofsFromNodes(bool const*, int&) const" \
     "fesD_Utilities::InternalToUserNodes(fesD_FESystem, int&)" \
     "fesD_Utilities::UserToInternalNodes(fesD_FESystem, int&)"
# The lists, the maps, their iterators and the int-keyed tree, for every element type.
for t in QELSimDSetID QELSimDistributionID QELSimCSetID QELSimCollectionID ada_string \
         double float long int "unsigned char" bool ada_none; do
  need "ada_List<$t>::append($t const&, int)" "ada_List<$t>::operator[](int)" \
       "ada_List<$t>::reserve(int)" \
       "ada_MapInt<$t>::insert(int, $t const&)" "ada_MapInt<$t>::get(int)" \
       "ada_MapInt<$t>::count() const" "ada_MapInt<$t>::swap(ada_MapInt<$t>&)" \
       "ada_MapString<$t>::insert(ada_string const&, $t const&)" \
       "ada_MapString<$t>::isMember(ada_string const&) const" \
       "ada_MapString<$t>::remove(ada_string const&)" \
       "ada_MapIntIterator<$t>::next()" "ada_MapIntIterator<$t>::key() const" \
       "ada_MapStringIterator<$t>::first()" "ada_MapStringIterator<$t>::key() const" \
       "omi_Btree<ada_MapIntKey, $t>::Insert(ada_MapIntKey const&, $t const&)" \
       "omi_Btree<ada_MapIntKey, $t>::Remove(ada_MapIntKey const&)" \
       "omi_Btree<ada_MapIntKey, $t>::ConstGet(ada_MapIntKey const&) const" \
       "omi_Btree<ada_MapIntKey, $t>::operator=(omi_Btree<ada_MapIntKey, $t> const&)" \
       "omi_BtreeNode<ada_MapIntKey, $t>::Find(ada_MapIntKey const&) const" \
       "omi_BtreeIterator<ada_MapIntKey, $t>::Previous()" \
       "omi_BtreeNodeLink<ada_MapIntKey, $t>::omi_BtreeNodeLink("
done
# The database API, the framework and the generated schema families.
need "msfD_Root::createSim(cow_String, cow_String, int)" "msfD_Root::openSimReadOnly(" \
     "msfD_Root::closeSim(msfD_Sim)" "msfD_Root::getByAlias(cow_String)" \
     "gbb_Handle::gbb_Handle(void const*, int, gbb_Class)" "gbb_Class::IsA(gbb_Class) const" \
     "gbb_TraverseContext::Advance()" "gbb_SimpleLink::gbb_SimpleLink(gbb_Path, cow_String)" \
     "gbb_LinkImpl::Get(unsigned int)" "gbb_MemoryStream::GetBuffer()" \
     "gbb_SchemaSnapshot::GetClass(gbb_ClassID const&) const" "gbb_Group::ReadClassID() const" \
     "gbb_DistributionService::StaticClass()"
for c in msfD_Sim msfD_DiscreteModel msfD_Mesh fesD_FESystem fesD_GenericSystem fesD_ModalSystem \
         fesD_SubstructureSystem fesD_ModalEvent fesD_SubDamp; do
  need "${c}Interface::StaticClass()" "${c}::operator gbb_Handle() const" \
       "${c}Holder::Get() const" "${c}Holder::Traverse(gbb_TraverseContext&)" "${c}Impl::Bind("
done
need "msfD_Mesh::nodes() const" "msfD_Mesh::NodeSets(ada_MapString<QELSimCSetID> const&) const" \
     "fesD_ModalSystemHolder::FESystemSubobject() const" \
     "gbb_Array<fesD_FESystem, fesD_FESystemHolder, gbb_Repository, msfD_Mesh>::ArrayClass()" \
     "gbb_Array<fesD_ModalEvent, fesD_ModalEventHolder, gbb_Repository, fesD_ModalSystem>::ArrayClass()"
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
