"""Volumes as OME-Zarr: chunks, and ever coarser copies for viewers."""

from __future__ import annotations

import shutil
from pathlib import Path
from typing import Any

import numpy as np

from ._arrays import Shape3
from ._outputs import SlabOutput
from ._types import FloatArray

CHUNK = 64
SMALLEST = 96  # the coarsest copy has at most so many voxels along its longest edge


class _Level:
    """A volume, and those that are made of means of 2 x 2 x 2 of its voxels."""

    def __init__(self, group: Any, number: int, shape: Shape3) -> None:
        chunks = tuple(min(CHUNK, n) for n in shape)
        array = group.create_array(str(number), shape=shape, chunks=chunks, dtype="float32")
        self._output = SlabOutput(array)
        half = (shape[0] // 2, shape[1] // 2, shape[2] // 2)
        self.next: _Level | None = None
        if max(shape) > SMALLEST and min(half) > 0:
            self.next = _Level(group, number + 1, half)
            self._half = half
            self._sum = np.zeros(half[1:], np.float32)

    def write(self, z: int, image: FloatArray) -> None:
        self._output.write(z, image)
        if self.next is None or z // 2 == self._half[0]:
            return
        _, rows, columns = self._half
        blocks = image[: 2 * rows, : 2 * columns].reshape(rows, 2, columns, 2)
        mean = blocks.mean(axis=(1, 3), dtype=np.float32)
        if z % 2 == 0:
            self._sum = mean
        else:
            self.next.write(z // 2, (self._sum + mean) / 2)


class OmeZarrOutput:
    """An OME-Zarr image, which appears when it is complete."""

    def __init__(self, path: Path, shape: Shape3, pixel_size: float, label: str) -> None:
        try:
            import ome_zarr.writer
            import zarr
        except ImportError as error:
            raise ImportError("out=*.zarr needs ome-zarr: pip install ome-zarr") from error
        if path.exists():
            raise FileExistsError(f"{path} is there already")
        self._path = path
        self._partial = path.with_name(path.name + ".partial")
        shutil.rmtree(self._partial, ignore_errors=True)
        self._group = zarr.open_group(self._partial, mode="w")
        self._level = _Level(self._group, 0, shape)
        self._write_metadata = ome_zarr.writer.write_multiscales_metadata
        self._pixel_size = pixel_size
        self._label = label

    def write(self, i: int, image: FloatArray) -> None:
        self._level.write(i, image)

    def finish(self) -> Path:
        datasets: list[dict[str, Any]] = []
        scale = self._pixel_size or 1.0
        level: _Level | None = self._level
        while level is not None:
            shift = (scale - (self._pixel_size or 1.0)) / 2  # of the centre of the first voxel
            transformations = [
                {"type": "scale", "scale": [scale] * 3},
                {"type": "translation", "translation": [shift] * 3},
            ]
            datasets.append(
                {"path": str(len(datasets)), "coordinateTransformations": transformations}
            )
            scale, level = 2 * scale, level.next
        unit = {"unit": "angstrom"} if self._pixel_size else {}
        axes = [{"name": name, "type": "space", **unit} for name in "zyx"]
        self._write_metadata(self._group, datasets, axes=axes, name=self._label)
        self._partial.rename(self._path)
        return self._path
