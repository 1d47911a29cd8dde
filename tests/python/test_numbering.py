"""The DOF numbering and the node label conversions from Python: the small
cases that pin each query, the checks that replace the library's stops, and
every answer compared with what the C++ library computed on real decks."""
import os

import numpy as np
import pytest

import ddb_pdm as ddb
from conftest import deck_folder, program, run

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


@pytest.mark.parametrize("deck", ["segmentbeam.inp", "crackIIcum.inp.gz"])
def test_numbering_matches_the_library_on_a_deck(tmp_path, deck):
    """Every answer the helper stored from the C++ library, asked again through the module."""
    file = tmp_path / (deck + ".sim")
    summary = run(program("DDB_TEST_HELPER"), "deck", os.path.join(deck_folder(), deck), str(file))
    with ddb.open(file, mode="r+") as sim:
        system = sim.discrete_model.mesh.systems[0]
        assert isinstance(system, ddb.ModalSystem)
        want = {name: field.values() for name, field in system.user_distributions.items()}
        n = ddb.NodalDofDefinition(system.nodal_activity_mask)
        nodes, dofs, width = n.number_of_nodes, n.number_of_dofs, n.max_nodal_dof
        assert summary == f"{nodes} nodes, {dofs} DOFs\n" and nodes > 600
        from_array = ddb.NodalDofDefinition(system.nodal_activity_mask.values())
        assert np.array_equal(from_array.activity_masks, n.activity_masks)

        got = {}
        got["node_of_dof"], got["dof_of_dof"] = n.node_dof_from_system_dof(np.arange(dofs))
        got["dof_labels"] = n.dof_label(np.arange(width))
        got["system_ordinals"] = n.max_dof_to_system_ordinals(np.arange(nodes * width))
        even = np.arange(nodes) % 2 == 0
        got["system_dofs_of_even_nodes"] = n.system_dofs_from_nodes(even)
        grid = n.system_ordinal(np.arange(nodes)[:, None], np.arange(width)[None, :])
        assert np.array_equal(grid.ravel(), got["system_ordinals"])

        def solver_answers(prefix):
            got[prefix + "solver_to_system"] = n.system_dof_from_solver_dof(
                np.arange(n.number_of_solver_dofs))
            got[prefix + "mapping"] = n.mapping_to_solver_dofs()
            got[prefix + "solver_dof_ids"] = n.solver_dof_id_from_system_dof_id(np.arange(width))
            got[prefix + "system_dof_ids"] = n.system_dof_id_from_solver_dof_id(np.arange(width))
            got[prefix + "solver_dofs_of_even_nodes"] = n.solver_dofs_from_nodes(even)

        # As the helper: each node's highest label left out, nodes in reverse order.
        kept = [m & ~(1 << (int(m).bit_length() - 1)) if m else 0 for m in n.activity_masks]
        n.setup_solver_dofs(solver_masks=kept, node_rank=nodes - np.arange(nodes))
        solver_answers("g_")
        n.setup_solver_dofs(np.arange(dofs - 1, -1, -2))
        solver_answers("e_")
        assert np.array_equal(n.map_to_solver_dofs(np.arange(dofs)), got["e_mapping"])
        permutation = n.write_permutation(system.dofs)
        assert np.array_equal(permutation.members(), system.solver_dof_ordering.members())
        from_set = ddb.NodalDofDefinition(system.nodal_activity_mask)
        from_set.setup_solver_dofs(system.solver_dof_ordering)
        assert np.array_equal(from_set.mapping_to_solver_dofs(), got["e_mapping"])

        got["internal_to_user"] = ddb.internal_to_user_nodes(system)
        got["user_to_internal"] = ddb.user_to_internal_nodes(system)
        assert np.array_equal(got["internal_to_user"], system.nodal_labels.values())
        assert set(got) == set(want)
        for name in want:
            assert got[name].dtype == np.int32, name
            assert np.array_equal(got[name], want[name]), name
