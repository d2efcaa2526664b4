"""zul on a Dask cluster: one large file spread over many workers, or many files compressed at
once.

``read`` gives a ``dask.dataframe.DataFrame`` with one partition per group of consecutive chunks
of a file: each task reads only the byte ranges of its chunks (and the stream's head), so one
file spreads over many workers, and those chunks' fields from the companion beside the file. ``compress`` runs one ``zul.compress`` per input file as a task.
"""

import glob
import os

import numpy as np

from . import _zul
from ._errors import Error
from .reading import _box, _budget, _companion, _fields, _open, _raise_damage


def _columns(data_type):
    """The columns a file's data type gives, with their numpy types."""
    columns = [("x", np.float64), ("y", np.float64), ("z", np.float64)]
    if data_type["color"] is not None:
        columns += [("red", np.uint8), ("green", np.uint8), ("blue", np.uint8)]
    if data_type["max_reflection"] is not None:
        columns += [("reflection", np.int32)]
    if data_type["normals"]:
        columns += [("nx", np.float32), ("ny", np.float32), ("nz", np.float32)]
    return columns


def _nullable(dtype):
    """pandas' nullable type of ``dtype``: a column some files lack holds nulls for their
    points."""
    dtype = np.dtype(dtype)
    if dtype.kind in "iu":
        return ("UInt" if dtype.kind == "u" else "Int") + str(8 * dtype.itemsize)
    return "Float" + str(8 * dtype.itemsize) if dtype.kind == "f" else "object"


def _flat(fields):
    """A companion's fields as columns: a field of several values a point (or of raw bytes) as
    ``name[0]``, ``name[1]`` ..."""
    columns = {}
    for name, values in fields.items():
        if values.ndim == 1:
            columns[name] = values
        else:
            columns.update((f"{name}[{k}]", values[:, k]) for k in range(values.shape[1]))
    return columns


def _companion_columns(path, companion):
    """The companion's fields of the file at ``path`` as (name, type) columns; none without one
    (or with ``companion`` False)."""
    held = _companion(path) if companion else None
    return [] if held is None else [(n, v.dtype) for n, v in _flat(_fields(held, [])).items()]


def _paths(paths):
    """The files: a path, a glob pattern (``"scans/*.zul"``, sorted), or a list of them."""
    if isinstance(paths, (str, os.PathLike)):
        paths = [paths]
    found = []
    for path in paths:
        path = os.fspath(path)
        if any(c in path for c in "*?[") and not os.path.exists(path):
            matched = sorted(glob.glob(path))
            if not matched:
                raise FileNotFoundError(f"{path}: no file matches")
            found += matched
        else:
            found.append(path)
    return found


def plan_read(paths, *, bbox=None, chunks_per_partition=64, chunk_budget=None,
              point_density=None, companion=True):
    """The tasks ``read`` would run: for each, the file, the bytes of its stream head, the
    (offset, bytes) ranges of its chunks, from the chunk index alone, and the chunks' numbers;
    and the union of the files' columns (the stream's, then the companions' fields), those some
    files lack in a nullable type. Chunks whose box misses ``bbox`` are left out here, before any
    task runs."""
    paths = _paths(paths)
    if not isinstance(chunks_per_partition, int) or chunks_per_partition < 1:
        raise ValueError("chunks_per_partition: give 1 or more")
    box = _box(bbox)
    tasks, types, holders, fields = [], {}, {}, []
    for path in paths:
        index = _open(path, chunk_budget=chunk_budget, point_density=point_density)
        _raise_damage(index)
        held = _companion_columns(path, companion)
        fields += [name for name, _ in held if name not in types]
        for name, dtype in _columns(index.data_type()) + held:
            types[name] = dtype
            holders[name] = holders.get(name, 0) + 1
        listed = index.chunks()
        chosen = index.select(box) if box is not None else range(len(listed))
        ranges = [(listed[i][0], listed[i][1]) for i in chosen]
        head = listed[0][0] if listed else 0
        numbers = list(chosen)
        for start in range(0, len(ranges), chunks_per_partition):
            end = start + chunks_per_partition
            tasks.append((path, head, ranges[start:end], numbers[start:end]))
    every = [n for n, _ in _columns({"color": 1, "max_reflection": 1, "normals": True})] + fields
    columns = [(name, types[name] if holders[name] == len(paths) else _nullable(types[name]))
               for name in every if name in types]
    return tasks, columns or [(axis, np.float64) for axis in "xyz"]


