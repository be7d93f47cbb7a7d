"""Files of tilt series and volumes."""

from __future__ import annotations

from dataclasses import dataclass, field
from pathlib import Path

import numpy as np
from numpy.typing import NDArray

from . import _core
from ._arrays import check_angles, check_images
from ._outputs import MrcOutput
from ._types import AnglesLike, Doubles, FloatArray, ImagesLike, PathOrName

__all__ = ["Stack", "TiltSeries", "read_tilt_series", "write_angles", "write_mrc"]


class Stack:
    """Images in a file or a folder, read one by one: MRC, HDF5 (Data Exchange) or TIFF.

    Rows count from the lowest. One thread at a time.

    Raises
    ------
    OSError
        It cannot be read; the text begins with its name.
    """

    dtype = np.dtype(np.float32)

    def __init__(self, path: PathOrName) -> None:
        self._stack = _core.open_stack(str(path))
        self.shape = self._stack.shape
        #: Angstrom, 0: not stated
        self.pixel_size = self._stack.pixel_size

    def __len__(self) -> int:
        return self.shape[0]

    def __getitem__(self, key: int | tuple[int, slice]) -> FloatArray:
        """Image i, or some rows of it: ``stack[i, 10:20]``."""
        i, rows = key if isinstance(key, tuple) else (key, slice(None))
        first, end, step = rows.indices(self.shape[1])
        if step != 1:
            raise IndexError("rows of a stack are read one after the other")
        image = np.empty((max(0, end - first), self.shape[2]), np.float32)
        self._stack.read(i, first, image)
        return image

    def read(self) -> FloatArray:
        """All images, (image, y, x)."""
        images = np.empty(self.shape, np.float32)
        for i in range(len(self)):
            self._stack.read(i, 0, images[i])
        return images

    def angles(self) -> FloatArray | None:
        """Degrees, those that the file itself has; None: it has none."""
        angles = self._stack.angles()
        return np.array(angles, np.float32) if angles else None


@dataclass(frozen=True)
class TiltSeries:
    """A tilt series and what its files say.

    Attributes
    ----------
    tilts : ndarray (view, y, x) or Stack
    angles : ndarray (view,)
        Degrees.
    pixel_size : float
        Angstrom; 0: not stated.
    tilt_axis : float
        From the views' +Y axis, degrees, counterclockwise; NaN: not stated.
    prior_doses, doses : ndarray (view,)
        Electrons per square Angstrom before and during each view; empty: not stated.
    """

    tilts: FloatArray | Stack
    angles: FloatArray
    pixel_size: float
    tilt_axis: float = float("nan")
    prior_doses: Doubles = field(default_factory=lambda: np.empty(0))
    doses: Doubles = field(default_factory=lambda: np.empty(0))


def read_tilt_series(
    path: PathOrName,
    *,
    angles: PathOrName | AnglesLike | None = None,
    mdoc: PathOrName | None = None,
    lazy: bool = False,
) -> TiltSeries:
    """Read a tilt series.

    Parameters
    ----------
    path : path
        MRC, HDF5 (Data Exchange) or TIFF, or a folder of TIFF files.
    angles : path or array, optional
        Degrees, or a text file with one a line (``.tlt``, ``.rawtlt``). Default: those of `mdoc`,
        or those that the stack itself has.
    mdoc : path, optional
        The microscope's ``.mdoc``.
    lazy : bool
        Leave the images in the file: `tilts` is a `Stack`.

    Raises
    ------
    OSError
        A file cannot be read.
    ValueError
        The files do not fit together, or none has angles.
    """
    stack = Stack(path)
    known = None if mdoc is None else _core.read_mdoc(str(mdoc), len(stack))
    pixel_size, tilt_axis = stack.pixel_size, None
    if known is not None:
        pixel_size = pixel_size or known["pixel_size"] or 0.0
        tilt_axis = known["tilt_axis"]
    return TiltSeries(
        stack if lazy else stack.read(),
        _find_angles(stack, path, angles, known),
        pixel_size,
        float("nan") if tilt_axis is None else tilt_axis,
        np.array(known["prior_doses"] if known else []),
        np.array(known["doses"] if known else []),
    )


def _find_angles(
    stack: Stack,
    path: PathOrName,
    angles: PathOrName | AnglesLike | None,
    known: dict[str, list[float | None]] | None,
) -> FloatArray:
    if angles is not None:
        if isinstance(angles, str) or hasattr(angles, "__fspath__"):
            angles = _core.read_angles(str(angles))
        return np.array(check_angles(angles, len(stack)), np.float32)
    if known is not None:
        if None in known["angles"]:
            view = known["angles"].index(None)
            raise ValueError(f"the .mdoc has no TiltAngle for view {view}, counted from 0")
        return np.array(known["angles"], np.float32)
    found = stack.angles()
    if found is None:
        raise ValueError(f"{path} has no angles: give angles or mdoc")
    return found


def write_mrc(path: PathOrName, images: ImagesLike, *, pixel_size: float = 0.0) -> None:
    """Write a volume (z, y, x) or a stack (view, y, x) as float32; Angstrom per pixel, 0: unknown.

    The file appears when it is complete.
    """
    shape = check_images(images, "images", "z, y, x")
    output = MrcOutput(Path(path), shape, pixel_size, "Talven")
    for i in range(shape[0]):
        output.write(i, np.ascontiguousarray(images[i], dtype=np.float32))
    output.finish()


def write_angles(path: PathOrName, angles: AnglesLike | NDArray[np.float32]) -> None:
    """Write degrees, one a line."""
    _core.write_angles(str(path), [float(a) for a in angles])
