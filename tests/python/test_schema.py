"""Every class and member of the schema from Python: a whole tree written
member by member, read back before and after a reopen; maps; arrays;
derived systems; the stub."""
import ast
import itertools
import os

import numpy as np
import pytest

import ddb_pdm as ddb
from conftest import describe, make_tree, members, python_class, schema_classes


class Values:
    """A fresh value of every member type, each different from the last."""

    def __init__(self, service):
        self.service = service
        self.count = itertools.count(1)

    def make(self, cpp_type):
        n = next(self.count)
        if cpp_type == "int":
            return -3 * n if n % 2 else 2**31 - n
        if cpp_type == "double":
            return n + 0.125
        if cpp_type == "ada_string":
            return f"value {n} \u00fc\u2192"
        collection = self.service.create_collection(n + 2)
        if cpp_type == "QELSimCollectionID":
            return collection
        members = collection.create_ordered_set(np.arange(n + 2)[::-1])
        if cpp_type == "QELSimCSetID":
            return members
        if cpp_type == "QELSimDistributionID":
            return members.create_int32(np.arange(n + 2) * n - 5)
        key, value = cpp_type[:-1].split("<", 1)
        keys = ["b", "a", ""] if key == "ada_MapString" else [7, -2]
        return {k: self.make(value) for k in keys}


class Tree:
    """Writes every member of every object it makes, remembering what it wrote
    by path, and checks a tree against that record."""

    def __init__(self, values):
        self.values = values
        self.written = {}
        self.seen = set()

    def new(self, cls):
        required = [self.values.make(t) for _, _, t, req in members(cls) if req]
        return cls.new(*required)

    def fill(self, obj, path):
        for name, kind, cpp_type, _ in members(type(obj)):
            where = f"{path}/{name}"
            if kind == "simple":
                value = self.values.make(cpp_type)
                setattr(obj, name, value)
                self.written[where] = describe(value)
            elif kind == "sub-object":
                # Stored first, filled in place: every change commits on its own.
                setattr(obj, name, self.new(python_class(cpp_type)))
                self.fill(getattr(obj, name), where)
            elif kind == "array":
                element = python_class(cpp_type)
                kinds = [c for c in schema_classes() if issubclass(c, element)]
                for i, cls in enumerate(kinds):
                    # Filled before it is appended: the detached object's own arrays too.
                    item = self.new(cls)
                    self.fill(item, f"{where}[{i}]")
                    stored = getattr(obj, name).append(item)
                    assert type(stored) is cls and stored == item
                self.written[where] = [c.__name__ for c in kinds]

    def check(self, obj, path):
        self.seen.add(type(obj))
        for name, kind, _, _ in members(type(obj)):
            where = f"{path}/{name}"
            value = getattr(obj, name)
            if kind == "simple":
                assert describe(value) == self.written[where], where
            elif kind == "sub-object":
                self.check(value, where)
            elif kind == "array":
                assert [type(e).__name__ for e in value] == self.written[where], where
                for i, element in enumerate(value):
                    self.check(element, f"{where}[{i}]")
            else:
                assert value is not None


def test_every_member_of_every_class_round_trips(root, tmp_path):
    file = tmp_path / "all.sim"
    sim = root.create_sim(file, alias="all")
    tree = Tree(Values(sim.service))
    tree.fill(sim, "sim")
    tree.check(sim, "sim")  # as held in memory
    assert tree.seen == set(schema_classes())
    root.close_sim(sim)

    with ddb.open(file) as again:  # as read from the file
        tree.seen.clear()
        tree.check(again, "sim")
    assert tree.seen == set(schema_classes())
    kinds = {kind for cls in schema_classes() for _, kind, _, _ in members(cls)}
    assert kinds == {"simple", "sub-object", "array", "service"}


def test_class_hierarchy_and_identifiers(root, tmp_path):
    sim, c = make_tree(root, tmp_path / "h.sim")
    labels = c.create_ordered_set([0, 1]).create_int32([5, 6])
    cases = [
        (ddb.FESystem, ("s", labels, labels), "com.trevolo.FESystem"),
        (ddb.GenericSystem, ("g", labels, labels, c, c), "com.trevolo.GenericSystem"),
        (ddb.ModalSystem, ("m", labels, labels, c, c), "com.trevolo.ModalSystem"),
        (ddb.SubstructureSystem, ("u", labels, labels, c, c, c), "com.trevolo.SubstructureSystem"),
    ]
    systems = sim.discrete_model.mesh.systems
    for cls, args, class_id in cases:
        stored = systems.append(cls.new(*args))
        assert isinstance(stored, ddb.FESystem) and isinstance(stored, ddb.Object)
        assert stored.class_id == class_id
    assert not isinstance(systems[0], ddb.ModalSystem)
    assert systems[-1] == systems[3] and systems[0] != systems[1]
    assert len({systems[2], systems[2], systems[1]}) == 2
    assert sim.class_id == "com.trevolo.Sim"
    assert all(cls.__name__ in repr(cls.new(*args)) for cls, args, _ in cases)


