"""zul.ros on PointCloud2 messages serialised here, as a ROS node would hand them over."""
import struct

import numpy as np
import pytest

import zul

STEP = 0.001
FIELDS = [("x", 0, 7, 1), ("y", 4, 7, 1), ("z", 8, 7, 1), ("intensity", 16, 7, 1),
          ("ring", 20, 4, 1), ("t", 24, 6, 1), ("normal", 28, 7, 3)]
POINT_STEP = 48  # bytes 12 to 15 and 40 to 47 are padding


def records(height, width, big, seed=1):
    """An organised lidar-like cloud with a NaN row and scattered NaN points, and padding bytes
    that are not all zero."""
    random = np.random.default_rng(seed)
    e = ">" if big else "<"
    dtype = np.dtype({"names": ["x", "y", "z", "pad", "intensity", "ring", "t", "normal", "tail"],
                      "formats": [e + "f4", e + "f4", e + "f4", "u1", e + "f4", e + "u2", e + "u4",
                                  (e + "f4", 3), ("u1", 8)],
                      "offsets": [0, 4, 8, 13, 16, 20, 24, 28, 40], "itemsize": POINT_STEP})
    cloud = np.zeros((height, width), dtype=dtype)
    azimuth = np.linspace(0, 2 * np.pi, width, endpoint=False)
    rng = 5 + random.uniform(-0.01, 0.01, (height, width))
    cloud["x"] = rng * np.cos(azimuth)
    cloud["y"] = rng * np.sin(azimuth)
    cloud["z"] = np.linspace(-1, 1, height)[:, None]
    cloud["intensity"] = random.integers(0, 1000, (height, width))
    cloud["ring"] = np.arange(height)[:, None]
    cloud["t"] = np.arange(width)[None, :] * 1000
    cloud["normal"] = random.normal(size=(height, width, 3))
    cloud["pad"] = random.integers(0, 3, (height, width))
    for axis in "xyz":
        cloud[axis][3] = np.nan
        cloud[axis][5, ::7] = np.nan
    return cloud


def serialise(cloud, big, ros1):
    """A PointCloud2 in ROS 1's serialisation or in CDR (big- or little-endian)."""
    height, width = cloud.shape
    e = ">" if big and not ros1 else "<"
    out = bytearray() if ros1 else bytearray(b"\x00\x00\x00\x00" if big else b"\x00\x01\x00\x00")

    def u32(value):
        while not ros1 and (len(out) - 4) % 4:
            out.append(0)
        out.extend(struct.pack(e + "I", value))

    def string(text):
        u32(len(text) + (0 if ros1 else 1))
        out.extend(text.encode() + (b"" if ros1 else b"\0"))

    if ros1:
        u32(42)
    u32(1700000000)
    u32(5000)
    string("lidar")
    u32(height)
    u32(width)
    u32(len(FIELDS))
    for name, offset, datatype, count in FIELDS:
        string(name)
        u32(offset)
        out.append(datatype)
        u32(count)
    out.append(1 if big else 0)
    u32(POINT_STEP)
    u32(POINT_STEP * width)
    data = cloud.tobytes()
    u32(len(data))
    out.extend(data)
    out.append(0)
    return bytes(out)


@pytest.mark.parametrize("big,ros1", [(False, False), (True, False), (False, True), (True, True)])
def test_round_trip_keeps_every_field(big, ros1):
    cloud = records(16, 64, big)
    message = serialise(cloud, big, ros1)
    packed = zul.ros.encode(message, step=STEP, ros1=ros1)
    assert len(packed) < len(message) / 2
    back = zul.ros.decode(packed, ros1=ros1)
    assert len(back) == len(message)
    restored = zul.ros.to_arrays(back, ros1=ros1)
    original = zul.ros.to_arrays(message, ros1=ros1)
    assert set(restored) == {name for name, _, _, _ in FIELDS}
    for name in original:
        if name in "xyz":
            np.testing.assert_array_equal(np.isnan(restored[name]), np.isnan(original[name]))
            finite = ~np.isnan(original[name])
            assert np.all(np.abs(restored[name][finite].astype(np.float64) -
                                 original[name][finite]) <= np.float32(STEP) / 2)
        else:
            np.testing.assert_array_equal(restored[name].view(np.uint8),
                                          original[name].view(np.uint8))
    # Every byte but those of finite positions, padding included.
    mask = np.ones((16, 64, POINT_STEP), dtype=bool)
    for k in range(3):
        mask[..., 4 * k:4 * k + 4] &= np.isnan(original["xyz"[k]])[..., None]
    before = np.frombuffer(cloud.tobytes(), np.uint8).reshape(16, 64, POINT_STEP)
    after = np.frombuffer(zul.ros.message_fields(back, ros1=ros1)["data"], np.uint8)
    np.testing.assert_array_equal(after.reshape(16, 64, POINT_STEP)[mask], before[mask])


