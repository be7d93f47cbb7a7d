#!/usr/bin/env python3
"""--dose-weight beside a filter in numpy.   usage: dosed.py TALVEN"""

import subprocess
import sys

import mrcfile
import numpy as np
from weighted import TALVEN, check, main_in_folder, read, run


def write_mdoc(path, *, pixel="PixelSpacing = 1.7", voltage="", doses=(3, 2.5, 4)):
    """Views that were taken in the order 2, 1, 3."""
    with open(path, "w") as file:
        file.write(f"{pixel}\n{voltage}\n\n[T = a microscope]\n")
        for i, dose in enumerate(doses):
            file.write(f"\n[ZValue = {i}]\nTiltAngle = 0\nExposureDose = {dose}\n"
                       f"DateTime = 05-Nov-20  15:{(21, 20, 22)[i]}:00\n")


def weigh(image, dose, pixel, factor):
    """exp(-N / (2 Nc)) of every frequency of an image, mirrored at its edges."""
    rows, columns = image.shape
    padded = np.pad(image, ((0, rows), (0, columns)), "symmetric")
    k = np.hypot(*np.meshgrid(np.fft.fftfreq(2 * rows, pixel), np.fft.rfftfreq(2 * columns, pixel), indexing="ij"))
    k[0, 0] = 1e-9
    critical = factor * (0.24499 * k**-1.6649 + 2.8141)
    return np.fft.irfft2(np.fft.rfft2(padded) * np.exp(-dose / (2 * critical)), padded.shape)[:rows, :columns]


def reconstruct(view, *options):
    """The view itself: a back projection into one slice."""
    run("reconstruct", "--tilts", "s.mrc", "--mdoc", "s.mdoc", "--include", str(view), "--thickness", "1",
        "--method", "bp", "-o", "out.mrc", *options)
    return read("out.mrc").squeeze()


def main():
    random = np.random.default_rng(3)
    stack = (1000 + random.normal(0, 100, (3, 122, 160)).cumsum(2)).astype("f4")
    stack += 1 - stack.min()
    with mrcfile.new("s.mrc", stack) as file:
        file.voxel_size = 1.7
    good = True
    for voltage, factor in ("", 1), ("Voltage = 300", 1), ("Voltage = 200", 0.8):
        write_mdoc("s.mdoc", voltage=voltage)
        for i, dose in enumerate((2.5 + 3 / 2, 2.5 / 2, 5.5 + 4 / 2)):
            plain, got = reconstruct(i + 1), reconstruct(i + 1, "--dose-weight")
            expected = weigh(stack[i].astype(float), dose, 1.7, factor)
            effect = np.abs(expected - plain).max()
            error = np.abs(got - expected).max() / effect
            good &= check(f"{voltage} view {i + 1}: {error:.1e} of the effect", error < 1e-3)
            good &= check("mean", abs(got.mean() / plain.mean() - 1) < 1e-4)
    got = reconstruct(3, "--dose-weight", "--bin", "2")
    error = np.abs(got - expected.reshape(61, 2, 80, 2).mean((1, 3))).max() / effect
    good &= check(f"before the bins: {error:.1e}", error < 1e-3)

    for mdoc, reason in (
        (None, "--dose-weight takes the doses from --mdoc"),
        ({"doses": (0, 0, 0)}, "--dose-weight: s.mdoc does not have the ExposureDose of every view"),
        ({"pixel": ""}, "--dose-weight: neither s.mdoc nor s.mrc has the pixel size"),
    ):
        options = ["--mdoc", "s.mdoc"] if mdoc is not None else ["--angles", "a.tlt"]
        np.savetxt("a.tlt", np.zeros(3))
        write_mdoc("s.mdoc", **(mdoc or {}))
        with mrcfile.open("s.mrc", "r+") as file:
            file.voxel_size = 1  # what programs write that know nothing
        failed = subprocess.run([TALVEN, "reconstruct", "--tilts", "s.mrc", *options, "--thickness", "9", "-o",
                                 "out.mrc", "--dose-weight"], capture_output=True, text=True)
        good &= check(failed.stderr.strip(), failed.returncode == 1 and failed.stderr == f"talven: {reason}\n")
    return 0 if good else 1


if __name__ == "__main__":
    sys.exit(main_in_folder(main))
