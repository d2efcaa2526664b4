"""Files of other formats, converted by the zul tool's own code."""

import os
import warnings

from . import _zul
from .reading import _box, _budget, _density


class FieldsWarning(UserWarning):
    """What :func:`zul.compress` left out of its output or changed to fit it."""


class CompressReport(str):
    """The path of the zul file written (a ``str``), with what compress did to the input:
    ``kept`` (what the companion beside it keeps, ``""`` without one), ``dropped`` (what the
    output lacks, named) and ``changed`` (``{kind: number of values}``)."""

    def __new__(cls, path, kept, dropped, changed):
        report = super().__new__(cls, path)
        report.kept = kept
        report.dropped = list(dropped)
        report.changed = dict(changed)
        return report

    def __reduce__(self):
        return (CompressReport, (str(self), self.kept, self.dropped, self.changed))


def compress(src, dst, **options):
    """Compresses a LAS, PCD, PLY, XYZ/CSV or KITTI ``.bin`` file into the zul file ``dst``, as
    ``zul compress`` does: LAS coordinates come back exactly, and a LAS file's header and the
    fields of its records are kept in the companion ``dst`` + ``x`` beside it (with
    ``companion="never"``, the coordinate system is kept in a ``.prj`` beside ``dst``).

    Options, as the tool's: ``step``, ``color`` (``"none"``, ``"rgb565"``, ``"rgb888"``),
    ``reflection`` (``"none"`` or the largest value kept, as text), ``intensity_scale``,
    ``normals``/``no_normals``, ``chunk_size``, ``order``, ``order_budget`` (MiB),
    ``translate``, ``scale``, ``rotate``, ``sensor_mount``, ``sensor_type``, ``sensor_header``,
    ``threads`` (default 0: every core),
    ``quiet`` (default True: no notes on stderr), ``force`` (default True: replace an existing
    ``dst``, as :func:`zul.write` does; False refuses), ``companion`` (``"auto"``: ``dst`` + ``x``
    keeps a LAS file's header and every field of its records; ``"always"``, ``"never"``) and
    ``keep_order`` (the companion keeps the input's order: a LAS comes back byte for byte).
    A PCD or PLY file's header and every field (and an organised PCD's layout, NaN points
    included) are kept the same way, but its float positions and normals come back as the
    stream holds them (within half a step; said in ``changed``) unless ``exact=True`` keeps
    their float bits too (with ``keep_order``, a binary PCD or PLY comes back byte for byte).

    Returns a :class:`CompressReport`: ``dst`` as a ``str``, with ``kept``, ``dropped`` and
    ``changed``; what was dropped or changed is also issued as a :class:`zul.FieldsWarning`.
    Raises :class:`zul.Error` naming the file for input it cannot read; nothing is left
    half-written.
    """
    kept, dropped, changed = _zul.compress(os.fspath(src), os.fspath(dst), dict(options))
    report = CompressReport(os.fspath(dst), kept, dropped, changed)
    if report.dropped:
        warnings.warn(f"{os.fspath(src)}: left out of {os.fspath(dst)}: "
                      + ", ".join(report.dropped), FieldsWarning, stacklevel=2)
    for kind, count in report.changed.items():
        warnings.warn(f"{os.fspath(src)}: changed {count} values: {kind}", FieldsWarning,
                      stacklevel=2)
    return report


def decompress(src, dst, **options):
    """Writes the zul file ``src`` as ``dst``, whose extension chooses the format (``.las``,
    ``.pcd``, ``.ply``, ``.xyz``, ``.csv``, ``.bin``), as ``zul decompress`` does.

    Options: ``transform`` (default True: apply the sensor header's matrix), ``encoding``
    (PCD: ``binary``, ``ascii``, ``binary_compressed``; PLY: ``binary_little_endian``,
    ``binary_big_endian``, ``ascii``), ``las_version`` (``"1.2"`` or ``"1.4"``), ``pcd_type``
    (``"float"`` or ``"double"``), ``bbox`` (``(minx, miny, minz, maxx, maxy, maxz)``: only the
    points inside it, bounds included, as :func:`zul.read` takes it), ``threads`` (default 0:
    every core), ``quiet``, ``force`` (default True), ``companion`` (default True: a LAS output
    is rebuilt from the companion beside ``src`` when there is one; False writes the stream
    alone), ``las_color_scale`` (LAS colour without a companion: the 8-bit values times 1, 256 or
    257, the default), ``chunk_budget`` (MiB one chunk may take decoded, default 256: a chunk
    that claims more points is refused before anything is allocated), ``point_density`` (points
    the file may claim for each of its bytes beyond 1048576, default 4, 0: no limit).
    Returns ``dst``. Raises :class:`zul.Error` naming the file.
    """
    options = dict(options)
    for limit, check in (("chunk_budget", _budget), ("point_density", _density)):
        if options.get(limit) is not None:
            options[limit] = check(options[limit])
        else:
            options.pop(limit, None)
    if options.get("bbox") is not None:
        options["bbox"] = list(_box(options["bbox"]))
    else:
        options.pop("bbox", None)
    _zul.decompress(os.fspath(src), os.fspath(dst), options)
    return os.fspath(dst)
