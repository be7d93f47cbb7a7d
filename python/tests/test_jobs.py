"""Results: those of the command line, from whatever array."""

from __future__ import annotations

from collections.abc import Callable
from pathlib import Path
from typing import Any

import h5py
import mrcfile
import numpy as np
import pytest
import talven
import zarr


def read(path: Path) -> np.ndarray:
    with mrcfile.open(path) as file:
        return np.array(file.data)


@pytest.mark.parametrize(
    ("options", "arguments"),
    [
        ({"iterations": 3}, "--iterations 3"),
        (
            {"subsets": [5, 8, 8], "relaxation": [0.9, 0.5], "iterations": 2, "order": "given"},
            "--subset-sizes 5,8,8 --relaxation 0.9,0.5 --iterations 2 --order given",
        ),
        (
            {"nonnegative": False, "iterations": 2, "smooth": (0.7, 2), "width": 50},
            "--unconstrained --iterations 2 --smooth 0.7,2 --width 50",
        ),
        (
            {"method": "em", "iterations": 2, "views": range(2, 21)},
            "--method em --iterations 2 --exclude 1,2",
        ),
        (
            {"method": "wbp", "filter": talven.Filter("hann", 0.4, 0.05), "bin": 2},
            "--method wbp --filter hann --cutoff 0.4,0.05 --bin 2",
        ),
        (
            {"method": "bp", "tilt_axis": 3, "shift_z": 1.5, "x_tilt": 4, "angle_offset": 2},
            "--method bp --tilt-axis 3 --shift-z 1.5 --x-tilt 4 --angle-offset 2",
        ),
    ],
    ids=["sart", "subsets", "smoothed", "em", "wbp", "turned"],
)
def test_equals_the_command_line(
    tmp_path: Path,
    run: Callable[..., str],
    session: talven.Session,
    phantom: talven.Phantom,
    options: dict[str, Any],
    arguments: str,
) -> None:
    talven.io.write_mrc(tmp_path / "ts.mrc", phantom.tilts)
    talven.io.write_angles(tmp_path / "ts.tlt", phantom.angles)
    command = "reconstruct --tilts ts.mrc --angles ts.tlt --thickness 24 -o rec.mrc"
    run(*command.split(), *arguments.split())
    ours = session.reconstruct(phantom.tilts, phantom.angles, 24, **options)
    np.testing.assert_array_equal(ours, read(tmp_path / "rec.mrc"))


def test_a_raw_series_is_aligned_as_by_the_command_line(
    tmp_path: Path, run: Callable[..., str], session: talven.Session
) -> None:
    specimen = talven.phantom((48, 96), 24, np.arange(-60, 61, 4), beads=4)
    raw = specimen.tilts.copy()
    raw[7] = np.roll(raw[7], 3, axis=1)
    found = session.align(raw, specimen.angles, 24, axis=0, fixed_axis=True)
    bend = found.maps[1:-1, 0, 2] - (found.maps[:-2, 0, 2] + found.maps[2:, 0, 2]) / 2
    assert bend[6] == pytest.approx(-3, abs=0.3)
    assert np.abs(np.delete(bend, [5, 6, 7])).max() < 0.3
    assert found.correlation > 0.9

    found.save(tmp_path / "ts.xf")
    np.testing.assert_allclose(talven.Alignment.load(tmp_path / "ts.xf").maps, found.maps, 1e-6)
    talven.io.write_mrc(tmp_path / "raw.mrc", raw)
    talven.io.write_angles(tmp_path / "ts.tlt", specimen.angles)
    series = "--tilts raw.mrc --angles ts.tlt --thickness 24"
    run("align", *series.split(), *"--axis 0 --fixed-axis -o theirs.xf".split())
    assert (tmp_path / "theirs.xf").read_bytes() == (tmp_path / "ts.xf").read_bytes()
    run("reconstruct", *series.split(), *"--xf ts.xf --iterations 2 -o rec.mrc".split())
    options = {"thickness": 24, "iterations": 2}
    for alignment in (found, found.maps, tmp_path / "ts.xf"):
        ours = session.reconstruct(raw, specimen.angles, alignment=alignment, **options)
        np.testing.assert_array_equal(ours, read(tmp_path / "rec.mrc"))

    aligned = session.transform(raw, alignment=found)
    compared = session.compare(aligned[7:8], specimen.tilts[7:8], search=3)
    assert abs(compared.shift_x[0]) < 0.5
    assert compared.correlation[0] > 0.95
    noise = np.random.default_rng(1).normal(size=raw.shape)
    with pytest.raises(talven.Error, match="agree"):
        session.align(noise, specimen.angles, 24, axis=0, fixed_axis=True)


