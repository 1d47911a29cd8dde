#include "sim_schema/msfD_Root.h"

#include <cstring>

#include "persistence/gbb_TraverseContext.h"
#include "platform/core/aio_ostream.h"
#include "platform/core/mem.h"
#include "platform/service/QELSimManager.h"

// The tables' keys compare byte by byte as unsigned characters; a string
// without a buffer compares as the empty string.
static int BtreeCompare(const gbb_String& node, const gbb_String& searched) {
  const unsigned char* a = reinterpret_cast<const unsigned char*>(searched.c_str());
  const unsigned char* b = reinterpret_cast<const unsigned char*>(node.c_str());
  for (;; ++a, ++b) {
    if (*a != *b) return *a < *b ? -1 : 1;
    if (*a == '\0') return 0;
  }
}

#include "containers/omi_Btree_impl.h"

template class omi_Btree<gbb_String, msfD_Sim>;

namespace {

const char* const kOperation[] = {"createSim", "openSim", "openSimReadOnly"};

bool IsSet(const gbb_String& s) {
  return s.HasBuffer() && s.length() > 0;
}

// Removes the first entry (in key order) whose value is `sim`.
void RemoveValue(omi_Btree<gbb_String, msfD_Sim>& table, const msfD_Sim& sim) {
  omi_BtreeIterator<gbb_String, msfD_Sim> it(table);
  for (it.First(); !it.IsDone(); it.Next()) {
    if (it.CurrentValue().IsSame(sim)) {
      gbb_String key = it.CurrentKey();
      table.Remove(key);
      return;
    }
  }
}

}  // namespace

msfD_Root::msfD_Root(int traceFlag) : m_trace(traceFlag), m_sims(0) {}

// The sims close last first, then the file table and the alias table go (in
// reverse order of the members).
msfD_Root::~msfD_Root() {
  m_sims.truncate(m_sims.count());
  // Room left by sims that were all closed is not released by the array itself.
  if (m_sims.capacity() > 0) mem_Free(m_sims.data());
}

msfD_Sim msfD_Root::createSim(gbb_String file, gbb_String alias, int option) {
  return Open(kCreate, file, alias, option);
}

msfD_Sim msfD_Root::openSim(gbb_String file, gbb_String alias, int option) {
  return Open(kUpdate, file, alias, option);
}

msfD_Sim msfD_Root::openSimReadOnly(gbb_String file, gbb_String alias, int option) {
  return Open(kReadOnly, file, alias, option);
}

msfD_Sim msfD_Root::Open(Mode mode, const gbb_String& file, const gbb_String& alias, int option) {
  const char* operation = kOperation[mode];
  if (m_files.Count() != 0 && m_files.IsMember(file)) {
    aio_cerr.print("**ERROR msfD_Root::").print(operation).print(": file ");
    aio_cerr << file;
    aio_cerr.print(" already opened\n");
    return msfD_Sim();
  }
  if (IsSet(alias) && m_aliases.Count() != 0 && m_aliases.IsMember(alias)) {
    aio_cerr.print("**ERROR msfD_Root::").print(operation).print(": database with alias ");
    aio_cerr << alias;
    aio_cerr.print(" already exists\n");
    return msfD_Sim();
  }
  if (m_trace != 0) {
    aio_cerr.print("msfD_Root::").print(operation).put(' ');
    aio_cerr << file;
    aio_cerr.print("\n");
  }
  const int serviceOption = option == -1 ? 1 : option;
  QELSimContextID context =
      mode == kCreate
          ? QELSimManager::CreateContext(file.c_str(), static_cast<hdf_File::CreateFlags>(0), 102,
                                         false, serviceOption)
          : QELSimManager::OpenContext(file.c_str(),
                                       mode == kReadOnly ? hdf_File::ReadOnly : hdf_File::ReadWrite,
                                       102, false, serviceOption);
  // The service has said why when it failed; nothing is recorded.
  if (context.Number() == -1) return msfD_Sim();

  hdf_Group top = QELSimContextRef(context).File().RootGroup();
  msfD_SimHolder holder;
  if (mode == kCreate) {
    hdf_WriteBatch transaction(top.Id());  // the new sim is stored whole or not at all
    gbb_Group group(top.GroupCreate("sim", 0), kSimFileType);
    holder = msfD_Sim::New(m_trace);
    holder.SetPath(this, count());
    holder.Bind(context, group);
  } else {
    // The group is taken as it is, even when it could not be opened (the
    // wrapper has named it then): the sim is built on it and counted, and
    // finds no objects below it.
    gbb_Group group(top.GroupOpen("sim"));
    holder = msfD_SimHolder::Open(this, count(), context, group, m_trace);
  }
  msfD_Sim sim = holder.Get();
  m_files.Insert(file, sim);
  if (IsSet(alias)) m_aliases.Insert(alias, sim);
  m_sims.append(holder, 1);
  return get(count() - 1);
}

int msfD_Root::PositionOf(const msfD_Sim& sim) const {
  for (int i = 0; i < m_sims.count(); ++i) {
    if (m_sims[i].Get().IsSame(sim)) return i;
  }
  return -1;
}

// The sim's own path index says which position closes, whichever root the
// sim belongs to: the entries of the tables that name this very sim go, and
// the holder at that position is closed.
void msfD_Root::closeSim(msfD_Sim sim) {
  // An empty sim prints its Path() message and has index -1.
  int index = sim.Path().Index();
  if (index < 0) return;
  if (m_trace != 0) aio_cerr.print("msfD_Root::closeSim\n");
  RemoveValue(m_files, sim);
  RemoveValue(m_aliases, sim);
  // A guard of our own: an index beyond this root's sims (a sim of a root
  // with more of them) names no holder here, so nothing is closed.
  if (index >= m_sims.count()) return;
  m_sims.remove(index, 1);
  for (int i = index; i < m_sims.count(); ++i) m_sims[i].SetPath(this, i);
}

msfD_Sim msfD_Root::getByAlias(gbb_String alias) {
  return m_aliases.ConstGet(alias);
}

msfD_Sim msfD_Root::get(int i) {
  return i >= 0 && i < m_sims.count() ? m_sims[i].Get() : msfD_Sim();
}

gbb_Handle msfD_Root::Traverse(gbb_TraverseContext& context) {
  if (context.Advance()) {
    int index = -1;
    if (context.CurrentKind() == gbb_TraverseContext::kByNumber) {
      index = context.CurrentIndex();
    } else if (context.CurrentKind() == gbb_TraverseContext::kByNameWithArgument) {
      gbb_String key = context.CurrentArgument();
      if (context.CurrentNameIs("alias") && m_aliases.IsMember(key)) {
        index = PositionOf(m_aliases.ConstGet(key));
      } else if (context.CurrentNameIs("file") && m_files.IsMember(key)) {
        index = PositionOf(m_files.ConstGet(key));
      }
    }
    if (index >= 0 && index < m_sims.count()) return m_sims[index].Traverse(context);
  }
  context.SetStatus(gbb_TraverseContext::kNothingThere);
  return gbb_Handle();
}
