"""Data sources for scripts: parameters by name, failures as exceptions.

The functions of pyORV3 never raise; each one returns a status, 0 for success, alone or before its
result. The examples work through this small layer, which turns a failure into a `QarError` with
the status, so that no status is overlooked.
"""

import functools

import pyORV3

READ = 0x1
WRITE = 0x2
CREATE = 0x400

BAD_ARGUMENTS = 0xECE99D7D
NO_VALUE = {  # what the embedded library says where there is nothing to read
    0xEBE8810C,  # no such record
    0xEBE8810D,  # no such entry
    0xEBE88110,  # the parameter was never written
}


class QarError(Exception):
    """A call of pyORV3 that failed, with its status as an unsigned number."""

    def __init__(self, what, status):
        self.status = status & 0xFFFFFFFF
        super().__init__(f"{what}: status 0x{self.status:08X}")


def check(answer, what):
    """The result in the answer of a call, None where there is only a status."""
    status, result = answer if isinstance(answer, tuple) else (answer, None)
    if status != 0:
        raise QarError(what, status)
    return result


@functools.lru_cache(maxsize=None)
def describe(name):
    """What the dictionary says of a parameter: (name, description, code, class, type name)."""
    description = check(pyORV3.getParameterMetaData(0, 0, name), name)
    if description[2] == 0:  # not a parameter: a variable of the environment with this name
        raise QarError(name, BAD_ARGUMENTS)
    return description


def code_of(name):
    return describe(name)[2]


def polynomial(coefficients, x):
    """c1 + c2 x + c3 x^2 + ...: the form of every calibration in a file."""
    return sum(coefficient * x**power for power, coefficient in enumerate(coefficients))


def run_engine(engine, entry_point, source, options=0):
    check(
        pyORV3.executeNativeEngine(engine, entry_point, source.handle, options),
        f"{engine}.{entry_point}",
    )


class DataSource:
    """An open data source. Use it in a `with` statement, which saves and closes it.

    Where a class of records is meant, name any parameter of the class.
    """

    def __init__(self, path, mode=READ):
        self.path = str(path)
        status, self.handle = pyORV3.open(self.path, mode, 1, "")
        if status != 0:
            if mode & CREATE and self.handle:
                pyORV3.close(self.handle, 0)  # a failed creation leaves its handle
            raise QarError(self.path, status)

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.close()

    def close(self):
        if self.handle:
            check(pyORV3.close(self.handle, 0), f"closing {self.path}")
            self.handle = 0

    def flush(self):
        check(pyORV3.flush(self.handle), f"flushing {self.path}")

    def get(self, name, record=1, entry=1):
        return check(pyORV3.getParameter(self.handle, code_of(name), record, entry), name)

    def find(self, name, record=1, entry=1):
        """As get, but None where there is no value."""
        try:
            return self.get(name, record, entry)
        except QarError as error:
            if error.status in NO_VALUE:
                return None
            raise

    def set(self, name, value, record=1, entry=1):
        check(pyORV3.setParameter(self.handle, code_of(name), value, record, entry), name)

    def records(self, name):
        """How many records the class of the parameter has."""
        return check(pyORV3.count(self.handle, code_of(name), 0), f"records of {name}")

    def entries(self, name, record=1):
        """How many entries a record of the class of the parameter has."""
        return check(pyORV3.count(self.handle, code_of(name), record), f"entries of {name}")

    def column(self, name, record=1):
        """The values of a parameter in the entries of a record, up to the first without one."""
        values = []
        while True:
            value = self.find(name, record, len(values) + 1)
            if value is None:
                return values
            values.append(value)

    def set_column(self, name, values, record=1):
        for entry, value in enumerate(values, start=1):
            self.set(name, value, record, entry)

    def spectrum(self):
        return check(pyORV3.getSpectrum(self.handle, 0, 0), "spectrum")

    def set_spectrum(self, channels):
        """Makes the spectrum as long as the channels and writes them."""
        self.set("QAR_L_CHANNELS", len(channels))
        check(pyORV3.setSpectrum(self.handle, tuple(channels), 0, 0), "spectrum")