def arrays(tilts: np.ndarray, folder: Path) -> dict[str, Any]:
    """The same numbers, otherwise stored."""
    wide = np.zeros((len(tilts), 80, 128), np.float32)
    wide[:, ::2, ::2] = tilts
    mapped = np.memmap(folder / "tilts", np.float32, "w+", shape=tilts.shape)
    mapped[:] = tilts
    chunked = zarr.create_array(folder / "tilts.zarr", shape=tilts.shape, dtype="float32")
    chunked[:] = tilts
    h5py.File(folder / "tilts.h5", "w").create_dataset("data", data=tilts)
    talven.io.write_mrc(folder / "tilts.mrc", tilts)
    return {
        "double": tilts.astype(np.float64),
        "big-endian": tilts.astype(">f4"),
        "fortran": np.asfortranarray(tilts),
        "strided": wide[:, ::2, ::2],
        "reversed": tilts[::-1, ::-1].copy()[::-1, ::-1],
        "memory-mapped": mapped,
        "zarr": chunked,
        "hdf5": h5py.File(folder / "tilts.h5")["data"],
        "file": talven.io.Stack(folder / "tilts.mrc"),
        "integer": tilts.astype(np.int16),
    }


def test_any_array_will_do(
    tmp_path: Path, session: talven.Session, phantom: talven.Phantom
) -> None:
    tilts = np.round(phantom.tilts)
    options = {"thickness": 24, "iterations": 1}
    expected = session.reconstruct(tilts, phantom.angles, **options)
    for name, array in arrays(tilts, tmp_path).items():
        ours = session.reconstruct(array, list(phantom.angles), **options)
        np.testing.assert_array_equal(ours, expected, err_msg=name)


def test_parts_are_rows_of_the_whole(
    tmp_path: Path, session: talven.Session, phantom: talven.Phantom
) -> None:
    maps = np.tile([[0.998, -0.06, 1.2], [0.06, 0.998, -0.7]], (21, 1, 1))
    talven.io.write_mrc(tmp_path / "ts.mrc", phantom.tilts)
    file = talven.io.Stack(tmp_path / "ts.mrc")
    for options in ({"smooth": 0.5}, {"alignment": maps}, {"initial": phantom.truth}):
        whole = session.reconstruct(phantom.tilts, phantom.angles, 24, iterations=2, **options)
        for tilts in (phantom.tilts, file):
            part = session.reconstruct(
                tilts, phantom.angles, 24, iterations=2, rows=(11, 29), details=True, **options
            )
            np.testing.assert_array_equal(part.volume, whole[:, 11:29])
            assert part.rfactor_sums.shape == (2, 21, 2)


def test_nan_is_no_data(session: talven.Session, phantom: talven.Phantom) -> None:
    holes = phantom.tilts.copy()
    holes[:, 10:14, 20:26] = np.nan
    volume = session.reconstruct(holes, phantom.angles, 24, iterations=2)
    assert np.isfinite(volume).all()
    holes[np.isnan(holes)] = -1e30
    again = session.reconstruct(holes, phantom.angles, 24, iterations=2)
    np.testing.assert_array_equal(volume, again)
    shifted = session.transform(phantom.tilts[:2], matrices=[[1, 0, 5], [0, 1, 0]])
    assert np.isnan(shifted[:, :, 59:]).all()
    np.testing.assert_array_equal(shifted[:, :, :59], phantom.tilts[:2, :, 5:])


def test_details_and_halves(
    session: talven.Session, phantom: talven.Phantom, volume: np.ndarray
) -> None:
    whole = session.reconstruct(phantom.tilts, phantom.angles, 24, iterations=3, halves="even-odd")
    assert whole.method.startswith("SART, 3 iterations")
    assert len(whole.rfactors) == 3
    assert np.all(np.diff(whole.rfactors) < 0)
    assert len(whole.view_residuals) == len(whole.views) == 21
    np.testing.assert_array_equal(whole.volume, volume)
    odd = session.reconstruct(phantom.tilts[::2], phantom.angles[::2], 24, iterations=3, subsets=2)
    correlation = np.corrcoef(whole.halves[0].ravel(), odd.ravel())[0, 1]
    assert correlation > 0.98
    assert np.corrcoef(whole.halves[1].ravel(), odd.ravel())[0, 1] < correlation

    frames = session.reconstruct(
        phantom.tilts, phantom.angles, 24, iterations=3, halves=(phantom.tilts, 2 * phantom.tilts)
    )
    np.testing.assert_array_equal(frames.halves[0], volume)
    assert frames.halves[1].mean() == pytest.approx(2 * volume.mean(), rel=1e-3)


