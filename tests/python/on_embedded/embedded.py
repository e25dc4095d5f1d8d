"""Shared code of the tests on the embedded library: codes and data sources."""

import pyORV3
import support

READ, WRITE, CREATE = 0x1, 0x2, 0x400
NUCLIDES, SPECTRUM = 0x2004, 0x2005

BAD_ARGUMENTS, UNKNOWN_EXCEPTION, NO_DATA_SOURCE = 0xECE99D7D, 0xECE99F6D, 0xECE99EA2
DAMAGED, NO_BLOCK = 0xECE99EA3, 0xEBE88102
FILE_NOT_FOUND, FILE_EXISTS, NAME_REFUSED = 0xEBE88106, 0xEBE88107, 0xEBE88108
UNKNOWN_CLASS, NO_SUCH_RECORD, NO_SUCH_ENTRY = 0xEBE8810B, 0xEBE8810C, 0xEBE8810D
SIZE_REFUSED, NOT_SET, UNKNOWN_ITEM, NOT_FOUND = 0xEBE8810E, 0xEBE88110, 0xEBE88112, 0xEBE88115
KEY_REFUSED = 0xEBE88116

EXAMPLES = support.PROJECT / "examples"


def code_of(name):
    return pyORV3.getParameterMetaData(0, 0, name)[1][2]


def status_of(answer):
    """Return the status of an answer as an unsigned number."""
    return (answer[0] if isinstance(answer, tuple) else answer) & 0xFFFFFFFF


class TestCase(support.TestCase):
    """A test in a separate folder; open sources are closed before the folder is deleted."""

    def path(self, name="measurement.qar"):
        return str(self.folder / name)

    def ok(self, answer):
        """Return the result of a call that must succeed."""
        self.assertEqual(f"0x{status_of(answer):08X}", "0x00000000")
        return answer[1] if isinstance(answer, tuple) else None

    def fails(self, status, answer):
        self.assertEqual(f"0x{status_of(answer):08X}", f"0x{status:08X}")

    def open(self, mode=READ, name="measurement.qar"):
        handle = self.ok(pyORV3.open(self.path(name), mode, 1, ""))
        self.addCleanup(pyORV3.close, handle, 0)
        return handle

    def create(self, name="measurement.qar"):
        return self.open(CREATE, name)

    def reopened(self, handle, name="measurement.qar", mode=READ | WRITE):
        """Close the source and open it again, so that it is read from the file."""
        self.ok(pyORV3.close(handle, 0))
        return self.open(mode, name)

    def get(self, handle, name, record=1, entry=1):
        return self.ok(pyORV3.getParameter(handle, code_of(name), record, entry))

    def set(self, handle, name, value, record=1, entry=1):
        self.ok(pyORV3.setParameter(handle, code_of(name), value, record, entry))

    def column(self, handle, name, record=None):
        """Return the values of a parameter in all records or in all entries of one record."""
        code = code_of(name)
        count = self.ok(pyORV3.count(handle, code, record or 0))
        cells = [(record, n) if record else (n, 1) for n in range(1, count + 1)]
        return [self.ok(pyORV3.getParameter(handle, code, *place)) for place in cells]

    def write_nuclides(self, handle, nuclides):
        """Write one record for each (name, line energies)."""
        for record, (name, energies) in enumerate(nuclides, start=1):
            self.set(handle, "QAR_C_NUCLNAME", name, record)
            for entry, energy in enumerate(energies, start=1):
                self.set(handle, "QAR_D_LINEENERGY", energy, record, entry)
