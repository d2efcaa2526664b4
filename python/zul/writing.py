"""Writing numpy arrays into a zul file."""

import os

import numpy as np

from . import _zul
from .reading import _threads

_COLOR_MODES = {"rgb888": 2, "rgb565": 1}
_ORDERS = ("plan", "input", "kd")


def _array(name, value, dtype, columns, count=None):
    """`value` as a C-contiguous array of `dtype` with `columns` columns (None: one dimension),
    converted only where numpy converts without loss."""
    array = np.asarray(value)
    if array.dtype == np.bool_:
        raise TypeError(f"{name}: booleans are no {np.dtype(dtype).name}; give numbers")
    if array.dtype != dtype:
        if array.dtype.kind in "iu" and np.dtype(dtype).kind in "iu" and array.size > 0:
            info = np.iinfo(dtype)
            if array.min() < info.min or array.max() > info.max:
                raise ValueError(f"{name}: values outside {info.min} .. {info.max} do not fit "
                                 f"{np.dtype(dtype).name}")
        elif not np.can_cast(array.dtype, dtype, "same_kind" if name == "normals" else "safe"):
            raise TypeError(f"{name}: {array.dtype} cannot become {np.dtype(dtype).name} without "
                            f"loss; give {np.dtype(dtype).name}")
    shape = (len(array),) if columns is None else (len(array), columns)
    if array.ndim != len(shape) or array.shape[1:] != shape[1:]:
        expected = "(n,)" if columns is None else f"(n, {columns})"
        raise ValueError(f"{name}: shape {array.shape}, expected {expected}")
    if count is not None and len(array) != count:
        raise ValueError(f"{name}: {len(array)} rows for {count} positions")
    return np.ascontiguousarray(array, dtype=dtype)


def write(path, positions, *, colors=None, reflections=None, normals=None, step=0.001,
          max_reflection=None, color="rgb888", sensor=None, chunk_size=_zul.DEFAULT_CHUNK_SIZE,
          order="plan", threads=None, fields=None, keep_order=False):
    """Writes points into a new zul file at ``path``, replacing one that exists.

    ``positions`` is (n, 3) float64; ``colors`` (n, 3) uint8, ``reflections`` (n,) int32 and
    ``normals`` (n, 3) float32 are optional. Other types are converted where numpy does so
    without loss (float32 positions, int64 reflections that fit int32, float64 normals);
    otherwise ``TypeError``/``ValueError`` names the argument. Nothing is clamped or dropped:
    a NaN position, a negative reflection or one above ``max_reflection`` (default: the largest
    given), or a normal shorter than 1e-6 is refused.

    Positions are stored on the grid of ``step``, kept as that decimal: they come back as whole
    multiples of it, computed in double. ``color`` is ``"rgb888"`` or ``"rgb565"`` (the 5-6-5
    bits kept). ``sensor`` is a dict of ``mount``, ``type``, ``rotation`` (3x3), ``scale`` and
    ``translation``, which readers apply. ``order`` cuts the chunks of at most ``chunk_size``
    points: ``"plan"`` the smallest file the chunk planner of ``zul compress`` finds, ``"kd"``
    compact cells, ``"input"`` the arrays' order (the bulk encoder); chunks are encoded on
    ``threads`` threads (``None``: every core). The file is written under a temporary name and
    renamed into place when complete; a device (``/dev/null``), a pipe or a socket is written
    through and a symbolic link followed, never replaced, as ``zul compress`` writes them.

    ``fields`` is a dict of other values a point, ``{name: array}``, each (n,) of an integer or
    float type of 1 to 8 bytes: they go into the companion ``path`` + ``x`` beside the file,
    and :func:`zul.read` hands them back in ``cloud.fields`` with their types; with
    ``keep_order`` the companion also keeps the arrays' order, for ``zul.read(...,
    keep_order=True)``. Without fields, a companion left beside ``path`` is removed.
    """
    path = os.fspath(path)
    positions = _array("positions", positions, np.float64, 3)
    n = len(positions)
    if not np.all(np.isfinite(positions)):
        raise ValueError("positions: a zul file cannot hold NaN or infinite coordinates "
                         f"({int(np.sum(~np.all(np.isfinite(positions), axis=1)))} points)")
    if not (isinstance(step, (int, float, np.integer, np.floating))
            and not isinstance(step, (bool, np.bool_)) and step > 0 and np.isfinite(step)):
        raise ValueError("step: give a positive number")
    if color not in _COLOR_MODES:
        raise ValueError(f"color: {color!r}; give 'rgb888' or 'rgb565'")
    if order not in _ORDERS:
        raise ValueError(f"order: {order!r}; give 'plan', 'input' or 'kd'")
    if not isinstance(chunk_size, (int, np.integer)) or not 1 <= chunk_size <= _zul.MAX_CHUNK_SIZE:
        raise ValueError(f"chunk_size: give 1 to {_zul.MAX_CHUNK_SIZE} points")
    color_mode = 0
    if colors is not None:
        colors = _array("colors", colors, np.uint8, 3, n)
        color_mode = _COLOR_MODES[color]
    if reflections is not None:
        reflections = _array("reflections", reflections, np.int32, None, n)
        largest = int(reflections.max()) if n else 1
        if n and int(reflections.min()) < 0:
            raise ValueError("reflections: negative values cannot be stored")
        if max_reflection is None:
            max_reflection = max(largest, 1)
        if not isinstance(max_reflection, (int, np.integer)) or max_reflection < 1:
            raise ValueError("max_reflection: give a whole number of 1 or more")
        if largest > max_reflection:
            raise ValueError(f"reflections: {largest} is above max_reflection {max_reflection}")
    if normals is not None:
        normals = _array("normals", normals, np.float32, 3, n)
        unbounded = ~np.all(np.isfinite(normals), axis=1)
        if unbounded.any():
            raise ValueError(f"normals: {int(unbounded.sum())} hold an infinite or NaN component, "
                             "which has no direction a zul file can hold")
        short = ~(np.linalg.norm(normals.astype(np.float64), axis=1) >= 1e-6)
        if short.any():
            raise ValueError(f"normals: {int(short.sum())} are shorter than 1e-6 (or not numbers), "
                             "which a zul file cannot hold")
    # Written under a unique temporary name beside `path` (created exclusively, so writers of
    # one path at once never share it) and renamed over it when whole; removed on any failure.
    # A device, pipe or socket gets the finished bytes copied through; a link, its target.
    columns = []
    for name, values in (fields or {}).items():
        array = np.ascontiguousarray(values)
        if array.dtype.kind not in "iuf" or array.ndim != 1 or len(array) != n:
            raise ValueError(f"fields[{name!r}]: give an array of shape ({n},) of integers or "
                             "floats")
        columns.append((str(name), array))
    if keep_order and not columns:
        raise ValueError("keep_order: the order is kept in a companion of fields; give fields")
    _zul.write(path, positions, colors, reflections, normals, float(step),
               int(max_reflection or 0), color_mode, sensor, order, int(chunk_size),
               _threads(threads))
    companion = _zul.companion_path(path)
    if columns:
        _zul.write_companion(path, positions, float(step), columns, bool(keep_order),
                             _threads(threads))
    elif os.path.exists(companion):
        os.remove(companion)
