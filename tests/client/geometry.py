#!/usr/bin/env python3
"""What check-geometry finds with many options, and a voxel in numpy's words.   usage: geometry.py TALVEN"""

import math
import subprocess
import sys

import mrcfile
import numpy as np
from weighted import TALVEN, check, main_in_folder, read, run


def write_maps(path):
    """Views that lie on their sides, each a little turned, stretched and shifted."""
    with open(path, "w") as file:
        for i in range(41):
            turn, size = math.radians(84 + math.sin(i)), 1 + 0.02 * math.cos(i)
            c, s = size * math.cos(turn), size * math.sin(turn)
            file.write(f"{c:.6f} {s:.6f} {-s:.6f} {c:.6f} {30 * math.sin(2 * i):.2f} {5 * math.cos(i) - 20:.2f}\n")


def main():
    write_maps("a.xf")
    good = True
    for options, size, axes, mirrored in (
        ("", (96, 80, 48), "+X+Y+Z", False),
        ("--method wbp --tilt-axis 85.3 --bin 2 --orientation xzy", (80, 48, 96), "+X+Z+Y", True),
        ("--method bp --raw-size 97,83 --thickness 47 --flip-z", (97, 83, 47), "+X+Y-Z", True),
        ("--raw-size 291,251 --bin 3 --tilt-axis -94.2 --angle-offset 2 --shift-z 5", (83, 97, 48), "+X+Y+Z", False),
        ("--trim 60,51,33 --orientation xzy --flip-z --mode 1", (60, 33, 51), "+X-Z+Y", False),
        ("--method em --xf a.xf --bin 2 --tilt-axis 3", (80, 96, 48), "+X+Y+Z", False),
        ("--x-tilt -20 --shift-z 6 --tilt-axis 85.3 --bin 2 --flip-z", (80, 96, 48), "+X+Y-Z", True),
        ("--method wbp --tilt-axis 45 --width 130 --size 101,70 --shift-z -60", (130, 70, 48), "+X+Y+Z", False),
    ):
        told = run("check-geometry", *options.split())
        worst = max(math.dist(b["found"], b["expected"]) for b in told["balls"])
        good &= check(f"{options}: {worst:.3f}", abs(worst - told["worst_ball"]) < 1e-9 and worst < 0.05)
        good &= check(f"{told['axes']}", told["file_size"] == list(size) and "".join(told["axes"]) == axes
                      and told["mirrored"] == mirrored)
    said = subprocess.run([TALVEN, "check-geometry"], check=True, capture_output=True, text=True).stdout
    good &= check("words", "turns the near side, +Z, to the right, +X" in said
                  and "slice 0 is the far side, of the lowest z" in said and "(47.50, 39.50, 23.50)" in said)
    failed = subprocess.run([TALVEN, "check-geometry", "--trim", "20,40,40"], capture_output=True, text=True)
    good &= check("too little", failed.returncode == 1 and failed.stdout == ""
                  and failed.stderr == "talven: the balls need 32 voxels along X, not 20\n")

    volume = np.zeros((20, 2, 32), "f4")  # z, y, x
    volume[17, 0, 5] = volume[2, 1, 30] = 1
    with mrcfile.new("voxels.mrc", volume):
        np.savetxt("right.tlt", (0, 90, -90))
    run("reproject", "--volume", "voxels.mrc", "--angles", "right.tlt", "-o", "views.mrc")
    expected = np.zeros((3, 2, 32))
    for view, columns in enumerate(((5, 30), (23, 8), (8, 23))):  # 15.5 +- (z - 9.5)
        expected[view, (0, 1), columns] = 1
    error = np.abs(read("views.mrc") - expected).max()
    return 0 if good & check(f"voxels at 0, 90 and -90 degrees: {error:.1e}", error < 2e-5) else 1


if __name__ == "__main__":
    sys.exit(main_in_folder(main))
