"""Analysis of a source: its results, nuclide libraries and calibrations."""