def test_a_volume_to_start_from(
    session: talven.Session, phantom: talven.Phantom, volume: np.ndarray
) -> None:
    options = {"thickness": 24, "subsets": 4}
    two = session.reconstruct(phantom.tilts, phantom.angles, iterations=2, **options)
    one = session.reconstruct(phantom.tilts, phantom.angles, iterations=1, **options)
    again = session.reconstruct(
        phantom.tilts, phantom.angles, iterations=1, initial=np.asfortranarray(one), **options
    )
    np.testing.assert_array_equal(again, two)
    projections = session.reproject(phantom.truth, phantom.angles, width=70)
    assert projections.shape == (21, 40, 70)
    np.testing.assert_allclose(projections[10, :, 3:67].sum(), phantom.tilts[10].sum(), rtol=0.01)


WRONG: list[tuple[str, dict[str, Any]]] = [
    ("array", {"tilts": [[1, 2], [3, 4]]}),
    ("shape", {"tilts": np.zeros((5, 6))}),
    ("real numbers", {"tilts": np.zeros((21, 4, 5), complex)}),
    ("angles: expected 21", {"angles": [1, 2, 3]}),
    ("angles", {"angles": None}),
    ("radians", {"angles": np.radians(np.arange(-60, 61, 6))}),
    ("degrees", {"angles": np.full(21, 400.0)}),
    ("thickness", {"thickness": 0}),
    ("method", {"method": "sirt"}),
    ("rows: 3:41", {"rows": (3, 41)}),
    ("iterations", {"iterations": 0}),
    ("iterations: expected a whole number", {"iterations": 2.5}),
    ("shift_z: expected a number", {"shift_z": "up"}),
    ("shape", {"shape": (3,)}),
    ("subsets: 22", {"subsets": 22}),
    ("subsets", {"subsets": [20, 2]}),
    ("relaxation", {"relaxation": [1, 2, 3]}),
    ("relaxation", {"relaxation": np.nan}),
    ("views", {"views": [21]}),
    ("views", {"views": np.zeros(20, bool)}),
    ("views", {"views": []}),
    ("filter", {"filter": "ramp"}),
    ("filter", {"filter": "wrong", "method": "wbp"}),
    ("smooth", {"smooth": (1.0, 3)}),
    ("initial", {"initial": np.zeros((3, 4, 5))}),
    ("alignment", {"alignment": np.zeros((20, 2, 3))}),
    ("weight_box", {"weight_box": (0, 0, 0, 1)}),
    ("halves", {"halves": "other"}),
    ("halves", {"halves": (np.zeros((2, 2, 2)), np.zeros((2, 2, 2)))}),
    ("out", {"out": np.zeros((1, 2, 3))}),
    ("out", {"out": "volume.tif"}),
    (r"2\^31", {"width": 2**30}),
]


@pytest.mark.parametrize(("text", "change"), WRONG)
def test_what_is_wrong_is_said_before_anything_is_sent(
    phantom: talven.Phantom, text: str, change: dict[str, Any]
) -> None:
    arguments = {"tilts": phantom.tilts, "angles": phantom.angles, "thickness": 24, **change}
    with pytest.raises((ValueError, TypeError), match=text):
        talven.reconstruct(**arguments, server="localhost:1")


def test_angles_within_pi_are_a_warning(session: talven.Session, phantom: talven.Phantom) -> None:
    with pytest.warns(UserWarning, match="not radians"):
        session.reconstruct(phantom.tilts[:4], [-1, 0, 1, 2], 8, method="bp")


def test_memory_estimate() -> None:
    estimate = talven.memory_estimate((61, 512, 512), 128)
    arrays = 4 * 512 * 512 * (61 + 128)
    assert arrays < estimate < 1.1 * arrays
    assert talven.memory_estimate((61, 512, 512), 128, smooth=True) > estimate + 4 * 512 * 512 * 127
