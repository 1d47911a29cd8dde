// The DOF numbering (fesD_NodalDofDefinition) and the node label
// conversions (fesD_Utilities) in Python, with numpy arrays in and out.
//
// The C++ numbering trusts its caller: indices index its tables unchecked,
// and inconsistent setup input ends the process. From Python every index
// is checked first (IndexError), and setup input the library would stop on
// raises ddb.Error with the line the library would have printed, before the
// library sees it. Scalar queries also take arrays (numpy broadcasting).
#include "fes/dpa/impl/fesD_NodalDofDefinition.h"

#include <vector>

#include "python/ddb_py.h"
#include "python/ddb_py_checks.h"

namespace ddb_py {
namespace {

const char kNotActive[] = "ATTEMPTED TO SET SOLVER DOF THAT IS NOT AN ACTIVE MESH DOF.";
const char kInconsistent[] = "THE SOLVER AND FE MESH HAVE AN INCONSISTENT NUMBER OF DOFS.";

typedef py::array_t<bool, py::array::c_style | py::array::forcecast> BoolArray;

void CheckIndex(long long value, long long limit, const char* what) {
  if (value < 0 || value >= limit) {
    throw py::index_error(std::string(what) + " " + std::to_string(value) +
                          (limit > 0 ? " out of range 0.." + std::to_string(limit - 1)
                                     : " out of range: there are none"));
  }
}

void CheckNodeCount(long long nodes) {
  if (nodes > fesD_NodalDofDefinition::kMaxNodes) {
    throw Error(std::string("NODE COUNT OUTSIDE THE RANGE OF THE NODAL DOF NUMBERING.\n") +
                "NODES / LIMIT: " + std::to_string(nodes) + " / " +
                std::to_string(fesD_NodalDofDefinition::kMaxNodes));
  }
}

class Numbering {
 public:
  explicit Numbering(std::unique_ptr<fesD_NodalDofDefinition> definition)
      : m_def(std::move(definition)) {
    const int* masks = m_def->ActivityMasks();
    for (int i = 0; i < m_def->NumberOfNodes(); ++i) m_union |= static_cast<uint32_t>(masks[i]);
  }

  const fesD_NodalDofDefinition& def() const { return *m_def; }
  fesD_NodalDofDefinition& def() { return *m_def; }

  int Nodes() const { return m_def->NumberOfNodes(); }
  int Dofs() const { return m_def->NumberOfDofs(); }
  int MaxNodalDof() const { return m_def->MaxNodalDof(); }

  void CheckNode(int node) const { CheckIndex(node, Nodes(), "node"); }
  void CheckDofId(int dofId) const { CheckIndex(dofId, MaxNodalDof(), "DOF id"); }
  void CheckSystemDof(int dof) const { CheckIndex(dof, Dofs(), "system DOF"); }
  void CheckLabel(int label) const {
    if (label < 1 || label > 32 || ((m_union >> (label - 1)) & 1u) == 0) {
      throw py::index_error("label " + std::to_string(label) + " is not a label of the numbering");
    }
  }
  const fesD_NodalDofDefinition& Solver() const {
    if (!m_solver) throw Error("no solver ordering: call setup_solver_dofs first");
    return *m_def;
  }

  // The three solver forms, checked as the library would check them.
  void SetupFromArray(py::handle order) {
    if (py::isinstance<py::int_>(order)) {
      long long n = order.cast<long long>();
      if (n < 0 || n > Dofs()) throw Error(kInconsistent);
      m_def->SetupSolverDofs(static_cast<int>(n), nullptr);
    } else {
      auto values = Int32Array(order, "solver_to_system");
      CheckOrder(values.data(), values.size());
      m_def->SetupSolverDofs(static_cast<int>(values.size()), values.data());
    }
    m_solver = true;
  }

  void SetupFromSet(const IdRef<QELSimCSetID>& ordering) {
    QELSimCSet set(ordering.get());
    int n = ReadCount([&] { return set.Size(); });
    std::vector<int> members(static_cast<size_t>(n));
    Messages messages;
    if (n > 0) set.OrderedMembers(members.data());
    Settle(messages.Take(), true);
    CheckOrder(members.data(), n);
    Change([&] { m_def->SetupSolverDofs(ordering.get()); });
    m_solver = true;
  }

