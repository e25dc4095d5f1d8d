"""The pages of `qar view` and the server that shows them on this machine."""
