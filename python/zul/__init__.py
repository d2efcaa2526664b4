"""zul: compressed 3-D point clouds for numpy.

Read a zul file into numpy arrays, on all cores, or only the chunks that meet a box; write numpy
arrays into a zul file; convert LAS, PCD, PLY, text and KITTI files with the ``zul`` tool's own
code; spread work over a Dask cluster with :mod:`zul.dask`.

>>> cloud = zul.read("scan.zul", bbox=(0, 0, 0, 10, 10, 5))
>>> cloud.positions.shape
(1234, 3)
>>> zul.write("copy.zul", cloud.positions, colors=cloud.colors, step=0.01)
"""

from ._errors import Error
from .cloud import Chunk, Cloud
from .reading import Reader, chunks, read
from .writing import write
from .convert import CompressReport, FieldsWarning, compress, decompress
from . import _zul
from . import ros

__version__ = _zul.library_version
__all__ = ["Chunk", "Cloud", "CompressReport", "Error", "FieldsWarning", "Reader", "chunks",
           "compress", "decompress", "read", "write"]
