"""Bulk data from Python: the first values() of a distribution and the first
members() of an ordered set, each into a new numpy array, against HDF5's C API
(through ctypes) opening the same dataset and reading it with H5Dread into
np.empty.

Every read runs in a fresh process, so that the first read is what is timed:
nothing of the file is cached in the process, and the array's pages are new.
The runs alternate between the two sides; the best of each counts. The set is
a permutation of its collection, the costlier case for the service's check of
the members.

    python_bench.py [values [directory]]   default 10,000,000 values in /tmp

With BENCH_ROWS set, the rows are appended to that file as bench_util.h
describes."""
import ctypes
import ctypes.util
import os
import subprocess
import sys
import tempfile
import time

import numpy as np

import ddb_pdm as ddb

TARGET = 1.2
# Where the service keeps the first collection's first ordered set and the
# first distribution.
DATASETS = {"values": "/QELSim/distributions/0", "members": "/QELSim/collections/0/0"}


def make(path, n):
    with ddb.Root() as root:
        sim = root.create_sim(path, alias="bench")
        svc = sim.service
        nodes = svc.create_collection(n)
        order = nodes.create_ordered_set(np.random.default_rng(1).permutation(n).astype(np.int32))
        values = order.create_int32(np.arange(1, n + 1, dtype=np.int32))
        sim.discrete_model = ddb.DiscreteModel.new(vectors=nodes, local_nodes=nodes)
        sim.discrete_model.mesh = ddb.Mesh.new(nodes=nodes, elements=svc.create_collection(1))
        sim.discrete_model.mesh.node_fields = {"field": values}


def library_read(path, what):
    with ddb.open(path) as sim:
        field = sim.discrete_model.mesh.node_fields["field"]
        start = time.perf_counter()  # the set, reached from the distribution, counts
        out = field.values() if what == "values" else field.ordered_set.members()
        seconds = time.perf_counter() - start
    return seconds, out


def c_api_read(path, what):
    hdf5 = ctypes.CDLL(ctypes.util.find_library("hdf5_serial") or "libhdf5_serial.so")
    hid = ctypes.c_int64
    for name in ("H5Fopen", "H5Dopen2", "H5Dget_space"):
        getattr(hdf5, name).restype = hid
    for name in ("H5Sget_simple_extent_dims", "H5Dread", "H5Sclose", "H5Dclose"):
        getattr(hdf5, name)  # looked up now, not on the clock
    hdf5.H5open()
    native_int = hid.in_dll(hdf5, "H5T_NATIVE_INT_g")
    file = hid(hdf5.H5Fopen(path.encode(), 0, hid(0)))
    # As the library's open does, HDF5's dataset and dataspace code gets going
    # on another dataset of the file before the clock starts.
    other = hid(hdf5.H5Dopen2(file, DATASETS["members" if what == "values" else "values"].encode(),
                              hid(0)))
    hdf5.H5Sclose(hid(hdf5.H5Dget_space(other)))
    hdf5.H5Dclose(other)
    start = time.perf_counter()
    dataset = hid(hdf5.H5Dopen2(file, DATASETS[what].encode(), hid(0)))
    space = hid(hdf5.H5Dget_space(dataset))
    dims = (ctypes.c_uint64 * 1)()
    hdf5.H5Sget_simple_extent_dims(space, dims, None)
    out = np.empty(dims[0], dtype=np.int32)
    status = hdf5.H5Dread(dataset, native_int, hid(0), hid(0), hid(0),
                          out.ctypes.data_as(ctypes.c_void_p))
    hdf5.H5Sclose(space)
    hdf5.H5Dclose(dataset)
    seconds = time.perf_counter() - start
    hdf5.H5Fclose(file)
    if status < 0:
        sys.exit(f"H5Dread of {DATASETS[what]} failed")
    return seconds, out


def one(side, what, path):
    """One read in this process: prints its seconds and a checksum of the array."""
    seconds, out = (library_read if side == "library" else c_api_read)(path, what)
    print(seconds, len(out), int(out.astype(np.int64).sum()), int(out[0]), int(out[-1]))


def timed(side, what, path):
    printed = subprocess.run([sys.executable, __file__, "--one", side, what, path], check=True,
                             capture_output=True, text=True).stdout.split()
    return float(printed[0]), printed[1:]


def row(name, seconds, items, baseline, target=0.0):
    shown = f"{target:g}x" if target else ""
    print(f"{name:<52} {seconds * 1e3:12.3f} {seconds * 1e9 / items:14.2f} "
          f"{seconds / baseline:8.2f} {shown:>8}")
    return shown


def main():
    n = int(sys.argv[1]) if len(sys.argv) > 1 else 10_000_000
    directory = sys.argv[2] if len(sys.argv) > 2 else "/tmp"
    runs = max(1, int(os.environ.get("BENCH_RUNS", "7")))
    size = f"{n:,} values"
    with tempfile.TemporaryDirectory(dir=directory) as folder:
        path = os.path.join(folder, "python_bench.sim")
        make(path, n)
        print(f"\nfirst read from Python, {size}")
        print(f"{'case':<52} {'time [ms]':>12} {'per item [ns]':>14} {'ratio':>8} {'target':>8}")
        for what in ("values", "members"):
            best = {"library": 1e300, "c": 1e300}
            seen = {}
            for _ in range(runs):
                for side in best:
                    seconds, check = timed(side, what, path)
                    best[side] = min(best[side], seconds)
                    seen.setdefault(side, check)
            if seen["library"] != seen["c"]:
                sys.exit(f"{what}: the library read {seen['library']}, the C API {seen['c']}")
            against = f"HDF5 C API via ctypes: H5Dread of the {what} into np.empty"
            row(against, best["c"], n, best["c"])
            name = f"Python: first {what}() into a new array"
            target = row(name, best["library"], n, best["c"], TARGET)
            if os.environ.get("BENCH_ROWS"):
                with open(os.environ["BENCH_ROWS"], "a") as rows:
                    rows.write(f"python_bench\t{name}\t{size}\t{best['library'] * 1e9 / n:.6g}\t"
                               f"{best['c'] * 1e9 / n:.6g}\tns\t{target}\t{against}\n")


if __name__ == "__main__":
    if len(sys.argv) == 5 and sys.argv[1] == "--one":
        one(*sys.argv[2:])
    else:
        main()
