"""ROS point clouds through zul, without ROS.

A serialised ``sensor_msgs/PointCloud2`` (ROS 2's CDR by default, either byte order; ROS 1's
serialisation with ``ros1=True``) becomes a serialised ``point_cloud_interfaces/msg/
CompressedPointCloud2`` of format ``"zul"``, as the ROS 2 Python codec takes and gives bytes, and
back. Every field, the padding, the NaN points and the organised layout come back; x, y and z lie
within half a step of what they were, all else is bit-identical. docs/ros.md tells the format.

>>> packed = zul.ros.encode(message_bytes)            # step 0.001
>>> zul.ros.decode(packed) == message_bytes            # but the positions' bits
>>> zul.ros.to_arrays(packed)["intensity"].shape
(64, 1024)
"""

import numpy as np

from . import _zul

__all__ = ["encode", "decode", "to_arrays", "message_fields", "compress_bag", "decompress_bag",
           "list_bag"]

_MAX_DATA = 1 << 32
_TYPES = {1: "i1", 2: "u1", 3: "i2", 4: "u2", 5: "i4", 6: "u4", 7: "f4", 8: "f8"}


def encode(data, *, step=0.001, ros1=False, chunk_points=0, tile_columns=0):
    """A serialised PointCloud2 -> a serialised CompressedPointCloud2 (same serialisation).

    ``step`` is the grid step of x, y and z. ``chunk_points`` and ``tile_columns`` choose how the
    stream is cut (0 and 0: by the cloud's shape). Raises :class:`zul.Error` naming what is wrong
    with a message it refuses.
    """
    return _zul.ros_encode(bytes(data), float(step), bool(ros1), int(chunk_points),
                           int(tile_columns))


def decode(data, *, ros1=False, max_data_bytes=_MAX_DATA):
    """A serialised zul CompressedPointCloud2 -> the serialised PointCloud2 it came from.

    A message that claims more than ``max_data_bytes`` of data is refused before anything is
    allocated. Raises :class:`zul.Error` for a damaged message.
    """
    return _zul.ros_decode(bytes(data), bool(ros1), int(max_data_bytes))


def message_fields(data, *, ros1=False, max_data_bytes=_MAX_DATA):
    """The fields of a PointCloud2, or of the PointCloud2 a zul CompressedPointCloud2 holds, as a
    dict: header, height, width, fields (name, offset, datatype, count), is_bigendian,
    point_step, row_step, is_dense, data (bytes) and compressed (which the input was)."""
    return _zul.ros_cloud(bytes(data), bool(ros1), int(max_data_bytes))


def to_arrays(data, *, ros1=False, max_data_bytes=_MAX_DATA):
    """The fields of a PointCloud2 or of a zul CompressedPointCloud2 as named numpy arrays.

    Each field becomes an array of its own type in native byte order, of shape (height, width)
    for an organised cloud and (width,) for a flat one, with one more axis for a field of count
    above 1. NaN points stay in place.
    """
    cloud = message_fields(data, ros1=ros1, max_data_bytes=max_data_bytes)
    height, width = cloud["height"], cloud["width"]
    order = ">" if cloud["is_bigendian"] else "<"
    buffer = np.frombuffer(cloud["data"], dtype=np.uint8)
    arrays = {}
    for name, offset, datatype, count in cloud["fields"]:
        if count == 0:
            continue
        dtype = np.dtype(order + _TYPES[datatype])
        shape = (height, width) + ((count,) if count > 1 else ())
        strides = (cloud["row_step"], cloud["point_step"]) + ((dtype.itemsize,) if count > 1 else ())
        view = np.ndarray(shape, dtype=dtype, buffer=buffer, offset=offset, strides=strides)
        array = view.astype(dtype.newbyteorder("="), copy=True)
        arrays[name] = array if height > 1 else array.reshape((width,) + shape[2:])
    return arrays


def compress_bag(source, target, *, step=0.001):
    """Writes ``target``: the bag ``source`` (a ROS 1 ``.bag`` or a ROS 2 ``.db3``) with every
    PointCloud2 topic compressed to ``NAME/zul``, every other topic as it was. Returns the number
    of messages converted and the problems met (messages left as they were, a damaged end), as
    sentences naming the topic and message."""
    converted, problems = _zul.ros_bag("compress", str(source), str(target), float(step))
    return converted, list(problems)


def decompress_bag(source, target):
    """The reverse of :func:`compress_bag`."""
    converted, problems = _zul.ros_bag("decompress", str(source), str(target), 0.001)
    return converted, list(problems)


def list_bag(path):
    """The topics of a bag: a list of (name, type, messages, bytes)."""
    return [tuple(topic) for topic in _zul.ros_list_bag(str(path))]