  void SetupFromNodeMasks(py::handle solverMasks, py::handle nodeRank) {
    auto masks = Int32Array(solverMasks, "solver_masks");
    const int n = Nodes();
    if (masks.size() != n) {
      throw py::value_error("solver_masks: " + std::to_string(masks.size()) + " masks for " +
                            std::to_string(n) + " nodes");
    }
    std::vector<int> byRank(static_cast<size_t>(n));
    py::array_t<int32_t, py::array::c_style | py::array::forcecast> ranks;
    if (!nodeRank.is_none()) {
      ranks = Int32Array(nodeRank, "node_rank");
      std::vector<char> taken(static_cast<size_t>(n), 0);
      bool permutation = ranks.size() == n;
      for (int i = 0; permutation && i < n; ++i) {
        int rank = ranks.data()[i];
        permutation = rank >= 1 && rank <= n && !taken[rank - 1];
        if (permutation) {
          taken[rank - 1] = 1;
          byRank[rank - 1] = i;
        }
      }
      if (!permutation) {
        throw py::value_error("node_rank: a permutation of 1 .. " + std::to_string(n) +
                              " is expected, one rank per node");
      }
    } else {
      for (int i = 0; i < n; ++i) byRank[i] = i;
    }
    const int* mesh = m_def->ActivityMasks();
    for (int node : byRank) {
      int solver = masks.data()[node];
      if ((static_cast<uint32_t>(solver) & ~static_cast<uint32_t>(mesh[node])) != 0) {
        throw Error("ATTEMPTED TO ACTIVATE AN INVALID NODAL DOF.\nSOLVER/MESH DOF MASK: " +
                    std::to_string(solver) + " / " + std::to_string(mesh[node]));
      }
    }
    m_def->SetupSolverDofs(nodeRank.is_none() ? nullptr : ranks.data(), masks.data());
    m_solver = true;
  }

 private:
  void CheckOrder(const int* order, long long n) const {
    if (n > Dofs()) throw Error(kInconsistent);
    std::vector<char> seen(static_cast<size_t>(Dofs()), 0);
    for (long long i = 0; i < n; ++i) {
      int s = order[i];
      if (s < 0 || s >= Dofs()) throw Error(kNotActive);
      if (seen[s]) throw Error(kInconsistent);
      seen[s] = 1;
    }
  }

