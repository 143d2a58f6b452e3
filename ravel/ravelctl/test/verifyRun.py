#!/usr/bin/python3
"""Checks the files that a run has left, with tools that know nothing of our libraries.

usage: verifyRun.py FOLDER
"""

import json
import pathlib
import subprocess
import sys

import numpy
from astropy.io import fits

SUMMARY_KEYS = {"cycles", "missed_cycles", "rate_hz", "modes", "workers", "seed", "cycle_time_us", "execution_time_us",
                "surface_rms_nm", "controlled_rms_nm", "edge_sensor_rms_nm", "gains", "files"}


def expect(condition, message):
    if not condition:
        sys.exit(f"verifyRun: {message}")


def check_recording(path, name, summary):
    verdict = subprocess.run(["fitsverify", "-q", path.name], cwd=path.parent, capture_output=True, text=True)
    expect(verdict.returncode == 0, f"fitsverify refuses {path}: {verdict.stdout}{verdict.stderr}")
    with fits.open(path) as hdus:
        columns = [(column.name, column.format, column.unit) for column in hdus[1].columns]
        expected = [("Timestamps", "1D", "s"), (name, f"{summary['modes']}E", None)]
        expect(columns == expected, f"{path}: expected columns {expected}, found {columns}")
        stamps, values = (numpy.array(hdus[1].data[column]) for column in ("Timestamps", name))
    expect(values.shape == (summary["cycles"], summary["modes"]), f"{path}: unexpected shape {values.shape}")
    expect(numpy.isfinite(values).all(), f"{path}: not every value is finite")
    error = numpy.abs(stamps - numpy.arange(len(stamps)) / summary["rate_hz"]).max()
    expect(error < 1e-9, f"{path}: time stamps are {error} s off the cycle period")
    return values


def check_references(folder, recordings, summary):
    """The loop takes the measured modes as references when it closes, and leads them to 0."""
    closing = summary["open_loop_cycles"]
    taken = (recordings["modes_ref"][closing] == recordings["modes_in"][closing]).all()
    expect(taken, f"{folder}: the references of cycle {closing} are not what was measured")
    expect(not recordings["modes_ref"][:closing].any(), f"{folder}: there are references before the loop closes")


def check_gains(folder, summary):
    for entry in summary["gains"]:
        gains = numpy.array(fits.getdata(folder / entry["file"], 1)["gains"])
        expect(gains.shape == (1, 10 * summary["modes"]), f"{entry['file']}: unexpected shape {gains.shape}")
        expect(numpy.isfinite(gains).all(), f"{entry['file']}: not every value is finite")


def main():
    folder = pathlib.Path(sys.argv[1])
    summary = json.loads((folder / "summary.json").read_text())
    expect(SUMMARY_KEYS <= summary.keys(), f"summary.json lacks {sorted(SUMMARY_KEYS - summary.keys())}")
    for file in summary["files"]:
        expect((folder / file).is_file(), f"summary.json names {file}, which is not there")
    recordings = {name: check_recording(folder / f"{name}.fits", name, summary)
                  for name in ("modes_in", "modes_out", "modes_ref", "modes_arw")}
    check_references(folder, recordings, summary)
    check_gains(folder, summary)
    ratio = summary["controlled_rms_nm"]["before"] / summary["controlled_rms_nm"]["after"]
    expect(ratio >= 20, f"the residual of the controlled modes fell {ratio:.1f}-fold only")
    print(f"verifyRun: {folder}: {summary['cycles']} cycles of {summary['modes']} modes, "
          f"residual {ratio:.0f} times less with the loop closed")


main()
