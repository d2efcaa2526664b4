"""The fields a zul stream lacks, through its companion: zul.read hands them out by their source
names and types (laspy's for LAS), zul.write takes them, keep_order gives the input's order back,
and zul.compress says what it kept, dropped and changed."""

import struct
import warnings

import numpy as np
import pytest

import zul
from conftest import data

DTYPES = ["u1", "i1", "u2", "i2", "u4", "i4", "u8", "i8", "f4", "f8"]


def _values(dtype, n, rng):
    kind = np.dtype(dtype)
    if kind.kind == "f":
        return rng.standard_normal(n).astype(dtype)
    info = np.iinfo(kind)
    return rng.integers(info.min, info.max, n, dtype=dtype, endpoint=True)


@pytest.mark.parametrize("order", ["plan", "input", "kd"])
def test_written_fields_come_back_with_their_types_in_either_order(tmp_path, order):
    rng = np.random.default_rng(3)
    positions = rng.random((5000, 3)) * 50
    positions[100:110] = positions[99]  # points on one grid point keep their own values
    fields = {f"f_{d}": _values(d, len(positions), rng) for d in DTYPES}
    path = tmp_path / "a.zul"
    zul.write(path, positions, fields=fields, keep_order=True, order=order, chunk_size=700)
    back = zul.read(path, keep_order=True)
    np.testing.assert_allclose(back.positions, positions, atol=0.0005)
    for name, values in fields.items():
        assert back.fields[name].dtype == values.dtype
        np.testing.assert_array_equal(back.fields[name], values)
    # In stored order, each point still carries its own values.
    stored = zul.read(path)
    rows = np.argsort(stored.fields["f_u8"], kind="stable")
    np.testing.assert_array_equal(stored.fields["f_f8"][rows],
                                  fields["f_f8"][np.argsort(fields["f_u8"], kind="stable")])
    box = zul.read(path, bbox=(0, 0, 0, 20, 20, 20))
    assert 0 < len(box) == len(box.fields["f_i2"]) < len(positions)
    parts = list(zul.Reader(path, bbox=(0, 0, 0, 20, 20, 20)))
    np.testing.assert_array_equal(np.concatenate([p.fields["f_i2"] for p in parts]),
                                  box.fields["f_i2"])
    assert zul.read(path, companion=False).fields == {}


def test_write_refuses_fields_it_cannot_keep_and_removes_a_stale_companion(tmp_path):
    path = tmp_path / "a.zul"
    positions = np.zeros((4, 3))
    for fields in ({"b": np.zeros(4, bool)}, {"s": np.zeros(3)}, {"m": np.zeros((4, 2))},
                   {"x" * 48: np.zeros(4)}):
        with pytest.raises(ValueError):
            zul.write(path, positions, fields=fields)
    with pytest.raises(ValueError):
        zul.write(path, positions, keep_order=True)
    zul.write(path, positions, fields={"a": np.arange(4)})
    assert (tmp_path / "a.zulx").exists()
    zul.write(path, positions)
    assert not (tmp_path / "a.zulx").exists()
    with pytest.raises(zul.Error, match="order"):
        zul.read(path, keep_order=True)
    zul.write(path, positions, fields={"a": np.arange(4)})
    zul.write(tmp_path / "b.zul", positions + 1, fields={"a": np.arange(4)})
    (tmp_path / "b.zulx").replace(tmp_path / "a.zulx")  # another stream's companion
    with pytest.raises(zul.Error, match="does not belong"):
        zul.read(path)
    assert len(zul.read(path, companion=False)) == 4


def test_las_fields_by_laspy_names(tmp_path):
    source = data("sample_c.las")
    target = zul.compress(source, tmp_path / "a.zul", keep_order=True)
    cloud = zul.read(target, keep_order=True)
    raw = open(source, "rb").read()
    offset, = struct.unpack_from("<I", raw, 96)
    length, = struct.unpack_from("<H", raw, 105)
    count, = struct.unpack_from("<I", raw, 107)
    records = np.frombuffer(raw, np.uint8, count * length, offset).reshape(count, length)
    np.testing.assert_array_equal(cloud.fields["classification"], records[:, 15] & 31)
    np.testing.assert_array_equal(cloud.fields["return_number"], records[:, 14] & 7)
    np.testing.assert_array_equal(cloud.fields["number_of_returns"], (records[:, 14] >> 3) & 7)
    np.testing.assert_array_equal(cloud.fields["gps_time"],
                                  records[:, 20:28].copy().view("<f8")[:, 0])
    assert cloud.fields["scan_angle_rank"].dtype == np.int8


