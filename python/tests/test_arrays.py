"""zul.read, zul.write, zul.chunks and zul.Reader on numpy arrays."""

import itertools
import os
import re
import stat
import threading

import numpy as np
import pytest

import zul
from conftest import sort_rows

COMBINATIONS = list(itertools.product([False, True], repeat=3))


@pytest.mark.parametrize("colors,reflections,normals", COMBINATIONS)
@pytest.mark.parametrize("order", ["input", "plan"])
def test_round_trip_of_every_attribute_combination(tmp_path, scan, colors, reflections,
                                                   normals, order):
    path = tmp_path / "a.zul"
    given = {k: scan[k] for k, on in [("colors", colors), ("reflections", reflections),
                                      ("normals", normals)] if on}
    zul.write(path, scan["positions"], step=0.001, chunk_size=3000, order=order, **given)
    cloud = zul.read(path, threads=2)
    assert cloud.data_type["step"] == 0.001
    assert (cloud.colors is not None) == colors
    assert (cloud.reflections is not None) == reflections
    assert (cloud.normals is not None) == normals
    # Points come back on the grid: whole multiples of the decimal step.
    grid = np.round(scan["positions"] / 0.001) * 0.001
    columns = [grid] + [given[k] for k in ("colors", "reflections") if k in given]
    back = [cloud.positions] + [getattr(cloud, k) for k in ("colors", "reflections") if k in given]
    np.testing.assert_array_equal(sort_rows(*back), sort_rows(*columns))
    if normals:
        order_back = np.lexsort(cloud.positions.T[::-1])
        order_in = np.lexsort(grid.T[::-1])
        cosine = np.sum(cloud.normals[order_back] * scan["normals"][order_in], axis=1)
        assert np.degrees(np.arccos(np.clip(cosine, -1, 1))).max() < 1.5


def test_box_read_is_the_filtered_full_read(tmp_path, scan):
    path = tmp_path / "a.zul"
    zul.write(path, scan["positions"], reflections=scan["reflections"], chunk_size=500,
              order="kd")
    full = zul.read(path, threads=1)
    box = (10, 5, 0, 30, 20, 2.5)
    part = zul.read(path, bbox=box)
    inside = np.all((full.positions >= box[:3]) & (full.positions <= box[3:]), axis=1)
    assert 0 < len(part) < len(full)
    np.testing.assert_array_equal(sort_rows(part.positions, part.reflections),
                                  sort_rows(full.positions[inside], full.reflections[inside]))


def test_chunks_and_reader_describe_the_file(tmp_path, scan):
    path = tmp_path / "a.zul"
    zul.write(path, scan["positions"], colors=scan["colors"], chunk_size=7000, order="input")
    chunks = zul.chunks(path)
    assert [c.points for c in chunks] == [7000, 7000, 6000]
    assert chunks[0].offset == 172
    assert chunks[-1].offset + chunks[-1].bytes == os.path.getsize(path)
    reader = zul.Reader(path)
    parts = list(reader)
    assert len(reader) == 3 and reader.num_points == 20000
    np.testing.assert_array_equal(np.concatenate([p.positions for p in parts]),
                                  zul.read(path).positions)
    for chunk, part in zip(chunks, parts):
        assert np.all(part.positions >= chunk.min) and np.all(part.positions <= chunk.max)


def test_sensor_header_is_applied(tmp_path, scan):
    path = tmp_path / "a.zul"
    turn = [[0, -1, 0], [1, 0, 0], [0, 0, 1]]
    zul.write(path, scan["positions"][:100], order="input",
              sensor={"rotation": turn, "translation": (10, 20, 30), "mount": 12})
    placed, stored = zul.read(path), zul.read(path, transform=False)
    assert placed.sensor["mount"] == 12
    np.testing.assert_allclose(placed.positions[:, 0], -stored.positions[:, 1] * 0.001 + 10)


