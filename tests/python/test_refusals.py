"""What the module refuses before the library sees it, so that an exception
means nothing changed and nothing input can stop the interpreter: masks the
numbering would stop on, changes of a read-only database, identifiers of
another database, NUL characters in texts, and the damaged files of the
reliability suite fed to the numbering."""
import os
import subprocess
import sys

import numpy as np
import pytest

import ddb_pdm as ddb
from conftest import make_tree, program, run

LABEL32 = "NODAL DOF MASK WITH LABEL 32 SET.\nNODE / MASK: {} / {}"


def prepared(mask, shift, add_label10=False):
    """A mask as the numbering prepares it, as the int32 the library prints."""
    m = mask & 0xFFFFFFFF
    if add_label10 and m & 0x80:
        m |= 0x200
    m |= (m << shift) & 0xFFFFFFFF
    return int(np.array([m], dtype=np.uint32).view(np.int32)[0])


def test_numbering_arguments_it_would_stop_on_raise_value_error():
    cases = [
        (lambda: ddb.NodalDofDefinition([-1]),
         "masks: the mask of node 0 is negative (-1); labels are 1 .. 31"),
        (lambda: ddb.NodalDofDefinition([1, -2**31]),
         "masks: the mask of node 1 is negative (-2147483648); labels are 1 .. 31"),
        (lambda: ddb.NodalDofDefinition([7], shift=29),
         "masks: the mask of node 0 (7) reaches label 32 with shift 29; labels are 1 .. 31"),
        (lambda: ddb.NodalDofDefinition([0, 0x80], shift=22, add_label10=True),
         "masks: the mask of node 1 (128) reaches label 32 with shift 22; labels are 1 .. 31"),
        (lambda: ddb.NodalDofDefinition([1], shift=40), "shift: 40 is outside 0 .. 31"),
        (lambda: ddb.NodalDofDefinition([1], shift=32), "shift: 32 is outside 0 .. 31"),
        (lambda: ddb.NodalDofDefinition([1], shift=-1), "shift: -1 is outside 0 .. 31"),
    ]
    for call, message in cases:
        with pytest.raises(ValueError) as caught:
            call()
        assert str(caught.value) == message
    # The edges that are taken: label 31 from a shift, and shift 30 on label 1.
    assert ddb.NodalDofDefinition([1 << 29], shift=1).activity_masks.tolist() == [0x60000000]
    assert ddb.NodalDofDefinition([1], shift=30).number_of_dofs == 2
    assert ddb.NodalDofDefinition([0x80], shift=21, add_label10=True).max_nodal_dof == 4


def test_stored_masks_it_would_stop_on_raise_the_library_lines(root, tmp_path):
    sim, _ = make_tree(root, tmp_path / "masks.sim")
    order = sim.service.create_collection(3).create_ordered_set([2, 0, 1])
    cases = [
        (order.create_int32([1, -1, 3]), 0, False, LABEL32.format(1, -1)),
        (order.create_int32([0, 2, -2**31]), 0, False, LABEL32.format(2, -2**31)),
        (order.create_int32([1, 7, 1]), 29, False, LABEL32.format(1, prepared(7, 29))),
        (order.create_int32([0x80, 0, 0]), 22, True, LABEL32.format(0, prepared(0x80, 22, True))),
    ]
    for masks, shift, add10, message in cases:
        with pytest.raises(ddb.Error) as caught:
            ddb.NodalDofDefinition(masks, shift=shift, add_label10=add10)
        assert str(caught.value) == message
    with pytest.raises(ValueError, match=r"^shift: 33 is outside 0 \.\. 31$"):
        ddb.NodalDofDefinition(order.create_int32([1, 1, 1]), shift=33)
    assert ddb.NodalDofDefinition(order.create_int32([1, 7, 1]), shift=28).number_of_dofs == 10


