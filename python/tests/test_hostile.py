"""Hostile files and names through Python's reading: a chunk that claims 2^30 - 1 identical
points in 250 bytes, a count past a lowered budget or the density limit, a NUL inside a name. Each is refused naming
what is wrong, before anything is allocated, in every reading path (read, Reader, chunks, dask,
decompress)."""
import os
import struct

import numpy as np
import pytest

import zul
from zul import dask as zul_dask

BOMB = (1 << 30) - 1


def forged(tmp_path, count, copies=1):
    """A stream of two identical points whose one chunk, repeated `copies` times, claims
    `count` points."""
    path = tmp_path / "two.zul"
    zul.write(path, np.array([[1.5, -2.0, 0.5]] * 2))
    raw = path.read_bytes()
    offset = zul.chunks(path)[0].offset
    chunk = bytearray(raw[offset:])
    chunk[16 + 48:16 + 52] = struct.pack("<I", count)
    hostile = tmp_path / "hostile.zul"
    hostile.write_bytes(raw[:offset] + bytes(chunk) * copies)
    return hostile, offset


READS = [
    ("read", lambda p, **k: zul.read(p, **k)),
    ("reader", lambda p, **k: list(zul.Reader(p, **k))),
    ("chunks", lambda p, **k: zul.chunks(p, **k)),
    ("dask", lambda p, **k: zul_dask.read(p, **k).compute()),
]


# 4000000 points within the budget in 250 bytes: a density limit of 11806 points a byte takes them.
@pytest.mark.parametrize("how,call", READS, ids=[r[0] for r in READS])
@pytest.mark.parametrize("count,copies,limits,claim", [
    (BOMB, 1, dict(chunk_budget=None, point_density=None),
     "claims 1073741823 points, past the budget of 256 MiB"),
    (BOMB, 64, {}, "claims 1073741823 points"),
    (300000, 1, dict(chunk_budget=1), "claims 300000 points, past the budget of 1 MiB"),
    (4000000, 1, {}, "claims 4000000 points in its 78 bytes, bringing the first 250 bytes to "
                     "4000000 points, past the density limit \\(1048576 points and 4 for each "
                     "byte; point_density raises it, 0 lifts it\\)"),
    (4000000, 1, dict(point_density=11805), "and 11805 for each byte"),
], ids=["bomb", "64 bombs", "lowered budget", "density", "density raised one short"])
def test_a_chunk_past_a_limit_is_refused_naming_it(tmp_path, how, call, count, copies, limits,
                                                   claim):
    if how == "dask":
        pytest.importorskip("dask.dataframe")
    path, offset = forged(tmp_path, count, copies)
    with pytest.raises(zul.Error, match=claim) as refused:
        call(path, **limits)
    assert refused.value.status == "zul_STATUS_OVER_BUDGET" and refused.value.chunk == 0
    assert f"at byte {offset}" in str(refused.value)


@pytest.mark.parametrize("count,limits", [
    (4000000, dict(point_density=11806)), (4000000, dict(point_density=0)),
    (300000, dict(chunk_budget=32)),
], ids=["density raised", "density lifted", "budget raised"])
def test_raised_limits_read_a_forged_count_that_fits(tmp_path, count, limits):
    path, _ = forged(tmp_path, count)
    assert len(zul.read(path, **limits).positions) == count
    assert zul.chunks(path, **limits)[0].points == count


@pytest.mark.parametrize("limit,value,error", [
    ("point_density", -1, ValueError), ("point_density", True, TypeError),
    ("point_density", 2.5, TypeError), ("chunk_budget", 0, ValueError),
    ("chunk_budget", True, TypeError), ("chunk_budget", 1.5, TypeError)])
def test_a_limit_that_is_no_count_is_refused(tmp_path, limit, value, error):
    zul.write(tmp_path / "a.zul", np.zeros((2, 3)))
    with pytest.raises(error, match=limit):
        zul.read(tmp_path / "a.zul", **{limit: value})
    with pytest.raises(error, match=limit):
        zul.decompress(tmp_path / "a.zul", tmp_path / "a.xyz", **{limit: value})


def test_decompress_takes_the_budget(tmp_path):
    path, _ = forged(tmp_path, 300000)
    with pytest.raises(zul.Error, match="claims 300000 points"):
        zul.decompress(path, tmp_path / "out.xyz", chunk_budget=1)


REFUSED_NAMES = [
    ("read", lambda p: zul.read(p)),
    ("reader", lambda p: zul.Reader(p)),
    ("chunks", lambda p: zul.chunks(p)),
    ("decompress", lambda p: zul.decompress(p, p + ".xyz")),
    ("compress", lambda p: zul.compress(p, p + ".zul")),
]


@pytest.mark.parametrize("how,call", REFUSED_NAMES, ids=[r[0] for r in REFUSED_NAMES])
def test_a_nul_inside_a_name_is_refused(tmp_path, how, call):
    # The shorter name exists: a NUL must not make it the file read.
    zul.write(tmp_path / "a.zul", np.zeros((2, 3)))
    with pytest.raises(ValueError, match="NUL"):
        call(str(tmp_path / "a.zul") + "\0.bak")


def test_a_file_larger_than_the_machine_is_refused_before_allocating(tmp_path):
    # 1000 chunks each within the budget (78 kB), 4 billion points together: more than the
    # machine holds is refused as MemoryError naming the file; the chunk by chunk reader is
    # offered.
    path, _ = forged(tmp_path, 4000000, 1000)
    total = 4000000 * 1000 * 24
    if os.sysconf("SC_PHYS_PAGES") * os.sysconf("SC_PAGE_SIZE") >= total:
        pytest.skip("this machine holds the arrays")
    with pytest.raises(MemoryError, match="hostile.zul: its 4000000000 points take"):
        zul.read(path, point_density=0)


# Streams one after another, each within the limit alone: the limit counts over the whole file.
@pytest.mark.parametrize("how,call", READS[:3], ids=[r[0] for r in READS[:3]])
def test_the_density_limit_counts_over_every_stream(tmp_path, how, call):
    path, _ = forged(tmp_path, 1000000)
    single = path.read_bytes()
    several = tmp_path / "several.zul"
    several.write_bytes(single * 2)
    with pytest.raises(zul.Error, match=f"stream 2 \\(byte {len(single)}\\): chunk 0 .* past "
                                        "the density limit") as refused:
        call(several)
    assert refused.value.status == "zul_STATUS_OVER_BUDGET"
    assert len(zul.read(several, point_density=0).positions) == 2000000
