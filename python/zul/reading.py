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


def _open(path, transform=True, chunk_budget=None):
    return _zul.Index(os.fspath(path), bool(transform), _budget(chunk_budget))


def _raise_damage(index):
    damage = index.damage()
    if damage is not None:
        code, status, chunk, _offset, message = damage
        raise _zul.Error(message, code, status, chunk)


def _kind(index):
    sensor = index.sensor()
    matrix = None if sensor is None else sensor.pop("matrix").tolist()
    return index.data_type(), sensor, matrix


def _streams(path, transform=True, chunk_budget=None):
    """The chunk index of every stream of a file: one, or several one after another (as
    ``cat a.zul b.zul`` makes), each over its own bytes; and the zul.Error of a following stream
    whose head is damaged, or None. Streams of another data type or sensor header than the first
    are refused, naming them."""
    path = os.fspath(path)
    indexes = [_open(path, transform, chunk_budget)]
    while (start := indexes[-1].next_stream()) >= 0:
        try:
            indexes.append(_zul.Index(path, bool(transform), _budget(chunk_budget), start))
        except _zul.Error as error:
            reason = error.message.split(": ", 1)[-1]
            return indexes, _zul.Error(f"{path}: stream {len(indexes) + 1} (byte {start}), whose "
                                       f"head is damaged: {reason}", error.code, error.status, 0)
    first = _kind(indexes[0])
    for number, index in enumerate(indexes[1:], 2):
        if _kind(index) != first:
            raise _zul.Error(f"{path}: stream {number} (byte {index.start}) holds another data "
                             f"type or sensor header than stream 1 ({index.data_type()} against "
                             f"{indexes[0].data_type()}); one Cloud holds one: zul.decompress "
                             "writes them into one file")
    return indexes, None


def _raise_stream_damage(indexes, pending):
    """Raises `pending`, or the damage of the last stream (named, in a file of several)."""
    if pending is not None:
        raise pending
    damage = indexes[-1].damage()
    if damage is not None:
        code, status, chunk, _offset, message = damage
        if len(indexes) > 1:
            path, reason = message.split(": ", 1)
            message = f"{path}: stream {len(indexes)} (byte {indexes[-1].start}): {reason}"
        raise _zul.Error(message, code, status, chunk)


def _joined(parts):
    if len(parts) == 1:
        return parts[0]
    return {k: (np.concatenate([p[k] for p in parts]) if parts[0][k] is not None else None)
            for k in parts[0]}


def _inside(arrays, box):
    p = arrays["positions"]
    keep = np.all((p >= box[:3]) & (p <= box[3:]), axis=1)
    return {k: (v[keep] if v is not None else None) for k, v in arrays.items()}


def _cloud(arrays, index):
    return Cloud(arrays["positions"], arrays["colors"], arrays["reflections"],
                 arrays["normals"], index.data_type(), index.sensor())


def read(path, *, bbox=None, threads=None, transform=True, chunk_budget=None):
    """Reads a zul file into a :class:`Cloud`.

    The chunks are decoded on ``threads`` threads (``None``: every core) straight into the
    numpy arrays, without the GIL. ``bbox`` is ``(minx, miny, minz, maxx, maxy, maxz)`` in the
    coordinates a reader gets: only the chunks whose box meets it are decoded, and only the
    points inside it (bounds included) are returned. ``transform=False`` leaves the points in the
    stored frame, without the sensor header's matrix. ``chunk_budget`` is the memory one chunk may
    take decoded, in MiB (``None``: 256): a chunk that claims more points is refused, naming it
    and its count, before anything is allocated. Raises :class:`zul.Error` for a file that
    cannot be read or is damaged (naming the chunk where the damage starts).

    A file of several streams one after another (``cat a.zul b.zul``) is read whole, stream after
    stream, when they share the data type and sensor header (else :class:`zul.Error` names the
    first that differs; :func:`zul.decompress` merges any).
    """
    box = _box(bbox)
    indexes, pending = _streams(path, transform, chunk_budget)
    _raise_stream_damage(indexes, pending)
    parts = []
    for index in indexes:
        chosen = index.select(box) if box is not None else None
        arrays = index.decode(chosen, _threads(threads))
        parts.append(_inside(arrays, np.array(box)) if box is not None else arrays)
    return _cloud(_joined(parts), indexes[0])


def chunks(path, *, chunk_budget=None):
    """The chunks of a zul file as a list of :class:`Chunk`, read from the chunk headers alone.

    Raises :class:`zul.Error` if a header is damaged, naming the chunk and its byte offset.
    """
    indexes, pending = _streams(path, chunk_budget=chunk_budget)
    _raise_stream_damage(indexes, pending)
    return [Chunk(*c) for index in indexes for c in index.chunks()]


class Reader:
    """Iterates over a zul file chunk by chunk, each a :class:`Cloud`, for files larger than
    memory: only one chunk's points are held at a time.

    >>> for part in zul.Reader("big.zul"):
    ...     handle(part.positions)

    ``len(reader)`` is the number of chunks and ``reader.num_points`` the number of points, both
    from the headers. A damaged chunk raises :class:`zul.Error` when the iteration reaches it,
    after every chunk before it was handed out; so does a chunk whose decoded size passes
    ``chunk_budget`` (MiB, ``None``: 256). With ``bbox`` (as :func:`read` takes it) only the
    chunks whose box meets it are decoded, and each part holds only the points inside it;
    ``len`` and ``num_points`` then count the chunks chosen and the points they hold.
    """

    def __init__(self, path, *, bbox=None, transform=True, chunk_budget=None):
        self._box = _box(bbox)
        self._indexes, self._pending = _streams(path, transform, chunk_budget)
        self.data_type = self._indexes[0].data_type()
        self.sensor = self._indexes[0].sensor()
        self._chosen = [(index.select(self._box) if self._box is not None
                         else range(index.num_chunks)) for index in self._indexes]

    def __len__(self):
        return sum(len(chosen) for chosen in self._chosen)

    @property
    def num_points(self):
        """The number of points of the chunks listed, from their headers."""
        if self._box is None:
            return sum(index.num_points for index in self._indexes)
        return sum(index.chunks()[i][2] for index, chosen in zip(self._indexes, self._chosen)
                   for i in chosen)

    def __iter__(self):
        for index, chosen in zip(self._indexes, self._chosen):
            for i in chosen:
                arrays = index.decode([i], 1)
                if self._box is not None:
                    arrays = _inside(arrays, np.array(self._box))
                yield _cloud(arrays, index)
        _raise_stream_damage(self._indexes, self._pending)
