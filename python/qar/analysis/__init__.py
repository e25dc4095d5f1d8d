"""Calibrations, known lines, nuclides and the results of an analysis."""
