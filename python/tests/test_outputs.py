"""Where volumes go: arrays, files, labels."""

from __future__ import annotations

from pathlib import Path

import h5py
import mrcfile
import ngff_zarr
import numpy as np
import pytest
import talven
import xarray
import zarr


def test_arrays_are_filled(
    tmp_path: Path, session: talven.Session, phantom: talven.Phantom, volume: np.ndarray
) -> None:
    shape = volume.shape
    chunked = {"shape": shape, "chunks": (10, 40, 64), "dtype": "float32"}
    targets = [
        np.empty(shape, np.float64, order="F"),
        zarr.create_array(tmp_path / "volume.zarr", **chunked),
        h5py.File(tmp_path / "volume.h5", "w").create_dataset("data", **chunked),
    ]
    for out in targets:
        result = session.reconstruct(phantom.tilts, phantom.angles, 24, iterations=3, out=out)
        assert result is out
        np.testing.assert_array_equal(out[:], volume)


def test_mrc_files(
    tmp_path: Path, session: talven.Session, phantom: talven.Phantom, volume: np.ndarray
) -> None:
    done = session.reconstruct(
        phantom.tilts,
        phantom.angles,
        24,
        iterations=3,
        out=tmp_path / "rec.mrc",
        pixel_size=2.5,
        halves="even-odd",
    )
    assert done.volume == tmp_path / "rec.mrc"
    assert done.halves == (tmp_path / "rec_odd.mrc", tmp_path / "rec_even.mrc")
    with mrcfile.open(done.volume) as file:
        np.testing.assert_array_equal(file.data, volume)
        assert file.voxel_size.x == pytest.approx(2.5)
    assert talven.io.Stack(done.halves[1]).shape == volume.shape


def test_an_independent_reader_opens_the_pyramid(tmp_path: Path, session: talven.Session) -> None:
    specimen = talven.phantom((101, 131), 66, [-20, 0, 20], beads=2)
    path = tmp_path / "rec.zarr"
    options = {"method": "bp", "pixel_size": 4.0}
    volume = session.reconstruct(specimen.tilts, specimen.angles, 66, **options)
    assert session.reconstruct(specimen.tilts, specimen.angles, 66, out=path, **options) == path
    images = ngff_zarr.from_ngff_zarr(str(path)).images
    assert [image.data.shape for image in images] == [(66, 101, 131), (33, 50, 65)]
    assert [image.scale["x"] for image in images] == [4.0, 8.0]
    assert images[1].translation["z"] == 2.0
    np.testing.assert_array_equal(np.asarray(images[0].data), volume)
    blocks = volume[:, :100, :130].reshape(33, 2, 50, 2, 65, 2).mean(axis=(1, 3, 5))
    np.testing.assert_allclose(np.asarray(images[1].data), blocks, rtol=1e-4, atol=1e-4)
    with pytest.raises(FileExistsError):
        session.reconstruct(specimen.tilts, specimen.angles, 66, out=path, **options)


def test_labels_in_and_out(
    session: talven.Session, phantom: talven.Phantom, volume: np.ndarray
) -> None:
    tilts = xarray.DataArray(
        phantom.tilts,
        dims=["view", "y", "x"],
        coords={"angle": ("view", phantom.angles), "x": np.arange(64) * 3.0},
    )
    labelled = session.reconstruct(tilts.transpose("y", "x", "view"), thickness=24, iterations=3)
    assert labelled.dims == ("z", "y", "x")
    np.testing.assert_array_equal(labelled.data, volume)
    assert float(labelled.z[2]) == 6.0
    assert len(labelled.attrs["rfactors"]) == 3
    projections = session.reproject(labelled, phantom.angles)
    assert projections.dims == ("view", "y", "x")
    assert float(projections.angle[0]) == -60
    assert session.reconstruct(projections, thickness=4, method="bp").shape == (4, 40, 64)
    with pytest.raises(ValueError, match="dimensions"):
        session.reconstruct(tilts.rename(view="time"), thickness=24)


def test_series_from_files(tmp_path: Path, phantom: talven.Phantom) -> None:
    path = tmp_path / "ts.mrc"
    talven.io.write_mrc(path, phantom.tilts, pixel_size=1.5)
    with pytest.raises(ValueError, match="no angles"):
        talven.io.read_tilt_series(path)
    talven.io.write_angles(tmp_path / "ts.tlt", phantom.angles)
    series = talven.io.read_tilt_series(path, angles=tmp_path / "ts.tlt")
    np.testing.assert_array_equal(series.tilts, phantom.tilts)
    np.testing.assert_array_equal(series.angles, phantom.angles)
    assert series.pixel_size == pytest.approx(1.5)
    lines = [
        f"[ZValue = {i}]\nTiltAngle = {angle}\nExposureDose = 2\n"
        for i, angle in enumerate(phantom.angles)
    ]
    (tmp_path / "ts.mdoc").write_text("PixelSpacing = 1.5\n" + "".join(lines))
    series = talven.io.read_tilt_series(path, mdoc=tmp_path / "ts.mdoc", lazy=True)
    np.testing.assert_array_equal(series.angles, phantom.angles)
    np.testing.assert_array_equal(series.tilts[3], phantom.tilts[3])
    assert list(series.prior_doses[:3]) == [0, 2, 4]
    with pytest.raises(OSError, match=r"nothing\.mrc"):
        talven.io.Stack("nothing.mrc")
    with pytest.raises(IndexError):
        talven.io.Stack(path)[21]
