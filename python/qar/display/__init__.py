"""Presentation of spectra and results: tables, plots, reports and notebook views."""
