"""A specimen whose projections are known."""

from __future__ import annotations

from typing import NamedTuple

import numpy as np

from . import _core
from ._arrays import check_angles, real, whole
from ._types import AnglesLike, FloatArray


class Phantom(NamedTuple):
    """A tilt series and its specimen.

    Attributes
    ----------
    tilts : ndarray (view, y, x)
        Density times length in voxels.
    angles : ndarray (view,)
        Degrees.
    truth : ndarray (z, y, x)
        Density.
    """

    tilts: FloatArray
    angles: FloatArray
    truth: FloatArray


def phantom(
    shape: tuple[int, int] = (512, 512),
    thickness: int = 128,
    angles: AnglesLike | None = None,
    *,
    beads: int = 12,
    noise: float = 0.0,
    dose: float = 0.0,
    seed: int = 1,
) -> Phantom:
    """Make a cell-like body with vesicles, granules and filaments, and its exact projections.

    Parameters
    ----------
    shape : (y, x)
        Of the projections, pixels.
    thickness : int
        Of the volume, voxels.
    angles : array (view,), optional
        Degrees; default: -60 to 60 in steps of 2.
    beads : int
        Fiducial beads, up to 1000.
    noise : float
        Gaussian noise: its standard deviation over the mean of the projection nearest to 0.
    dose : float
        Poisson noise: counts per pixel where the signal is that mean; 0: none.
    seed : int
        Chooses the specimen and the noise.

    Raises
    ------
    ValueError
        An argument is out of its range.
    """
    rows, columns = (whole("shape", n, 1, 32768) for n in shape)
    sections = whole("thickness", thickness, 1, 32768)
    beads = whole("beads", beads, 0, 1000)
    noise, dose = real("noise", noise, 0, 1e6), real("dose", dose, 0, 1e9)
    seed = whole("seed", seed, 0, 2**64 - 1)
    given = np.arange(-60, 61, 2) if angles is None else np.asarray(angles)
    degrees = check_angles(given, given.size)
    tilts = np.empty((len(degrees), rows, columns), np.float32)
    truth = np.empty((sections, rows, columns), np.float32)
    _core.make_phantom(tilts, degrees, truth, beads, noise, dose, seed)
    return Phantom(tilts, np.array(degrees, np.float32), truth)
