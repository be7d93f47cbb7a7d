"""Where volumes and stacks go, image by image as they come from the server."""

from __future__ import annotations

from pathlib import Path
from typing import Any, Protocol

import numpy as np

from . import _core
from ._arrays import Shape3
from ._types import FloatArray


class Output(Protocol):
    """Takes the images of a job in order, shape (y, x), each once."""

    def write(self, i: int, image: FloatArray) -> None: ...

    def finish(self) -> Any:
        """What the user gets."""


class ArrayOutput:
    """An array of numpy's."""

    def __init__(self, array: np.ndarray[Any, Any]) -> None:
        self._array = array

    def write(self, i: int, image: FloatArray) -> None:
        np.copyto(self._array[i], image, casting="unsafe")

    def finish(self) -> Any:
        return self._array


class SlabOutput:
    """An array in chunks, as zarr and h5py have them, each written once."""

    def __init__(self, array: Any) -> None:
        depth = int(array.chunks[0]) if array.chunks else 1
        self._array = array
        self._slab = np.empty((depth, *array.shape[1:]), np.float32)

    def write(self, i: int, image: FloatArray) -> None:
        depth, last = len(self._slab), self._array.shape[0] - 1
        self._slab[i % depth] = image
        if i % depth == depth - 1 or i == last:
            first = i - i % depth
            self._array[first : i + 1] = self._slab[: i + 1 - first]

    def finish(self) -> Any:
        return self._array


class MrcOutput:
    """An MRC file, which appears when it is complete."""

    def __init__(self, path: Path, shape: Shape3, pixel_size: float, label: str) -> None:
        self._path = path
        self._file = _core.VolumeFile(str(path), list(shape), pixel_size, label)

    def write(self, i: int, image: FloatArray) -> None:
        self._file.write(i, image)

    def finish(self) -> Path:
        self._file.finish()
        return self._path


def open_output(out: Any, shape: Shape3, pixel_size: float, label: str) -> Output:
    """An array of this shape, a path that ends in .mrc or .zarr, or None for a new array."""
    if out is None:
        return ArrayOutput(np.empty(shape, np.float32))
    if isinstance(out, (str, Path)) or hasattr(out, "__fspath__"):
        path = Path(out)
        if path.suffix == ".zarr":
            from ._ome_zarr import OmeZarrOutput

            return OmeZarrOutput(path, shape, pixel_size, label)
        if path.suffix in (".mrc", ".rec", ".map"):
            return MrcOutput(path, shape, pixel_size, label)
        raise ValueError(f"out: {path} does not end in .mrc or .zarr")
    if getattr(out, "shape", None) is None or tuple(out.shape) != tuple(shape):
        raise ValueError(f"out: expected shape {shape}, not {getattr(out, 'shape', type(out))}")
    if isinstance(out, np.ndarray):
        if not out.flags.writeable:
            raise ValueError("out: the array is read-only")
        return ArrayOutput(out)
    if hasattr(out, "chunks"):
        return SlabOutput(out)
    raise ValueError(f"out: expected an array or a path, not a {type(out).__name__}")