BAD_ARGUMENTS = [
    ("positions of two columns", dict(positions=np.zeros((4, 2))), ValueError, "positions"),
    ("positions of strings", dict(positions=np.array([["a"] * 3])), TypeError, "positions"),
    ("a NaN position", dict(positions=np.array([[0, 0, np.nan]])), ValueError, "NaN"),
    ("colors as floats", dict(colors=np.zeros((4, 3))), TypeError, "colors"),
    ("colors above 255", dict(colors=np.full((4, 3), 256)), ValueError, "colors"),
    ("colors of other rows", dict(colors=np.zeros((3, 3), np.uint8)), ValueError, "colors"),
    ("negative reflection", dict(reflections=np.array([-1, 0, 0, 0])), ValueError, "reflections"),
    ("reflection above its maximum", dict(reflections=np.array([9, 0, 0, 0]), max_reflection=5),
     ValueError, "max_reflection"),
    ("a normal of length zero", dict(normals=np.zeros((4, 3), np.float32)), ValueError,
     "normals"),
    ("step zero", dict(step=0), ValueError, "step"),
    ("step True", dict(step=True), ValueError, "step"),
    ("positions of booleans", dict(positions=np.ones((4, 3), bool)), TypeError, "booleans"),
    ("an infinite normal", dict(normals=np.array([[np.inf, 0, 0]] * 4, np.float32)), ValueError,
     "infinite"),
    ("unknown colour mode", dict(color="rgb"), ValueError, "color"),
    ("unknown order", dict(order="random"), ValueError, "order"),
    ("negative threads", dict(threads=-1), ValueError, "threads"),
    ("a step too fine for the coordinates",
     dict(positions=np.full((4, 3), 1e8), step=1e-9), ValueError, r"for a step of 0\.000000001 "),
]


@pytest.mark.parametrize("name,arguments,error,word", BAD_ARGUMENTS,
                         ids=[c[0] for c in BAD_ARGUMENTS])
def test_bad_arguments_are_refused_naming_them(tmp_path, name, arguments, error, word):
    arguments = dict(arguments)
    positions = arguments.pop("positions", np.zeros((4, 3)))
    with pytest.raises(error, match=word):
        zul.write(tmp_path / "a.zul", positions, **arguments)
    assert os.listdir(tmp_path) == []


def test_lossless_conversions_are_made(tmp_path):
    zul.write(tmp_path / "a.zul", np.zeros((2, 3), np.float32),
              reflections=np.array([1, 2], np.int64), colors=[[1, 2, 3], [4, 5, 6]])
    assert zul.read(tmp_path / "a.zul").colors.dtype == np.uint8


def test_damaged_files_raise_with_the_status_and_the_chunk(tmp_path, scan):
    path = tmp_path / "a.zul"
    zul.write(path, scan["positions"], chunk_size=5000, order="input")
    chunks = zul.chunks(path)
    raw = path.read_bytes()
    (tmp_path / "cut.zul").write_bytes(raw[:chunks[2].offset + 100])
    with pytest.raises(zul.Error) as cut:
        zul.read(tmp_path / "cut.zul")
    assert cut.value.status == "zul_STATUS_TRUNCATED" and cut.value.chunk == 2
    assert "cut.zul" in str(cut.value) and f"at byte {chunks[2].offset}" in str(cut.value)
    # The reader hands out the chunks before the damage, then raises.
    seen = 0
    with pytest.raises(zul.Error):
        for part in zul.Reader(tmp_path / "cut.zul"):
            seen += len(part)
    assert seen == 10000
    damaged = bytearray(raw)
    damaged[chunks[1].offset + 3] ^= 0xFF  # the chunk's sync marker
    (tmp_path / "bad.zul").write_bytes(bytes(damaged))
    with pytest.raises(zul.Error) as bad:
        zul.read(tmp_path / "bad.zul")
    assert bad.value.status == "zul_STATUS_CORRUPT_DATA" and bad.value.chunk == 1
    with pytest.raises(ValueError, match="bbox"):
        zul.read(path, bbox=(1, 0, 0, 0, 1, 1))


def test_writes_name_the_users_file_and_the_reason_and_repeat_their_bytes(tmp_path, scan):
    missing = tmp_path / "gone" / "a.zul"
    with pytest.raises(zul.Error) as failed:
        zul.write(missing, scan["positions"])
    assert str(failed.value).startswith(f"{missing}: ")
    assert "No such file or directory" in str(failed.value) and "partial" not in str(failed.value)
    # The same points give the same bytes, on any thread count, in either order.
    for order in ("input", "plan"):
        for threads in (1, 3):
            zul.write(tmp_path / f"{threads}.zul", scan["positions"], order=order,
                      threads=threads)
        assert (tmp_path / "1.zul").read_bytes() == (tmp_path / "3.zul").read_bytes()
    assert sorted(os.listdir(tmp_path)) == ["1.zul", "3.zul"]


