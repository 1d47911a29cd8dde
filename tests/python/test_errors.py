"""Errors, warnings, use after close and ownership: nothing a Python program
does through the module may crash the interpreter, and what the library
says reaches Python, not standard error."""
import copy
import gc
import re
import subprocess
import sys
import warnings

import numpy as np
import pytest

import ddb_pdm as ddb
from conftest import make_tree, program, run


def test_refusals_raise_the_library_text_and_print_nothing(root, tmp_path, capfd):
    """One refusal per way into the library; the messages themselves are pinned
    in the C++ tests of the layer that says them."""
    file = tmp_path / "r.sim"
    sim, c = make_tree(root, file)
    other = tmp_path / "other.sim"
    other.write_bytes(b"not a database")
    cases = [
        (lambda: root.create_sim(file), f"**ERROR msfD_Root::createSim: file {file} already opened"),
        (lambda: ddb.open(other), f"**ERROR hdf_File::Open: cannot open file {other}: not an HDF5 file"),
        (lambda: c.create_ordered_set([1, 1]),
         "**ERROR QELSimCollectionRef::CreateOrderedCSet: member 1 at position 1 occurs twice "
         "(collection 0 of size 5)"),
        (lambda: ddb.internal_to_user_nodes(ddb.FESystem.new("s", None, None)),
         "User node labels distribution not found!\n"
         "**ERROR QELSimDistributionRef::QueryDrawers: null distribution identifier"),
        (lambda: c.create_ordered_set([0, 1]).create_int32([7]),
         "create_int32: 1 values for an ordered set of 2 members"),
    ]
    for call, message in cases:
        with pytest.raises(ddb.Error) as caught:
            call()
        assert str(caught.value) == message
    assert issubclass(ddb.Error, RuntimeError)
    assert capfd.readouterr().err == ""


def test_bad_arguments_are_python_errors(root, tmp_path):
    sim, c = make_tree(root, tmp_path / "a.sim")
    cases = [
        (lambda: c.create_ordered_set([0.5]), TypeError),
        (lambda: c.create_ordered_set([[0, 1]]), ValueError),
        (lambda: c.create_ordered_set([2**31]), ValueError),
        (lambda: c.create_ordered_set("text"), TypeError),
        (lambda: ddb.FESystem.new("a\0b", None, None), ValueError),
        (lambda: ddb.FESystem.new(3, None, None), TypeError),
        (lambda: ddb.ModalEvent.new("e", 2**31, c, c), TypeError),
        (lambda: ddb.Mesh.new(c.create_ordered_set([0]), c), TypeError),
        (lambda: ddb.Mesh(), TypeError),
        (lambda: sim.discrete_model.mesh.systems.append(ddb.Mesh.new(c, c)), TypeError),
        (lambda: ddb.open(tmp_path / "a.sim", mode="x"), ValueError),
        (lambda: ddb.internal_to_user_nodes(sim.discrete_model), TypeError),
    ]
    for call, error in cases:
        with pytest.raises(error):
            call()
    assert c.create_ordered_set([]).size == 0
    assert c.create_ordered_set(np.array([4, 3], dtype=np.uint8)).members().tolist() == [4, 3]


def test_read_only_databases_refuse_changes(tmp_path, capfd):
    file = tmp_path / "ro.sim"
    with ddb.Root() as root:
        make_tree(root, file)
    with ddb.open(file) as sim:
        mesh = sim.discrete_model.mesh
        assert sim.read_only and sim.file == str(file)
        with pytest.raises(ddb.Error, match=r"^\*\*ERROR QELSimCollectionRef::Create: context \d+ is read-only$"):
            sim.service.create_collection(1)
        refused = f"{file} is open read-only; nothing was changed"
        with pytest.raises(ddb.Error) as caught:
            mesh.faces = mesh.nodes
        assert str(caught.value) == "Mesh: " + refused
        with pytest.raises(ddb.Error) as caught:
            mesh.systems.append(ddb.FESystem.new("s", None, None))
        assert str(caught.value) == "FESystem: " + refused
    with ddb.open(file) as sim:
        mesh = sim.discrete_model.mesh
        assert mesh.faces is None and len(mesh.systems) == 0
    assert capfd.readouterr().err == ""


