#!/usr/bin/env python3
"""Weighted back projection beside one in numpy.   usage: weighted.py TALVEN"""

import json
import os
import subprocess
import sys
import tempfile

import mrcfile
import numpy as np

TALVEN = sys.argv[1]


def run(*arguments):
    """Runs talven; returns what --json tells."""
    done = subprocess.run([TALVEN, *arguments, "--json"], check=True, capture_output=True)
    return json.loads(done.stdout)


def read(path):
    with mrcfile.open(path) as file:
        return file.data.astype(float)


WINDOWS = {
    "ramp": lambda f: np.ones_like(f),
    "shepp-logan": np.sinc,
    "cosine": lambda f: np.cos(np.pi * f),
    "hamming": lambda f: 0.54 + 0.46 * np.cos(2 * np.pi * f),
    "hann": lambda f: 0.5 + 0.5 * np.cos(2 * np.pi * f),
}


def weights(angles):
    """Half the gaps to the neighbours; views beside a missing wedge have one gap."""
    gaps = np.diff(angles)
    across = 180 - (angles[-1] - angles[0])
    ends = [across, across] if across <= 2 * gaps.max() else [gaps[0], gaps[-1]]
    return np.deg2rad((np.r_[ends[0], gaps] + np.r_[gaps, ends[1]]) / 2)


def back_project(stack, angles, thickness, shape):
    """Filtered back projection from the formula; views that miss a voxel do not count."""
    columns = stack.shape[2]
    n = np.fft.fftfreq(4096, 1 / 4096)
    kernel = np.where(n % 2, -1 / (np.pi * np.where(n == 0, 1, n)) ** 2, 0)
    kernel[0] = 0.25
    response = np.fft.rfft(kernel).real * shape(np.fft.rfftfreq(4096))
    rows = np.fft.irfft(np.fft.rfft(stack, 4096) * response, 4096)[..., :columns]
    z, x = np.mgrid[:thickness, :columns] - np.array([thickness - 1, columns - 1]).reshape(2, 1, 1) / 2
    total, hits = np.zeros((stack.shape[1], thickness, columns)), np.zeros((thickness, columns))
    for row, angle, weight in zip(rows, np.deg2rad(angles), weights(angles)):
        u = x * np.cos(angle) + z * np.sin(angle) + (columns - 1) / 2
        seen = (u >= 0) & (u <= columns - 1)
        left = np.clip(np.floor(u).astype(int), 0, columns - 2)
        part = u - left
        total += weight * seen * ((1 - part) * row[:, left] + part * row[:, left + 1])
        hits += seen
    return (total * len(angles) / np.maximum(hits, 1)).swapaxes(0, 1)


def difference(a, b):
    return np.linalg.norm(a - b) / np.linalg.norm(b)


def check(name, true):
    print(f"{'ok    ' if true else 'FAILED'} {name}")
    return bool(true)


def main():
    random = np.random.default_rng(5)
    full, wedge = np.arange(-90, 90, 1.5), np.arange(-60, 61, 2.0)
    uneven = np.sort(np.r_[-89, 89, random.uniform(-89, 89, 150)])
    good = True
    for name, angles, thickness in ("full", full, 96), ("wedge", wedge, 40), ("uneven", uneven, 96):
        run("phantom", name, "--size", "96,10", "--thickness", str(thickness), "--beads", "2")
        truth = read(f"{name}_truth.mrc")
        with mrcfile.new("volume.mrc", truth.astype("f4"), overwrite=True):
            np.savetxt("angles.txt", angles)
        run("reproject", "--volume", "volume.mrc", "--angles", "angles.txt", "-o", "stack.mrc")
        stack = read("stack.mrc")
        filters = [(["--filter", k], v) for k, v in WINDOWS.items()] + [
            (["--cutoff", "0.3,0.05"],
             lambda f: np.exp(-0.5 * (np.maximum(f - 0.3, 0) / 0.05) ** 2)),
            (["--sirt-like", "12"],
             lambda f: 1 - (1 - np.minimum(1, 1 / (thickness * np.maximum(f, 1e-9)))) ** 12),
        ]
        for options, shape in filters if name == "wedge" else filters[:1]:
            run("reconstruct", "--method", "wbp", "--tilts", "stack.mrc", "--angles", "angles.txt",
                "--thickness", str(thickness), "-o", "wbp.mrc", *options)
            got, expected = read("wbp.mrc"), back_project(stack, angles, thickness, shape)
            good &= check(f"{name} {' '.join(options)}: {difference(got, expected):.1e}",
                          difference(got, expected) < 2e-5)
        if name == "full":
            run("reconstruct", "--method", "wbp", "--tilts", "stack.mrc", "--angles", "angles.txt",
                "--thickness", "96", "-o", "wbp.mrc")
            flat = np.abs(truth - 1) < 1e-6  # matter, away from everything else
            for axis in range(3):
                flat &= np.roll(flat, 2, axis) & np.roll(flat, -2, axis)
            mean = read("wbp.mrc")[flat].mean()
            good &= check(f"uniform matter of 1: {mean:.4f} in {flat.sum()} voxels", abs(mean - 1) < 0.01)
    return 0 if good else 1


def main_in_folder(run_all):
    with tempfile.TemporaryDirectory() as folder:
        os.chdir(folder)
        return run_all()


if __name__ == "__main__":
    sys.exit(main_in_folder(main))
