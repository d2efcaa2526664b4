"""zul.compress and zul.decompress (the tool's conversions) and installing the package."""

import os
import subprocess
import sys

import numpy as np
import pytest

import zul
from conftest import LAS_FILES, data, las_points, sort_rows


@pytest.mark.parametrize("name", LAS_FILES)
def test_compressed_las_reads_as_the_exact_las_coordinates(tmp_path, name):
    target = zul.compress(data(name), tmp_path / "a.zul")
    cloud = zul.read(target)
    positions, intensity = las_points(data(name))
    np.testing.assert_array_equal(sort_rows(cloud.positions, cloud.reflections),
                                  sort_rows(positions, intensity))


@pytest.mark.parametrize("name", LAS_FILES)
def test_las_comes_back_byte_for_byte_through_the_companion(tmp_path, name):
    target = zul.compress(data(name), tmp_path / "a.zul", keep_order=True)
    assert os.path.exists(str(target) + "x")
    zul.decompress(target, tmp_path / "b.las")
    with open(data(name), "rb") as a, open(tmp_path / "b.las", "rb") as b:
        assert a.read() == b.read()
    with pytest.raises(ValueError, match="companion"):
        zul.compress(data(name), tmp_path / "c.zul", companion="sometimes")


def test_conversion_errors_name_the_file(tmp_path):
    (tmp_path / "bad.xyz").write_text("1,5 2,5 3,5\n")
    with pytest.raises(zul.Error, match="bad.xyz: line 1"):
        zul.compress(tmp_path / "bad.xyz", tmp_path / "bad.zul")
    with pytest.raises(TypeError, match="colour"):
        zul.compress(data("bun0.pcd"), tmp_path / "a.zul", colour="rgb888")
    assert sorted(os.listdir(tmp_path)) == ["bad.xyz"]


def test_pip_installs_the_package_into_an_environment(tmp_path):
    """The README's installation: a pip install of python/, built through CMake (here the
    existing build, so only what changed is built)."""
    environment = tmp_path / "env"
    subprocess.run(["/usr/bin/python3", "-m", "venv", "--system-site-packages", str(environment)],
                   check=True)
    source = os.path.join(os.path.dirname(__file__), "..")
    build = os.path.join(os.path.dirname(os.path.dirname(zul.__file__)), "..")
    run = subprocess.run([str(environment / "bin" / "pip"), "install", "--no-build-isolation",
                          "--no-deps", "--no-index", source],
                         env=dict(os.environ, ZUL_CMAKE_BUILD_DIR=os.path.abspath(build)),
                         capture_output=True, text=True)
    assert run.returncode == 0, run.stdout + run.stderr
    check = subprocess.run([str(environment / "bin" / "python"), "-c",
                            "import zul, sys; c = zul.read(sys.argv[1]); print(zul.__file__, "
                            "len(c))", str(zul.compress(data("sample_c.las"),
                                                        tmp_path / "s.zul"))],
                           env={k: v for k, v in os.environ.items() if k != "PYTHONPATH"},
                           capture_output=True, text=True, cwd=tmp_path)
    assert check.returncode == 0, check.stderr
    assert str(environment) in check.stdout and check.stdout.split()[-1] == "14408"


def test_a_box_chooses_the_same_points_in_read_reader_and_decompress(tmp_path):
    target = zul.compress(data(LAS_FILES[0]), tmp_path / "a.zul", chunk_size=500)
    whole = zul.read(target)
    low, high = np.percentile(whole.positions, [25, 75], axis=0)
    box = (*low, *high)
    inside = zul.read(target, bbox=box)
    assert 0 < len(inside) < len(whole)
    reader = zul.Reader(target, bbox=box)
    assert len(reader) < len(zul.Reader(target)) and reader.num_points >= len(inside)
    parts = np.concatenate([part.positions for part in reader])
    np.testing.assert_array_equal(parts, inside.positions)
    zul.decompress(target, tmp_path / "box.xyz", bbox=box)
    written = np.loadtxt(tmp_path / "box.xyz", skiprows=1, usecols=(0, 1, 2), ndmin=2)
    np.testing.assert_allclose(written, inside.positions, atol=1e-9)
    with pytest.raises(ValueError, match="bbox"):
        zul.decompress(target, tmp_path / "bad.xyz", bbox=(1, 0, 0, 0, 1, 1))
    with pytest.raises(ValueError, match="bbox"):
        zul.Reader(target, bbox=(0, 0, 0))