def test_damaged_data_warns_and_unknown_classes_raise(tmp_path, capfd):
    helper = program("DDB_TEST_HELPER")
    file = tmp_path / "damaged.sim"
    with ddb.Root() as root:
        sim, c = make_tree(root, file)
        for name in ("a", "b"):
            sim.discrete_model.mesh.systems.append(ddb.FESystem.new(name, None, None))
        sim.discrete_model.mesh.node_fields = {"f": c.create_ordered_set([0, 1, 2]).create_int32(
            [7, 8, 9])}
    run(helper, "damage", str(file))
    with ddb.open(file) as sim:
        # A member outside the collection: the set is refused, its values are whole.
        field = sim.discrete_model.mesh.node_fields["f"]
        assert field.values().tolist() == [7, 8, 9]
        why = "set 0 of collection 0 (size 5) has a member outside its collection: 9 at position 0"
        for name, use in (("ReadMembers", field.ordered_set.members),
                          ("Size", lambda: field.ordered_set.size)):
            with pytest.raises(ddb.Error) as caught:
                use()
            assert str(caught.value) == f"**ERROR QELSimCSet::{name}: {why}"
        systems = sim.discrete_model.mesh.systems
        with pytest.warns(ddb.DatabaseWarning) as warned:
            assert systems[0].system_name == ""  # the record did not decode: defaults
        assert [str(w.message) for w in warned] == [
            "**ERROR fesD_FESystemImpl::LoadMembers: error 2 loading class data"]
        with pytest.raises(ddb.Error) as caught:
            systems[1]
        assert str(caught.value) == (
            "**ERROR fesD_FESystemHolder::Open: class com.trevolo.Unknown is not registered")
        with warnings.catch_warnings():
            warnings.simplefilter("error")  # a warning turned into an error is raised cleanly
            assert systems[0].system_name == ""  # read once: no second message
    assert capfd.readouterr().err == ""


def test_trace_lines_go_to_stderr(tmp_path, capsys):
    with ddb.Root(trace=True) as root:
        sim = root.create_sim(tmp_path / "trace.sim")
        c = sim.service.create_collection(1)
        sim.discrete_model = ddb.DiscreteModel.new(c, c)
    err = capsys.readouterr().err
    assert f"msfD_Root::createSim {tmp_path / 'trace.sim'}\n" in err
    assert "msfD_SimImpl::Bind\n" in err


def handle_uses(root, file):
    """A use of every kind of handle of a new database."""
    sim, c = make_tree(root, file)
    mesh, svc = sim.discrete_model.mesh, sim.service
    s = c.create_ordered_set([0, 1])
    d = s.create_int32([1, 2])
    system = mesh.systems.append(ddb.ModalSystem.new("m", d, d, c, c))
    events, snapshot = system.events, sim.schema_snapshot
    return sim, {
        "sim": lambda: sim.discrete_model,
        "object": lambda: mesh.nodes,
        "setter": lambda: setattr(mesh, "faces", None),
        "sub-object": lambda: setattr(sim.discrete_model, "mesh", ddb.Mesh.new(None, None)),
        "derived": lambda: system.system_name,
        "array": lambda: len(events),
        "append": lambda: events.append(ddb.ModalEvent.new("e", 1, None, None)),
        "collection": lambda: c.size,
        "set": lambda: s.members(),
        "distribution": lambda: d.values(),
        "service": lambda: svc.create_collection(1),
        "snapshot": lambda: len(snapshot),
        "class id": lambda: system.class_id,
        "numbering": lambda: ddb.NodalDofDefinition(d),
        "labels": lambda: ddb.internal_to_user_nodes(system),
        "identifier in": lambda: ddb.FESystem.new("x", d, None),
    }


def test_every_handle_raises_after_its_database_closed(tmp_path):
    root = ddb.Root()
    closings = {"close_sim": lambda sim: root.close_sim(sim), "sim.close": lambda sim: sim.close(),
                "root.close": lambda sim: root.close()}
    for name, close in closings.items():
        sim, uses = handle_uses(root, tmp_path / f"{name}.sim")
        assert not sim.closed
        close(sim)
        assert sim.closed
        for use in uses.values():
            with pytest.raises(ddb.Error, match=r" used after its database was closed$"):
                use()
    with pytest.raises(ddb.Error, match="^Root used after it was closed$"):
        root.create_sim(tmp_path / "late.sim")
    assert root.closed and "(closed)" in repr(sim) and sim == sim  # identity needs no live object


def test_context_managers_close(tmp_path):
    file = tmp_path / "cm.sim"
    with ddb.Root() as root:
        with root.create_sim(file, alias="x") as sim:
            make = sim.service.create_collection
            c = make(2)
        assert sim.closed and len(root) == 0
        with pytest.raises(ddb.Error):
            make(1)
        again = root.open_sim(file, alias="x")
        assert len(root) == 1 and root[0] == again and root[-1] == again
        assert root.get_by_alias("x") == again and root.get_by_alias("y") is None
        again.discrete_model = ddb.DiscreteModel.new(None, None)
        with pytest.raises(TypeError, match="^close_sim: a Sim is expected$"):
            root.close_sim(again.discrete_model)
        with ddb.Root() as other:
            with pytest.raises(ddb.Error, match="^close_sim: a sim of another Root$"):
                other.close_sim(again)
    assert root.closed and again.closed
    with pytest.raises(ddb.Error):
        c.size
    root.close_sim(again)  # closed already: nothing happens
    with ddb.open(file, mode="r+") as sim:
        assert not sim.read_only
        sim.discrete_model.vectors = sim.service.create_collection(4)
    with ddb.open(file) as sim:
        assert sim.discrete_model.vectors.size == 4


