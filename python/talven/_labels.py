"""xarray in, xarray out."""

from __future__ import annotations

from collections.abc import Sequence
from dataclasses import dataclass
from typing import Any

import numpy as np

from ._types import AnglesLike, ImagesLike


@dataclass(frozen=True)
class Series:
    """A tilt series with what its labels say."""

    tilts: ImagesLike
    angles: AnglesLike
    pixel_size: float  # Angstrom, 0: not known
    labelled: bool


def is_labelled(array: Any) -> bool:
    """Whether it is an xarray.DataArray; xarray itself is not needed to tell."""
    return hasattr(array, "dims") and hasattr(array, "coords") and hasattr(array, "transpose")


def take_series(
    tilts: ImagesLike, angles: AnglesLike | None, pixel_size: float | None = None
) -> Series:
    """Dimensions by name, angles from the coordinate `angle`, Angstrom per pixel from that of x."""
    labelled = is_labelled(tilts)
    if labelled:
        tilts = order(tilts, ("view", "y", "x"), "tilts")
        if angles is None and "angle" in tilts.coords:
            angles = np.asarray(tilts.coords["angle"])
        if pixel_size is None:
            pixel_size = spacing(tilts)
    if angles is None:
        raise ValueError("angles: expected degrees, one for each view")
    if pixel_size is not None and not (np.isfinite(pixel_size) and pixel_size >= 0):
        raise ValueError(f"pixel_size: expected Angstrom, not {pixel_size}")
    return Series(tilts, angles, pixel_size or 0.0, labelled)


def order(array: Any, dims: tuple[str, ...], name: str) -> Any:
    """The array with its dimensions in this order."""
    if set(array.dims) != set(dims):
        raise ValueError(f"{name}: expected dimensions {dims}, not {tuple(array.dims)}")
    return array.transpose(*dims)


def spacing(array: Any) -> float:
    """Of the coordinate x, or the attribute pixel_size; 0: neither."""
    if "x" in array.coords and len(array.coords["x"]) > 1:
        x = np.asarray(array.coords["x"], dtype=float)
        return float((x[-1] - x[0]) / (len(x) - 1))
    return float(array.attrs.get("pixel_size", 0.0))


def label(array: Any, dims: Sequence[str], pixel_size: float, attrs: dict[str, Any]) -> Any:
    """A DataArray, its coordinates in Angstrom from the first voxel where the size is known."""
    import xarray

    coords = {}
    for dim, length in zip(dims, array.shape, strict=True):
        if pixel_size > 0 and dim in ("z", "y", "x"):
            coords[dim] = (dim, np.arange(length) * pixel_size, {"units": "angstrom"})
    return xarray.DataArray(array, dims=list(dims), coords=coords, attrs=attrs)
