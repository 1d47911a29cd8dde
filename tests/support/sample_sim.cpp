#include "support/sample_sim.h"

#include <climits>
#include <numeric>

#include "platform/service/QELSimService.h"

QELSimDistributionID StoreInts(QELSimContextID context, const std::vector<int>& values) {
  const int n = static_cast<int>(values.size());
  std::vector<int> order(n);
  std::iota(order.begin(), order.end(), 0);
  QELSimCollectionRef members(QELSimCollectionRef::Create(context, n));
  return QELSimDistributionRef::CreateInt32(members.CreateOrderedCSet(order.data(), n),
                                            values.data());
}

msfD_Sim SampleSim::Create(msfD_Root& root) {
  msfD_Sim sim = root.createSim(file.c_str(), "", 0);
  context = sim.distributionService().Context().Number();
  return sim;
}

msfD_Sim SampleSim::Open(msfD_Root& root, bool readOnly) {
  msfD_Sim sim =
      readOnly ? root.openSimReadOnly(file.c_str(), "", 0) : root.openSim(file.c_str(), "", 0);
  context = sim.distributionService().Context().Number();
  return sim;
}

msfD_Mesh SampleSim::NewMesh(msfD_Sim sim) {
  return sim.DiscreteModel(msfD_DiscreteModel::New(QELSimCollectionID(), QELSimCollectionID(), 0))
      .Mesh(msfD_Mesh::New(QELSimCollectionID(), QELSimCollectionID(), 0));
}

void SampleSim::Build() {
  msfD_Root root(0);
  msfD_Sim sim = Create(root);
  msfD_DiscreteModel model = sim.DiscreteModel(msfD_DiscreteModel::New(C(1), C(2), 0));
  model.Frames(C(5));
  ada_MapString<QELSimCSetID> corners;
  corners.insert("corner", S(2, 5));
  model.LocalNodeSets(corners);
  msfD_Mesh mesh = model.Mesh(msfD_Mesh::New(C(3), C(4), 0));
  ada_MapString<QELSimCSetID> nodeSets;
  nodeSets.insert("fixed", S(3, 6));
  nodeSets.insert("all", S(3, 7));
  mesh.NodeSets(nodeSets);
  ada_MapString<QELSimDistributionID> elementFields;
  elementFields.insert("material", D(8));
  mesh.ElementFields(elementFields);
  auto systems = mesh.systems();

  fesD_FESystem plain = systems.add(fesD_FESystem::New("plain", D(1), D(2), 0));
  ada_MapInt<QELSimDistributionID> byNumber;
  byNumber.insert(7, D(3));
  byNumber.insert(-1, D(4));
  plain.Distributions(byNumber);
  ada_MapString<QELSimDistributionID> temperature;
  temperature.insert("temp", D(5));
  plain.UserDistributions(temperature);

  systems.add(
      fesD_GenericSystem::New("generic", D(11), D(12), C(13), C(14), 0).ReleaseAsFESystem());

  fesD_ModalSystemHolder modal = fesD_ModalSystem::New("modal", D(21), D(22), C(23), C(24), 0);
  modal.Get().PropertyEvaluation(-0.125);
  modal.Get().SolverDofOrdering(S(25, 1));
  modal.Get().SelectiveRecoveryNodes(S(25, 2));
  modal.Get().ResidualModeDofs(S(25, 3));
  fesD_ModalEvent first = modal.Get().events().add(fesD_ModalEvent::New("e0", -7, C(26), C(27), 0));
  first.ActiveModes(S(24, 1));
  ada_MapString<QELSimDistributionID> byName;
  byName.insert("y", D(29));
  byName.insert("x", D(28));
  first.UserDistributions(byName);
  fesD_ModalSystem storedModal(systems.add(modal.ReleaseAsFESystem()));
  storedModal.ResidualModes(S(25, 4));
  storedModal.StructuralModes(S(25, 5));
  storedModal.AcousticModes(S(25, 6));
  storedModal.events().add(fesD_ModalEvent::New("e1", INT_MIN, C(30), C(31), 0));

  fesD_SubstructureSystemHolder sub =
      fesD_SubstructureSystem::New("sub", D(41), D(42), C(43), C(44), C(45), 0);
  sub.Get().RetainedNodes(S(46, 1));
  sub.Get().RetainedDofs(S(46, 2));
  fesD_SubDamp damping = sub.Get().Damping(fesD_SubDamp::New(0));
  damping.Alpha(kAlpha);
  damping.Beta(kBeta);
  fesD_SubstructureSystem storedSub(systems.add(sub.ReleaseAsFESystem()));
  storedSub.RecoveryNodes(S(46, 3));
  storedSub.RecoveryElements(S(46, 4));
  storedSub.UserDistributions(byName);
  damping.Structural(kStructural);
  damping.Mass(kMass);
  damping.Volume(kVolume);

  // Without an activity mask: the null identifier is stored.
  systems.add(
      fesD_SubstructureSystem::New("bare", D(51), QELSimDistributionID(), C(53), C(54), C(55), 0)
          .ReleaseAsFESystem());
}