def test_ownership_moves_with_assignment_and_append(root, tmp_path):
    sim, c = make_tree(root, tmp_path / "own.sim")
    mesh = sim.discrete_model.mesh
    modal = ddb.ModalSystem.new("m", None, None, c, c)
    events = modal.events
    event = events.append(ddb.ModalEvent.new("e", 1, c, c))
    del modal
    gc.collect()
    assert events[0] == event  # the new object lives while anything of it does
    stored = mesh.systems.append(ddb.FESystem.new("f", None, None))
    with pytest.raises(ddb.Error, match="^FESystem is stored already: only an object made by new can be appended$"):
        mesh.systems.append(stored)
    with pytest.raises(ddb.Error, match="^ModalEvent is stored already"):
        events.append(event)
    # A refused assignment: the library destroys the offered object.
    offered = ddb.Mesh.new(c, c)
    inner = offered.systems
    with pytest.raises(ddb.Error, match=r"^\*\*ERROR:msfD_DiscreteModelImpl::Mesh: already exists$"):
        sim.discrete_model.mesh = offered
    for use in (lambda: offered.nodes, lambda: len(inner)):
        with pytest.raises(ddb.Error, match="used after the library destroyed it"):
            use()
    # Detached objects stored into each other follow the outermost owner.
    sub = ddb.SubstructureSystem.new("s", None, None, c, c, c)
    damping = ddb.SubDamp.new()
    sub.damping = damping
    with pytest.raises(ddb.Error, match="^SubDamp is stored already"):
        ddb.SubstructureSystem.new("t", None, None, c, c, c).damping = damping
    mesh.systems.append(sub)
    damping.alpha = 1.5
    root.close_sim(sim)
    with pytest.raises(ddb.Error, match="used after its database was closed"):
        damping.alpha


def test_instances_come_whole_or_not_at_all(root, tmp_path):
    """Python can make an instance without its constructor; none may reach a method."""
    sim, c = make_tree(root, tmp_path / "new.sim")
    classes = [c for c in vars(ddb).values() if isinstance(c, type) and not issubclass(c, Exception)]
    built = {ddb.Root: ddb.Root.__new__(ddb.Root),
             ddb.NodalDofDefinition: ddb.NodalDofDefinition.__new__(ddb.NodalDofDefinition, [3])}
    for cls in classes:
        if cls in built:
            continue
        with pytest.raises(TypeError, match=f"^a ddb_pdm.{cls.__name__} is made by the module, not directly$"):
            cls.__new__(cls)
    assert not built[ddb.Root].closed and built[ddb.NodalDofDefinition].number_of_dofs == 2
    for value in (sim, c, sim.service, sim.discrete_model.mesh.systems, built[ddb.Root]):
        with pytest.raises(TypeError):
            copy.copy(value)


def test_no_program_crashes_the_interpreter(tmp_path):
    """Uses after close, dropped roots and objects left at exit, in a child."""
    script = f"""
import gc, ddb_pdm as ddb
root = ddb.Root()
sim = root.create_sim({str(tmp_path / 'exit.sim')!r})
c = sim.service.create_collection(3)
sim.discrete_model = ddb.DiscreteModel.new(c, c)
model = sim.discrete_model
orphan = ddb.ModalSystem.new("o", None, None, c, c)
events = orphan.events
del root, sim
gc.collect()
print(model.vectors.size)  # the sim stays open while its objects are used
kept = ddb.open({str(tmp_path / 'exit.sim')!r}, mode="r")
"""
    done = subprocess.run([sys.executable, "-c", script], capture_output=True, text=True)
    assert (done.returncode, done.stdout, done.stderr) == (0, "3\n", "")


def test_an_hdf5_file_that_is_no_database_is_refused_and_left_closed(tmp_path):
    plain = tmp_path / "plain.h5"
    run(program("DDB_TEST_HELPER"), "plain", str(plain))
    for mode in ("r", "r+"):
        with pytest.raises(ddb.Error) as caught:
            ddb.open(plain, mode)
        assert str(caught.value) == f"**ERROR hdf_Group::GroupOpen: cannot open group sim in / of file {plain}"
    with ddb.Root() as root:
        with pytest.raises(ddb.Error):
            root.open_sim_read_only(plain)
        assert len(root) == 0


def test_one_writer_per_database_and_readers_beside_it(tmp_path):
    file = tmp_path / "one.sim"
    with ddb.open(file, "w") as writer:
        with pytest.raises(ddb.Error) as caught:
            ddb.open(file, "r+")
        assert re.fullmatch(f"\\*\\*ERROR QELSimManager::OpenContext: cannot open file {re.escape(str(file))} "
                            "for update: it is open for update in context [0-9]+", str(caught.value))
        with ddb.open(file) as reader:  # a snapshot of the last commit
            assert reader.discrete_model is None
            writer.discrete_model = ddb.DiscreteModel.new(None, None)
            assert reader.discrete_model is None
            with ddb.open(file) as later:
                assert later.discrete_model is not None
