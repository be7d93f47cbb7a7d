"""Raw tilt series whose alignment is known, and how images lie, for align-benchmark.

Arrays are [view][y][x] with y upwards, places (x, y) in pixels from the centre (n - 1) / 2 of an image.
A map tells where a pixel of a raw view lies in the aligned one, as in an .xf file: aligned = A raw + D.
"""

import math
import subprocess
from dataclasses import dataclass
from pathlib import Path

import mrcfile
import numpy as np


@dataclass
class Series:
    name: str
    folder: Path
    clean: np.ndarray  # raw views without noise
    views: np.ndarray  # raw views
    aligned: np.ndarray  # what the raw views were made of, without noise, of the same size
    angles: np.ndarray  # degrees
    matrix: np.ndarray  # A of all views
    moves: np.ndarray  # D of each, [view][2]
    axis: float  # from +Y of the raw views to the tilt axis, degrees, counterclockwise
    thickness: int
    truth: Path | None = None  # volume

    def file(self, kind):
        return self.folder / f"{self.name}{kind}"

    def write(self):
        """NAME.mrc, NAME.tlt and the true NAME_true.xf."""
        write_stack(self.file(".mrc"), self.views)
        np.savetxt(self.file(".tlt"), self.angles, "%.4f")
        write_xf(self.file("_true.xf"), self.matrix, self.moves)


def read_stack(path):
    with mrcfile.open(path, permissive=True) as file:
        return np.array(file.data, "f4")


def write_stack(path, views):
    with mrcfile.new(path, views.astype("f4"), overwrite=True) as file:
        file.set_image_stack()


def write_xf(path, matrix, moves):
    np.savetxt(path, [[*matrix.ravel(), *move] for move in moves], "%.9f")


def turn(degrees):
    """Matrix of a turn, counterclockwise."""
    c, s = math.cos(math.radians(degrees)), math.sin(math.radians(degrees))
    return np.array([[c, -s], [s, c]])


def places(rows, columns):
    """Of all pixels of an image, shape [2][rows][columns]."""
    return np.stack(np.meshgrid(np.arange(columns) - (columns - 1) / 2, np.arange(rows) - (rows - 1) / 2))


def middle(views, shape):
    rest = np.array(views.shape[-2:]) - shape
    assert (rest >= 0).all() and (rest % 2 == 0).all(), "an odd rest would be half a pixel off"
    rows, columns = rest // 2
    return views[..., rows : rows + shape[0], columns : columns + shape[1]]


def interpolate(image, at):
    """Values of the cubic B-spline through the pixels at places [2][...]; 0 outside the image."""
    border = 16  # the coefficients fall to a quarter with every pixel
    image = np.pad(image.astype("f8"), border)
    rows, columns = image.shape

    def spectrum(frequencies):
        return (2 + np.cos(2 * np.pi * frequencies)) / 3

    filtered = np.fft.rfft2(image) / np.outer(spectrum(np.fft.fftfreq(rows)), spectrum(np.fft.rfftfreq(columns)))
    coefficients = np.fft.irfft2(filtered, image.shape).ravel()

    def taps(place, extent):
        place = np.clip(place + (extent - 1) / 2, 2, extent - 4)
        first = np.floor(place).astype(int)
        t = place - first
        return first - 1, ((1 - t) ** 3 / 6, (4 - 6 * t**2 + 3 * t**3) / 6,
                           (4 - 6 * (1 - t) ** 2 + 3 * (1 - t) ** 3) / 6, t**3 / 6)

    (x, across), (y, along) = taps(at[0], columns), taps(at[1], rows)
    first = y * columns + x
    return sum(along[j] * sum(across[i] * coefficients[first + j * columns + i] for i in range(4)) for j in range(4))


def shifted(image, move, border=32):
    """The image moved by (x, y), by its Fourier transform; what lies outside goes over from the
    values at the edge to the median of the rim, so that nothing comes in from the other side."""
    image = image.astype("f8")
    rim = np.median(np.concatenate((image[0], image[-1], image[:, 0], image[:, -1])))
    weight, padding = [], []
    for extent in image.shape:
        after = border + (extent + 1) % 2  # an odd length has no Nyquist frequency
        ramp = 0.5 + 0.5 * np.cos(np.pi * np.arange(1, after + 1) / after)
        padding.append((border, after))
        weight.append(np.concatenate((ramp[:border][::-1], np.ones(extent), ramp)))
    padded = (np.pad(image, padding, mode="edge") - rim) * np.outer(*weight)
    phase = np.outer(np.exp(-2j * np.pi * move[1] * np.fft.fftfreq(padded.shape[0])),
                     np.exp(-2j * np.pi * move[0] * np.fft.rfftfreq(padded.shape[1])))
    padded = np.fft.irfft2(np.fft.rfft2(padded) * phase, padded.shape) + rim
    return padded[border : border + image.shape[0], border : border + image.shape[1]]


def random_moves(views, sigma, outliers, length, rng):
    """Of the specimen in the raw views: normal in x and y, and some views far off besides."""
    moves = rng.normal(0, sigma, (views, 2))
    far = rng.choice(views, outliers, replace=False)
    direction = rng.uniform(0, 2 * np.pi, outliers)
    moves[far] += length * np.stack((np.cos(direction), np.sin(direction)), 1)
    return moves


