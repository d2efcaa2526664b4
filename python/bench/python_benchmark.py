"""Figures for the Python package, printed (not a test): zul.read of a 10M-point file on one and
two threads against the library's bulk decode called without the package's Python, and
zul.dask.compress of 8 LAS files on one and two worker processes.

    PYTHONPATH=build/python /usr/bin/python3 python/bench/python_benchmark.py [points]

Times are the best of several runs, alternating the cases, on this shared machine.
"""

import os
import shutil
import sys
import tempfile
import time

import numpy as np

import zul
import zul.dask
from zul import _zul


def best(cases, runs=5):
    times = {name: [] for name in cases}
    for _ in range(runs):
        for name, run in cases.items():
            start = time.perf_counter()
            run()
            times[name].append(time.perf_counter() - start)
    return {name: min(t) for name, t in times.items()}


def cloud(n, seed=3):
    rng = np.random.default_rng(seed)
    # A flight strip: scan lines across a 200 m swath, 10 points a square metre.
    line = np.arange(n) // 2000
    across = (np.arange(n) % 2000) / 2000 * 200
    positions = np.column_stack([across, line * 0.05, 100 + rng.normal(0, 0.3, n)])
    colors = rng.integers(60, 90, (n, 3), dtype=np.uint8)
    reflections = rng.integers(0, 300, n, dtype=np.int32)
    return positions, colors, reflections


def reading(folder, n):
    path = os.path.join(folder, "big.zul")
    positions, colors, reflections = cloud(n)
    zul.write(path, positions, colors=colors, reflections=reflections, step=0.001,
              order="input", threads=2)
    print(f"zul.read of {n:,} points ({os.path.getsize(path) / n:.2f} bytes a point), best of 5")
    index = _zul.Index(path)
    times = best({
        "bulk decode, 1 thread (C, into numpy)": lambda: index.decode(None, 1),
        "zul.read threads=1": lambda: zul.read(path, threads=1),
        "zul.read threads=2": lambda: zul.read(path, threads=2),
    })
    for name, t in times.items():
        print(f"  {name:40s} {t:7.3f} s  {n / t / 1e6:6.1f} M points/s")
    print(f"  threads=2 / threads=1: {times['zul.read threads=1'] / times['zul.read threads=2']:.2f}x;"
          f" zul.read threads=1 / bulk decode: "
          f"{times['zul.read threads=1'] / times['bulk decode, 1 thread (C, into numpy)']:.3f}")


def compressing(folder, n):
    import distributed

    positions, colors, reflections = cloud(n, seed=5)
    source = os.path.join(folder, "tile.zul")
    zul.write(source, positions, colors=colors, reflections=reflections, step=0.01,
              order="input")
    first = zul.decompress(source, os.path.join(folder, "tile0.las"))
    tiles = [first] + [shutil.copy(first, os.path.join(folder, f"tile{i}.las"))
                       for i in range(1, 8)]
    print(f"zul.dask.compress of 8 LAS files of {n:,} points, best of 3")
    results = {}
    for workers in (1, 2, 1, 2, 1, 2):
        cluster = distributed.LocalCluster(n_workers=workers, threads_per_worker=1,
                                           processes=True, host="127.0.0.1",
                                           dashboard_address=None)
        with distributed.Client(cluster) as client:
            client.submit(int, 1).result()
            start = time.perf_counter()
            zul.dask.compress(tiles, os.path.join(folder, f"out{workers}"), client=client)
            elapsed = time.perf_counter() - start
        cluster.close()
        results[workers] = min(results.get(workers, elapsed), elapsed)
    for workers, t in results.items():
        print(f"  {workers} worker{'s' if workers > 1 else ''}: {t:6.2f} s")
    print(f"  2 workers / 1 worker: {results[1] / results[2]:.2f}x")


if __name__ == "__main__":
    points = int(sys.argv[1]) if len(sys.argv) > 1 else 10_000_000
    with tempfile.TemporaryDirectory() as folder:
        reading(folder, points)
        compressing(folder, max(points // 10, 10000))
