#!/usr/bin/env python3
"""Forms of the volume and halves, read by an independent reader.   usage: forms.py TALVEN"""

import sys

import mrcfile
import numpy as np
from weighted import check, main_in_folder, read, run


def reconstruct(output, *options):
    run("reconstruct", "--tilts", "s.mrc", "--angles", "s.tlt", "--thickness", "30", "-o", output,
        *options)
    return read(output)


def main():
    run("phantom", "s", "--size", "50,12", "--thickness", "30", "--angles", "-90,87,3")
    sart = "--iterations", "3"
    whole = reconstruct("whole.mrc", *sart)
    got = reconstruct("cut.mrc", *sart, "--orientation", "xzy", "--flip-z", "--trim", "40,11,21")
    expected = whole[4:25][::-1, 0:11, 5:45].swapaxes(0, 1)
    good = check("turned, flipped and cut", np.array_equal(got, expected))
    with mrcfile.open("cut.mrc") as file:
        good &= check("cell", np.allclose(file.header.cella.tolist(), (400, 210, 110)))

    low, high = whole.min(), whole.max()
    for mode, numbers, scale in (0, 256, ()), (1, 65536, ()), (1, 65536, ("--scale", "0.2,0.6")):
        stored = reconstruct("scaled.mrc", *sart, "--mode", str(mode), *scale)
        first, last = (0.2, 0.6) if scale else (low, high)
        with mrcfile.open("scaled.mrc") as file:
            label = file.header.label[1].decode()
            good &= check(f"header of mode {mode}: {label}", mrcfile.validate("scaled.mrc"))
        offset, gain = (float(x) for x in label.split("number - ")[1].split(") / "))
        error = np.abs((stored - offset) / gain - whole.clip(first, last)).max()
        good &= check(f"mode {mode} {scale}: {error:.1e}", error < 0.51 * (last - first) / (numbers - 1))
        good &= check("all numbers", stored.min() == -numbers / 2 and stored.max() == numbers / 2 - 1)
    halves = reconstruct("half.mrc", *sart, "--mode", "12")
    good &= check("half precision", np.array_equal(halves, whole.astype(np.float16).astype(float)))

    order = np.random.default_rng(1).permutation(60)  # views in any order of angles
    for method in "sart", "wbp":
        stack, angles = read("s.mrc")[order], np.loadtxt("s.tlt")[order]
        with mrcfile.new("mixed.mrc", stack.astype("f4"), overwrite=True):
            np.savetxt("mixed.tlt", angles)
        options = ("--tilts", "mixed.mrc", "--angles", "mixed.tlt", "--thickness", "30", "--method", method)
        run("reconstruct", *options, "--halves", "even-odd", "--iterations", "2", "-o", "rec.mrc")
        rank = np.argsort(np.argsort(angles))
        parts = []
        for name, views in ("odd", rank % 2 == 0), ("even", rank % 2 == 1):
            parts.append(read(f"rec_{name}.mrc"))
            listed = ",".join(str(i + 1) for i in np.flatnonzero(views))
            run("reconstruct", *options, "--include", listed, "--iterations", "2", "-o", "own.mrc")
            error = np.abs(read("own.mrc") - parts[-1]).max()
            good &= check(f"{method}, {name} views: {error:.1e}", error <= (0 if method == "sart" else 2e-4))
    middle = np.s_[5:25, :, 10:40]  # in all views
    error = np.abs((parts[0] + parts[1]) / 2 - read("rec.mrc"))[middle].max()
    good &= check(f"mean of the halves: {error:.1e}", error < 5e-5)

    for name, factor in ("a", 0.5), ("b", 2):
        with mrcfile.new(f"{name}.st", (stack * factor).astype("f4"), overwrite=True):
            pass
    for extra in ("--unconstrained",), ("--tilt-axis", "3", "--method", "wbp"):
        options = ("--angles", "mixed.tlt", "--thickness", "30", "--iterations", "2") + extra
        run("reconstruct", "--tilts", "mixed.mrc", *options, "--halves", "a.st,b.st", "-o", "rec.mrc")
        for name in "ab":
            run("reconstruct", "--tilts", f"{name}.st", *options, "-o", "own.mrc")
            same = np.array_equal(read(f"rec_{name}.mrc"), read("own.mrc"))
            good &= check(f"frames {name}, {extra[0]}", same)
    return 0 if good else 1


if __name__ == "__main__":
    sys.exit(main_in_folder(main))
