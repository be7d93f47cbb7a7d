"""How a job is followed."""

from __future__ import annotations

from collections.abc import Callable
from typing import Any

from ._types import Progress, ProgressLike

Teller = Callable[[str, int, int, int, str], bool | None]


def teller(progress: ProgressLike) -> Teller | None:
    """What the core calls, or None where nobody wants to know."""
    if progress is None or progress is False:
        return None
    tell = _Bars().tell if progress is True else progress

    def told(phase: str, done: int, total: int, bytes_each: int, note: str) -> bool | None:
        return tell(Progress(phase, done, total, bytes_each, note))

    return told


class _Bars:
    """A bar for each phase."""

    def __init__(self) -> None:
        try:
            from tqdm.auto import tqdm
        except ImportError as error:
            raise ImportError("progress=True needs tqdm: pip install tqdm") from error
        self._tqdm: Any = tqdm
        self._bar: Any = None

    def tell(self, progress: Progress) -> None:
        if progress.done == 0:
            self._close()
            if progress.total > 0:
                self._bar = self._tqdm(total=progress.total, desc=progress.phase)
        if self._bar is None:
            return
        if progress.note:
            self._bar.set_postfix_str(progress.note)
        self._bar.update(progress.done - self._bar.n)
        if progress.done == progress.total:
            self._close()

    def _close(self) -> None:
        if self._bar is not None:
            self._bar.close()
        self._bar = None
