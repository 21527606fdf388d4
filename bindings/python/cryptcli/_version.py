"""The version of the package: that of the project, whose C library it is made for."""

__version__ = "1.0.0"
