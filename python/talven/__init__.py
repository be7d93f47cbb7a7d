"""Volumes from single-axis tilt series.

>>> import talven
>>> volume = talven.reconstruct(tilts, angles, thickness=128)  # a private server, all devices
>>> with talven.Session("gpubox:20248") as session:  # one server, many jobs
...     volume = session.reconstruct(tilts, angles, thickness=128)

Stacks are (view, y, x), volumes (z, y, x), angles in degrees; the tilt axis is y.
"""

from . import io
from ._alignment import Alignment, align
from ._batch import run_batch
from ._core import version as __version__
from ._errors import ConnectionLost, Error, Refused, ServerBusy
from ._images import Comparison, Scale, compare, transform
from ._phantom import Phantom, phantom
from ._reconstruct import Filter, Reconstruction, memory_estimate, reconstruct, reproject
from ._types import Progress
from .session import Session

__all__ = [
    "Alignment",
    "Comparison",
    "ConnectionLost",
    "Error",
    "Filter",
    "Phantom",
    "Progress",
    "Reconstruction",
    "Refused",
    "Scale",
    "ServerBusy",
    "Session",
    "__version__",
    "align",
    "compare",
    "io",
    "memory_estimate",
    "phantom",
    "reconstruct",
    "reproject",
    "run_batch",
    "transform",
]
