"""The one-line progress display of ``kolva solve`` on a terminal.

It shows the phase while the model is read and built, then, for a MIP, the
best bound, the incumbent and the gap as HiGHS finds them. It draws on
standard error, only when that is a terminal, and erases itself at the end,
so that nothing of it reaches a file or a pipe.
"""

from __future__ import annotations

import sys
import time
from typing import Optional, TextIO

from kolva.solve_highs import MipProgress

_MIN_INTERVAL = 0.2  # seconds between two redraws of the MIP line


class ProgressLine:
    """A status line redrawn in place (carriage return, erase to end of line)."""

    def __init__(self, stream: Optional[TextIO] = None, enabled: Optional[bool] = None):
        self.stream = stream if stream is not None else sys.stderr
        if enabled is None:
            isatty = getattr(self.stream, "isatty", None)
            enabled = bool(isatty and isatty())
        self.enabled = enabled
        self.shown = False
        self.last_draw = 0.0

    def _draw(self, text: str) -> None:
        if not self.enabled:
            return
        self.stream.write("\r\x1b[K" + text)
        self.stream.flush()
        self.shown = True

    def phase(self, text: str) -> None:
        """Show what is being done now (``reading``, ``building``, ``solving``)."""
        self._draw(f"kolva: {text}...")

    def mip(self, progress: MipProgress) -> None:
        """Show a MIP's bound, incumbent and gap (at most five times a second)."""
        now = time.monotonic()
        if now - self.last_draw < _MIN_INTERVAL:
            return
        self.last_draw = now
        self._draw(mip_progress_text(progress))

    def clear(self) -> None:
        """Erase the line, if it was ever drawn."""
        if self.enabled and self.shown:
            self.stream.write("\r\x1b[K")
            self.stream.flush()
            self.shown = False


def _value(value: Optional[float]) -> str:
    return "-" if value is None else f"{value:.10g}"


def mip_progress_text(progress: MipProgress) -> str:
    """``kolva: solving: bound B, incumbent I, gap G%, N nodes, S s``."""
    gap = "-" if progress.gap is None else f"{100 * progress.gap:.2f}%"
    return (
        f"kolva: solving: bound {_value(progress.best_bound)}, incumbent {_value(progress.incumbent)}, "
        f"gap {gap}, {progress.nodes} nodes, {progress.seconds:.1f} s"
    )
