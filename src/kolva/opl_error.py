"""The error type of the OPL front end."""

from __future__ import annotations


class OplError(ValueError):
    """An error in OPL model or data source, with its place.

    Attributes:
        msg: the message alone.
        filename: the file at fault, as it was given (``"<string>"`` for text).
        lineno: 1-based line number (0 when the error has no line).
        offset: 1-based column of the fault on that line, counted in bytes.
        text: the source line, without its line break ("" when unknown).

    ``str(err)`` is the whole compiler-style report:
    ``FILE:LINE:COL: error: MESSAGE``, the source line, and a caret.
    """

    def __init__(
        self,
        msg: str,
        filename: str = "<string>",
        lineno: int = 0,
        offset: int = 0,
        text: str = "",
        report: str | None = None,
    ) -> None:
        self.msg = msg
        self.filename = filename
        self.lineno = lineno
        self.offset = offset
        self.text = text
        self.report = report if report is not None else f"{filename}:{lineno}:{offset}: error: {msg}"
        super().__init__(self.report)

    def __str__(self) -> str:
        return self.report

    def __reduce__(self):
        return (type(self), (self.msg, self.filename, self.lineno, self.offset, self.text, self.report))
