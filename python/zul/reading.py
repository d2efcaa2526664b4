"""Reading zul files into numpy arrays: whole, by box, or chunk by chunk."""

import os

import numpy as np

from . import _zul
from ._errors import Error
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
DENSITY_ALLOWANCE = 1 << 20


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


def _kind(index):
    sensor = index.sensor()
    matrix = None if sensor is None else sensor.pop("matrix").tolist()
    return index.data_type(), sensor, matrix


def _streams(path, transform=True, chunk_budget=None, point_density=None):
    """The chunk index of every stream of a file: one, or several one after another (as
    ``cat a.zul b.zul`` makes), each over its own bytes; and the zul.Error of a following stream
    whose head is damaged, or None. Streams of another data type or sensor header than the first
    are refused, naming them."""
    path = os.fspath(path)
    density = _density(point_density)
    indexes = [_open(path, transform, chunk_budget, density)]
    points = indexes[0].num_points
    while (start := indexes[-1].next_stream()) >= 0:
        try:
            indexes.append(_zul.Index(path, bool(transform), _budget(chunk_budget), density,
                                      start))
        except _zul.Error as error:
            reason = error.message.split(": ", 1)[-1]
            return indexes, _zul.Error(f"{path}: stream {len(indexes) + 1} (byte {start}), whose "
                                       f"head is damaged: {reason}", error.code, error.status, 0)
        # Each stream's index judges its own chunks; the density limit counts from the start of
        # the file, over the streams before too.
        for number, (offset, size, count, _low, _high) in enumerate(indexes[-1].chunks()):
            points += count
            if density > 0 and points > DENSITY_ALLOWANCE + density * (offset + size):
                raise _zul.Error(
                    f"{path}: stream {len(indexes)} (byte {start}): chunk {number} (byte "
                    f"{offset}) brings the file's first {offset + size} bytes to {points} "
                    f"points, past the density limit ({DENSITY_ALLOWANCE} points and {density} "
                    "for each byte; point_density raises it, 0 lifts it)",
                    100, "zul_STATUS_OVER_BUDGET", number)
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


def _cloud(arrays, index, fields=None):
    return Cloud(arrays["positions"], arrays["colors"], arrays["reflections"],
                 arrays["normals"], index.data_type(), index.sensor(), fields or {})


# Columns that say how to make the stream's own values exact (for a file written back), not
# fields of the source.
def _internal(name):
    return name.endswith("_residual") or name in ("red_low", "green_low", "blue_low")


# laspy's names of the sub-fields packed in a LAS record's bytes: (name, column, shift, bits),
# for point formats 0 to 5 and 6 to 10.
_LAS_BITS = {
    False: [("return_number", "bit_fields", 0, 3), ("number_of_returns", "bit_fields", 3, 3),
            ("scan_direction_flag", "bit_fields", 6, 1), ("edge_of_flight_line", "bit_fields", 7, 1),
            ("classification", "raw_classification", 0, 5),
            ("synthetic", "raw_classification", 5, 1), ("key_point", "raw_classification", 6, 1),
            ("withheld", "raw_classification", 7, 1)],
    True: [("return_number", "bit_fields", 0, 4), ("number_of_returns", "bit_fields", 4, 4),
           ("synthetic", "classification_flags", 0, 1),
           ("key_point", "classification_flags", 1, 1),
           ("withheld", "classification_flags", 2, 1), ("overlap", "classification_flags", 3, 1),
           ("scanner_channel", "classification_flags", 4, 2),
           ("scan_direction_flag", "classification_flags", 6, 1),
           ("edge_of_flight_line", "classification_flags", 7, 1)],
}


def _las_names(fields, format_text):
    """Adds laspy's names of the sub-fields of a LAS file's record bytes."""
    words = format_text.split()
    if len(words) != 4 or words[0] != "las":
        return
    for name, column, shift, bits in _LAS_BITS[int(words[3]) >= 6]:
        if column in fields:
            fields[name] = (fields[column] >> shift) & ((1 << bits) - 1)


def _companion(path):
    """The companion beside the zul file at ``path``, or None."""
    companion = _zul.companion_path(os.fspath(path))
    if not os.path.isfile(companion):
        return None
    return _zul.Companion(companion, os.fspath(path))


