"""Reading zul files into numpy arrays: whole, by box, or chunk by chunk."""

import os

import numpy as np

from . import _zul
from .cloud import Chunk, Cloud


def _threads(threads):
    if threads is None:
        return 0
    if not isinstance(threads, (int, np.integer)) or isinstance(threads, bool) or threads < 0:
        raise ValueError("threads: give None (every core) or a number of threads of 1 or more")
    return int(threads)


def _box(bbox):
    if bbox is None:
        return None
    try:
        box = [float(v) for v in bbox]
    except (TypeError, ValueError):
        raise TypeError("bbox: give six numbers (minx, miny, minz, maxx, maxy, maxz)") from None
    if len(box) != 6:
        raise ValueError("bbox: give six numbers (minx, miny, minz, maxx, maxy, maxz)")
    if any(np.isnan(box)) or any(box[i] > box[i + 3] for i in range(3)):
        raise ValueError("bbox: every value a number and each minimum at most its maximum")
    return box


DEFAULT_CHUNK_BUDGET = 256


def _budget(chunk_budget):
    if chunk_budget is None:
        return DEFAULT_CHUNK_BUDGET
    if not isinstance(chunk_budget, (int, np.integer)) or isinstance(chunk_budget, bool):
        raise TypeError("chunk_budget: give a whole number of MiB")
    return int(chunk_budget)


DEFAULT_POINT_DENSITY = 4


def _density(point_density):
    if point_density is None:
        return DEFAULT_POINT_DENSITY
    if not isinstance(point_density, (int, np.integer)) or isinstance(point_density, bool):
        raise TypeError("point_density: give a whole number of points a byte")
    return int(point_density)


def _open(path, transform=True, chunk_budget=None, point_density=None):
    return _zul.Index(os.fspath(path), bool(transform), _budget(chunk_budget),
                      _density(point_density))


def _raise_damage(index):
    damage = index.damage()
    if damage is not None:
        code, status, chunk, _offset, message = damage
        raise _zul.Error(message, code, status, chunk)


def _inside(arrays, box):
    p = arrays["positions"]
    keep = np.all((p >= box[:3]) & (p <= box[3:]), axis=1)
    return {k: (v[keep] if v is not None else None) for k, v in arrays.items()}


def _cloud(arrays, index):
    return Cloud(arrays["positions"], arrays["colors"], arrays["reflections"],
                 arrays["normals"], index.data_type(), index.sensor())


def read(path, *, bbox=None, threads=None, transform=True, chunk_budget=None,
         point_density=None):
    """Reads a zul file into a :class:`Cloud`.

    The chunks are decoded on ``threads`` threads (``None``: every core) straight into the
    numpy arrays, without the GIL. ``bbox`` is ``(minx, miny, minz, maxx, maxy, maxz)`` in the
    coordinates a reader gets: only the chunks whose box meets it are decoded, and only the
    points inside it (bounds included) are returned. ``transform=False`` leaves the points in the
    stored frame, without the sensor header's matrix. ``chunk_budget`` is the memory one chunk may
    take decoded, in MiB (``None``: 256): a chunk that claims more points is refused, naming it
    and its count, before anything is allocated. ``point_density`` is the density limit, points
    the file may claim for each of its bytes beyond 1048576 (``None``: 4; 0: no limit): a chunk
    that brings the count past it is refused before it is decoded, so that a small file cannot
    claim billions of points. Raises :class:`zul.Error` for a file that
    cannot be read or is damaged (naming the chunk where the damage starts).
    """
    box = _box(bbox)
    index = _open(path, transform, chunk_budget, point_density)
    _raise_damage(index)
    chosen = index.select(box) if box is not None else None
    arrays = index.decode(chosen, _threads(threads))
    if box is not None:
        arrays = _inside(arrays, np.array(box))
    return _cloud(arrays, index)


def chunks(path, *, chunk_budget=None, point_density=None):
    """The chunks of a zul file as a list of :class:`Chunk`, read from the chunk headers alone.

    Raises :class:`zul.Error` if a header is damaged, naming the chunk and its byte offset.
    """
    index = _open(path, chunk_budget=chunk_budget, point_density=point_density)
    _raise_damage(index)
    return [Chunk(*c) for c in index.chunks()]


class Reader:
    """Iterates over a zul file chunk by chunk, each a :class:`Cloud`, for files larger than
    memory: only one chunk's points are held at a time.

    >>> for part in zul.Reader("big.zul"):
    ...     handle(part.positions)

    ``len(reader)`` is the number of chunks and ``reader.num_points`` the number of points, both
    from the headers. A damaged chunk raises :class:`zul.Error` when the iteration reaches it,
    after every chunk before it was handed out; so does a chunk whose decoded size passes
    ``chunk_budget`` (MiB, ``None``: 256) or brings the count past ``point_density`` (as
    :func:`read` takes it). With ``bbox`` (as :func:`read` takes it) only the
    chunks whose box meets it are decoded, and each part holds only the points inside it;
    ``len`` and ``num_points`` then count the chunks chosen and the points they hold.
    """

    def __init__(self, path, *, bbox=None, transform=True, chunk_budget=None,
                 point_density=None):
        self._box = _box(bbox)
        self._index = _open(path, transform, chunk_budget, point_density)
        self.data_type = self._index.data_type()
        self.sensor = self._index.sensor()
        self._chosen = (self._index.select(self._box) if self._box is not None
                        else range(self._index.num_chunks))

    def __len__(self):
        return len(self._chosen)

    @property
    def num_points(self):
        """The number of points of the chunks listed, from their headers."""
        if self._box is None:
            return self._index.num_points
        listed = self._index.chunks()
        return sum(listed[i][2] for i in self._chosen)

    def __iter__(self):
        for i in self._chosen:
            arrays = self._index.decode([i], 1)
            if self._box is not None:
                arrays = _inside(arrays, np.array(self._box))
            yield _cloud(arrays, self._index)
        _raise_damage(self._index)
