"""Types that several modules share."""

from __future__ import annotations

from collections.abc import Callable, Sequence
from dataclasses import dataclass
from os import PathLike
from typing import Any, Literal, TypeAlias

import numpy as np
from numpy.typing import NDArray

FloatArray: TypeAlias = NDArray[np.float32]
Doubles: TypeAlias = NDArray[np.float64]
PathOrName: TypeAlias = str | PathLike[str]
#: Anything with a shape, a dtype and images by index: numpy, zarr, h5py, dask, `talven.io.Stack`.
ImagesLike: TypeAlias = Any
AnglesLike: TypeAlias = Sequence[float] | NDArray[Any]
MethodName: TypeAlias = Literal["sart", "em", "wbp", "bp"]
WindowName: TypeAlias = Literal["ramp", "shepp-logan", "cosine", "hamming", "hann"]


@dataclass(frozen=True)
class Progress:
    """Where a job is.

    Attributes
    ----------
    phase : str
        ``"upload"``, ``"reconstructing"``, ``"download"``, ...
    done, total : int
        Images or iterations of the phase; `total` is 0 where nobody knows how long it takes.
    bytes_each : int
        Of an image; 0 where the phase moves none.
    note : str
        What there is to say, such as the R-factor so far.
    """

    phase: str
    done: int
    total: int
    bytes_each: int
    note: str


#: True: a bar (needs tqdm). A function is told a `Progress` and ends the job by returning False.
ProgressLike: TypeAlias = bool | Callable[[Progress], bool | None] | None
