"""Images mapped and compared on a server."""

from __future__ import annotations

from dataclasses import dataclass
from typing import Any, Literal

import numpy as np
from numpy.typing import NDArray

from . import _core
from ._alignment import AlignmentLike, as_alignment, to_numbers
from ._arrays import Shape3, check_images, check_shape, real, whole
from ._errors import Error
from ._outputs import open_output
from ._progress import Teller, teller
from ._session import ServerLike, connected
from ._types import Doubles, FloatArray, ImagesLike, ProgressLike


@dataclass(frozen=True)
class Scale:
    """What becomes of a measured value p.

    ``min(most, gain p + offset)``, or with `beam`, the intensity without a specimen,
    ``min(most, factor ln(beam / max(least, gain p + offset)))``.
    """

    gain: float = 1.0
    offset: float = 0.0
    most: float | None = None
    beam: float | None = None
    least: float = 1.0
    factor: float = 1.0

    def _core(self) -> _core.IntensityScale:
        scale = _core.IntensityScale()
        scale.gain, scale.offset = self.gain, self.offset
        if self.most is not None:
            scale.most = self.most
        if self.beam is not None:
            if not (self.beam > 0 and self.least > 0):
                raise ValueError("scale: beam and least must be above 0")
            scale.log, scale.beam = True, self.beam
            scale.least, scale.factor = self.least, self.factor
        numbers = (scale.gain, scale.offset, scale.most, scale.beam, scale.least, scale.factor)
        if not np.isfinite(numbers).all():
            raise ValueError("scale: a number is too large or not a number")
        return scale


@dataclass(frozen=True)
class Comparison:
    """How measured images agree with aligned ones.

    Attributes
    ----------
    correlation : ndarray (image,)
        Normalised, -1 to 1; NaN where one of the images is constant.
    mean_difference : ndarray (image,)
        Mean of abs(aligned - measured).
    pixels : ndarray (image,)
        That were compared.
    shift_x, shift_y : ndarray (image,)
        Found, in the measured image, pixels.
    at_edge : ndarray (image,) of bool
        The best shift lies at the edge of the search.
    """

    correlation: Doubles
    mean_difference: Doubles
    pixels: Doubles
    shift_x: Doubles
    shift_y: Doubles
    at_edge: NDArray[np.bool_]


def _matrices(
    matrices: Any, count: int, origin: str, aligned: tuple[int, int], measured: tuple[int, int]
) -> list[list[float]]:
    """One map of the server's for each image, which counts from the corners."""
    array = np.asarray([[1, 0, 0], [0, 1, 0]] if matrices is None else matrices, dtype=np.float32)
    if array.shape not in ((2, 3), (count, 2, 3)) or not np.isfinite(array).all():
        raise ValueError(f"matrices: expected (2, 3) or ({count}, 2, 3), not {array.shape}")
    if origin not in ("corner", "centre"):
        raise ValueError(f"origin: expected 'corner' or 'centre', not {origin!r}")
    array = np.broadcast_to(array, (count, 2, 3))
    numbers = [[float(v) for v in (*a[:, :2].ravel(), *a[:, 2])] for a in array]
    if origin == "corner":
        return numbers
    return [_core.from_corners(n, aligned, measured) for n in numbers]


def _as_float(image: Any) -> FloatArray:
    return np.ascontiguousarray(image, dtype=np.float32)


def _step(told: Teller | None, phase: str, done: int, count: int) -> None:
    if told is not None and told(phase, done, count, 0, "") is False:
        raise Error("stopped by the progress callback")


