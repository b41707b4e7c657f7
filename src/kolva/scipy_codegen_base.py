"""Base type of the code generators; it carries no behaviour of its own."""


class SciPyCodeGeneratorBase:
    """Marker base class of the SciPy code generators."""
