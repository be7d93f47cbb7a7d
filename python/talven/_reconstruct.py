"""Volumes from tilt series, and projections of volumes."""

from __future__ import annotations

from collections.abc import Iterable, Sequence
from dataclasses import dataclass
from pathlib import Path
from typing import Any, Literal

import numpy as np

from . import _core
from ._alignment import AlignmentLike, as_alignment, to_numbers
from ._arrays import (
    Reader,
    check_angles,
    check_images,
    check_shape,
    check_views,
    reader,
    real,
    whole,
)
from ._labels import Series, is_labelled, label, order, spacing, take_series
from ._outputs import open_output
from ._progress import Teller, teller
from ._session import Connection, ServerLike, connected
from ._types import AnglesLike, Doubles, ImagesLike, MethodName, ProgressLike, WindowName

_METHODS = {
    "sart": _core.Method.SART,
    "em": _core.Method.EM,
    "wbp": _core.Method.BACK_PROJECTION,
    "bp": _core.Method.BACK_PROJECTION,
}
_WINDOWS = {
    "ramp": _core.Window.RAMP,
    "shepp-logan": _core.Window.SHEPP_LOGAN,
    "cosine": _core.Window.COSINE,
    "hamming": _core.Window.HAMMING,
    "hann": _core.Window.HANN,
}


@dataclass(frozen=True)
class Filter:
    """The filter of a weighted back projection.

    Attributes
    ----------
    window : str
        What the ramp is multiplied with: ``"ramp"`` (nothing), ``"shepp-logan"``, ``"cosine"``,
        ``"hamming"`` or ``"hann"``.
    cutoff : float
        Frequency from where it falls off, cycles per pixel, up to 0.5.
    falloff : float
        Standard deviation of the Gaussian fall, cycles per pixel; 0: a step.
    sirt_like : int
        Weigh frequencies as after so many iterations of SIRT; 0: not.
    """

    window: WindowName = "ramp"
    cutoff: float = 0.5
    falloff: float = 0.0
    sirt_like: int = 0

    def _request(self) -> _core.FilterRequest:
        if self.window not in _WINDOWS:
            raise ValueError(f"filter: expected one of {', '.join(_WINDOWS)}, not {self.window!r}")
        request = _core.FilterRequest()
        request.window = _WINDOWS[self.window]
        request.cutoff = real("filter: cutoff", self.cutoff, 1e-9, 0.5)
        request.falloff = real("filter: falloff", self.falloff, 0, 1e9)
        request.sirt_like = whole("filter: sirt_like", self.sirt_like, 0, 100000)
        return request


@dataclass(frozen=True)
class Reconstruction:
    """A volume and how it came about.

    Attributes
    ----------
    volume : array (z, y, x), or what `out` names
    halves : tuple or None
        The volumes of two halves of the data, which have no noise in common.
    method : str
        ``"SART, 10 iterations, 10 subsets"``.
    rfactors : ndarray (iteration,)
        Sum of abs(measured - reprojected) over sum of abs(measured) after every iteration that was
        run; none for back projections.
    views : ndarray (n,)
        That took part, counted from 0.
    view_residuals : ndarray (n,)
        The R-factor of each of them after the last iteration.
    rfactor_sums : ndarray (iteration, n, 2)
        The sums behind them, of abs(measured - reprojected) and of abs(measured). R-factors of
        parts are not to be averaged, but their sums can be added.
    """

    volume: Any
    halves: tuple[Any, Any] | None
    method: str
    rfactors: Doubles
    views: np.ndarray[Any, np.dtype[np.int64]]
    view_residuals: Doubles
    rfactor_sums: Doubles


