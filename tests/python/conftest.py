"""Shared pieces of the Python module's tests.

The module is found on PYTHONPATH (the build's python/module folder); the
C++ programs the tests talk to come from the environment CTest sets
(DDB_TEST_HELPER, DDB_DEMO, DDB_TOOL).
"""
import os
import re
import subprocess

import pytest

import ddb_pdm as ddb

# The doc of every generated member property: "<table name>: <kind> <type>[, required]".
MEMBER_DOC = re.compile(r"^(\w+): (sub-object |array of |service )?(\S+?)(, required)?$")


def schema_classes():
    """Every class of the schema in the module, bases first."""
    found = [c for c in vars(ddb).values() if isinstance(c, type) and issubclass(c, ddb.Object)]
    return sorted((c for c in found if c is not ddb.Object), key=lambda c: len(c.__mro__))


def python_class(cpp_name):
    return getattr(ddb, cpp_name.split("_", 1)[1])


def declared_members(cls):
    """(python name, kind, type, required) of the members `cls` itself declares."""
    for name, attr in vars(cls).items():
        match = isinstance(attr, property) and MEMBER_DOC.match(attr.__doc__ or "")
        if match:
            kind = (match.group(2) or "simple ").strip().split()[0]
            yield name, kind, match.group(3), bool(match.group(4))


def members(cls):
    """The members of `cls` and of its bases, bases first."""
    for base in reversed(cls.__mro__):
        if base is not ddb.Object and isinstance(base, type) and issubclass(base, ddb.Object):
            yield from declared_members(base)


def describe(value):
    """What a member value says, comparable across a close and a reopen (identifiers
    get new contexts, so a service object is compared by its content)."""
    if isinstance(value, ddb.Collection):
        return ("collection", value.size)
    if isinstance(value, ddb.OrderedSet):
        return ("set", value.collection.size, value.members().tolist())
    if isinstance(value, ddb.Distribution):
        return ("distribution", value.values().tolist())
    if isinstance(value, dict):
        return {key: describe(item) for key, item in value.items()}
    return value


@pytest.fixture
def root():
    with ddb.Root() as r:
        yield r


def make_tree(root, file, alias="t"):
    """A new database with a discrete model and a mesh over one collection of 5."""
    sim = root.create_sim(file, alias=alias)
    c = sim.service.create_collection(5)
    sim.discrete_model = ddb.DiscreteModel.new(c, c)
    sim.discrete_model.mesh = ddb.Mesh.new(c, c)
    return sim, c


def program(variable):
    path = os.environ.get(variable)
    if not path:
        pytest.skip(f"{variable} is not set (run through ctest)")
    return path


def run(*command):
    """Runs a program; its output, or the test fails with what it printed."""
    done = subprocess.run(command, capture_output=True, text=True)
    assert done.returncode == 0, f"{command} failed:\n{done.stdout}{done.stderr}"
    return done.stdout


def example(name):
    return os.path.join(program("DDB_PYTHON_EXAMPLES"), name)
