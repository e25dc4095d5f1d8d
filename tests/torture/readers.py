"""Read damaged and hostile spectrum files in every format: only clean errors, bounded work.

    readers.py [MUTANTS [SEED]]

MUTANTS (default 3000) files are made from sound ones of every format, and from the samples in
PYORV3_SPECTRA, by changes to bits, fields, numbers, parts, length and encoding. Each is read; a
spectrum that is accepted is also stored in a QAR file. A failure is an exception other than a
refusal in one line, an impossible spectrum, more than 2 s of processor time or 500 MB, or a file
that a refusal leaves behind.
"""

import io
import os
import pathlib
import re
import resource
import shutil
import struct
import sys
import time
import zipfile

import torture
from torture import Failed

sys.path[1:1] = [
    str(pathlib.Path(__file__).parents[1] / "python" / name) for name in ("", "exchange")
]

import support  # noqa: E402
import test_readers  # noqa: E402
from qar import errors, formats  # noqa: E402
from qar.values import MAX_CHANNELS, MAX_COUNT  # noqa: E402

SECONDS, MEGABYTES = 2, 500
MAX_SEED_BYTES = 200_000
BATCH = 100
FIELDS = (
    *(struct.pack("<h", number) for number in (0, 1, -1, 32767, -32768)),
    *(struct.pack("<i", number) for number in (0, -1, 2**31 - 1, -(2**31), 10**9)),
    *(struct.pack("<f", number) for number in (1e12, -1.0, 3e38, 1e-45, float("nan"))),
    *(b"\x81\x8d\x8f\x90", b"\xff" * 16, b"\0" * 16, b"\r\n", b"\x1b[31m", b"=1+1"),
)
NUMBERS = (b"1000000000000", b"1000000000", b"-1", b"nan", b"1e999", b"1e-4000", b"9" * 5000, b"")
ENCODINGS = ("utf-16", "utf-16-be", "utf-32", "utf-7", "cp500")


def write_seeds():
    """Return the contents of sound files of every format."""
    seeds = [content for _, content, *_ in test_readers.FILES]
    for name in ("a.spe", "a.n42", "a.csv", "a.txt"):
        formats.write(name, support.FULL)
        seeds.append(pathlib.Path(name).read_bytes())
    if "PYORV3_SPECTRA" in os.environ:
        folder = pathlib.Path(os.environ["PYORV3_SPECTRA"], "field", "formats")
        samples = [path.read_bytes() for path in sorted(folder.iterdir()) if path.suffix != ".json"]
        seeds += [sample for sample in samples if len(sample) <= MAX_SEED_BYTES]
    return seeds


# ---- Damage ----------------------------------------------------------------------------------------


def offset_in(data, random):
    """Return an offset, half of the time in the head of the file."""
    return random.randrange(1 + min(len(data), random.choice((512, len(data)))))


def flip_bits(data, random, seeds):
    changed = bytearray(data)
    for _ in range(random.randrange(1, 5)):
        changed[min(offset_in(data, random), len(data) - 1)] ^= 1 << random.randrange(8)
    return bytes(changed)


def set_field(data, random, seeds):
    offset, field = offset_in(data, random) & ~1, random.choice(FIELDS)
    return data[:offset] + field + data[offset + len(field) :]


def replace_number(data, random, seeds):
    numbers = list(re.finditer(rb"\d+", data))
    if not numbers:
        return set_field(data, random, seeds)
    start, end = random.choice(numbers).span()
    return data[:start] + random.choice(NUMBERS) + data[end:]


def cut(data, random, seeds):
    return data[: offset_in(data, random)]


def remove_part(data, random, seeds):
    offset = offset_in(data, random)
    return data[:offset] + data[offset + random.randrange(1, 300) :]


def repeat_part(data, random, seeds):
    offset = offset_in(data, random)
    part = data[offset : offset + random.randrange(1, 300)]
    return data[:offset] + part * random.choice((2, 3, 1000)) + data[offset + len(part) :]


def join(data, random, seeds):
    return cut(data, random, seeds) + random.choice(seeds)


def encode(data, random, seeds):
    return data.decode("latin-1").encode(random.choice(ENCODINGS), "replace")


def pack(data, random, seeds):
    file = io.BytesIO()
    with zipfile.ZipFile(file, "w") as archive:
        archive.writestr("spectrum", data[:1000])
    return file.getvalue()


CHANGES = 3 * (flip_bits, set_field, replace_number) + (
    *(cut, remove_part, repeat_part, join, encode, pack),
)


def mutant(random, seeds):
    """Return the content of a file and the names of the changes that made it."""
    content, names = random.choice(seeds), []
    for _ in range(random.choice((1, 1, 2, 3))):
        change = random.choice(CHANGES)
        content = change(content, random, seeds) or b"\0"
        names.append(change.__name__)
    return content, names


# ---- Checks ----------------------------------------------------------------------------------------


def is_possible(measurement):
    counts, times = measurement.counts, (measurement.live_time, measurement.real_time)
    return (
        1 <= len(counts) <= MAX_CHANNELS
        and all(type(count) is int and 0 <= count <= MAX_COUNT for count in counts)
        and all(value is None or 0 <= value < 1e300 for value in times)
        and all(abs(value) < 1e300 for value in measurement.energy + measurement.shape)
    )


def try_file(content):
    """Read a file and store its spectra; raise Failed for everything but a clean refusal."""
    pathlib.Path("mutant").write_bytes(content)
    start = time.process_time()
    try:
        measurements = formats.read("mutant")
        if not measurements or not all(map(is_possible, measurements)):
            raise Failed("an impossible spectrum is accepted")
        for measurement in measurements[:3]:
            formats.write("copy.qar", measurement, replace=True)
    except (formats.FormatError, errors.QarError) as refusal:
        if not str(refusal).isprintable() or len(str(refusal)) > 500:
            raise Failed("the refusal is not a short line: %.600r" % str(refusal)) from refusal
    if time.process_time() - start > SECONDS:
        raise Failed("reading takes more than %d s" % SECONDS)
    if set(os.listdir(".")) - {"mutant", "copy.qar", "failed"}:
        raise Failed("a file is left behind: %s" % os.listdir("."))


def try_files(mutants):
    """Try each file; keep the content of the first one that fails as "failed"."""
    used = int(pathlib.Path("/proc/self/statm").read_text().split()[0]) * resource.getpagesize()
    resource.setrlimit(resource.RLIMIT_AS, 2 * (used + (MEGABYTES << 20),))
    for content, names in mutants:
        pathlib.Path("failed").write_bytes(content)
        try:
            try_file(content)
        except BaseException as failure:
            raise Failed("%s: %r" % (", ".join(names), failure)) from failure


def main():
    mutants, random = torture.arguments([3000, 1])
    failed = 0
    with torture.folder() as folder:
        os.chdir(folder)
        seeds = write_seeds()
        for path in os.listdir("."):
            os.remove(path)
        for start in range(0, mutants, BATCH):
            batch = [mutant(random, seeds) for _ in range(min(BATCH, mutants - start))]
            failure = torture.failure_of(lambda batch=batch: try_files(batch))
            if failure is not None:
                failed += 1
                kept = "/tmp/readers-%d-%d.bin" % (os.getpid(), failed)
                shutil.move("failed", kept)
                print("FAILED %s; the file is %s" % (failure, kept))
    print("tried %d files for the readers of spectra\n%d failed" % (mutants, failed))
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
