"""What users give, checked before anything is sent."""

from __future__ import annotations

import operator
import warnings
from collections.abc import Callable, Sequence
from typing import Any, SupportsFloat, SupportsIndex

import numpy as np

from . import _core
from ._types import AnglesLike, FloatArray, ImagesLike

Reader = Callable[[int, FloatArray], None]
Shape3 = tuple[int, int, int]


def check_images(images: ImagesLike, name: str, axes: str) -> Shape3:
    """The shape of a stack or volume of real numbers; its images are read when they are sent."""
    if not hasattr(images, "shape") or not hasattr(images, "dtype"):
        raise ValueError(f"{name}: expected an array ({axes}), not a {type(images).__name__}")
    shape = tuple(int(n) for n in images.shape)
    if len(shape) != 3 or 0 in shape:
        raise ValueError(f"{name}: expected an array ({axes}), not one of shape {shape}")
    if np.dtype(images.dtype).kind not in "biuf":
        raise ValueError(f"{name}: expected real numbers, not {images.dtype}")
    if max(shape) >= 2**31:
        raise ValueError(f"{name}: {shape} is too large")
    return shape


def reader(
    images: ImagesLike, which: list[int] | None = None, rows: tuple[int, int] | None = None
) -> Reader:
    """Fills in image i of a stack, or of those that are chosen, or some rows of it, as float32."""

    def read(i: int, image: FloatArray) -> None:
        number = i if which is None else which[i]
        source = images[number] if rows is None else images[number, rows[0] : rows[1]]
        np.copyto(image, np.asarray(source), casting="unsafe")

    return read


def check_angles(angles: AnglesLike, views: int) -> list[float]:
    """One finite angle in degrees for each view."""
    array = np.asarray(angles, dtype=np.float32)
    if array.shape != (views,):
        raise ValueError(f"angles: expected {views}, one for each view, not shape {array.shape}")
    if not np.isfinite(array).all() or (np.abs(array) > 360).any():
        raise ValueError("angles: expected degrees within +-360")
    degrees = [float(a) for a in array]
    _core.check_degrees(degrees)
    if views > 1 and np.ptp(array) > 0 and (np.abs(array) <= np.pi).all():
        warnings.warn(
            "all angles lie within pi: they are taken as degrees, not radians", stacklevel=4
        )
    return degrees


def check_views(views: Any, count: int) -> list[int]:
    """The views that take part, ascending; None: all."""
    if views is None:
        return list(range(count))
    chosen = np.asarray(views)
    if chosen.dtype == bool:
        if chosen.shape != (count,):
            raise ValueError(f"views: expected a mask of {count} views, not {chosen.shape}")
        chosen = np.flatnonzero(chosen)
    if chosen.ndim != 1 or chosen.size == 0 or chosen.dtype.kind not in "iu":
        raise ValueError("views: expected some view numbers, counted from 0, or a mask")
    chosen = np.unique(np.where(chosen < 0, chosen + count, chosen))
    if chosen[0] < 0 or chosen[-1] >= count:
        raise ValueError(f"views: the stack has {count} views, counted from 0")
    return [int(i) for i in chosen]


def check_shape(shape: Sequence[SupportsIndex]) -> tuple[int, int]:
    """Rows and columns."""
    if len(shape) != 2:
        raise ValueError(f"shape: expected rows and columns, not {shape}")
    return whole("shape", shape[0]), whole("shape", shape[1])


def whole(name: str, value: SupportsIndex, low: int = 1, high: int = 2**31 - 1) -> int:
    """A whole number from low to high."""
    try:
        number = operator.index(value)
    except TypeError:
        raise TypeError(f"{name}: expected a whole number, not {value!r}") from None
    if not low <= number <= high:
        raise ValueError(f"{name}: expected {low} to {high}, not {number}")
    return number


def real(name: str, value: SupportsFloat, low: float, high: float) -> float:
    """A number from low to high."""
    try:
        number = float(value)
    except (TypeError, ValueError):
        raise TypeError(f"{name}: expected a number, not {value!r}") from None
    if not low <= number <= high:
        raise ValueError(f"{name}: expected {low:g} to {high:g}, not {number}")
    return number
