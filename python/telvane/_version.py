"""The version of the package, which is that of the library."""

__version__ = "1.0.0"