def reconstruct(
    tilts: ImagesLike,
    angles: AnglesLike | None = None,
    thickness: int = 0,
    *,
    method: MethodName = "sart",
    iterations: int = 10,
    subsets: int | Sequence[int] | None = None,
    relaxation: float | Sequence[float] = 1.0,
    width: int | None = None,
    rows: tuple[int, int] | None = None,
    halo: int | None = None,
    initial: ImagesLike | None = None,
    nonnegative: bool = True,
    smooth: float | tuple[float, int] | None = None,
    views: Any = None,
    filter: Filter | WindowName | None = None,
    halves: Literal["even-odd"] | tuple[ImagesLike, ImagesLike] | None = None,
    alignment: AlignmentLike = None,
    tilt_axis: float = 0.0,
    bin: int = 1,
    shape: tuple[int, int] | None = None,
    shift_z: float = 0.0,
    x_tilt: float = 0.0,
    angle_offset: float = 0.0,
    order: Literal["interleaved", "given"] = "interleaved",
    weight_box: tuple[float, float, float, float] | None = None,
    stop_when: float | None = None,
    pixel_size: float | None = None,
    details: bool = False,
    out: Any = None,
    server: ServerLike = None,
    progress: ProgressLike = None,
) -> Any:
    """Reconstruct a volume from a single-axis tilt series.

    The tilt axis is the y axis of the aligned views. Voxel (x, z) of a row, from the centre of the
    volume, falls on column ``(X - 1) / 2 + x cos(angle) + z sin(angle)`` of the detector.

    Parameters
    ----------
    tilts : array (view, y, x)
        Projections of real numbers, the specimen bright; NaN: no data. Anything with a shape, a
        dtype and images by index is read image by image: memory-mapped, zarr, h5py, dask. A
        DataArray of xarray may have the dimensions in any order.
    angles : array (view,)
        Degrees; default: the coordinate ``angle`` of a DataArray.
    thickness : int
        Of the volume along z, voxels.
    method : {'sart', 'em', 'wbp', 'bp'}
        SART (Andersen & Kak, Ultrasonic Imaging 6, 1984), expectation maximisation (of projections
        that are not negative), weighted (filtered) or plain back projection.
    iterations : int
        Of SART or EM.
    subsets : int or sequence of int, optional
        How many subsets of projections an iteration has, or their sizes. Default: about one per six
        projections. One for each projection is the classical SART, one for all is SIRT-like.
    relaxation : float or sequence of float
        For all iterations, or for each.
    width : int, optional
        Of the volume along x, voxels; default: the detector's.
    rows : (int, int), optional
        Make rows a to b - 1 of the volume, counted from 0: a part whose voxels are those of the
        whole, bit for bit with ``'sart'``, ``'em'`` and ``'bp'``.
    halo : int, optional
        Rows made beside them, for `smooth`; default: as many as it takes.
    initial : array (z, y, x), optional
        Volume to start from, with all rows; default: zeros.
    nonnegative : bool
        False: voxels of SART may fall below 0.
    smooth : float or (float, int), optional
        Standard deviation of a Gaussian in voxels, and every how many iterations the volume is
        smoothed (1).
    views : array of int or bool, optional
        That take part; default: all.
    filter : Filter or str, optional
        Of ``'wbp'``; default: the ramp.
    halves : 'even-odd' or (array, array), optional
        Two more volumes, of every second view by angle, or of two series of the same views.
    alignment : Alignment, array (view, 2, 3) or path of an .xf file, optional
        Where the pixels of raw views lie in aligned ones; views that it leaves out take no part.
        Each view is resampled once.
    tilt_axis : float
        From the +Y axis of the views to the tilt axis, degrees, counterclockwise with X right and Y
        up; counts after `alignment`.
    bin : int
        Means of `bin` x `bin` raw pixels; all sizes are of these then.
    shape : (int, int), optional
        Rows and columns of the aligned views.
    shift_z : float
        Voxels by which the specimen moves towards higher z.
    x_tilt : float
        The specimen rises towards +y by this angle, degrees: it is laid flat.
    angle_offset : float
        Added to all angles, degrees.
    order : {'interleaved', 'given'}
        Subsets spread over the tilt range, or cut from the stack as it is.
    weight_box : (cx, cz, hx, hz), optional
        Centre and half sizes of the box that holds the specimen, voxels from the centre of the
        volume: rays weigh by their path in it.
    stop_when : float, optional
        SART ends when an iteration lowers the R-factor by less than this share.
    pixel_size : float, optional
        Of the raw views, Angstrom; for files and coordinates.
    details : bool
        Return a `Reconstruction`.
    out : array or path, optional
        An array (z, y, x) of any dtype, one of zarr or h5py, or a path that ends in ``.mrc`` or
        ``.zarr`` (OME-Zarr with a pyramid). Default: a new array.
    server : str, list of str or Session, optional
        ``"host:port"``, ``"ssh://host"`` or several of them, see `Session`; default: a private
        server on all devices of this machine.
    progress : bool or callable, optional
        True: a bar, by tqdm. A function gets a `Progress`, of iterations after pieces of about 3
        seconds; when it returns False, SART ends with the piece at work and keeps its volume, and
        anything else raises `Error`.

    Returns
    -------
    ndarray (z, y, x) of float32, or `out`
        A DataArray with coordinates in Angstrom and the R-factors in ``attrs`` where `tilts` was
        one. A `Reconstruction` with `details` or `halves`.

    Raises
    ------
    ValueError
        The arguments do not fit; nothing was sent.
    Refused, ServerBusy, ConnectionLost, Error
        The server did not do it.
    """
    series = take_series(tilts, angles, pixel_size)
    raw = check_images(series.tilts, "tilts", "view, y, x")
    all_angles = check_angles(series.angles, raw[0])
    chosen = check_views(views, raw[0])
    request = _core.ReconRequest()
    _set_method(request, method, iterations, subsets, relaxation, nonnegative, smooth, filter)
    request.thickness = whole("thickness", thickness)
    if width is not None:
        request.width = whole("width", width)
    if rows is not None:
        request.set_rows(whole("rows", rows[0], 0), whole("rows", rows[1]))
    if halo is not None:
        request.halo = whole("halo", halo, 0)
    request.interleave = _choose("order", order, {"interleaved": True, "given": False})
    if weight_box is not None:
        if len(weight_box) != 4:
            raise ValueError("weight_box: expected (cx, cz, hx, hz)")
        request.weight_box = [real("weight_box", n, -np.inf, np.inf) for n in weight_box]
    request.angle_offset = real("angle_offset", angle_offset, -180, 180)
    if stop_when is not None:
        request.stop_when = real("stop_when", stop_when, 1e-9, 1)
    aligned = as_alignment(alignment)
    request.align = _align_request(aligned, tilt_axis, bin, shape, shift_z, x_tilt)
    request.include = [i for i in chosen if aligned is None or i not in aligned.left_out]
    if not request.include:
        raise ValueError("views: the alignment leaves out all of them")
    plan = _plan(request, raw[1:], all_angles)
    here = server is None or (isinstance(server, Connection) and server.is_private)
    plan.size.check(here)
    start = _initial(initial, plan, request)
    job = _Job(series, request, plan, start, halves, out, bin * series.pixel_size)
    told = teller(progress)
    with connected(server, told) as core:
        result = job.run(core, told, is_private=here)
    return result if details or halves is not None else result.volume


