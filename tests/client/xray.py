#!/usr/bin/env python3
"""X-ray scans from all kinds of files beside balls from the formula.   usage: xray.py TALVEN"""

import json
import os
import subprocess
import sys
import tempfile

import h5py
import mrcfile
import numpy as np
import tifffile

TALVEN = sys.argv[1]
COLUMNS, ROWS, AXIS = 96, 20, 50.3
ANGLES = np.arange(120) * 1.5  # the view at 180 degrees is not taken
# x, y, z from the centre of the volume, radius, absorption a voxel
BALLS = np.array([[14, 1, -9, 8, 0.02], [-18, -4, 6, 5, 0.03], [2, 6, 20, 2.5, 0.05]])
DEAD = 9, 31  # row from the top and column


def run(*arguments):
    """Runs talven; returns what --json tells, or the reason why not."""
    done = subprocess.run([TALVEN, *arguments, "--json"], capture_output=True, text=True)
    return json.loads(done.stdout) if done.returncode == 0 else done.stderr


def read(path):
    with mrcfile.open(path) as file:
        return file.data.astype(float)


def photograph():
    """Counts of a camera [angle][y][x] with the highest row first, flat and dark frames."""
    random = np.random.default_rng(3)
    u = np.arange(COLUMNS) - AXIS
    y = (ROWS - 1) / 2 - np.arange(ROWS)[:, None]
    views = np.zeros((len(ANGLES), ROWS, COLUMNS))
    for view, angle in zip(views, np.deg2rad(ANGLES)):
        for bx, by, bz, radius, absorption in BALLS:
            place = bx * np.cos(angle) + bz * np.sin(angle)
            half = radius**2 - (u - place) ** 2 - (y - by) ** 2
            view += absorption * 2 * np.sqrt(np.maximum(half, 0))
    dark = random.uniform(90, 110, (ROWS, COLUMNS))
    beam = 40000 * np.exp(-(u**2) / 60**2) * random.uniform(0.8, 1.2, (ROWS, COLUMNS))
    beam[DEAD] = 0
    frames = [np.repeat((dark + light)[None], 4, 0) for light in (beam, 0 * beam)]
    count = lambda stack: np.rint(random.normal(stack, 2)).astype("u2")
    return count(dark + beam * np.exp(-views)), *map(count, frames)


def write_all(views, flat, dark):
    """The scan in all kinds of files; returns the options for each."""
    def mrc(name, stack):
        with mrcfile.new(name, overwrite=True) as file:
            file.set_data(np.ascontiguousarray(stack[:, ::-1]))
        return name

    def folder(name, stack):
        os.mkdir(name)
        for i, image in enumerate(stack):
            tifffile.imwrite(f"{name}/img{i}.tif", image)
        return name

    np.savetxt("angles.txt", ANGLES)
    np.savetxt("3.txt", [1, 2, 3])
    with h5py.File("scan.h5", "w") as file:
        file.create_dataset("exchange/data", data=views, chunks=(7, 11, 50), compression="gzip")
        file["exchange/data_white"], file["exchange/data_dark"] = flat, dark.astype(">i4")
        file["exchange/theta"] = ANGLES + 360
        file["exchange/theta"].attrs["units"] = "degrees"
    tifffile.imwrite("pages.tif", views, byteorder=">", rowsperstrip=7, photometric="minisblack")
    tifffile.imwrite("tiles.tif", views.astype("f8"), tile=(16, 32), photometric="minisblack", bigtiff=True)
    tifffile.imwrite("flat.tif", flat.astype("i4"), photometric="minisblack")
    tifffile.imwrite("dark.tif", dark.astype("u1"), photometric="minisblack")
    frames = ["--flat", "flat.tif", "--dark", "dark.tif", "--angles", "angles.txt"]
    return {
        "HDF5": ["--tilts", "scan.h5"],
        "MRC": ["--tilts", mrc("scan.mrc", views), "--flat", mrc("flat.mrc", flat),
                "--dark", "scan.h5", "--angles", "angles.txt"],
        "TIFF, strips": ["--tilts", "pages.tif", *frames],
        "TIFF, tiles": ["--tilts", "tiles.tif", *frames],
        "TIFF, folder": ["--tilts", folder("views", views), *frames],
    }


def check(name, true):
    print(f"{'ok    ' if true else 'FAILED'} {name}")
    return bool(true)


def check_balls(volume):
    """Each ball is where it was, as large and as dense."""
    good = True
    z, y, x = (np.arange(n) - (n - 1) / 2 for n in volume.shape)
    z, y, x = np.meshgrid(z, y, x, indexing="ij")
    for bx, by, bz, radius, absorption in BALLS:
        near = volume * ((x - bx) ** 2 + (y - by) ** 2 + (z - bz) ** 2 < (radius + 2) ** 2)
        mass = near.sum() / (absorption * 4 / 3 * np.pi * radius**3)
        place = [(near * axis).sum() / near.sum() for axis in (x, y, z)]
        off = np.abs(np.subtract(place, (bx, by, bz))).max()
        good &= check(f"ball of {radius}: {off:.3f} away, mass {mass:.3f}",
                      off < 0.02 and abs(mass - 1) < 0.05)
    return good