def read_part(path, head, ranges, box=None, columns=None, chunk_budget=None, chunks=None):
    """The points of the chunks at ``ranges`` of ``path`` as a pandas DataFrame: the task of a
    partition of ``read``. Reads the stream's first ``head`` bytes and those ranges, nothing
    else, and where ``columns`` name fields of the companion, those of the chunks numbered
    ``chunks``. ``columns``: names, or (name, type) pairs, a column the file lacks then all
    nulls. The density limit is not applied again: the plan judged it over the whole file."""
    import pandas as pd

    index = _zul.ranges_index(path, head, ranges, True, _budget(chunk_budget), 0)
    arrays = index.decode(None, 1)
    all_columns = _columns(index.data_type())
    frame = {}
    p = arrays["positions"]
    keep = None
    if box is not None:
        keep = np.all((p >= box[:3]) & (p <= box[3:]), axis=1)
    parts = {"x": p[:, 0], "y": p[:, 1], "z": p[:, 2]}
    if arrays["colors"] is not None:
        c = arrays["colors"]
        parts.update(red=c[:, 0], green=c[:, 1], blue=c[:, 2])
    if arrays["reflections"] is not None:
        parts["reflection"] = arrays["reflections"]
    if arrays["normals"] is not None:
        n = arrays["normals"]
        parts.update(nx=n[:, 0], ny=n[:, 1], nz=n[:, 2])
    count = len(p) if keep is None else int(keep.sum())
    if columns is None or all(isinstance(c, str) for c in columns):
        known = all_columns + _companion_columns(path, chunks is not None)
        wanted = [(n, t) for n, t in known if columns is None or n in columns]
    else:
        wanted = list(columns)
    if chunks is not None and any(n not in parts for n, _ in wanted):
        held = _companion(path)
        if held is not None:
            parts.update(_flat(_fields(held, list(chunks))))
    for name, dtype in wanted:
        if name in parts:
            frame[name] = pd.Series(parts[name] if keep is None else parts[name][keep],
                                    dtype=dtype)
        else:
            frame[name] = pd.Series([pd.NA] * count, dtype=dtype)
    return pd.DataFrame(frame)


def read(paths, *, bbox=None, columns=None, chunks_per_partition=64, chunk_budget=None,
         point_density=None, companion=True):
    """Reads zul files into a ``dask.dataframe.DataFrame`` of columns ``x y z`` and, as the
    files have them, ``red green blue``, ``reflection`` and ``nx ny nz``, then the fields of the
    companion beside each file by the names :func:`zul.read` gives them in ``cloud.fields``
    (``classification``, ``gps_time`` ... of a LAS file; a field of several values a point as
    ``name[0]``, ``name[1]`` ...); ``companion=False`` reads the streams alone.

    One partition is a group of ``chunks_per_partition`` consecutive chunks of one file; its
    task reads only their byte ranges. The column types come from the file headers without
    decoding. ``bbox`` (``(minx, miny, minz, maxx, maxy, maxz)`` in the coordinates a reader
    gets) prunes the chunks through the index before any task runs, and the tasks keep only the
    points inside it. ``columns`` chooses columns. ``paths`` is a file, a glob pattern
    (``"scans/*.zul"``) or a list of them; files whose attributes differ give the union of their
    columns, nulls where a file lacks one (in pandas' nullable types), unless ``columns`` asks
    only for columns every file has. Raises :class:`zul.Error` for a damaged file; a task that
    fails raises it with the file's name. ``chunk_budget`` (MiB one chunk may take decoded,
    ``None``: 256) refuses a chunk that claims more points, ``point_density`` (as
    :func:`zul.read` takes it) one that brings the file's count past the density limit.
    """
    import dask
    import dask.dataframe as dd
    import pandas as pd

    tasks, all_columns = plan_read(paths, bbox=bbox, chunks_per_partition=chunks_per_partition,
                                   chunk_budget=chunk_budget, point_density=point_density,
                                   companion=companion)
    if columns is not None:
        unknown = [c for c in columns if c not in dict(all_columns)]
        if unknown:
            raise ValueError(f"columns: the files have no {', '.join(unknown)}")
    meta = pd.DataFrame({name: pd.Series([], dtype=dtype) for name, dtype in all_columns
                         if columns is None or name in columns})
    box = np.array(_box(bbox)) if bbox is not None else None
    if not tasks:
        return dd.from_pandas(meta, npartitions=1)
    wanted = [(name, dtype) for name, dtype in all_columns if columns is None or name in columns]
    parts = [dask.delayed(read_part)(path, head, ranges, box, wanted, chunk_budget,
                                     numbers if companion else None)
             for path, head, ranges, numbers in tasks]
    return dd.from_delayed(parts, meta=meta, verify_meta=False)


def _compress_one(source, target, options):
    from .convert import compress

    try:
        return compress(source, target, **options)
    except Error:
        raise
    except Exception as error:  # a worker's own failure, named with the file
        raise Error(f"{source}: {error}") from None


def compress(inputs, out_dir, *, client=None, **options):
    """Compresses each input file (LAS, PCD, PLY, text, KITTI) into ``out_dir/NAME.zul``, one
    task a file, on ``client`` (a ``distributed.Client``) or Dask's current scheduler.

    ``options`` are those of :func:`zul.compress`; ``threads`` defaults to 1, a worker's thread
    being its share of the machine. Returns the output paths, in the order of the inputs. If a file fails, the others still finish, and :class:`zul.Error` naming the
    first failed file is raised.
    """
    import dask

    options.setdefault("threads", 1)
    os.makedirs(out_dir, exist_ok=True)
    targets = []
    for source in inputs:
        stem = os.path.splitext(os.path.basename(os.fspath(source)))[0]
        targets.append(os.path.join(os.fspath(out_dir), stem + ".zul"))
    if len(set(targets)) != len(targets):
        raise ValueError("inputs: two inputs would be written to the same output name")
    if client is not None:
        futures = [client.submit(_compress_one, os.fspath(s), t, options, pure=False)
                   for s, t in zip(inputs, targets)]
        client.gather(futures, errors="skip")
        for future in futures:
            if future.status == "error":
                future.result()  # raises the task's zul.Error
        return targets
    tasks = [dask.delayed(_compress_one)(os.fspath(s), t, options)
             for s, t in zip(inputs, targets)]
    return list(dask.compute(*tasks))
