"""The error raised for a model error: a fixed message naming what is wrong."""


class SemanticError(Exception):
    """A model error found while generating code; carries one message string."""