def test_to_arrays_reads_compressed_messages():
    cloud = records(8, 32, False)
    packed = zul.ros.encode(serialise(cloud, False, False))
    arrays = zul.ros.to_arrays(packed)
    assert arrays["normal"].shape == (8, 32, 3) and arrays["normal"].dtype == np.float32
    np.testing.assert_array_equal(arrays["ring"], cloud["ring"])
    assert zul.ros.message_fields(packed)["compressed"]


@pytest.mark.parametrize("damage,text", [
    (lambda b: b[:-3], "ends inside"),
    (lambda b: b[:200] + bytes([b[200] ^ 1]) + b[201:], ""),
])
def test_damaged_messages_raise(damage, text):
    packed = zul.ros.encode(serialise(records(8, 32, False), False, False))
    with pytest.raises(zul.Error) as error:
        zul.ros.decode(damage(packed))
    assert text in str(error.value)


def test_impossible_layout_is_named():
    message = bytearray(serialise(records(8, 4, False), False, False))
    at = message.index(b"ring\0") + 5
    while (at - 4) % 4:
        at += 1
    message[at:at + 4] = struct.pack("<I", 47)  # ring (2 bytes) at 47 runs past point_step 48
    with pytest.raises(zul.Error, match="field 'ring' .* runs past point_step 48"):
        zul.ros.encode(bytes(message))


rosbag = pytest.importorskip("rosbag")


@pytest.mark.parametrize("compression", ["none", "bz2", "lz4"])
def test_ros1_bag_through_rosbag(tmp_path, compression):
    """A bag Debian's rosbag writes: compressed, opened by rosbag, restored, compared."""
    import genpy
    from sensor_msgs.msg import PointCloud2, PointField
    from std_msgs.msg import String

    source, packed, restored = tmp_path / "scan.bag", tmp_path / "scan.zul.bag", tmp_path / "back.bag"
    clouds = []
    with rosbag.Bag(str(source), "w", compression=compression) as bag:
        for i in range(4):
            cloud = records(16, 64, False, seed=i)
            message = PointCloud2(height=16, width=64, is_bigendian=False, point_step=POINT_STEP,
                                  row_step=POINT_STEP * 64, data=cloud.tobytes(), is_dense=False)
            message.header.frame_id = "lidar"
            message.fields = [PointField(name=n, offset=o, datatype=d, count=c)
                              for n, o, d, c in FIELDS]
            stamp = genpy.Time(100 + i, 5)
            bag.write("/points", message, stamp)
            bag.write("/note", String(data="scan %d" % i), stamp)
            clouds.append(cloud)
    converted, problems = zul.ros.compress_bag(source, packed)
    assert (converted, problems) == (4, [])
    topics = {name: (kind, count) for name, kind, count, _ in zul.ros.list_bag(packed)}
    assert topics == {"/points/zul": ("point_cloud_interfaces/CompressedPointCloud2", 4),
                      "/note": ("std_msgs/String", 4)}
    with rosbag.Bag(str(packed)) as bag:
        info = bag.get_type_and_topic_info()
        assert info.topics["/points/zul"].message_count == 4
        assert info.topics["/points/zul"].msg_type == "point_cloud_interfaces/CompressedPointCloud2"
        packed_bytes = [raw[1] for _, raw, _ in bag.read_messages(topics=["/points/zul"], raw=True)]
        # rosbag builds the compressed type from the definition the connection carries.
        _, first, _ = next(bag.read_messages(topics=["/points/zul"]))
        assert (first.format, first.height, first.width, first.header.frame_id) == ("zul", 16, 64, "lidar")
        assert [f.name for f in first.fields] == [name for name, _, _, _ in FIELDS]
    assert sum(map(len, packed_bytes)) < sum(c.nbytes for c in clouds) / 2
    assert zul.ros.decompress_bag(packed, restored) == (4, [])
    with rosbag.Bag(str(restored)) as bag:
        assert bag.get_type_and_topic_info().topics["/points"].msg_type == "sensor_msgs/PointCloud2"
        notes = [m.data for _, m, _ in bag.read_messages(topics=["/note"])]
        points = list(bag.read_messages(topics=["/points"]))
    assert notes == ["scan %d" % i for i in range(4)]
    for (_, message, stamp), cloud in zip(points, clouds):
        assert stamp.secs >= 100 and message.header.frame_id == "lidar"
        back = np.frombuffer(bytes(message.data), dtype=cloud.dtype).reshape(cloud.shape)
        np.testing.assert_array_equal(back["t"], cloud["t"])
        np.testing.assert_array_equal(back["normal"], cloud["normal"])
        np.testing.assert_array_equal(np.isnan(back["x"]), np.isnan(cloud["x"]))
        finite = ~np.isnan(cloud["x"])
        assert np.all(np.abs(back["x"][finite] - cloud["x"][finite]) <= np.float32(STEP) / 2)