def _fields(companion, chosen):
    """The companion's fields of the chunks ``chosen``, by their source names; a field of
    several values a point ("name[0]", "name[1]" ...) as one array of n rows."""
    fields = {}
    groups = {}
    for number, (name, _code, _width) in enumerate(companion.fields()):
        if _internal(name):
            continue
        values = companion.column(chosen, number)
        base, bracket, rest = name.partition("[")
        if bracket and rest.endswith("]") and rest[:-1].isdigit():
            groups.setdefault(base, []).append((int(rest[:-1]), values))
        else:
            fields[name] = values
    for base, parts in groups.items():
        if base not in fields:
            fields[base] = np.stack([v for _k, v in sorted(parts, key=lambda p: p[0])], axis=1)
    _las_names(fields, companion.conventions().get("format", ""))
    return fields


def read(path, *, bbox=None, threads=None, transform=True, chunk_budget=None,
         point_density=None, keep_order=False, companion=True):
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

    A file of several streams one after another (``cat a.zul b.zul``) is read whole, stream after
    stream, when they share the data type and sensor header (else :class:`zul.Error` names the
    first that differs; :func:`zul.decompress` merges any); a companion, which belongs to one
    stream, is not read beside such a file.

    With a companion beside the file (``NAME.zulx``), ``cloud.fields`` holds the fields the
    stream lacks by their source names, as numpy arrays of their types: a PCD or PLY file's
    fields (one of several values a point as n rows), a LAS file's by laspy's names
    (``classification``, ``return_number``, ``gps_time`` ...); a companion of another stream
    raises :class:`zul.Error`. ``keep_order=True`` returns the points in the input's order,
    which the companion must keep (``zul compress --keep-order``, ``zul.write(...,
    keep_order=True)``), else :class:`zul.Error`. ``companion=False`` reads the stream alone.
    """
    box = _box(bbox)
    indexes, pending = _streams(path, transform, chunk_budget, point_density)
    _raise_stream_damage(indexes, pending)
    companion = _companion(path) if companion and len(indexes) == 1 else None
    if keep_order and (companion is None or not companion.has_order):
        raise Error(f"{os.fspath(path)}: no companion keeps the input's order "
                    "(compress with keep_order=True)")
    parts = []
    for index in indexes:
        chosen = index.select(box) if box is not None else None
        arrays = index.decode(chosen, _threads(threads))
        if companion is not None:
            numbers = list(chosen) if chosen is not None else list(range(index.num_chunks))
            fields = _fields(companion, numbers)
            if keep_order:
                fields["__order__"] = companion.order(numbers)
            arrays.update({("field", k): v for k, v in fields.items()})
        parts.append(_inside(arrays, np.array(box)) if box is not None else arrays)
    arrays = _joined(parts)
    if keep_order:
        rank = np.argsort(arrays[("field", "__order__")], kind="stable")
        arrays = {k: (v[rank] if v is not None else None) for k, v in arrays.items()}
    fields = {k[1]: v for k, v in arrays.items() if isinstance(k, tuple) and k[1] != "__order__"}
    return _cloud(arrays, indexes[0], fields)


def chunks(path, *, chunk_budget=None, point_density=None):
    """The chunks of a zul file as a list of :class:`Chunk`, read from the chunk headers alone.

    Raises :class:`zul.Error` if a header is damaged, naming the chunk and its byte offset.
    """
    indexes, pending = _streams(path, chunk_budget=chunk_budget, point_density=point_density)
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
    ``chunk_budget`` (MiB, ``None``: 256) or brings the count past ``point_density`` (as
    :func:`read` takes it). With ``bbox`` (as :func:`read` takes it) only the
    chunks whose box meets it are decoded, and each part holds only the points inside it;
    ``len`` and ``num_points`` then count the chunks chosen and the points they hold. Each
    part's ``fields`` are a companion's fields of its points, in stored order (``companion=False``
    reads the stream alone).
    """

    def __init__(self, path, *, bbox=None, transform=True, chunk_budget=None,
                 point_density=None, companion=True):
        self._box = _box(bbox)
        self._indexes, self._pending = _streams(path, transform, chunk_budget, point_density)
        self._companion = (_companion(path) if companion and len(self._indexes) == 1
                           else None)
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
                if self._companion is not None:
                    fields = _fields(self._companion, [i])
                    arrays.update({("field", k): v for k, v in fields.items()})
                if self._box is not None:
                    arrays = _inside(arrays, np.array(self._box))
                fields = {k[1]: v for k, v in arrays.items() if isinstance(k, tuple)}
                yield _cloud(arrays, index, fields)
        _raise_stream_damage(self._indexes, self._pending)