def _choose(name: str, value: Any, choices: dict[str, Any]) -> Any:
    if value not in choices:
        raise ValueError(f"{name}: expected one of {', '.join(choices)}, not {value!r}")
    return choices[value]


def _set_method(
    request: _core.ReconRequest,
    method: str,
    iterations: int,
    subsets: int | Sequence[int] | None,
    relaxation: float | Sequence[float],
    nonnegative: bool,
    smooth: float | tuple[float, int] | None,
    filter: Filter | WindowName | None,
) -> None:
    request.method = _choose("method", method, _METHODS)
    request.filtered = method == "wbp"
    if filter is not None:
        if not request.filtered:
            raise ValueError("filter: is for method='wbp'")
        request.filter = (filter if isinstance(filter, Filter) else Filter(filter))._request()
    request.iterations = whole("iterations", iterations, 1, 100000)
    if isinstance(subsets, Iterable):
        request.subset_sizes = [whole("subsets", n) for n in subsets]
    elif subsets is not None:
        request.subsets = whole("subsets", subsets)
    factors = relaxation if isinstance(relaxation, Iterable) else [relaxation]
    request.relaxation = [real("relaxation", factor, 0, 1e6) for factor in factors]
    request.unconstrained = not nonnegative and method == "sart"
    if smooth is not None:
        sigma, interval = smooth if isinstance(smooth, tuple) else (smooth, 1)
        request.smooth_sigma = real("smooth", sigma, 1e-6, 100)
        request.smooth_interval = whole("smooth: interval", interval, 1, 100000)


