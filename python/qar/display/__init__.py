"""Tables, plots and reports of spectra and results."""
