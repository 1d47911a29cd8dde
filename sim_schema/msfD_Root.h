// msfD_Root: the entry point that creates, opens and closes databases.
//
// One sim is one HDF5 file, opened through the simulation-database service
// as a context, whose group "sim" holds the object tree. The root keeps the
// open sims in opening order (a sim's position is its path index), a table
// from file name to sim and one from alias to sim, and it is the root of
// every object path: a path's first step selects a sim by index, by
// "alias:<name>" or by "file:<name>". Destroying the root closes every sim.
#ifndef DDB_SIM_SCHEMA_MSFD_ROOT_H_
#define DDB_SIM_SCHEMA_MSFD_ROOT_H_

#include "containers/omi_Btree.h"
#include "persistence/gbb_AutoArray.h"
#include "persistence/gbb_Path.h"
#include "platform/core/cow_String.h"
#include "platform/core/ddb_export.h"
#include "sim_schema/msfD_Sim.h"

class DDB_API msfD_Root final : public gbb_RootImpl {
 public:
  explicit msfD_Root(int traceFlag);
  ~msfD_Root();

  // A new database file. Refused (empty handle) when the file or a non-empty
  // alias is already open, or when the file cannot be created.
  msfD_Sim createSim(gbb_String file, gbb_String alias, int option);
  // An existing database, for update or read-only. Empty when the file
  // cannot be opened; a file without the group "sim" opens as a sim with
  // nothing below it (after the wrapper's message).
  msfD_Sim openSim(gbb_String file, gbb_String alias, int option);
  msfD_Sim openSimReadOnly(gbb_String file, gbb_String alias, int option);
  // Closes the sim at the position the sim's own path index names (its
  // whole tree and its file); the later sims move down. Meant for a sim of
  // this root: given another root's sim, it closes this root's sim at that
  // index.
  void closeSim(msfD_Sim sim);

  msfD_Sim getByAlias(gbb_String alias);
  int count() const { return m_sims.count(); }
  // The sim at position i (an empty handle outside 0 .. count() - 1).
  msfD_Sim get(int i);

  // The first step of a path resolution.
  gbb_Handle Traverse(gbb_TraverseContext& context) override;

 private:
  msfD_Root(const msfD_Root&) = delete;
  msfD_Root& operator=(const msfD_Root&) = delete;

  enum Mode { kCreate, kUpdate, kReadOnly };
  msfD_Sim Open(Mode mode, const gbb_String& file, const gbb_String& alias, int option);
  // Position of the sim in the array, or -1.
  int PositionOf(const msfD_Sim& sim) const;

  int m_trace;
  omi_Btree<gbb_String, msfD_Sim> m_aliases;
  omi_Btree<gbb_String, msfD_Sim> m_files;
  gbb_AutoArray<msfD_SimHolder, msfD_Root> m_sims;
};

#endif  // DDB_SIM_SCHEMA_MSFD_ROOT_H_
