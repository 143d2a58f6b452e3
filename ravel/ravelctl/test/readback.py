"""Reads the matrices, a modulation, and the files of runs of one and of two workers, with tools that know nothing of our libraries; and a file of
theirs with ours.

verifyRun.py, beside this file, checks each run; the rest is what needs to know how the run was made.

usage: readback.py RAVELCTL MATRICES FITSVERIFY [report.html, where RAVELCTL writes it]
"""

import json
import pathlib
import subprocess
import sys
import tempfile

import numpy
from astropy.io import fits

MODES = 30
RATE_HZ = 250
CYCLES = 200
NUM_MODES = 2390
NUM_PACT = 2394
NUM_ES = 4788
NUM_SEGMENTS = 798
MODE_FILES = ["modes_in.fits", "modes_out.fits", "modes_ref.fits", "modes_arw.fits"]
MATRICES = {"P2EDC": (NUM_MODES, NUM_ES), "PACT2MODES": (NUM_MODES, NUM_PACT), "MODES2PACT": (NUM_PACT, NUM_MODES)}


def expect(where, what, found, expected):
    if found != expected:
        sys.exit(f"{where}: expected {what} {expected!r}, found {found!r}")


def check_fits(fitsverify, path):
    # By its bare name: the tool takes brackets in a path for a selection.
    verdict = subprocess.run([fitsverify, "-q", path.name], cwd=path.parent, capture_output=True, text=True)
    expect(path, "fitsverify's verdict", verdict.stdout.startswith("verification OK"), True)
    expect(path, "fitsverify's exit code", verdict.returncode, 0)


def read_table(path, columns):
    """The columns' values; `columns`: (name, format, unit)."""
    with fits.open(path) as hdus:
        expect(path, "number of HDUs", len(hdus), 2)
        table = hdus[1]
        expect(path, "EXTNAME", table.name, "TABLE_BINARY")
        found = [(column.name, column.format, column.unit) for column in table.columns]
        expect(path, "columns", found, columns)
        return [numpy.array(table.data[name]) for name, _, _ in columns]


def check_run(folder, workers):
    subprocess.run([sys.executable, "-B", pathlib.Path(__file__).with_name("verifyRun.py"), folder], check=True)
    files = sorted(path.name for path in folder.iterdir())
    expect(folder, "files", files, sorted(MODE_FILES + ["gains.fits", "config.toml", "summary.json"] + sys.argv[4:]))
    summary = json.loads((folder / "summary.json").read_text())
    expect(folder, "files in the summary", sorted(summary["files"]), files)
    for key, value in {"cycles": CYCLES, "rate_hz": RATE_HZ, "modes": MODES, "workers": workers, "seed": 7}.items():
        expect(folder, key, summary[key], value)
    for key in ("cycle_time_us", "execution_time_us"):
        times = [summary[key][order] for order in ("min", "p50", "p99", "p999", "max")]
        expect(folder, f"{key} in ascending order", times, sorted(times))
    # The summary's figure again, from the recording: the modes as measured are the truth but for the sensors' noise.
    modes = fits.getdata(folder / "modes_in.fits", 1)["modes_in"][: summary["open_loop_cycles"]].astype(float)
    open_rms = 1e3 * numpy.sqrt((modes**2).sum(axis=1).mean() / NUM_PACT)
    before = summary["controlled_rms_nm"]["before"]
    expect(folder, f"modes of {before} nm rms before", abs(open_rms - before) < 0.01 * before, True)