def test_read_only_database_refuses_every_change_before_it_happens(tmp_path, capfd):
    file = tmp_path / "ro.sim"
    with ddb.Root() as root:
        sim, c = make_tree(root, file)
        mesh = sim.discrete_model.mesh
        for name in ("a", "b", "c", "d"):
            mesh.systems.append(ddb.FESystem.new(name, None, None))
        mesh.node_sets = {"all": c.create_ordered_set([0, 1, 2])}
    refused = f"{file} is open read-only; nothing was changed"
    with ddb.open(file) as sim:
        mesh = sim.discrete_model.mesh
        before = mesh.node_sets
        offered = ddb.FESystem.new("e", None, None)
        with pytest.raises(ddb.Error) as caught:
            mesh.systems.append(offered)
        assert str(caught.value) == "FESystem: " + refused
        assert len(mesh.systems) == 4
        offered.system_name = "still mine"  # not handed over: it is still the caller's
        with pytest.raises(ddb.Error) as caught:
            mesh.node_sets = {"other": before["all"]}
        assert str(caught.value) == "Mesh: " + refused
        assert list(mesh.node_sets) == ["all"]
        with pytest.raises(ddb.Error, match="^Mesh: .* is open read-only; nothing was changed$"):
            mesh.faces = mesh.nodes
        assert mesh.faces is None
        with pytest.raises(ddb.Error, match="^FESystem: .* is open read-only"):
            mesh.systems[0].system_name = "x"
        assert mesh.systems[0].system_name == "a"
        model = sim.discrete_model
        with pytest.raises(ddb.Error, match="^Mesh: .* is open read-only"):
            model.mesh = ddb.Mesh.new(None, None)
    with ddb.open(file) as sim:
        mesh = sim.discrete_model.mesh
        assert [s.system_name for s in mesh.systems] == ["a", "b", "c", "d"]
        assert list(mesh.node_sets) == ["all"] and mesh.faces is None
    assert capfd.readouterr().err == ""


def test_identifiers_of_another_database_are_refused_whole(root, tmp_path):
    a, ca = make_tree(root, tmp_path / "a.sim", alias="a")
    b, cb = make_tree(root, tmp_path / "b.sim", alias="b")
    labels_a = ca.create_ordered_set([0, 1]).create_int32([1, 2])
    labels_b = cb.create_ordered_set([0, 1]).create_int32([1, 2])
    mesh_b = b.discrete_model.mesh
    mesh_b.systems.append(ddb.FESystem.new("own", labels_b, labels_b))
    foreign = f"an identifier of {tmp_path / 'a.sim'} cannot be stored in {tmp_path / 'b.sim'}"

    offered = ddb.FESystem.new("mixed", labels_b, labels_a)
    with pytest.raises(ddb.Error) as caught:
        mesh_b.systems.append(offered)
    assert str(caught.value) == f"FESystem: {foreign}; nothing was changed"
    assert len(mesh_b.systems) == 1
    offered.system_name = "still mine"  # not handed over: it is still the caller's
    assert offered.system_name == "still mine"

    # Through a sub-object of the offered object, and through a map.
    modal = ddb.ModalSystem.new("modal", labels_b, labels_b, cb, cb)
    modal.events.append(ddb.ModalEvent.new("e", 1, ca, cb))
    with pytest.raises(ddb.Error, match="^ModalSystem: an identifier of .*a.sim cannot be stored"):
        mesh_b.systems.append(modal)
    sub = ddb.SubstructureSystem.new("sub", labels_b, labels_b, cb, cb, cb)
    sub.damping = ddb.SubDamp.new()
    sub.user_distributions = {"t": labels_a}
    with pytest.raises(ddb.Error, match="^SubstructureSystem: an identifier of .*a.sim"):
        mesh_b.systems.append(sub)
    with pytest.raises(ddb.Error) as caught:
        mesh_b.node_sets = {"n": cb.create_ordered_set([1]), "m": ca.create_ordered_set([1])}
    assert str(caught.value) == f"Mesh: {foreign}; nothing was changed"
    assert mesh_b.node_sets == {}
    with pytest.raises(ddb.Error, match="^Mesh: an identifier of"):
        mesh_b.faces = ca
    assert mesh_b.faces is None and len(mesh_b.systems) == 1
    mesh_b.faces = cb  # its own are taken
    b.close()
    with ddb.open(tmp_path / "b.sim") as again:
        systems = again.discrete_model.mesh.systems
        assert [s.system_name for s in systems] == ["own"]
        assert again.discrete_model.mesh.faces.size == 5


