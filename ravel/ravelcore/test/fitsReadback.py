"""Reads the files that fitsReadbackWriter leaves with astropy and fitsverify, which know nothing of our library.

usage: fitsReadback.py WRITER FITSVERIFY
"""

import pathlib
import subprocess
import sys
import tempfile

import numpy
from astropy.io import fits

# file: (matrix name, rows, columns, with time stamps)
EXPECTED = {
    "matrix.fits": ("P2EDC", 3, 16, False),
    "column.fits": ("gains", 5, 1, False),
    "wide.fits": ("wide", 2, 5000, False),
    "compressed.fits.gz": ("packed", 4, 7, False),
    "recording.fits": ("modes_in", 90, 7, True),
    "scalar.fits": ("one", 4, 1, True),
    "replaced.fits": ("new", 1, 2, False),
    "modulation.fits": ("tone", 4, 6, False),
    "parameters.fits": ("offsets", 1, 600, False),
}


def expect(file, what, found, expected):
    if found != expected:
        sys.exit(f"{file}: expected {what} {expected!r}, found {found!r}")


def check(path, name, rows, cols, with_timestamps):
    def same(what, found, expected):
        expect(path.name, what, found, expected)

    with fits.open(path) as hdus:
        same("number of HDUs", len(hdus), 2)
        same("primary NAXIS", hdus[0].header["NAXIS"], 0)
        table = hdus[1]
        same("XTENSION", table.header["XTENSION"], "BINTABLE")
        same("EXTNAME", table.name, "TABLE_BINARY")
        same("extension version", table.ver, 1)
        same("NAXIS2", table.header["NAXIS2"], rows)
        same("row bytes", table.header["NAXIS1"], 4 * cols + (8 if with_timestamps else 0))
        names, formats, units = [name], [f"{cols}E"], [None]
        if with_timestamps:
            names, formats, units = ["Timestamps"] + names, ["1D"] + formats, ["s"] + units
        same("TFIELDS", table.header["TFIELDS"], len(names))
        for index, (column, form, unit) in enumerate(zip(names, formats, units), start=1):
            same(f"TTYPE{index}", table.header[f"TTYPE{index}"], column)
            same(f"TFORM{index}", table.header[f"TFORM{index}"], form)
            same(f"TUNIT{index}", table.header.get(f"TUNIT{index}") or None, unit)
        values = numpy.asarray(table.data[name], dtype=">f4").reshape(rows, cols)
        expected = (numpy.arange(rows * cols, dtype=numpy.float32) / 8).reshape(rows, cols)
        same("values as stored", bool((values == expected).all()), True)
        if with_timestamps:
            stamps = numpy.asarray(table.data["Timestamps"])
            same("time stamps as stored", bool((stamps == 1e9 + numpy.arange(rows) / 500).all()), True)


def main():
    writer, fitsverify = sys.argv[1:3]
    with tempfile.TemporaryDirectory(prefix="ravelcore-readback-") as directory:
        folder = pathlib.Path(directory)
        subprocess.run([writer, directory], check=True)
        expect(directory, "files", sorted(path.name for path in folder.iterdir()), sorted(EXPECTED))
        for file, (name, rows, cols, with_timestamps) in EXPECTED.items():
            check(folder / file, name, rows, cols, with_timestamps)
            verdict = subprocess.run([fitsverify, "-q", file], cwd=directory, capture_output=True, text=True)
            expect(file, "fitsverify's verdict", verdict.stdout.startswith("verification OK"), True)
            expect(file, "fitsverify's exit code", verdict.returncode, 0)
    print(f"{len(EXPECTED)} files are as they should be")


main()