def check_frames(ravelctl, matrices, fitsverify, folder):
    """A run that records the front end's frames, one in two cycles, and a modulation."""
    command = [ravelctl, "run", "--quiet", "--as-fast-as-possible", "--matrices", matrices, "--output", str(folder)]
    command += ["--modes", str(MODES), "--workers", "2", "--rate", str(RATE_HZ), "--duration", str(CYCLES / RATE_HZ)]
    command += ["--record", "modes,es,pact", "--record-decimation", "2"]
    subprocess.run(command, check=True)
    rows = CYCLES // 2
    frames = {}
    for name, size in (("es", 18), ("pact", 6)):
        path = folder / f"{name}.fits"
        check_fits(fitsverify, path)
        stamps, values = read_table(path, [("Timestamps", "1D", "s"), (name, f"{NUM_SEGMENTS * size}E", None)])
        expect(path, "shape", values.shape, (rows, NUM_SEGMENTS * size))
        expect(path, "time stamps", numpy.abs(stamps - (2 * numpy.arange(rows) + 1) / RATE_HZ).max() < 1e-9, True)
        frames[name] = values.reshape(rows, NUM_SEGMENTS, size)
    # The modes again, by other means: the sensors' readings are the first 6 values of each segment.
    p2edc = fits.getdata(pathlib.Path(matrices) / "P2EDC.fits", 1)["P2EDC"][:MODES].astype(float)
    readings = frames["es"][:, :, :6].reshape(rows, NUM_ES).astype(float)
    modes = fits.getdata(folder / "modes_in.fits", 1)["modes_in"]
    error = numpy.abs(readings @ p2edc.T - modes).max() / numpy.abs(modes).max()
    expect(folder, f"modes as the recorded readings give them (error {error})", error < 1e-4, True)
    expect(folder, "positions that move", float(numpy.ptp(frames["pact"][:, :, :3], axis=0).max()) > 0.01, True)


def check_replay(ravelctl, fitsverify, run, path):
    """What the channels of a run would have done with other gains, and where they would not."""
    command = [ravelctl, "replay", str(run), "--set", "kp=0.3", "--modes", "3-5", "--output", str(path)]
    subprocess.run(command, check=True, capture_output=True)
    check_fits(fitsverify, path)
    columns = [("Timestamps", "1D", "s"), ("modes_out", f"{MODES}E", None)]
    stamps, values = read_table(path, columns)
    recorded_stamps, recorded = read_table(run / "modes_out.fits", columns)
    expect(path, "the recording's time stamps", bool((stamps == recorded_stamps).all()), True)
    changed = numpy.flatnonzero((values != recorded).any(axis=0))
    expect(path, "modes that change", changed.tolist(), [3, 4, 5])


def check_modulation(ravelctl, fitsverify, path):
    command = [ravelctl, "make-modulation", "sine", "--output", str(path), "--modes", str(MODES), "--on", "3"]
    subprocess.run(command + ["--rate", "250", "--duration", "1", "--frequency", "5"], check=True, capture_output=True)
    check_fits(fitsverify, path)
    with fits.open(path) as hdus:
        expect(path, "columns", [column.format for column in hdus[1].columns], [f"{MODES}E"])
        values = numpy.array(hdus[1].data.field(0))
    sine = 0.1 * numpy.sin(2 * numpy.pi * 5 * numpy.arange(250) / 250)
    expect(path, "a sine on mode 3", numpy.abs(values[:, 3] - sine).max() < 1e-7, True)
    expect(path, "nothing on the other modes", not numpy.delete(values, 3, axis=1).any(), True)


def check_inspect(ravelctl, path, name):
    """What inspect says of a recording, against the same from the file itself."""
    with fits.open(path) as hdus:
        stamps = numpy.array(hdus[1].data["Timestamps"])
        values = numpy.array(hdus[1].data[name])
    command = [ravelctl, "inspect", str(path)]
    found = subprocess.run(command + ["--json", "--statistics"], check=True, capture_output=True, text=True)
    facts = json.loads(found.stdout)["files"][0]
    expect(path, "rows and columns", (facts["rows"], facts["columns"]), values.shape)
    expect(path, "first and last time", (facts["time"]["first_s"], facts["time"]["last_s"]), (stamps[0], stamps[-1]))
    expect(path, "period", facts["time"]["period_s"], float(numpy.median(numpy.diff(stamps))))
    doubles = values.astype(float)
    for key, expected in {
        "min": doubles.min(axis=0),
        "max": doubles.max(axis=0),
        "mean": doubles.mean(axis=0),
        "rms": numpy.sqrt((doubles**2).mean(axis=0)),
        "standard_deviation": doubles.std(axis=0),
    }.items():
        given = numpy.array([column[key] for column in facts["statistics"]])
        close = numpy.allclose(given, expected, rtol=1e-10, atol=1e-12 * numpy.abs(doubles).max())
        expect(path, f"{key} per column", close, True)
    found = subprocess.run(command + ["--csv"], check=True, capture_output=True, text=True)
    lines = found.stdout.splitlines()
    names = ["time_s"] + [f"{name}_{column}" for column in range(values.shape[1])]
    expect(path, "header line of the CSV", lines[0].split(","), names)
    table = numpy.array([line.split(",") for line in lines[1:]])
    expect(path, "every bit of the times in the CSV", numpy.array_equal(table[:, 0].astype(float), stamps), True)
    expect(path, "every bit of the values in the CSV", numpy.array_equal(table[:, 1:].astype("f4"), values), True)


