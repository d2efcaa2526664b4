"""The records the package hands out: a cloud of points, and a chunk of a file."""

from dataclasses import dataclass, field
from typing import Dict, Optional, Tuple

import numpy as np


@dataclass
class Cloud:
    """Points of a zul file as numpy arrays, with what the file says of them.

    ``positions`` is (n, 3) float64 in the coordinates a reader gets; ``colors`` (n, 3) uint8,
    ``reflections`` (n,) int32 and ``normals`` (n, 3) float32 are ``None`` where the file has no
    such attribute. ``data_type`` holds ``step`` (the grid's step in those coordinates),
    ``color`` (``"rgb888"``, ``"rgb565"`` or ``None``), ``max_reflection`` and ``normals``;
    ``sensor`` is the sensor header (``mount``, ``type``, the 4x4 ``matrix``) or ``None``;
    ``fields`` the fields a companion beside the file keeps, by name (empty without one).
    """

    positions: np.ndarray
    colors: Optional[np.ndarray]
    reflections: Optional[np.ndarray]
    normals: Optional[np.ndarray]
    data_type: dict
    sensor: Optional[dict]
    fields: Dict[str, np.ndarray] = field(default_factory=dict)

    def __len__(self):
        return len(self.positions)


@dataclass(frozen=True)
class Chunk:
    """One chunk of a file, from its header: where it lies, its size, its points and its box.

    ``offset`` and ``bytes`` are in bytes from the start of the file; ``min`` and ``max`` are the
    corners of the chunk's box in the coordinates a reader gets.
    """

    offset: int
    bytes: int
    points: int
    min: Tuple[float, float, float]
    max: Tuple[float, float, float]
