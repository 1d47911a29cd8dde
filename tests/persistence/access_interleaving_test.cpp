// Open accesses beside everything else that touches one object's value
// record: setters, other accesses, getters, Bind and the closing of the
// holder, in every order of members(), commit() and destruction. Each case
// is memory-safe (the sanitized build runs them), keeps the edits of the
// access that commits last, and prints exactly one line where an access's
// working record was replaced or its object destroyed under it, after what
// the operation prints itself.
#include <gtest/gtest.h>

#include <string>

#include "support/capture.h"
#include "support/sample_sim.h"

namespace {

const std::string kReplaced =
    "**ERROR fesD_SubDampAccess: an open access's working record was replaced\n";
const std::string kDestroyed =
    "**ERROR fesD_SubDampAccess: an open access's object was destroyed\n";
const std::string kEmpty = "**ERROR fesD_SubDampAccess::members: called on an empty object\n";
const std::string kCommitTrace = "fesD_SubDampImpl::CommitMembers: saving fesD_SubDampMembers\n";

// The five coefficients of a damping record, in the order of its table.
std::string Values(fesD_SubDamp d) {
  return std::to_string(static_cast<int>(d.alpha())) + " " +
         std::to_string(static_cast<int>(d.beta())) + " " +
         std::to_string(static_cast<int>(d.structural())) + " " +
         std::to_string(static_cast<int>(d.mass())) + " " +
         std::to_string(static_cast<int>(d.volume()));
}

TEST(UnconnectedAccess, SetterReplacingTheWorkingRecordLeavesTheAccessItsOwn) {
  CaptureErr err;
  fesD_SubDampHolder h = fesD_SubDamp::New(0);
  fesD_SubDamp d = h.Get();
  {
    fesD_SubDampAccess a(d);
    fesD_SubDampMembers& working = a.members();
    working.alpha = 1;  // a new record, cached, is a's working record
    d.Beta(2);          // the setter copies it, and its commit replaces it
    EXPECT_EQ(err.Take(), kReplaced);
    EXPECT_EQ(Values(d), "1 2 0 0 0");
    working.mass = 3;  // still a's own record
    EXPECT_EQ(&a.members(), &working);
    a.members().volume = 4;
    a.commit();  // the last commit wins: its record becomes the cached one
    EXPECT_EQ(err.Take(), "");
  }
  EXPECT_EQ(Values(d), "1 0 0 3 4");

  {
    fesD_SubDampAccess a(d);
    a.members().alpha = 5;  // a copy
    d.Beta(6);              // replaces the cached record, not a's copy: nothing to say
    EXPECT_EQ(err.Take(), "");
  }  // dropped
  EXPECT_EQ(Values(d), "1 6 0 3 4");
  EXPECT_EQ(err.Take(), "");
}

TEST(UnconnectedAccess, SetterThenDestructionWithoutCommitDropsTheEdits) {
  CaptureErr err;
  fesD_SubDampHolder h = fesD_SubDamp::New(0);
  fesD_SubDamp d = h.Get();
  {
    fesD_SubDampAccess a(d);
    a.members().alpha = 1;
    d.Beta(2);
    a.members().mass = 3;
  }
  EXPECT_EQ(err.Take(), kReplaced);
  EXPECT_EQ(Values(d), "1 2 0 0 0");
}

TEST(UnconnectedAccess, TwoAccessesInEveryOrderOfCommitAndDestruction) {
  CaptureErr err;
  fesD_SubDampHolder h = fesD_SubDamp::New(0);
  fesD_SubDamp d = h.Get();
  {  // a creates the cached record, b edits a copy; b commits first
    fesD_SubDampAccess a(d);
    fesD_SubDampAccess b(d);
    a.members().alpha = 1;
    b.members().beta = 2;
    b.commit();
    EXPECT_EQ(err.Take(), kReplaced);   // a's record was the cached one
    EXPECT_EQ(Values(d), "1 2 0 0 0");  // b copied it after a's edit
    a.commit();
    EXPECT_EQ(Values(d), "1 0 0 0 0");
  }
  {  // a discards the cached record while b edits a copy, then b commits
    fesD_SubDampAccess b(d);
    {
      fesD_SubDampAccess a(d);
      a.members().alpha = 7;  // a copy of the cached record
      b.members().beta = 8;   // another copy
    }
    b.commit();
  }
  EXPECT_EQ(err.Take(), "");
  EXPECT_EQ(Values(d), "1 8 0 0 0");
  {  // the cached record is discarded under nobody: the next read creates one
    fesD_SubDampAccess a(d);
    a.members();
    fesD_SubDampAccess b(d);
    b.members().mass = 9;
    b.commit();  // replaces the cached record; a holds only its copy
    a.commit();  // a's unchanged copy wins
  }
  EXPECT_EQ(err.Take(), "");
  EXPECT_EQ(Values(d), "1 8 0 0 0");
}

TEST(UnconnectedAccess, ClosingTheHolderUnderAnAccessKeepsItsRecordUntilItGoes) {
  CaptureErr err;
  fesD_SubDampHolder h = fesD_SubDamp::New(0);
  fesD_SubDamp d = h.Get();
  fesD_SubDampAccess idle(d);  // no working record: nothing to report
  {
    fesD_SubDampAccess a(d);
    fesD_SubDampMembers& working = a.members();
    working.alpha = 1;
    fesD_SubDampAccess b(d);
    b.members().beta = 2;  // a copy
    h.Close();             // both working records outlive the object
    EXPECT_EQ(err.Take(), kDestroyed + kDestroyed);
    working.mass = 3;
    EXPECT_EQ(&a.members(), &working);  // the access has no object any more
    EXPECT_EQ(err.Take(), kEmpty);
    a.commit();  // nothing to store into
    b.commit();
    EXPECT_EQ(err.Take(), "");
    a.members().volume = 1;  // a record of nobody's
    EXPECT_EQ(err.Take(), kEmpty);
  }
  idle.members().alpha = 1;
  idle.commit();
  EXPECT_EQ(err.Take(), kEmpty);
}

class ConnectedAccess : public SampleSim {
 protected:
  // A damping record stored in a new database, with a trace flag.
  fesD_SubDamp Stored(msfD_Root& root, int traceFlag) {
    sim = Create(root);
    msfD_Mesh mesh = NewMesh(sim);
    fesD_SubstructureSystemHolder sub =
        fesD_SubstructureSystem::New("s", D(1), D(2), C(3), C(4), C(5), 0);
    fesD_SubstructureSystem stored(mesh.systems().add(sub.ReleaseAsFESystem()));
    return stored.Damping(fesD_SubDamp::New(traceFlag));
  }
  // The damping record as the file holds it, after closing `root`.
  std::string Reread(msfD_Root& root) {
    root.closeSim(sim);
    msfD_Root again(0);
    fesD_SubstructureSystem sub(Open(again).discreteModel().mesh().systems().get(0));
    return Values(sub.damping());
  }