  std::unique_ptr<fesD_NodalDofDefinition> m_def;
  uint32_t m_union = 0;
  bool m_solver = false;
};

// A copy of `values` (each checked to lie in 0 .. limit-1) that `map`
// replaces in place.
py::array_t<int32_t> MapCopy(const Numbering& self, py::handle values, long long limit,
                             const char* what,
                             void (fesD_NodalDofDefinition::*map)(int*, int) const) {
  auto in = Int32Array(values, what);
  py::array_t<int32_t> out = NewInt32Array(in.size());
  for (py::ssize_t i = 0; i < in.size(); ++i) {
    CheckIndex(in.data()[i], limit, what);
    out.mutable_data()[i] = in.data()[i];
  }
  (self.def().*map)(out.mutable_data(), static_cast<int>(out.size()));
  return out;
}

// What `pick` answers for the selected nodes (one flag per node).
py::array_t<int32_t> OfNodes(const Numbering& self, py::handle selected,
                             int* (fesD_NodalDofDefinition::*pick)(const bool*, int&) const) {
  BoolArray flags = BoolArray::ensure(selected);
  if (!flags || flags.ndim() != 1 || flags.size() != self.Nodes()) {
    throw py::value_error("selected: one flag per node is expected (" +
                          std::to_string(self.Nodes()) + ")");
  }
  int count = 0;
  int* values = (self.def().*pick)(flags.data(), count);
  return Adopt(values, count);
}

fesD_FESystem SystemOf(const Object& system) {
  system.Require();
  fesD_FESystem handle(system.Generic());
  if (!handle) throw py::type_error("an FESystem is expected");
  return handle;
}

// A query of one index, as a function of ints or arrays of them: the index
// checked, the solver ordering required where the query needs it.
enum Needs { kNodal, kSolver };
auto Query(void (Numbering::*check)(int) const, int (fesD_NodalDofDefinition::*answer)(int) const,
           Needs needs) {
  return py::vectorize([=](Numbering& self, int index) {
    if (needs == kSolver) self.Solver();
    (self.*check)(index);
    return (self.def().*answer)(index);
  });
}

// A conversion of fesD_Utilities as an array of the count it answers plus
// `extra` entries. Any message means the system's labels could not be read.
py::array_t<int32_t> NodeLabels(const Object& system, int* (*convert)(fesD_FESystem, int&),
                                int extra) {
  fesD_FESystem handle = SystemOf(system);
  int count = 0;
  Messages messages;
  int* values = convert(handle, count);
  py::array_t<int32_t> out = Adopt(values, static_cast<py::ssize_t>(count) + extra);
  Settle(messages.Take(), true);
  return out;
}

// (node, DOF id) of a packed code, as two results of the same shape.
template <class F>
py::tuple NodeDofs(const Numbering& self, py::handle positions, F nodeDof) {
  auto node = py::vectorize([&](int i) { return nodeDof(self, i).node; });
  auto dof = py::vectorize([&](int i) { return nodeDof(self, i).dof; });
  return py::make_tuple(node(py::reinterpret_borrow<py::object>(positions)),
                        dof(py::reinterpret_borrow<py::object>(positions)));
}

// The numbering of a mask distribution. The library stops the process on a
// distribution it cannot read, so what it would stop on is checked first.
Numbering FromDistribution(const IdRef<QELSimDistributionID>& masks, long long shift,
                           bool addLabel10) {
  CheckShift(shift);
  const QELSimDistributionID& id = masks.get();
  Messages messages;
  int drawers = QELSimDistributionRef(id).NumDrawers();
  std::string text = messages.Take();
  if (drawers != 1) throw Error(text.empty() ? "a mask distribution has one drawer" : text);
  QELSimPersistentDrawerDesc drawer = Drawer(id);
  const int nodes = drawer.DataSizeItems(0);
  CheckNodeCount(nodes);
  CheckStoredMasks(id, drawer, nodes, static_cast<int>(shift), addLabel10);
  std::unique_ptr<fesD_NodalDofDefinition> definition;
  Messages reading;
  definition.reset(new fesD_NodalDofDefinition(id, static_cast<int>(shift), addLabel10));
  Settle(reading.Take(), true);
  return Numbering(std::move(definition));
}

// The numbering of an array of masks, copied into the block the library adopts.
Numbering FromMasks(py::handle masks, long long shift, bool addLabel10) {
  CheckShift(shift);
  auto values = Int32Array(masks, "masks");
  CheckNodeCount(values.size());
  CheckMaskArgument(values.data(), values.size(), static_cast<int>(shift), addLabel10);
  int n = static_cast<int>(values.size());
  int* copy = static_cast<int*>(mem_OperatorNewThrowBuiltin(mem_ArraySize(n, sizeof(int))));
  std::copy(values.data(), values.data() + n, copy);
  return Numbering(
      std::make_unique<fesD_NodalDofDefinition>(copy, n, static_cast<int>(shift), addLabel10));
}

}  // namespace

void BindNumbering(py::module_& m) {
  py::class_<Numbering> numbering(
      m, "NodalDofDefinition",
      "The numbering of the active DOFs of a mesh from per-node activity masks (bit label-1 set: "
      "that DOF label exists at the node), and its relation to a solver's order of unknowns.");
  DefineConstructor(numbering, &FromDistribution, py::arg("masks"), py::arg("shift") = 0,
                    py::arg("add_label10") = false);
  DefineConstructor(numbering, &FromMasks, py::arg("masks"), py::arg("shift") = 0,
                    py::arg("add_label10") = false);
  numbering.def_property_readonly("number_of_nodes", &Numbering::Nodes)
      .def_property_readonly("max_nodal_dof", &Numbering::MaxNodalDof)
      .def_property_readonly("number_of_dofs", &Numbering::Dofs)
      .def_property_readonly(
          "activity_masks",
          [](py::object self) {
            const Numbering& n = self.cast<const Numbering&>();
            py::array_t<int32_t> view(n.Nodes(), n.def().ActivityMasks(), self);
            view.attr("setflags")(py::arg("write") = false);
            return view;
          },
          "The prepared mask of each node (a read-only view).")
      .def("system_dof_id",
           Query(&Numbering::CheckLabel, &fesD_NodalDofDefinition::SystemDofId, kNodal),
           py::arg("label"))
      .def("dof_label", Query(&Numbering::CheckDofId, &fesD_NodalDofDefinition::DofLabel, kNodal),
           py::arg("dof_id"))
      .def("system_ordinal", py::vectorize([](Numbering& self, int node, int dofId) {
             self.CheckNode(node);
             self.CheckDofId(dofId);
             return self.def().SystemOrdinal(node, dofId);
           }),
           py::arg("node"), py::arg("dof_id"),
           "The system DOF of (node, DOF id), or -1 where the label is not active.")
      .def(
          "nodal_dof_ids",
          [](const Numbering& self, int node) {
            self.CheckNode(node);
            int count = 0;
            const int* ids = self.def().NodalDofIds(node, count);
            py::array_t<int32_t> out = NewInt32Array(count);
            std::copy(ids, ids + count, out.mutable_data());
            return out;
          },
          py::arg("node"))
      .def(
          "node_dof_from_system_dof",
          [](const Numbering& self, py::handle systemDof) {
            return NodeDofs(self, systemDof, [](const Numbering& n, int s) {
              n.CheckSystemDof(s);
              return n.def().NodeDofFromSystemDof(s);
            });
          },
          py::arg("system_dof"), "(node, DOF id) of system DOFs.")
      .def(
          "max_dof_to_system_ordinals",
          [](const Numbering& self, py::handle values) {
            return MapCopy(self, values, static_cast<long long>(self.Nodes()) * self.MaxNodalDof(),
                           "flat index", &fesD_NodalDofDefinition::MaxDofToSystemOrdinals);
          },
          py::arg("values"), "System ordinals of flat indices node * max_nodal_dof + DOF id.")
      .def(
          "system_dofs_from_nodes",
          [](const Numbering& self, py::handle selected) {
            return OfNodes(self, selected, &fesD_NodalDofDefinition::SystemDofsFromNodes);
          },
          py::arg("selected"), "The system DOFs of the selected nodes, ascending.")
      .def("setup_solver_dofs", &Numbering::SetupFromSet, py::arg("ordering"),
           "The solver order from an ordered set of system DOFs.")
      .def("setup_solver_dofs", &Numbering::SetupFromNodeMasks, py::kw_only(),
           py::arg("solver_masks"), py::arg("node_rank") = py::none(),
           "The solver order from per-node solver masks, nodes by 1-based rank (None: in index "
           "order).")
      .def("setup_solver_dofs", &Numbering::SetupFromArray, py::arg("solver_to_system"),
           "The solver order: the solver's system DOFs in its order, or a count n for system "
           "DOFs 0 .. n-1.")
      .def_property_readonly(
          "number_of_solver_dofs",
          [](const Numbering& self) { return self.Solver().NumberOfSolverDofs(); })
      .def_property_readonly(
          "number_of_solver_acoustic_dofs",
          [](const Numbering& self) { return self.Solver().NumberOfSolverAcousticDofs(); })
      .def("system_dof_from_solver_dof",
           Query(&Numbering::CheckSystemDof, &fesD_NodalDofDefinition::SystemDofFromSolverDof,
                 kSolver),
           py::arg("solver_dof"))
      .def(
          "node_dof_from_solver_dof",
          [](const Numbering& self, py::handle solverDof) {
            self.Solver();
            return NodeDofs(self, solverDof, [](const Numbering& n, int s) {
              n.CheckSystemDof(s);
              return n.def().NodeDofFromSolverDof(s);
            });
          },
          py::arg("solver_dof"), "(node, DOF id) of solver positions.")
      .def("solver_dof_id_from_system_dof_id",
           Query(&Numbering::CheckDofId, &fesD_NodalDofDefinition::SolverDofIdFromSystemDofId,
                 kSolver),
           py::arg("dof_id"))
      .def("system_dof_id_from_solver_dof_id",
           Query(&Numbering::CheckDofId, &fesD_NodalDofDefinition::SystemDofIdFromSolverDofId,
                 kSolver),
           py::arg("solver_dof_id"))
      .def(
          "mapping_to_solver_dofs",
          [](const Numbering& self) {
            py::array_t<int32_t> out = NewInt32Array(self.Solver().NumberOfDofs());
            self.def().MappingToSolverDofs(out.mutable_data());
            return out;
          },
          "The solver position of every system DOF.")
      .def(
          "map_to_solver_dofs",
          [](const Numbering& self, py::handle values) {
            self.Solver();
            return MapCopy(self, values, self.Dofs(), "system DOF",
                           &fesD_NodalDofDefinition::MapToSolverDofs);
          },
          py::arg("values"), "The solver positions of system DOFs.")
      .def(
          "solver_dofs_from_nodes",
          [](const Numbering& self, py::handle selected) {
            self.Solver();
            return OfNodes(self, selected, &fesD_NodalDofDefinition::SolverDofsFromNodes);
          },
          py::arg("selected"), "The solver positions of the selected nodes' DOFs, ascending.")
      .def(
          "write_permutation",
          [](const Numbering& self, const IdRef<QELSimCollectionID>& collection) {
            const fesD_NodalDofDefinition& def = self.Solver();
            QELSimCSetID set = Read([&] { return def.WritePermutation(collection.get()); });
            return IdRef<QELSimCSetID>(set, collection.life());
          },
          py::arg("collection"),
          "Stores the solver's system DOFs, in solver order, as a new ordered set of "
          "`collection`.");

  m.def(
      "internal_to_user_nodes",
      [](const Object& system) {
        return NodeLabels(system, &fesD_Utilities::InternalToUserNodes, 0);
      },
      py::arg("system"), "The user label of each node of the system, by internal number.");
  m.def(
      "user_to_internal_nodes",
      [](const Object& system) {
        return NodeLabels(system, &fesD_Utilities::UserToInternalNodes, 1);
      },
      py::arg("system"),
      "The internal node of each user label (-1 where none), max label + 1 entries.");
}

}  // namespace ddb_py