def _null_device(tmp_path):
    path = tmp_path / "null"
    try:
        os.mknod(path, stat.S_IFCHR | 0o666, os.makedev(1, 3))
    except PermissionError:
        pytest.skip("no right to make a device node")
    return path, lambda: stat.S_ISCHR(os.stat(path).st_mode)


def _pipe(tmp_path):
    path = tmp_path / "pipe"
    os.mkfifo(path)
    got = []
    reader = threading.Thread(target=lambda: got.append(open(path, "rb").read()), daemon=True)
    reader.start()
    # A pipe replaced by a file leaves the reader waiting: what it got is then nothing.
    return path, lambda: (reader.join(30), stat.S_ISFIFO(os.stat(path).st_mode),
                          got[0] if got else None)[1:]


def _link(tmp_path):
    (tmp_path / "real").mkdir()
    os.symlink(tmp_path / "real" / "a.zul", tmp_path / "link.zul")
    return tmp_path / "link.zul", lambda: (os.path.islink(tmp_path / "link.zul"),
                                           (tmp_path / "real" / "a.zul").read_bytes())


# Where zul.write writes, as the tool does: a device, a pipe and a symbolic link are written
# through, never replaced by a file (which, as root, a rename over a device would do).
@pytest.mark.parametrize("make,expected", [
    (_null_device, lambda written: True),
    (_pipe, lambda written: (True, written)),
    (_link, lambda written: (True, written)),
], ids=["device", "pipe", "link"])
def test_special_outputs_are_written_through(tmp_path, scan, make, expected):
    zul.write(tmp_path / "plain.zul", scan["positions"][:5000])
    written = (tmp_path / "plain.zul").read_bytes()
    target, found = make(tmp_path)
    zul.write(target, scan["positions"][:5000])
    assert found() == expected(written)
    assert not [n for n in os.listdir(tmp_path) if "partial" in n]


def test_streams_one_after_another_are_read_as_one_file(tmp_path, scan):
    first, second = scan["positions"][:3000], scan["positions"][3000:5000]
    zul.write(tmp_path / "a.zul", first, chunk_size=1000, order="input")
    zul.write(tmp_path / "b.zul", second, chunk_size=1000, order="input")
    zul.write(tmp_path / "c.zul", second, colors=scan["colors"][3000:5000], order="input")
    a, b, c = ((tmp_path / f"{n}.zul").read_bytes() for n in "abc")
    files = {"ab": a + b, "abab": a + b + a + b, "ac": a + c, "abcut": a + b[:-10],
             "abhead": a + b[:40], "aj": a + b"junk" * 20}
    for name, raw in files.items():
        (tmp_path / f"{name}.zul").write_bytes(raw)
    whole = zul.read(tmp_path / "abab.zul", threads=2)
    one, two = (zul.read(tmp_path / f"{n}.zul").positions for n in "ab")
    assert np.array_equal(whole.positions, np.concatenate([one, two, one, two]))
    assert [c.offset for c in zul.chunks(tmp_path / "ab.zul")][3:] == [
        len(a) + c.offset for c in zul.chunks(tmp_path / "b.zul")]
    reader = zul.Reader(tmp_path / "ab.zul", bbox=(-1e9, -1e9, -1e9, 1e9, 1e9, 1e9))
    assert (len(reader), reader.num_points) == (5, 5000)
    assert np.array_equal(np.concatenate([p.positions for p in reader]), whole.positions[:5000])
    # Kinds that one Cloud cannot hold, damage after the first stream, and bytes that are none.
    for name, words, handed in [("ac", f"stream 2 (byte {len(a)}) holds another data type", None),
                                ("abcut", f"stream 2 (byte {len(a)}): the file ends inside", 4000),
                                ("abhead", f"stream 2 (byte {len(a)}), whose head is damaged", 3000),
                                ("aj", "a chunk holds values no writer produces", 3000)]:
        with pytest.raises(zul.Error, match=re.escape(words)):
            zul.read(tmp_path / f"{name}.zul")
        if handed is not None:
            seen = 0
            with pytest.raises(zul.Error, match=re.escape(words)):
                for part in zul.Reader(tmp_path / f"{name}.zul"):
                    seen += len(part)
            assert seen == handed
    zul.decompress(tmp_path / "ac.zul", tmp_path / "ac.xyz")
    assert len((tmp_path / "ac.xyz").read_text().splitlines()) == 5001