def test_missing_identifiers_and_subobjects_read_as_none(root, tmp_path):
    sim = root.create_sim(tmp_path / "n.sim")
    assert sim.discrete_model is None
    c = sim.service.create_collection(1)
    sim.discrete_model = ddb.DiscreteModel.new(c, None)
    model = sim.discrete_model
    assert model.local_nodes is None and model.frames is None and model.mesh is None
    model.frames = c
    assert model.frames == c
    model.frames = None
    assert model.frames is None
    sub = ddb.SubstructureSystem.new("s", None, None, c, c, c)
    assert sub.damping is None and sub.retained_nodes is None


def test_maps_read_and_write_as_dicts(root, tmp_path):
    """In memory: the round trip above stores and reopens maps of every kind."""
    sim = root.create_sim(tmp_path / "maps.sim")
    nodes = sim.service.create_collection(4)
    a, b = nodes.create_ordered_set([0, 1]), nodes.create_ordered_set([3])
    sim.discrete_model = ddb.DiscreteModel.new(nodes, nodes)
    model = sim.discrete_model
    assert model.local_node_sets == {}
    # Keys come back in byte order, a prefix before its extensions.
    model.local_node_sets = {"b": a, "ab": b, "a": a, "B": b, "": a, "\u00e9": b}
    assert list(model.local_node_sets) == ["", "B", "a", "ab", "b", "\u00e9"]
    # An assignment replaces the whole map; the dict read is a copy.
    model.local_node_sets = {"only": b}
    read = model.local_node_sets
    read["more"] = a
    assert model.local_node_sets == {"only": b}
    model.mesh = ddb.Mesh.new(nodes, nodes)
    system = model.mesh.systems.append(ddb.FESystem.new("s", None, None))
    field = a.create_int32([4, 2])
    system.distributions = {5: field, -1: field, 70000: field}
    assert list(system.distributions) == [-1, 5, 70000]
    system.user_distributions = {"gone": None}
    assert system.user_distributions == {"gone": None}
    with pytest.raises(TypeError):
        system.distributions = {"text": field}
    with pytest.raises(TypeError):
        system.distributions = {2**31: field}
    with pytest.raises(TypeError):
        model.local_node_sets = {"x": field}


def test_arrays_and_derived_systems(root, tmp_path):
    """What the round trip above leaves out: empty arrays, negative and bad indices,
    handles kept across an append, and changes before and after an object is stored."""
    file = tmp_path / "arrays.sim"
    sim, c = make_tree(root, file)
    systems = sim.discrete_model.mesh.systems
    assert len(systems) == 0 and list(systems) == []
    with pytest.raises(IndexError):
        systems[0]
    modal = ddb.ModalSystem.new("m", None, None, c, c)
    first = modal.events.append(ddb.ModalEvent.new("e0", 0, c, c))
    assert systems.append(modal) is not modal
    first.event_type_id = 10  # a handle taken before the append stays valid
    sub = ddb.SubstructureSystem.new("sub", None, None, c, c, c)
    damping = ddb.SubDamp.new()
    damping.alpha, damping.mass = 0.5, 2.5
    sub.damping = damping  # filled before it is stored
    systems.append(sub).damping.volume = 7.0  # and changed after
    assert systems[-1] == systems[1] and systems[-2] == modal
    for index in (2, -3, 10**20):
        with pytest.raises((IndexError, OverflowError, TypeError)):
            systems[index]
    assert repr(systems) == "<ddb_pdm.MeshSystems of 2>"
    root.close_sim(sim)
    with ddb.open(file) as again:
        modal, sub = again.discrete_model.mesh.systems
        assert [(e.event_name, e.event_type_id) for e in modal.events] == [("e0", 10)]
        d = sub.damping
        assert (d.alpha, d.beta, d.structural, d.mass, d.volume) == (0.5, 0.0, 0.0, 2.5, 7.0)


def test_the_stub_declares_the_module(tmp_path):
    stub_file = os.path.join(os.path.dirname(ddb.__file__), "ddb_pdm.pyi")
    with open(stub_file) as f:
        stub = ast.parse(f.read())
    declared = {node.name: node for node in stub.body if isinstance(node, (ast.ClassDef, ast.FunctionDef))}
    public = {name for name in vars(ddb) if not name.startswith("_")}
    assert public <= set(declared), public - set(declared)
    for cls in schema_classes():
        body = declared[cls.__name__].body
        names = {n.target.id for n in body if isinstance(n, ast.AnnAssign)}
        names |= {n.name for n in body if isinstance(n, ast.FunctionDef)}
        assert {name for name, _, _, _ in members(cls) if name in vars(cls)} <= names, cls
