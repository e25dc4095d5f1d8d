"""The built-in nuclide library."""
