"""Databases cross between Python and C++: the demo's database made by the
Python example is what the C++ demo makes, walked by the C++ demo and
compared by the ddb tool; the C++ demo's database read from Python; the
examples run as the README shows them; a database followed while another
process writes it."""
import subprocess
import sys
from pathlib import Path

import numpy as np
import pytest

import ddb_pdm as ddb
from conftest import example, make_tree, program, run


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
    tool = program("DDB_TOOL")
    assert run(tool, "diff", str(cpp_file), str(py_file)) == ""
    assert run(tool, "check", str(py_file)) == f"{py_file}: clean\n"


def test_cpp_database_reads_from_python(demo_files):
    """What C++ wrote, as Python sees it. The file equals the Python example's (the diff
    above), whose values test_schema.py's round trip and the walk below read; here the
    classes of the stored systems, null identifiers and the types Python gets."""
    with ddb.open(demo_files[0], alias="demo") as sim:
        mesh = sim.discrete_model.mesh
        assert mesh.faces is None
        assert mesh.node_fields["temperature"].values().dtype == np.int32
        assert [(type(s), s.system_name) for s in mesh.systems] == [
            (ddb.FESystem, "structure"), (ddb.GenericSystem, "generic"),
            (ddb.ModalSystem, "modal"), (ddb.SubstructureSystem, "superelement")]
        modal, sub = mesh.systems[2], mesh.systems[3]
        assert modal.solver_dof_ordering is None
        assert [(e.event_name, e.active_modes is None) for e in modal.events] == [
            ("eigen", True), ("response", False)]
        d = sub.damping
        assert (d.alpha, d.beta, d.structural, d.mass, d.volume) == (0.1, 0.02, 0.05, 0.0, 0.0)
        assert len(sim.schema_snapshot) == 8 and "com.trevolo.SubDamp" in sim.schema_snapshot


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


# A writer in a process of its own: a mesh, then one system a commit, with
# short pauses; "open" once the first system is in.
WRITER = """
import sys, time
import numpy as np
import ddb_pdm as ddb

with ddb.Root() as root:
    sim = root.create_sim(sys.argv[1])
    nodes = sim.service.create_collection(5)
    labels = nodes.create_ordered_set(np.arange(5)).create_int32(np.arange(1, 6))
    sim.discrete_model = ddb.DiscreteModel.new(nodes, nodes)
    sim.discrete_model.mesh = ddb.Mesh.new(nodes, nodes)
    systems = sim.discrete_model.mesh.systems
    for i in range(8):
        systems.append(ddb.FESystem.new(f"s{i}", labels, labels))
        if i == 0:
            print("open", flush=True)
        time.sleep(0.1)
"""


def test_follow_yields_a_newer_snapshot_at_each_commit_until_the_writer_closes(tmp_path):
    path = tmp_path / "run.sim"
    writer = subprocess.Popen([sys.executable, "-c", WRITER, str(path)], stdout=subprocess.PIPE,
                              stderr=subprocess.PIPE, text=True)
    try:
        assert writer.stdout.readline() == "open\n", writer.stderr.read()
        seen, last = [], None
        for sim in ddb.follow(path, interval=0.02):
            systems = sim.discrete_model.mesh.systems
            seen.append([s.system_name for s in systems])
            last = systems
    finally:
        assert writer.wait(timeout=60) == 0, writer.stderr.read()
    assert len(seen) >= 3, seen  # the first snapshot and at least two newer ones
    for earlier, later in zip(seen, seen[1:]):
        assert later[:len(earlier)] == earlier and len(later) >= len(earlier), seen
    assert seen[-1] == [f"s{i}" for i in range(8)]
    with pytest.raises(ddb.Error, match="closed"):
        len(last)  # each snapshot is closed when the next comes, the last one at the end


def test_follow_of_a_database_no_one_writes_yields_it_once(tmp_path):
    path = tmp_path / "still.sim"
    with ddb.Root() as root:
        sim, _ = make_tree(root, path)
    assert [len(sim.discrete_model.mesh.systems) for sim in ddb.follow(path)] == [0]
    with pytest.raises(ddb.Error, match="follow: cannot open file"):
        next(ddb.follow(tmp_path / "missing.sim"))
    for interval in (0, -1, float("nan"), 3601):
        with pytest.raises(ValueError, match="interval must be a number of seconds"):
            ddb.follow(path, interval=interval)


def test_the_readme_follow_example_runs_as_written(tmp_path):
    """The README's ddb.follow loop, beside a writer of run.sim in the same folder."""
    readme = Path(__file__).resolve().parents[2] / "README.md"
    section = readme.read_text().split("\n## Python\n")[1]
    start = section.index("```python\n", section.index("ddb.follow(path")) + 10
    (tmp_path / "follow.py").write_text(section[start:section.index("\n```\n", start)])
    writer = subprocess.Popen([sys.executable, "-c", WRITER, "run.sim"], cwd=tmp_path,
                              stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
    try:
        assert writer.stdout.readline() == "open\n", writer.stderr.read()
        printed = subprocess.run([sys.executable, "follow.py"], cwd=tmp_path, capture_output=True,
                                 text=True, timeout=60)
    finally:
        assert writer.wait(timeout=60) == 0, writer.stderr.read()
    assert (printed.returncode, printed.stderr) == (0, "")
    assert printed.stdout.splitlines()[-1] == "8 systems: ['s5', 's6', 's7']"
