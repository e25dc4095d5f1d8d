"""The command line and batches of files."""