def record(clean, mean, noise, dose, rng):
    """Noise as `talven phantom` makes it: counts of a dose in units of the signal, or a Gaussian."""
    if dose:
        return rng.poisson(np.maximum(clean, 0) * (dose / mean)) / (dose / mean)
    return clean + noise * mean * rng.standard_normal(clean.shape)


def make_phantom(talven, folder, size, thickness, angles):
    """Prefix of a phantom's files, which are kept from one run to the next."""
    prefix = folder / f"phantom_{size[0]}x{size[1]}x{thickness}_{angles}"
    if not Path(f"{prefix}_truth.mrc").exists() or not Path(f"{prefix}.tlt").exists():
        subprocess.run([talven, "phantom", prefix, "--size", f"{size[0]},{size[1]}", "--thickness", str(thickness),
                        f"--angles={angles}", "--beads", "0", "--quiet"], check=True)
    return prefix


def simulate(talven, folder, name, *, size=(512, 256), field=None, thickness=128, angles="-60,60,2", noise=0.0,
             dose=0.0, sigma=5.0, outliers=4, length=20.0, axis=3.5, seed=1):
    """A series of a phantom. Its views are turned by the tilt axis, moved and cut to the field in one
    interpolation. The specimen ends within `size`, so that nothing is missing outside."""
    prefix = make_phantom(talven, folder, size, thickness, angles)
    whole = read_stack(f"{prefix}.mrc")
    rim = max(np.abs(whole[:, (0, -1)]).max(), np.abs(whole[:, :, (0, -1)]).max())
    assert rim == 0, f"{prefix}.mrc: the specimen reaches the edge"
    degrees = np.loadtxt(f"{prefix}.tlt")
    shape = (field or size)[::-1]
    matrix = turn(-axis)
    moves = -random_moves(len(whole), sigma, outliers, length, np.random.default_rng([seed, 1])) @ matrix.T
    straight = np.tensordot(matrix, places(*shape), 1)
    clean = np.stack([interpolate(view, straight + move[:, None, None]) for view, move in zip(whole, moves)])
    aligned = middle(whole, shape)
    mean = aligned[np.abs(degrees).argmin()].mean()
    series = Series(name, folder, clean, record(clean, mean, noise, dose, np.random.default_rng([seed, 2])), aligned,
                    degrees, matrix, moves, axis, thickness, Path(f"{prefix}_truth.mrc"))
    series.write()
    return series


def shift_measured(source, folder, name, thickness, *, most=90.0, sigma=3.0, outliers=3, length=10.0, seed=1):
    """A series of measured views that are aligned already (tilts.mrc, angles.tlt), moved again."""
    degrees = np.loadtxt(source / "angles.tlt", ndmin=1)
    used = np.abs(degrees) <= most
    aligned, degrees = read_stack(source / "tilts.mrc")[used], degrees[used]
    moves = random_moves(len(aligned), sigma, outliers, length, np.random.default_rng([seed, 3]))
    clean = np.stack([shifted(view, move) for view, move in zip(aligned, moves)])
    series = Series(name, folder, clean, clean, aligned, degrees, np.eye(2), -moves, 0.0, thickness)
    series.write()
    return series


def mismatch(image, wanted, mask):
    """Where an image lies against another one: x, y (pixels), turn (degrees), relative RMS difference."""
    slope_y, slope_x = np.gradient(wanted.astype("f8"))
    x, y = places(*wanted.shape)
    columns = [c[mask] for c in (-slope_x, -slope_y, slope_x * y - slope_y * x)]
    difference = (image - wanted)[mask]
    moved = np.linalg.lstsq(np.stack(columns, 1), difference, rcond=None)[0]
    return (*moved[:2], math.degrees(moved[2]), np.sqrt((difference**2).mean() / (wanted[mask] ** 2).mean()))


def best_correlation(volume, truth, reach=32):
    """Correlation with the truth where it fits best: aligned views do not tell where a specimen lay."""
    volume, truth = volume - volume.mean(), truth - truth.mean()
    spectrum = np.fft.rfftn(truth)
    matches = np.fft.irfftn(np.fft.rfftn(volume) * spectrum.conj(), volume.shape)
    near = np.ix_(*(np.arange(-min(reach, n // 2), min(reach, n // 2)) for n in volume.shape))
    peak = np.unravel_index(matches[near].argmax(), matches[near].shape)
    peak = [int(index.ravel()[i]) for index, i in zip(near, peak)]
    shift = []
    for i, at in enumerate(peak):  # the vertex of a parabola
        low, mid, high = (matches[tuple(p + d * (k == i) for k, p in enumerate(peak))] for d in (-1, 0, 1))
        shift.append(at + 0.5 * (low - high) / (low - 2 * mid + high))
    for i, (distance, n) in enumerate(zip(shift, truth.shape)):
        frequencies = np.fft.fftfreq(n) if i < 2 else np.fft.rfftfreq(n)
        spectrum *= np.exp(-2j * np.pi * distance * frequencies).reshape([-1 if k == i else 1 for k in range(3)])
    truth = np.fft.irfftn(spectrum, truth.shape)
    return float((volume * truth).sum() / np.sqrt((volume**2).sum() * (truth**2).sum())), shift[::-1]
