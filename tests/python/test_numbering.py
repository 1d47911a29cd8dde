"""The DOF numbering and the node label conversions from Python: the small
cases that pin each query's route through the module (its conversions and
int32 results), and the checks that replace the library's stops. The
numbering's own answers are pinned by tests/fes/nodal_dofs_test.cpp."""
import numpy as np
import pytest

import ddb_pdm as ddb
from conftest import make_tree

INT32 = np.dtype(np.int32)

INCONSISTENT = "THE SOLVER AND FE MESH HAVE AN INCONSISTENT NUMBER OF DOFS."
NOT_ACTIVE = "ATTEMPTED TO SET SOLVER DOF THAT IS NOT AN ACTIVE MESH DOF."


def test_nodal_tables():
    n = ddb.NodalDofDefinition([0b011, 0b101])
    assert (n.number_of_nodes, n.max_nodal_dof, n.number_of_dofs) == (2, 3, 4)
    nodes, ids = n.node_dof_from_system_dof(np.arange(4))
    assert nodes.tolist() == [0, 0, 1, 1] and n.dof_label(ids).tolist() == [1, 2, 1, 3]
    assert n.node_dof_from_system_dof(3) == (1, 2)
    assert n.system_ordinal(1, 1) == -1
    # Scalars give scalars; arrays broadcast.
    table = n.system_ordinal(np.arange(2)[:, None], np.arange(3)[None, :])
    assert table.tolist() == [[0, 1, -1], [2, -1, 3]]
    assert n.max_dof_to_system_ordinals([5, 0, 1]).tolist() == [3, 0, 1]
    assert n.nodal_dof_ids(1).tolist() == [0, 2]
    assert n.system_dofs_from_nodes([False, True]).tolist() == [2, 3]
    assert n.system_dof_id([1, 2, 3]).tolist() == [0, 1, 2]
    assert n.activity_masks.tolist() == [3, 5] and not n.activity_masks.flags.writeable
    results = (nodes, ids, n.dof_label(ids), n.max_dof_to_system_ordinals([0]), n.nodal_dof_ids(1),
               n.system_dofs_from_nodes([True, True]), n.activity_masks)
    assert {a.dtype for a in results} == {INT32}

    one = ddb.NodalDofDefinition(np.array([0b1000, 0b1000]))
    assert (one.max_nodal_dof, one.system_dof_id(4), one.dof_label(0)) == (1, 0, 4)
    assert ddb.NodalDofDefinition([0x80], add_label10=True).activity_masks.tolist() == [0x280]
    assert ddb.NodalDofDefinition([0x3], shift=16).activity_masks.tolist() == [0x30003]
    assert ddb.NodalDofDefinition([0, 1]).nodal_dof_ids(0).tolist() == []

    empty = ddb.NodalDofDefinition([])
    assert (empty.number_of_dofs, empty.max_nodal_dof) == (0, 0)
    empty.setup_solver_dofs(0)
    assert empty.number_of_solver_dofs == 0


def test_solver_forms(root, tmp_path):
    n = ddb.NodalDofDefinition([0b011, 0b101])
    n.setup_solver_dofs([3, 0])
    assert n.mapping_to_solver_dofs().tolist() == [1, 2, 3, 0]
    assert n.system_dof_from_solver_dof(np.arange(4)).tolist() == [3, 0, 1, 2]
    assert n.map_to_solver_dofs([0, 3]).tolist() == [1, 0]
    assert n.solver_dofs_from_nodes([True, False]).tolist() == [1, 2]
    assert n.node_dof_from_solver_dof(0) == (1, 2)
    sim = root.create_sim(tmp_path / "perm.sim")
    nodes = sim.service.create_collection(2).create_ordered_set([0, 1])
    stored = ddb.NodalDofDefinition(nodes.create_int32([0b011, 0b101]), shift=1)
    assert stored.activity_masks.tolist() == [0b111, 0b1111]
    dofs = sim.service.create_collection(4)
    permutation = n.write_permutation(dofs)
    assert permutation.members().tolist() == [3, 0] and permutation.collection == dofs
    again = ddb.NodalDofDefinition([0b011, 0b101])
    again.setup_solver_dofs(permutation)
    assert again.mapping_to_solver_dofs().tolist() == [1, 2, 3, 0]

    n.setup_solver_dofs(solver_masks=[0b001, 0b101], node_rank=[2, 1])
    assert n.system_dof_from_solver_dof(np.arange(4)).tolist() == [2, 3, 0, 1]
    assert n.number_of_solver_dofs == 3
    assert n.solver_dof_id_from_system_dof_id([0, 1, 2]).tolist() == [0, -1, 1]
    assert n.system_dof_id_from_solver_dof_id([0, 1, 2]).tolist() == [0, 2, -1]
    assert n.mapping_to_solver_dofs().tolist() == [2, 3, 0, 1]
    results = (n.system_dof_from_solver_dof([0]), n.mapping_to_solver_dofs(), n.map_to_solver_dofs([0]),
               n.solver_dofs_from_nodes([True, True]), n.solver_dof_id_from_system_dof_id([0]),
               n.system_dof_id_from_solver_dof_id([0]), n.node_dof_from_solver_dof([0])[0])
    assert {a.dtype for a in results} == {INT32}

    acoustic = ddb.NodalDofDefinition([0x80, 0x81])
    acoustic.setup_solver_dofs(solver_masks=[0x80, 0x80])
    assert acoustic.number_of_solver_acoustic_dofs == 0  # this form does not count them
    acoustic.setup_solver_dofs(3)
    assert acoustic.number_of_solver_acoustic_dofs == 2


