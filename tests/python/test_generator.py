"""ddb_pygen, the Python emitter of the schema generator: the names it gives
and the tables it refuses."""
import subprocess

import pytest

from conftest import program


def generate(tmp_path, *tables):
    """Runs ddb_pygen on the given table texts: (exit status, stderr, bindings, stub)."""
    paths = []
    for i, text in enumerate(tables):
        path = tmp_path / f"t{i}.schema"
        path.write_text(text)
        paths.append(str(path))
    (tmp_path / "prelude.pyi").write_text("# prelude\n")
    done = subprocess.run([program("DDB_PYGEN"), str(tmp_path / "b.cpp"), str(tmp_path / "s.pyi"),
                           str(tmp_path / "prelude.pyi"), *paths], capture_output=True, text=True)
    read = lambda name: (tmp_path / name).read_text() if (tmp_path / name).exists() else ""
    return done.returncode, done.stderr, read("b.cpp"), read("s.pyi")


def test_names(tmp_path):
    status, err, bindings, stub = generate(tmp_path, """class xyz_Thing com.example.Thing
simple eventTypeID int required
simple HTTPServer2Name ada_string
simple lambda double
simple nodeSets ada_MapString<QELSimCSetID>
""")
    assert (status, err) == (0, "")
    for name in ("event_type_id", "http_server2_name", "lambda_", "node_sets"):
        assert f'"{name}"' in bindings
    assert "class Thing(Object):" in stub and stub.startswith("# prelude\n")
    assert "def new(event_type_id: int) -> Thing: ..." in stub
    assert "node_sets: Dict[str, OrderedSet]" in stub


@pytest.mark.parametrize("tables, message", [
    (["class xyz_A a\nsimple close int\n"], "member 'close' would hide the module's 'close'"),
    (["class xyz_A a\nsimple fooBar int\nsimple foo_bar int\n"], "two members named 'foo_bar' in Python"),
    (["class xyz_A a\nbase xyz_B b.h\nsimple x int\n"], "the base class 'xyz_B' has no table here"),
    (["class xyz_B b\nsimple x int\n", "class xyz_A a\nbase xyz_B b.h\nsimple x double\n"],
     "two members named 'x' in Python"),
])
def test_refused_tables(tmp_path, tables, message):
    status, err, _, _ = generate(tmp_path, *tables)
    assert status == 1
    assert err.endswith(f".schema: {message}\n")