def check_foreign(ravelctl, path):
    """What inspect says of a file that another tool has written: a table of scalars behind two images."""
    table = fits.BinTableHDU.from_columns(
        [
            fits.Column("label", "6A", array=numpy.array(["a", "b", "c"])),
            fits.Column("TIME", "D", unit="ms", array=numpy.array([10.0, 14.0, 18.0])),
            fits.Column("tip", "D", unit="arcsec", array=numpy.array([0.5, -1.5, 1.0])),
            fits.Column("counts", "J", array=numpy.array([3, 40, 500])),
        ]
    )
    images = [fits.ImageHDU(numpy.zeros((4, 4))), fits.CompImageHDU(numpy.ones((8, 8), "i2"))]
    fits.HDUList([fits.PrimaryHDU(), *images, table]).writeto(path)
    found = subprocess.run([ravelctl, "inspect", str(path), "--json"], check=True, capture_output=True, text=True)
    facts = json.loads(found.stdout)["files"][0]
    expect(path, "extension", facts["extension_number"], 3)
    expect(path, "columns", facts["column_names"], ["tip", "counts"])
    expect(path, "times", (facts["time"]["first_s"], facts["time"]["last_s"], facts["time"]["period_s"]),
           (0.01, 0.018, float(numpy.median([0.014 - 0.01, 0.018 - 0.014]))))
    found = subprocess.run([ravelctl, "inspect", str(path), "--csv"], check=True, capture_output=True, text=True)
    expect(path, "CSV", found.stdout, "time_s,tip,counts\n0.01,0.5,3\n0.014,-1.5,40\n0.018,1,500\n")


def check_matrices(folder, fitsverify):
    for name, (rows, cols) in MATRICES.items():
        path = folder / f"{name}.fits"
        check_fits(fitsverify, path)
        (values,) = read_table(path, [(name, f"{cols}E", None)])
        expect(path, "shape", values.shape, (rows, cols))
        expect(path, "finite values", bool(numpy.isfinite(values).all()), True)


def main():
    ravelctl, matrices, fitsverify = sys.argv[1:4]
    check_matrices(pathlib.Path(matrices), fitsverify)
    with tempfile.TemporaryDirectory(prefix="ravelctl-readback-") as directory:
        for workers in (1, 2):
            folder = pathlib.Path(directory) / f"run {workers} [of 2]"
            command = [ravelctl, "run", "--quiet", "--as-fast-as-possible", "--matrices", matrices]
            command += ["--output", str(folder), "--modes", str(MODES), "--workers", str(workers)]
            command += ["--rate", str(RATE_HZ), "--duration", str(CYCLES / RATE_HZ), "--seed", "7"]
            subprocess.run(command, check=True)
            check_run(folder, workers)
            check_replay(ravelctl, fitsverify, folder, pathlib.Path(directory) / f"replay {workers}.fits")
            check_inspect(ravelctl, folder / "modes_in.fits", "modes_in")
        check_frames(ravelctl, matrices, fitsverify, pathlib.Path(directory) / "frames")
        check_modulation(ravelctl, fitsverify, pathlib.Path(directory) / "sine.fits")
        check_foreign(ravelctl, pathlib.Path(directory) / "foreign.fits")
    print("the files of the runs and the matrices are as they should be")


main()