def test_pcd_fields_by_their_names(tmp_path):
    target = zul.compress(data("bun0.pcd"), tmp_path / "a.zul", keep_order=True)
    cloud = zul.read(target, keep_order=True)
    text = np.loadtxt(data("bun0.pcd"), skiprows=11, dtype=np.float32)
    assert cloud.fields["curvature"].dtype == np.float32
    np.testing.assert_array_equal(cloud.fields["curvature"], text[:, 6])
    assert not any(name.endswith("_residual") for name in cloud.fields)


def test_text_columns_by_their_names_and_types(tmp_path):
    source = tmp_path / "a.csv"
    source.write_text("x,y,z,class,t\n1,2,3,4,0.5\n4,5,6,-7,1e300\n")
    cloud = zul.read(zul.compress(source, tmp_path / "a.zul", keep_order=True), keep_order=True)
    assert cloud.fields["class"].dtype == np.int64 and cloud.fields["t"].dtype == np.float64
    np.testing.assert_array_equal(cloud.fields["class"], [4, -7])
    np.testing.assert_array_equal(cloud.fields["t"], [0.5, 1e300])


@pytest.mark.parametrize("exact, position, normal", [(False, 0.000501, 0.0134), (True, 0, 0)])
def test_pcd_float_bits_only_with_exact(tmp_path, exact, position, normal):
    with warnings.catch_warnings():
        warnings.simplefilter("ignore", zul.FieldsWarning)
        report = zul.compress(data("bun0.pcd"), tmp_path / "a.zul", keep_order=True, exact=exact)
    assert len([kind for kind in report.changed if "exact=True" in kind]) == (0 if exact else 2)
    zul.decompress(tmp_path / "a.zul", tmp_path / "b.pcd")
    source = np.loadtxt(data("bun0.pcd"), skiprows=11, dtype=np.float32)
    back = np.loadtxt(tmp_path / "b.pcd", skiprows=11, dtype=np.float32)
    np.testing.assert_allclose(back[:, :3], source[:, :3], rtol=0, atol=position)
    np.testing.assert_allclose(back[:, 3:6], source[:, 3:6], rtol=0, atol=normal)
    np.testing.assert_array_equal(back[:, 6], source[:, 6])


@pytest.mark.parametrize("name, options, kept, dropped", [
    ("sample_c.las", {}, "keeps 7 fields of every point", []),
    ("table_scene_mug_stereo_textured.pcd", {}, "the 97920 points the stream cannot hold", []),
    ("table_scene_mug_stereo_textured.pcd", {"companion": "never"}, "",
     ["alpha", "the organised 640 x 480 layout", "the viewpoint",
      "97920 points with NaN or infinite coordinates"]),
])
def test_compress_reports_what_it_kept_and_dropped(tmp_path, name, options, kept, dropped):
    with warnings.catch_warnings(record=True) as caught:
        warnings.simplefilter("always")
        report = zul.compress(data(name), tmp_path / "a.zul", **options)
    assert report == str(tmp_path / "a.zul")
    assert kept in report.kept and (kept or report.kept == "")
    assert report.dropped == dropped
    left_out = [w for w in caught if issubclass(w.category, zul.FieldsWarning)]
    assert len(left_out) == (1 if dropped else 0) + len(report.changed)


def test_compress_reports_changed_values(tmp_path):
    source = tmp_path / "c.xyz"
    source.write_text("x y z r g b\n1 2 3 256 0 0\n4 5 6 1 2 3\n")
    with pytest.warns(zul.FieldsWarning, match="clamped"):
        report = zul.compress(source, tmp_path / "c.zul")
    assert report.changed == {"colour values outside 0 .. 255 clamped": 1}
