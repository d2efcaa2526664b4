"""zul.dask on a local cluster of two worker processes, started and stopped here."""

import os

import numpy as np
import pytest

import zul
import zul.dask
from conftest import LAS_FILES, data, sort_rows

distributed = pytest.importorskip("distributed")


@pytest.fixture(scope="module")
def client():
    cluster = distributed.LocalCluster(n_workers=2, threads_per_worker=1, processes=True,
                                       host="127.0.0.1", dashboard_address=None)
    with distributed.Client(cluster) as c:
        yield c
    cluster.close()


@pytest.fixture(scope="module")
def big_file(tmp_path_factory, scan):
    path = tmp_path_factory.mktemp("dask") / "scan.zul"
    zul.write(path, scan["positions"], colors=scan["colors"], reflections=scan["reflections"],
              chunk_size=500, order="kd")
    return str(path)


def test_read_spreads_one_file_over_partitions(client, big_file):
    frame = zul.dask.read(big_file, chunks_per_partition=8)
    assert frame.npartitions == 5
    assert list(frame.columns) == ["x", "y", "z", "red", "green", "blue", "reflection"]
    assert frame.dtypes["red"] == np.uint8 and frame.dtypes["reflection"] == np.int32
    result = frame.compute()
    cloud = zul.read(big_file)
    np.testing.assert_array_equal(sort_rows(result[["x", "y", "z", "reflection"]].to_numpy()),
                                  sort_rows(cloud.positions, cloud.reflections))


def test_box_reads_only_the_chunks_that_meet_it(client, big_file):
    box = (0, 0, 0, 10, 5, 5)  # 1% of the area
    tasks, _ = zul.dask.plan_read(big_file, bbox=box)
    read_bytes = sum(size for _, head, ranges, _ in tasks for _, size in ranges)
    assert 0 < read_bytes < 0.1 * os.path.getsize(big_file)
    result = zul.dask.read(big_file, bbox=box, columns=["x", "y", "z"]).compute()
    expected = zul.read(big_file, bbox=box)
    np.testing.assert_array_equal(sort_rows(result.to_numpy()), sort_rows(expected.positions))


def test_compress_runs_a_task_a_file_and_reports_a_failed_one(client, tmp_path):
    inputs = [data(name) for name in LAS_FILES]
    outputs = zul.dask.compress(inputs, tmp_path / "out", client=client)
    assert [os.path.basename(p) for p in outputs] == ["4_6_crop.zul", "sample_c.zul",
                                                      "1.2-with-color.zul"]
    assert [len(zul.read(p)) for p in outputs] == [23875, 14408, 1065]
    (tmp_path / "broken.xyz").write_text("1 2\n")
    with pytest.raises(zul.Error, match="broken.xyz"):
        zul.dask.compress([str(tmp_path / "broken.xyz"), inputs[2]], tmp_path / "more",
                          client=client)
    assert os.path.exists(tmp_path / "more" / "1.2-with-color.zul")
    # The cluster goes on working.
    assert client.submit(sum, [1, 2]).result(timeout=30) == 3


def test_read_takes_a_glob_and_the_union_of_attributes(client, tmp_path, scan):
    zul.write(tmp_path / "a.zul", scan["positions"][:1000], colors=scan["colors"][:1000])
    zul.write(tmp_path / "b.zul", scan["positions"][1000:1500],
              reflections=scan["reflections"][1000:1500])
    frame = zul.dask.read(str(tmp_path / "*.zul"))
    assert list(frame.columns) == ["x", "y", "z", "red", "green", "blue", "reflection"]
    result = frame.compute()
    assert len(result) == 1500
    assert result["red"].isna().sum() == 500 and result["reflection"].isna().sum() == 1000
    assert str(result["red"].dtype) == "UInt8" and result["x"].dtype == np.float64
    only = zul.dask.read(str(tmp_path / "*.zul"), columns=["x", "y", "z"]).compute()
    assert list(only.columns) == ["x", "y", "z"] and only["x"].dtype == np.float64
    stored = np.concatenate([zul.read(tmp_path / n).positions for n in ("a.zul", "b.zul")])
    np.testing.assert_array_equal(sort_rows(only.to_numpy()), sort_rows(stored))
    with pytest.raises(FileNotFoundError, match="no file matches"):
        zul.dask.read(str(tmp_path / "*.las"))


@pytest.mark.parametrize("box, columns", [(False, None), (True, None),
                                          (False, ["x", "gps_time", "classification"])])
def test_read_takes_the_companion_fields_by_name(client, tmp_path, box, columns):
    target = zul.compress(data("4_6_crop.las"), tmp_path / "a.zul", chunk_size=5000)
    whole = zul.read(target).positions
    bbox = (*whole.min(axis=0), *(whole.min(axis=0) + whole.max(axis=0)) / 2) if box else None
    frame = zul.dask.read(target, chunks_per_partition=2, bbox=bbox, columns=columns)
    assert frame.dtypes["gps_time"] == np.float64 and frame.dtypes["classification"] == np.uint8
    result = frame.compute()
    cloud = zul.read(target, bbox=bbox)
    assert 0 < len(result) == len(cloud) < (len(whole) if box else len(whole) + 1)
    np.testing.assert_array_equal(result["x"].to_numpy(), cloud.positions[:, 0])
    assert "return_number" in frame.columns or columns
    for name in frame.columns[frame.columns.isin(list(cloud.fields))]:
        np.testing.assert_array_equal(result[name].to_numpy(), cloud.fields[name])
    plain = zul.dask.read(target, companion=False)
    assert "gps_time" not in plain.columns and len(plain.compute()) == len(whole)


def test_a_file_of_several_streams_is_named_not_misread(tmp_path, big_file):
    raw = open(big_file, "rb").read()
    (tmp_path / "two.zul").write_bytes(raw + raw)
    with pytest.raises(zul.Error, match=f"another zul stream begins at byte {len(raw)}"):
        zul.dask.plan_read([str(tmp_path / "two.zul")])