def test_what_the_library_would_stop_on_raises():
    n = ddb.NodalDofDefinition([0b011, 0b101])
    for query in (lambda: n.number_of_solver_dofs, lambda: n.mapping_to_solver_dofs(),
                  lambda: n.system_dof_from_solver_dof(0), lambda: n.solver_dofs_from_nodes([1, 1])):
        with pytest.raises(ddb.Error, match="^no solver ordering: call setup_solver_dofs first$"):
            query()
    refused = [
        (lambda: n.setup_solver_dofs([1, 1]), INCONSISTENT),
        (lambda: n.setup_solver_dofs([0, 1, 2, 3, 0]), INCONSISTENT),
        (lambda: n.setup_solver_dofs(5), INCONSISTENT),
        (lambda: n.setup_solver_dofs([4]), NOT_ACTIVE),
        (lambda: n.setup_solver_dofs([-1]), NOT_ACTIVE),
        (lambda: n.setup_solver_dofs(solver_masks=[0b011, 0b011], node_rank=[2, 1]),
         "ATTEMPTED TO ACTIVATE AN INVALID NODAL DOF.\nSOLVER/MESH DOF MASK: 3 / 5"),
        (lambda: ddb.NodalDofDefinition(np.zeros(16777216, dtype=np.int32)),
         "NODE COUNT OUTSIDE THE RANGE OF THE NODAL DOF NUMBERING.\nNODES / LIMIT: 16777216 / 16777215"),
    ]
    for call, message in refused:
        with pytest.raises(ddb.Error) as caught:
            call()
        assert str(caught.value) == message
    wrong_index_or_shape = [
        (lambda: n.system_ordinal(2, 0), IndexError), (lambda: n.system_ordinal(0, 3), IndexError),
        (lambda: n.dof_label(-1), IndexError), (lambda: n.system_dof_id(4), IndexError),
        (lambda: n.system_dof_id(0), IndexError), (lambda: n.nodal_dof_ids(-1), IndexError),
        (lambda: n.node_dof_from_system_dof([0, 4]), IndexError),
        (lambda: n.max_dof_to_system_ordinals([6]), IndexError),
        (lambda: n.setup_solver_dofs(solver_masks=[1]), ValueError),
        (lambda: n.setup_solver_dofs(solver_masks=[1, 1], node_rank=[1, 1]), ValueError),
        (lambda: n.setup_solver_dofs(solver_masks=[1, 1], node_rank=[0, 1]), ValueError),
        (lambda: n.system_dofs_from_nodes([True]), ValueError),
    ]
    for call, error in wrong_index_or_shape:
        with pytest.raises(error):
            call()
    n.setup_solver_dofs(2)
    with pytest.raises(IndexError):
        n.map_to_solver_dofs([4])


def test_node_labels_of_plain_and_derived_systems(root, tmp_path):
    sim, c = make_tree(root, tmp_path / "labels.sim")
    labels = sim.service.create_collection(3).create_ordered_set([0, 1, 2]).create_int32([4, 8, 2])
    modal = sim.discrete_model.mesh.systems.append(ddb.ModalSystem.new("m", labels, None, c, c))
    for system in (ddb.FESystem.new("f", labels, None), modal):
        to_user, to_internal = ddb.internal_to_user_nodes(system), ddb.user_to_internal_nodes(system)
        assert to_user.tolist() == [4, 8, 2]
        assert to_internal.tolist() == [-1, -1, 2, -1, 0, -1, -1, -1, 1]
        assert to_user.dtype == to_internal.dtype == INT32