def main():
    options = write_all(*photograph())
    job = ["reconstruct", "--method", "wbp", "--thickness", "60", "--minus-log", "-o", "rec.mrc"]
    found = run(*job, *options["HDF5"], "--centre", "auto")["stack"]["centre"]
    good = check(f"axis at {AXIS}: found at {found:.3f}", abs(found - AXIS) < 0.1)
    volumes = {}
    for name, files in options.items():
        told = run(*job, *files, "--centre", str(AXIS))
        good &= check(f"{name}: {told if isinstance(told, str) else 'done'}", isinstance(told, dict))
        volumes[name] = read("rec.mrc")
        good &= check(f"{name}: the same volume", np.array_equal(volumes[name], volumes["HDF5"]))
    good &= check_balls(volumes["HDF5"])

    return 0 if good & check_refusals(job, options["HDF5"]) & check_damage() else 1


def check_refused(reason, *arguments):
    told = run(*arguments)
    return check(f"{reason}: {str(told).strip()}", isinstance(told, str) and reason in told
                 and told.count("\n") == 1)


def check_refusals(job, files):
    """What cannot be done is said in one line."""
    np.savetxt("radians.txt", np.deg2rad(ANGLES))
    np.savetxt("wedge.txt", ANGLES / 2)
    tifffile.imwrite("line.tif", np.ones((1, 20), "f4"))
    good = True
    for reason, more in {
        "look like radians": ["--angles", "radians.txt", "--centre", "auto"],
        "no two views are half a turn apart": ["--angles", "wedge.txt", "--centre", "auto"],
        "column 96": ["--centre", "96"],
        "frames of 20 x 1": ["--flat", "line.tif"],
        "--angles is required": ["--tilts", "pages.tif"],
    }.items():
        good &= check_refused(reason, *job, *([] if "--tilts" in more else files), *more)

    image = np.ones((3, 4, 5), "f4")
    spoiled = np.where(np.arange(60).reshape(image.shape) == 27, np.nan, image)  # row 1 from the top
    radians = np.array([b"Radians "])
    for number, (reason, dataset, data, theta) in enumerate([
        ("without /exchange/data", "entry/data", image, None),
        ("no stack of images", "exchange/data", image[0, 0], None),
        ("no stack of images", "exchange/data", image[None], None),
        ("no stack of images", "exchange/data", np.array([[[b"text"]]]), None),
        ("section 2, column 3, row 3 is not", "exchange/data", spoiled, None),
        ("does not hold 3 angles", "exchange/data", image, ([1.0], "deg")),
        ("is in radians", "exchange/data", image, ([1.0, 2, 3], "rad")),
        ("is in radians", "exchange/data", image, ([1.0, 2, 3], radians)),
        ("nan is no angle", "exchange/data", image, ([1.0, np.nan, 3], "deg")),
    ]):
        name = f"bad{number}.h5"
        with h5py.File(name, "w") as file:
            file[dataset] = data
            if theta is not None:
                file["exchange/theta"], file["exchange/theta"].attrs["units"] = theta
        good &= check_refused(reason, *job, "--tilts", name, *([] if theta else ["--angles", "3.txt"]))
    with h5py.File("vast.h5", "w") as file:
        file.create_dataset("exchange/data", (1 << 20, 1 << 30, 1 << 30), "f4", chunks=(1, 9, 9))
    good &= check_refused("no size of a stack", "view", "vast.h5", "-o", "view.png")

    with tifffile.TiffWriter("sizes.tif") as file:
        file.write(np.ones((9, 9), "u1"))
        file.write(np.ones((8, 9), "u1"))
    for name, data in ("colours", np.ones((8, 9, 3), "u1")), ("halves", np.ones((8, 9), "f2")):
        tifffile.imwrite(f"{name}.tif", data)
    os.mkdir("empty")
    for reason, name in {"image 2 is 9 x 8": "sizes.tif", "with colours": "colours.tif",
                         "16 bits and kind 3": "halves.tif", "no TIFF files": "empty"}.items():
        good &= check_refused(reason, "view", name, "-o", "view.png")
    return good


def check_damage():
    """Files with wrong bytes and files cut short end in a picture or in one line."""
    random = np.random.default_rng(4)
    wrong = 0
    for name in ("scan.h5", "tiles.tif", "pages.tif"):
        with open(name, "rb") as file:
            whole = file.read()
        for attempt in range(40):
            data = bytearray(whole)
            places = random.integers(0, len(data) if attempt % 4 else 3000, 12)
            for place in places if attempt % 2 else places[:1]:
                data[place] = random.integers(256)
            with open("damaged", "wb") as file:
                file.write(data[:random.integers(len(data))] if attempt % 5 == 0 else data)
            done = subprocess.run([TALVEN, "view", "damaged", "-q", "-o", "view.png"], timeout=60,
                                  capture_output=True, text=True)
            wrong += done.returncode != 0 and (done.returncode, done.stderr.count("\n")) != (1, 1)
    return check(f"damaged files: {wrong} ended in another way", wrong == 0)


if __name__ == "__main__":
    with tempfile.TemporaryDirectory() as folder_of_run:
        os.chdir(folder_of_run)
        sys.exit(main())
