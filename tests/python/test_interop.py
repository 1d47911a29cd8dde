"""Databases cross between Python and C++: the demo's database made by the
Python example is what the C++ demo makes, walked by the C++ demo and
compared by the ddb tool; the C++ demo's database read from Python; the
examples run as the README shows them."""
import subprocess
import sys
from pathlib import Path

import numpy as np
import pytest

import ddb_pdm as ddb
from conftest import example, program, run


@pytest.fixture
def demo_files(tmp_path):
    """The demo's database twice: made by the C++ demo and by the Python example."""
    cpp_out = run(program("DDB_DEMO"), str(tmp_path))
    py_file = tmp_path / "python.sim"
    made = run(sys.executable, example("make_database.py"), str(py_file))
    assert made == f"made {py_file}\n"
    return tmp_path / "demo.sim", py_file, cpp_out


def test_python_database_is_the_demo_database_for_cpp(demo_files):
    cpp_file, py_file, cpp_out = demo_files
    demo = program("DDB_DEMO")
    walked = run(demo, "--walk", str(py_file))
    # The same walk apart from the first line, which names the file.
    assert walked.split("\n", 1)[1] == cpp_out.split("\n", 1)[1]
    assert walked.split("\n", 1)[1] == run(demo, "--walk", str(cpp_file)).split("\n", 1)[1]
    tool = program("DDB_TOOL")
    assert run(tool, "diff", str(cpp_file), str(py_file)) == ""
    assert run(tool, "check", str(py_file)) == f"{py_file}: clean\n"


def test_cpp_database_reads_from_python(demo_files):
    cpp_file = demo_files[0]
    with ddb.open(cpp_file, alias="demo") as sim:
        model = sim.discrete_model
        assert (model.vectors.size, model.local_nodes.size) == (3, 8)
        assert model.local_node_sets["corners"].members().tolist() == [0, 3, 4, 7]
        mesh = model.mesh
        assert (mesh.nodes.size, mesh.elements.size, mesh.faces) == (8, 3, None)
        assert {k: v.members().tolist() for k, v in mesh.node_sets.items()} == {
            "fixed": [0, 1, 2, 3], "loaded": [7, 6]}
        temperature = mesh.node_fields["temperature"]
        assert temperature.values().dtype == np.int32
        assert temperature.values().tolist() == list(range(20, 60, 5))
        assert temperature.ordered_set.members().tolist() == list(range(8))
        assert mesh.element_fields["material"].values().tolist() == [1, 1, 2]
        systems = mesh.systems
        assert [(type(s), s.system_name) for s in systems] == [
            (ddb.FESystem, "structure"), (ddb.GenericSystem, "generic"),
            (ddb.ModalSystem, "modal"), (ddb.SubstructureSystem, "superelement")]
        plain, generic, modal, sub = systems
        assert plain.nodal_labels.values().tolist() == list(range(101, 109))
        assert plain.distributions[1].values().tolist() == [7] * 8
        assert list(plain.user_distributions) == ["labels"]
        assert (generic.dofs.size, generic.loads.size) == (24, 2)
        assert modal.property_evaluation == 20.0
        assert modal.structural_modes.members().tolist() == [0, 1, 2, 3]
        assert modal.solver_dof_ordering is None
        events = [(e.event_name, e.event_type_id, e.active_modes) for e in modal.events]
        assert events[0] == ("eigen", 1, None)
        assert events[1][:2] == ("response", 2) and events[1][2].members().tolist() == [0, 1]
        d = sub.damping
        assert (d.alpha, d.beta, d.structural, d.mass, d.volume) == (0.1, 0.02, 0.05, 0.0, 0.0)
        assert sub.retained_nodes.members().tolist() == [0, 7]
        assert len(sim.schema_snapshot) == 8 and "com.trevolo.SubDamp" in sim.schema_snapshot
        labels = ddb.internal_to_user_nodes(modal)
        inverse = ddb.user_to_internal_nodes(modal)
        assert labels.tolist() == list(range(101, 109)) and inverse[101:].tolist() == list(range(8))
        numbering = ddb.NodalDofDefinition(modal.nodal_activity_mask)
        assert numbering.number_of_dofs == modal.dofs.size == 24


def test_the_examples_run_as_written(demo_files):
    py_file = demo_files[1]
    walked = run(sys.executable, example("walk_database.py"), str(py_file))
    assert walked.splitlines()[:3] == [
        "mesh: 8 nodes, 3 elements", "  node set fixed: [0, 1, 2, 3]", "  node set loaded: [7, 6]"]
    assert "  ModalSystem 'modal': labels 101..108" in walked
    assert "  node field temperature: mean 37.5, max 55 at node 7" in walked


def test_the_readme_tour_runs_as_written(tmp_path):
    """The Python tour of the README, taken from the README and run in a fresh folder."""
    readme = Path(__file__).resolve().parents[2] / "README.md"
    text = readme.read_text()
    section = text[text.index("\n## Python\n"):]
    start = section.index("```python\n") + 10
    tour = section[start:section.index("\n```\n", start)]
    (tmp_path / "tour.py").write_text(tour)
    printed = subprocess.run([sys.executable, "tour.py"], cwd=tmp_path, capture_output=True, text=True)
    assert (printed.returncode, printed.stderr) == (0, "")
    assert printed.stdout.splitlines() == [
        "FESystem structure [1 2 3 4 5]", "ModalSystem modal [1 2 3 4 5]"]