def _align_request(
    aligned: Any,
    tilt_axis: float,
    bin: int,
    shape: tuple[int, int] | None,
    shift_z: float,
    x_tilt: float,
) -> _core.AlignRequest:
    request = _core.AlignRequest()
    if aligned is not None:
        request.maps = to_numbers(aligned.maps)
    request.tilt_axis = real("tilt_axis", tilt_axis, -360, 360)
    request.bin = whole("bin", bin, 1, 64)
    request.shift_z = real("shift_z", shift_z, -1e5, 1e5)
    request.x_tilt = real("x_tilt", x_tilt, -60, 60)
    if shape is not None:
        request.shape = check_shape(shape)
    return request


def _plan(
    request: _core.ReconRequest, raw: tuple[int, int], angles: list[float]
) -> _core.ReconPlan:
    """A plan; what is wrong in the words of this function's arguments."""
    try:
        return _core.make_plan(request, raw, angles)
    except ValueError as error:
        names = {"subset-sizes": "subsets", "xf": "alignment", "unconstrained": "nonnegative"}
        part, colon, text = str(error).partition(": ")
        raise ValueError(names.get(part, part.replace("-", "_")) + colon + text) from None


def _initial(initial: Any, plan: _core.ReconPlan, request: _core.ReconRequest) -> Any:
    if initial is None:
        return None
    if is_labelled(initial):
        initial = order(initial, ("z", "y", "x"), "initial")
    shape = check_images(initial, "initial", "z, y, x")
    if shape != plan.whole_shape:
        raise ValueError(f"initial: expected shape {plan.whole_shape}, not {shape}")
    if request.filtered:
        raise ValueError("initial: a weighted back projection starts from nothing")
    if request.align.x_tilt != 0:
        raise ValueError("initial: not with x_tilt, which turns the volume at the end")
    return reader(initial, rows=plan.sent if plan.is_part else None)


class _Job:
    """A reconstruction whose arguments have been checked."""

    def __init__(
        self,
        series: Series,
        request: _core.ReconRequest,
        plan: _core.ReconPlan,
        initial: Any,
        halves: Any,
        out: Any,
        pixel_size: float,
    ) -> None:
        self._series, self._request, self._plan = series, request, plan
        self._initial, self._halves, self._out = initial, halves, out
        self._pixel_size = pixel_size
        self._frames: list[ImagesLike] = []
        if isinstance(halves, str) and halves == "even-odd":
            plan.half(request, 0, 0)  # says what is wrong before the work
        elif halves is not None:
            if isinstance(halves, str) or len(halves) != 2:
                raise ValueError("halves: expected 'even-odd' or two stacks")
            shape = tuple(series.tilts.shape)
            for frames in halves:
                if check_images(frames, "halves", "view, y, x") != shape:
                    raise ValueError(f"halves: expected two stacks of shape {shape}")
            self._frames = list(halves)
        self._output = self._open("")

    def _open(self, suffix: str) -> Any:
        """The output of the whole, or of a half: named after it, or a new array."""
        out = self._out
        if suffix:
            is_path = isinstance(out, (str, Path)) or hasattr(out, "__fspath__")
            out = Path(out).with_stem(Path(out).stem + suffix) if is_path else None
        label = "Talven: " + self._plan.describe()
        return open_output(out, self._plan.shape, self._pixel_size, label)

    def _reader(self, tilts: ImagesLike) -> Reader:
        plan = self._plan
        part = plan.is_part and not plan.aligns
        return reader(tilts, plan.views, rows=plan.sent if part else None)

    def run(self, core: _core.Session, told: Teller | None, is_private: bool) -> Reconstruction:
        plan = self._plan
        job = _core.Reconstruction(core)
        job.upload(plan, self._reader(self._series.tilts), self._initial, told)
        job.run(told)
        rfactors, residuals = list(job.rfactors), list(job.view_residuals)
        sums = np.array(job.rfactor_sums).reshape(len(rfactors), len(residuals), 2)
        method = plan.describe(len(rfactors))
        volume = self._fetch(job, self._output, told, method, rfactors)
        halves = None
        if self._halves is not None:
            first, second = (self._half(job, i, len(rfactors), told) for i in (0, 1))
            halves = (first, second)
        return Reconstruction(
            volume,
            halves,
            method,
            np.array(rfactors),
            np.array(plan.views),
            np.array(residuals),
            sums,
        )

    def _half(self, job: _core.Reconstruction, i: int, iterations: int, told: Any) -> Any:
        if self._frames:
            plan = self._plan
            job.upload(plan, self._reader(self._frames[i]), self._initial, told)
            output = self._open("_a" if i == 0 else "_b")
        else:
            plan = self._plan.half(self._request, i, iterations)
            job.restart(plan, self._initial, told)
            output = self._open("_odd" if i == 0 else "_even")
        job.run(told)
        return self._fetch(job, output, told, plan.describe(iterations), list(job.rfactors))

    def _fetch(
        self,
        job: _core.Reconstruction,
        output: Any,
        told: Any,
        method: str,
        rfactors: list[float],
    ) -> Any:
        job.download(output.write, told)
        volume = output.finish()
        if not self._series.labelled or not isinstance(volume, np.ndarray):
            return volume
        attrs = {"method": method, "rfactors": rfactors}
        return label(volume, "zyx", self._pixel_size, attrs)


