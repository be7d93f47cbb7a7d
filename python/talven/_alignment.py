"""How raw views become aligned ones."""

from __future__ import annotations

from dataclasses import dataclass, field
from pathlib import Path
from typing import Any, TypeAlias

import numpy as np
from numpy.typing import NDArray

from . import _core
from ._arrays import check_angles, check_images, check_views, reader, real, whole
from ._labels import take_series
from ._progress import teller
from ._session import ServerLike, connected
from ._types import AnglesLike, Doubles, ImagesLike, PathOrName, ProgressLike


@dataclass(frozen=True)
class Alignment:
    """Where the pixels of raw views lie in aligned ones.

    Attributes
    ----------
    maps : ndarray (view, 2, 3)
        Rows ``[A11, A12, DX], [A21, A22, DY]`` of each view: aligned = A raw + D, both counted from
        the centres of the images, x first, in raw pixels.
    tilt_axis : float
        From the +Y axis of the raw views, degrees, counterclockwise with X right and Y up; NaN
        where it is not known.
    left_out : list of int
        Views that do not look like the others, counted from 0.
    correlations : ndarray (view,)
        Of each view with a volume made without it; NaN for views that took no part.
    correlation : float
        Their median.
    still_wanted : float
        How far these would still move the views, root mean square, raw pixels.
    warnings : list of str
        What a user should know.
    """

    maps: Doubles
    tilt_axis: float = float("nan")
    tilt_axis_uncertainty: float = float("nan")
    left_out: list[int] = field(default_factory=list)
    correlations: Doubles = field(default_factory=lambda: np.empty(0))
    correlation: float = float("nan")
    still_wanted: float = float("nan")
    warnings: list[str] = field(default_factory=list)

    def save(self, path: PathOrName) -> None:
        """Write an ``.xf`` file."""
        _core.write_xf(str(path), to_numbers(self.maps))

    @classmethod
    def load(cls, path: PathOrName) -> Alignment:
        """Read an ``.xf`` file."""
        return cls(from_numbers(_core.read_xf(str(path))))


AlignmentLike: TypeAlias = Alignment | NDArray[Any] | PathOrName | None


def to_numbers(maps: Any) -> list[list[float]]:
    """(view, 2, 3) to A11 A12 A21 A22 DX DY."""
    array = np.asarray(maps, dtype=np.float64)
    if array.ndim != 3 or array.shape[1:] != (2, 3) or not np.isfinite(array).all():
        raise ValueError(f"alignment: expected maps of shape (view, 2, 3), not {array.shape}")
    return [[*a[:, :2].ravel(), *a[:, 2]] for a in array]


def from_numbers(numbers: list[list[float]]) -> Doubles:
    """And back."""
    array = np.asarray(numbers, dtype=np.float64)
    return np.concatenate([array[:, :4].reshape(-1, 2, 2), array[:, 4:, None]], axis=2)


def as_alignment(alignment: AlignmentLike) -> Alignment | None:
    """What the user means by it."""
    if alignment is None or isinstance(alignment, Alignment):
        return alignment
    if isinstance(alignment, (str, Path)) or hasattr(alignment, "__fspath__"):
        return Alignment.load(alignment)
    return Alignment(np.asarray(alignment, dtype=np.float64))


def align(
    tilts: ImagesLike,
    angles: AnglesLike | None = None,
    thickness: int = 0,
    *,
    axis: float | None = None,
    fixed_axis: bool = False,
    isolated: bool = False,
    dark: bool = False,
    bins: list[int] | None = None,
    limit: float = 80,
    views: Any = None,
    server: ServerLike = None,
    progress: ProgressLike = None,
) -> Alignment:
    """Align a raw tilt series without markers.

    Views are matched with projections of a volume of the others in rounds (Yang, Ng & Penczek, J.
    Struct. Biol. 149, 2005).

    Parameters
    ----------
    tilts : array (view, y, x)
        Raw views of real numbers; NaN: no data. The specimen is bright.
    angles : array (view,)
        Degrees.
    thickness : int
        Of the specimen along the beam, about, raw pixels.
    axis : float, optional
        About, from the +Y axis of the views to the tilt axis, degrees, counterclockwise with X to
        the right and Y up. None: not known.
    fixed_axis : bool
        It is as given, not about.
    isolated : bool
        All views hold the whole specimen across the axis.
    dark : bool
        The specimen is darker than its surroundings.
    bins : list of int, optional
        Pixels along each edge of the blocks that are compared, one after the other.
    limit : float
        Farthest that a view may have moved, raw pixels.
    views : array of int or bool, optional
        That take part; default: all.
    server, progress
        As in `reconstruct`.

    Returns
    -------
    Alignment

    Raises
    ------
    ValueError
        The arguments do not fit; nothing was sent.
    Error
        The series cannot be aligned; the text says why.
    """
    series = take_series(tilts, angles)
    shape = check_images(series.tilts, "tilts", "view, y, x")
    chosen = check_views(views, shape[0])
    all_angles = check_angles(series.angles, shape[0])
    request = _core.SeriesAlignRequest()
    request.axis = _core.Axis.UNKNOWN if axis is None else _core.Axis.ABOUT
    if fixed_axis:
        if axis is None:
            raise ValueError("fixed_axis: the axis is not given")
        request.axis = _core.Axis.GIVEN
    request.tilt_axis = 0.0 if axis is None else real("axis", axis, -360, 360)
    request.thickness = whole("thickness", thickness, 1, 32768)
    request.bins = [whole("bins", n, 1, 64) for n in bins or []]
    request.limit = real("limit", limit, 1, 32768)
    request.isolated = isolated
    request.dark = dark
    some = [all_angles[i] for i in chosen]
    request.check(shape[1:], some)
    told = teller(progress)
    with connected(server, told) as core:
        found = core.align(request, shape[1:], some, reader(series.tilts, chosen), told)
    return _spread(found, chosen, shape[0])


def _spread(found: _core.SeriesAlignment, chosen: list[int], count: int) -> Alignment:
    """From the views that took part to all; the others are only turned."""
    numbers = _core.round_as_xf([*found.maps, _core.turned(found.tilt_axis)])
    maps = np.repeat(from_numbers(numbers[-1:]), count, axis=0)
    maps[chosen] = from_numbers(numbers[:-1])
    correlations = np.full(count, np.nan)
    correlations[chosen] = found.correlations
    uncertainty = found.tilt_axis_uncertainty
    return Alignment(
        maps,
        found.tilt_axis,
        float("nan") if uncertainty is None else uncertainty,
        [chosen[i] for i in found.left_out],
        correlations,
        found.correlation,
        found.still_wanted,
        list(found.warnings),
    )
