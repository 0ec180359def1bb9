"""The version of the package, that of the library."""

__version__ = "1.0.0"