def reproject(
    volume: ImagesLike,
    angles: AnglesLike,
    *,
    width: int | None = None,
    out: Any = None,
    server: ServerLike = None,
    progress: ProgressLike = None,
) -> Any:
    """Project a volume.

    Parameters
    ----------
    volume : array (z, y, x)
        Real numbers.
    angles : array (view,)
        Degrees.
    width : int, optional
        Columns of the detector; default: the volume's.
    out, server, progress
        As in `reconstruct`.

    Returns
    -------
    ndarray (view, y, x) of float32, or `out`
        A DataArray where `volume` was one.

    Raises
    ------
    ValueError, Refused, ServerBusy, ConnectionLost, Error
        As `reconstruct`.
    """
    labelled = is_labelled(volume)
    pixel_size = 0.0
    if labelled:
        volume = order(volume, ("z", "y", "x"), "volume")
        pixel_size = spacing(volume)
    shape = check_images(volume, "volume", "z, y, x")
    degrees = check_angles(angles, len(np.atleast_1d(np.asarray(angles))))
    columns = shape[2] if width is None else whole("width", width)
    size = _core.JobSize([len(degrees), shape[1], columns], (shape[0], shape[2]))
    size.check(server is None or (isinstance(server, Connection) and server.is_private))
    output = open_output(out, (len(degrees), shape[1], columns), pixel_size, "Talven: reprojection")
    told = teller(progress)
    with connected(server, told) as core:
        core.reproject(list(shape), columns, degrees, reader(volume), output.write, told)
    projections = output.finish()
    if not labelled or not isinstance(projections, np.ndarray):
        return projections
    array = label(projections, ("view", "y", "x"), pixel_size, {})
    return array.assign_coords(angle=("view", np.asarray(degrees)))


def memory_estimate(
    tilts_shape: tuple[int, int, int],
    thickness: int,
    *,
    width: int | None = None,
    smooth: bool = False,
    devices: int = 1,
) -> int:
    """Bytes of memory that a server needs for a reconstruction.

    Parameters
    ----------
    tilts_shape : (view, y, x)
        Of the aligned projections.
    thickness, width : int
        Of the volume along z and x, voxels; default width: the detector's.
    smooth : bool
        Whether the volume is smoothed.
    devices : int
        That the server works with.
    """
    views, rows, columns = (whole("tilts_shape", n) for n in tilts_shape)
    volume = (whole("thickness", thickness), whole("width", width or columns))
    size = _core.JobSize([views, rows, columns], volume, smooth)
    return size.memory(whole("devices", devices, 1, 16))
