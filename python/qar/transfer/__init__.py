"""Whole files: opening any format, dumps, salvage and dictionary extensions."""