def test_nul_characters_are_refused_in_aliases_as_in_names(root, tmp_path):
    message = "a text of the database cannot hold a NUL character"
    with pytest.raises(ValueError) as caught:
        root.create_sim(tmp_path / "n.sim", alias="nul\x00x")
    assert str(caught.value) == "alias: " + message
    assert not (tmp_path / "n.sim").exists()
    with pytest.raises(ValueError) as caught:
        ddb.FESystem.new("a\x00b", None, None)
    assert str(caught.value) == message
    root.create_sim(tmp_path / "n.sim", alias="nul")  # nothing was taken
    with pytest.raises(ValueError, match="^alias: a text"):
        root.open_sim_read_only(tmp_path / "n.sim", alias="\x00")


CHILD = r"""
import glob, os, sys, warnings
import ddb_pdm as ddb
warnings.simplefilter("ignore")
outcomes = {"numbered": 0, "refused": 0, "label32": 0, "unreadable": 0}
for file in sorted(glob.glob(os.path.join(sys.argv[1], "*.sim"))):
    try:
        sim = ddb.open(file)
    except ddb.Error:
        outcomes["unreadable"] += 1
        continue
    with sim:
        try:
            systems = list(sim.discrete_model.mesh.systems)
        except (ddb.Error, AttributeError):
            outcomes["unreadable"] += 1
            continue
        for system in systems:
            try:
                masks = system.nodal_activity_mask
                numbering = ddb.NodalDofDefinition(masks)
                numbering.setup_solver_dofs(numbering.number_of_dofs)
                outcomes["numbered"] += 1
            except ddb.Error as e:
                key = "label32" if str(e).startswith("NODAL DOF MASK WITH LABEL 32 SET.") else "refused"
                outcomes[key] += 1
            except TypeError:  # no mask distribution: None
                outcomes["refused"] += 1
print(" ".join(f"{k}={v}" for k, v in sorted(outcomes.items())))
"""


def test_damaged_files_never_stop_the_numbering(tmp_path):
    run(program("DDB_TEST_HELPER"), "damaged-copies", str(tmp_path), "150")
    negatives = [f for f in os.listdir(tmp_path) if f.startswith("negative-")]
    assert len(negatives) >= 4  # every distribution of the database
    done = subprocess.run([sys.executable, "-c", CHILD, str(tmp_path)], capture_output=True,
                          text=True, timeout=600)
    assert done.returncode == 0, done.stderr
    assert done.stderr == ""
    counts = dict(item.split("=") for item in done.stdout.split())
    assert int(counts["numbered"]) > 0 and int(counts["label32"]) > 0


def test_wrong_argument_types_say_what_was_expected_and_what_came(root, tmp_path):
    sim, c = make_tree(root, tmp_path / "t.sim")
    mesh = sim.discrete_model.mesh
    s = c.create_ordered_set([0])
    cases = [
        (lambda: setattr(mesh, "faces", "x"), "Mesh.faces: expected Collection or None, got str"),
        (lambda: setattr(mesh, "node_sets", {"a": c}),
         "Mesh.node_sets: expected dict of str to OrderedSet, got dict"),
        (lambda: mesh.systems.append(3), "MeshSystems.append(): expected (item: FESystem), got (int)"),
        (lambda: mesh.systems[0.5], "MeshSystems.__getitem__(): expected (index: int), got (float)"),
        (lambda: ddb.Mesh.new(s, c),
         "Mesh.new(): expected (nodes: Collection or None, elements: Collection or None), "
         "got (OrderedSet, Collection)"),
        (lambda: ddb.ModalEvent.new("e", 2**31, c, c),
         "ModalEvent.new(): expected (event_name: str, event_type_id: int, frames: Collection or "
         "None, cases: Collection or None), got (str, int outside the 32-bit range, Collection, "
         "Collection)"),
        (lambda: root.create_sim(3),
         "Root.create_sim(): expected (file: path, alias: str = '', *, sync_commits: bool = "
         "False), got (int)"),
        (lambda: ddb.NodalDofDefinition("x", shift="a"),
         "NodalDofDefinition(): expected (masks: Distribution, shift: int = 0, add_label10: bool "
         "= False) or (masks: int array-like, shift: int = 0, add_label10: bool = False), got "
         "(str, shift=str)"),
    ]
    for call, message in cases:
        with pytest.raises(TypeError) as caught:
            call()
        assert str(caught.value) == message
        assert "ddb_py" not in message and "incompatible" not in message
    # Other errors of the same calls pass unchanged.
    with pytest.raises(IndexError, match="^index 0 out of range for 0 elements$"):
        mesh.systems[0]