def transform(
    images: ImagesLike,
    *,
    alignment: AlignmentLike = None,
    tilt_axis: float = 0.0,
    bin: int = 1,
    matrices: Any = None,
    origin: Literal["corner", "centre"] = "corner",
    shape: tuple[int, int] | None = None,
    scale: Scale | None = None,
    out: Any = None,
    server: ServerLike = None,
    progress: ProgressLike = None,
) -> Any:
    """Resample images, each with its affine map and the intensity scale.

    Parameters
    ----------
    images : array (image, y, x)
        Real numbers; NaN: no data.
    alignment, tilt_axis, bin
        Where raw pixels lie in aligned images, as in `reconstruct`.
    matrices : array (2, 3) or (image, 2, 3), optional
        In their place: rows ``[a, b, e], [c, d, f]``; pixel (x, y) of the aligned image is read at
        ``(a x + b y + e, c x + d y + f)`` of the measured one.
    origin : {'corner', 'centre'}
        What `matrices` count from.
    shape : (int, int), optional
        Rows and columns of the aligned images; default: those of `images`.
    scale : Scale, optional
        Of the intensities.
    out, server, progress
        As in `reconstruct`.

    Returns
    -------
    ndarray (image, y, x) of float32, or `out`
        NaN where an image has no data.

    Raises
    ------
    ValueError, Refused, ServerBusy, ConnectionLost, Error
        As `reconstruct`.
    """
    count, *raw = check_images(images, "images", "image, y, x")
    if matrices is not None and (alignment is not None or tilt_axis != 0 or bin != 1):
        raise ValueError("matrices: not with alignment, tilt_axis or bin")
    bin = whole("bin", bin, 1, 64)
    request = _core.AlignRequest()
    request.tilt_axis, request.bin = real("tilt_axis", tilt_axis, -360, 360), bin
    if shape is not None:
        request.shape = check_shape(shape)
    found = as_alignment(alignment)
    if found is not None:
        if len(found.maps) != count:
            raise ValueError(f"alignment: {len(found.maps)} maps for {count} images")
        request.maps = to_numbers(found.maps)
    plan = _core.align_views(request, (raw[0], raw[1]), count)
    maps = plan.maps
    if not maps:
        maps = _matrices(matrices, count, origin, plan.aligned, plan.binned)
    core_scale = (scale or Scale())._core()
    result: Shape3 = (count, *plan.aligned)
    output = open_output(out, result, 0.0, "Talven: aligned")
    told = teller(progress)
    with connected(server, told) as core:
        job = _core.ImageJob(core, plan.binned, plan.aligned)
        aligned = np.empty(plan.aligned, np.float32)
        for i in range(count):
            image = _core.bin_image(_as_float(images[i]), bin)
            job.transform(image, maps[i], core_scale, aligned)
            output.write(i, aligned)
            _step(told, "transform", i + 1, count)
    return output.finish()


def compare(
    measured: ImagesLike,
    aligned: ImagesLike,
    *,
    search: int = 0,
    matrices: Any = None,
    origin: Literal["corner", "centre"] = "corner",
    scale: Scale | None = None,
    server: ServerLike = None,
    progress: ProgressLike = None,
) -> Comparison:
    """Compare measured images with aligned ones, and find their shifts.

    Parameters
    ----------
    measured, aligned : array (image, y, x)
        As many of both; NaN: no data.
    search : int
        Find the shift of every image within so many pixels in x and y; 0: none.
    matrices, origin, scale
        As in `transform`.
    server, progress
        As in `reconstruct`.

    Returns
    -------
    Comparison

    Raises
    ------
    ValueError, Refused, ServerBusy, ConnectionLost, Error
        As `reconstruct`.
    """
    count, *shape = check_images(measured, "measured", "image, y, x")
    others, *grid = check_images(aligned, "aligned", "image, y, x")
    if count != others:
        raise ValueError(f"measured has {count} images, but aligned has {others}")
    search = whole("search", search, 0, 10000)
    from_shape, to_shape = (shape[0], shape[1]), (grid[0], grid[1])
    maps = _matrices(matrices, count, origin, to_shape, from_shape)
    core_scale = (scale or Scale())._core()
    told = teller(progress)
    found = []
    with connected(server, told) as core:
        job = _core.ImageJob(core, from_shape, to_shape)
        for i in range(count):
            one, other = _as_float(measured[i]), _as_float(aligned[i])
            found.append(job.compare(one, other, maps[i], core_scale, search, f"image {i}"))
            _step(told, "compare", i + 1, count)
    return Comparison(
        np.array([match.correlation for match in found]),
        np.array([match.mean_difference for match in found]),
        np.array([match.pixels for match in found]),
        np.array([match.shift[0] for match in found]),
        np.array([match.shift[1] for match in found]),
        np.array([match.at_edge for match in found]),
    )