  msfD_Sim sim;
};

TEST_F(ConnectedAccess, AccessesShareTheCachedRecordUntilOneDiscardsIt) {
  msfD_Root root(0);
  fesD_SubDamp d = Stored(root, 1);
  CaptureErr err;
  {
    fesD_SubDampAccess a(d);
    a.members().alpha = 1;  // a edits the cached record (Bind made it)
    EXPECT_EQ(err.Take(), "");
    d.Beta(2);  // the setter's access shares it and stores a's edit too
    EXPECT_EQ(err.Take(), kCommitTrace);
    {
      fesD_SubDampAccess b(d);
      b.members().mass = 3;
    }  // b discards the cached record, which a still edits
    EXPECT_EQ(err.Take(), kReplaced);
    EXPECT_EQ(Values(d), "1 2 0 0 0");  // reloaded from the file
    EXPECT_EQ(err.Take(), "fesD_SubDampImpl::LoadMembers: loading fesD_SubDampMembers\n");
    a.members().volume = 4;
    a.commit();  // a's record, b's edit included, becomes the stored one
    EXPECT_EQ(err.Take(), kCommitTrace);
  }
  EXPECT_EQ(Values(d), "1 2 0 3 4");
  EXPECT_EQ(Reread(root), "1 2 0 3 4");
  EXPECT_EQ(err.Take(), "");
}

TEST_F(ConnectedAccess, TheReplacementLineFollowsWhatTheCommitPrints) {
  msfD_Root root(0);
  fesD_SubDamp d = Stored(root, 1);
  CaptureErr err;
  fesD_SubDampAccess a(d);
  fesD_SubDampAccess b(d);
  a.members().alpha = 1;
  {
    fesD_SubDampAccess c(d);
    c.members().beta = 2;
  }  // discards the cached record under a (b has none yet)
  EXPECT_EQ(err.Take(), kReplaced);
  b.members().mass = 3;  // a fresh load: b edits the new cached record
  EXPECT_EQ(err.Take(), "fesD_SubDampImpl::LoadMembers: loading fesD_SubDampMembers\n");
  a.commit();  // replaces b's record: first the commit's own line
  EXPECT_EQ(err.Take(), kCommitTrace + kReplaced);
  EXPECT_EQ(Values(d), "1 2 0 0 0");
  b.commit();
  EXPECT_EQ(err.Take(), kCommitTrace);
  EXPECT_EQ(Values(d), "0 0 0 3 0");
  EXPECT_EQ(Reread(root), "0 0 0 3 0");
}

TEST_F(ConnectedAccess, BindingUnderAnOpenAccessSavesTheCachedRecordAndLaterTheAccesss) {
  msfD_Root root(0);
  sim = Create(root);
  msfD_Mesh mesh = NewMesh(sim);
  fesD_SubstructureSystemHolder sub =
      fesD_SubstructureSystem::New("s", D(1), D(2), C(3), C(4), C(5), 0);
  fesD_SubDamp d = sub.Get().Damping(fesD_SubDamp::New(0));
  CaptureErr err;
  fesD_SubDampAccess a(d);
  a.members().alpha = 1;  // created and cached
  fesD_SubDampAccess b(d);
  b.members().beta = 2;                                                         // a copy
  fesD_SubstructureSystem stored(mesh.systems().add(sub.ReleaseAsFESystem()));  // binds d
  EXPECT_EQ(Values(stored.damping()), "1 0 0 0 0");
  b.commit();  // replaces a's record in the connected object and saves
  EXPECT_EQ(err.Take(), kReplaced);
  a.members().mass = 3;
  a.commit();
  EXPECT_EQ(err.Take(), "");
  EXPECT_EQ(Reread(root), "1 0 0 3 0");
}

TEST_F(ConnectedAccess, ClosingTheDatabaseUnderAnAccessDestroysOnlyTheObject) {
  msfD_Root root(0);
  fesD_SubDamp d = Stored(root, 0);
  CaptureErr err;
  fesD_SubDampAccess a(d);
  a.members().alpha = 1;  // the cached record of a connected object
  root.closeSim(sim);
  EXPECT_EQ(err.Take(), kDestroyed);
  a.members().beta = 2;
  a.commit();
  EXPECT_EQ(err.Take(), kEmpty);
  msfD_Root again(0);
  fesD_SubstructureSystem sub(Open(again).discreteModel().mesh().systems().get(0));
  EXPECT_EQ(Values(sub.damping()), "0 0 0 0 0");
}

}  // namespace
