import os
import struct

import numpy as np
import pytest

DATA = os.environ.get("ZUL_DATA_DIR",
                      os.path.join(os.path.dirname(__file__), "..", "..", "..", "shared", "data"))
LAS_FILES = ["4_6_crop.las", "sample_c.las", "1.2-with-color.las"]


def data(name):
    return os.path.join(DATA, name)


def las_points(path):
    """X * scale + offset of every point of a LAS 1.2 file, in double, as any LAS reader
    computes it, with the intensity."""
    raw = open(path, "rb").read()
    offset, = struct.unpack_from("<I", raw, 96)
    length, = struct.unpack_from("<H", raw, 105)
    count, = struct.unpack_from("<I", raw, 107)
    scale = np.array(struct.unpack_from("<3d", raw, 131))
    origin = np.array(struct.unpack_from("<3d", raw, 155))
    records = np.frombuffer(raw, dtype=np.uint8, count=count * length, offset=offset)
    records = records.reshape(count, length)
    xyz = records[:, :12].copy().view("<i4").astype(np.float64)
    intensity = records[:, 12:14].copy().view("<u2")[:, 0].astype(np.int32)
    return xyz * scale + origin, intensity


def sort_rows(*columns):
    """The rows of the columns side by side, sorted, for comparing clouds whose chunks reorder
    points."""
    table = np.column_stack([c.reshape(len(c), -1).astype(np.float64) for c in columns])
    return table[np.lexsort(table.T[::-1])]


@pytest.fixture(scope="session")
def scan():
    """A seeded cloud of 20,000 points with every attribute."""
    rng = np.random.default_rng(7)
    n = 20000
    positions = np.column_stack([rng.uniform(0, 100, n), rng.uniform(0, 50, n),
                                 rng.uniform(0, 5, n)])
    normals = rng.normal(size=(n, 3)).astype(np.float32)
    normals /= np.linalg.norm(normals, axis=1, keepdims=True)
    return dict(positions=positions,
                colors=rng.integers(0, 256, (n, 3), dtype=np.uint8),
                reflections=rng.integers(0, 4096, n, dtype=np.int32),
                normals=normals)
