"""Opens the pages of short runs and qualifications in a browser and compares what is drawn with their files.

The expected figures are worked out here, from the recordings, by other means than the program's.

usage: reportBrowserTest.py RAVELCTL MATRICES CHROMIUM CHROMEDRIVER
"""

import json
import os
import pathlib
import re
import subprocess
import sys
import tempfile

import numpy
from astropy.io import fits
from selenium import webdriver
from selenium.webdriver import ActionChains
from selenium.webdriver.chrome.service import Service
from selenium.webdriver.common.by import By
from selenium.webdriver.common.keys import Keys
from selenium.webdriver.support.ui import WebDriverWait

MODES = 40
RATE_HZ = 250
CYCLES = 1000
OPEN_CYCLES = 300
JUDGED_CYCLE = 650
SEGMENTS = 798
NUM_PACT = 2394
SEGMENT_LENGTH = 128  # the longest power of two of which two that overlap by half fit into the open cycles
NM_PER_UM = 1e3 / numpy.sqrt(NUM_PACT)  # surface of a mode
TIMES = {"cycle_times", "execution_times"}
CHARTS = {"residual", "edge_sensors", "spectra", "rejection", "modes"} | TIMES
WORKER_CHARTS = TIMES | {"start_latencies", "speeds"}
PERCENTILES = ("min", "p50", "p99", "p999", "p9999", "max")
PARAMETERS = 10  # of a mode's gains
IMPULSE_CYCLES = 64 * SEGMENT_LENGTH
FLOOR = 0.5  # where a logarithmic axis draws a count of 0
PAPER = (718, 1047)  # px within the margins of A4
SCRIPT = '[[at]]\ntime = 2\ngains = { modes = "0-39", kp = 0.3 }\n'


def expect(condition, message):
    if not condition:
        sys.exit(f"reportBrowserTest: {message}")


def expect_close(what, found, expected, tolerance=2e-3):
    found, expected = numpy.array(found, dtype=float), numpy.array(expected, dtype=float)
    expect(found.shape == expected.shape, f"{what}: {found.shape} values, expected {expected.shape}")
    error = numpy.abs(found - expected).max() / numpy.abs(expected).max()
    expect(error < tolerance, f"{what}: off by {error} of the largest")


def run(ravelctl, matrices, folder, *more):
    command = [ravelctl, "run", "--quiet", "--as-fast-as-possible", "--matrices", matrices, "--output", str(folder)]
    command += ["--modes", str(MODES), "--rate", str(RATE_HZ), "--duration", str(CYCLES / RATE_HZ)]
    command += ["--open-loop", str(OPEN_CYCLES / RATE_HZ), *more]
    subprocess.run(command, check=True)


def qualify(ravelctl, folder, status, *more):
    """Of small matrices, flat out: nothing depends on how busy the machine is."""
    command = [ravelctl, "qualify", "--quiet", "--flat-out", "--rows", "20", "--cols", "300", "--output", str(folder)]
    done = subprocess.run(command + list(more), capture_output=True)
    expect(done.returncode == status, f"qualify ended with {done.returncode}, expected {status}: {done.stderr}")
    return json.loads((folder / "qualify.json").read_text())


def welch(modes):
    """Density of all modes together, nm^2 of surface per hertz, from the third frequency on to the last but one."""
    window = numpy.hanning(SEGMENT_LENGTH + 1)[:-1]
    densities = []
    for start in range(0, len(modes) - SEGMENT_LENGTH + 1, SEGMENT_LENGTH // 2):
        part = modes[start : start + SEGMENT_LENGTH]
        spectrum = numpy.fft.rfft((part - part.mean(axis=0)) * window[:, None], axis=0)
        densities.append(2 * (numpy.abs(spectrum) ** 2).sum(axis=1) / (RATE_HZ * (window**2).sum()))
    return numpy.mean(densities, axis=0)[2:-1] * NM_PER_UM**2


def load_gains(folder):
    """Of all modes, as they were when the run began: kp, ki, kd and the derivative's n in a column each."""
    gains = fits.getdata(folder / "gains.fits", 1)["gains"].astype(float).reshape(-1, PARAMETERS)
    return gains[:, [0, 1, 2, 6]].T


def save_gains(source, target, factors):
    """The gains of another run with its modes' kp times `factors`."""
    with fits.open(source / "gains.fits") as tables:
        tables[1].data["gains"].reshape(-1, PARAMETERS)[:, 0] *= factors
        tables.writeto(target)


def rejection_of(folder, weights):
    """|1/(1 + L)| of all modes together, by simulating how each mode's loop answers to an impulse."""
    plant = json.loads((folder / "summary.json").read_text())["plant"]
    kp, ki, kd, n = load_gains(folder)
    period, lag, delay = 1 / RATE_HZ, plant["lag_coefficient"], plant["delay_cycles"]
    answer = numpy.zeros((IMPULSE_CYCLES, len(kp)))
    answer[0] = 1
    commands = numpy.zeros_like(answer)
    position, integral, derivative, last = (numpy.zeros(len(kp)) for _ in range(4))
    for cycle in range(IMPULSE_CYCLES):
        if cycle > delay:
            position = position + lag * (commands[cycle - 1 - delay] - position)
        answer[cycle] += position
        derivative = (kd * derivative - n * kp * kd * (answer[cycle] - last)) / (n * period + kd)
        commands[cycle] = integral + derivative - kp * answer[cycle]
        integral = integral - period * kp * ki * answer[cycle]
        last = answer[cycle]
    expect(numpy.abs(answer[-1]).max() < 1e-6, "the simulated loop has not come to rest")
    squares = numpy.abs(numpy.fft.rfft(answer, axis=0)[:: IMPULSE_CYCLES // SEGMENT_LENGTH]) ** 2
    return numpy.sqrt(squares @ weights / weights.sum())[2:-1]


class Browser:
    def __init__(self, chromium, chromedriver):
        options = webdriver.ChromeOptions()
        options.binary_location = chromium
        for argument in ("--headless=new", "--disable-gpu", "--disable-dev-shm-usage"):
            options.add_argument(argument)
        if os.geteuid() == 0:
            options.add_argument("--no-sandbox")  # which root has not
        options.set_capability("goog:loggingPrefs", {"browser": "ALL"})
        self.driver = webdriver.Chrome(service=Service(chromedriver), options=options)

    def open(self, page, width, scheme):
        self.driver.execute_cdp_cmd("Emulation.setDeviceMetricsOverride",
                                    {"width": width, "height": 900, "deviceScaleFactor": 1, "mobile": False})
        self.driver.execute_cdp_cmd("Emulation.setEmulatedMedia",
                                    {"features": [{"name": "prefers-color-scheme", "value": scheme}]})
        self.driver.get(page.as_uri())
        self.wait("the page's script", lambda: self.js("return !!window.ravelReport"))

    def js(self, script, *arguments):
        return self.driver.execute_script(script, *arguments)

    def wait(self, what, condition):
        WebDriverWait(self.driver, 20).until(lambda _: condition(), f"waited for {what}")

    def find(self, selector):
        return self.driver.find_element(By.CSS_SELECTOR, selector)

    def texts(self, selector):
        return [found.text for found in self.driver.find_elements(By.CSS_SELECTOR, selector)]

    def focus(self, selector):
        """Goes to an element as the tabulator does, and gives it."""
        found = self.find(selector)
        self.js("arguments[0].scrollIntoView({block: 'center'}); arguments[0].focus()", found)
        expect(self.js("return document.activeElement === arguments[0]", found), f"{selector} takes no focus")
        return found

    def press(self, *keys):
        ActionChains(self.driver).send_keys(*keys).perform()

    def series(self, chart):
        """Names and data of what a chart draws."""
        return self.js("return ravelReport.charts[arguments[0]].getOption().series.map(s => [s.name, s.data])", chart)

    def fills(self, which):
        return self.js("return [...document.querySelectorAll('.map')[arguments[0]].querySelectorAll('polygon')]"
                       ".sort((a, b) => a.dataset.segment - b.dataset.segment)"
                       ".map(p => getComputedStyle(p).fill)", which)


def check_layout(browser, width, scheme, charts):
    where = f"at {width} px, {scheme}"
    overflow = browser.js("return [document.documentElement.scrollWidth, window.innerWidth]")
    expect(overflow[0] <= overflow[1] == width, f"{where}: the page is {overflow[0]} px wide")
    expect(browser.js("return document.documentElement.dataset.theme") == scheme, f"{where}: another theme")
    light = browser.js("return getComputedStyle(document.body).backgroundColor.match(/\\d+/g).map(Number)[0] > 128")
    expect(light == (scheme == "light"), f"{where}: the background is not {scheme}")
    expect(set(browser.js("return Object.keys(ravelReport.charts)")) == charts, f"{where}: not the charts expected")
    for chart in charts:
        box, svg, shapes, label = browser.js(
            """const box = document.getElementById('chart-' + arguments[0]);
            const card = box.closest('.card').getBoundingClientRect();
            const svg = box.querySelector('svg').getBoundingClientRect();
            const shapes = [...box.querySelectorAll('svg path')].map(p => p.getBoundingClientRect())
                .filter(r => r.width > 3 && r.height > 3);
            return [[card.left, card.right], [svg.left, svg.right], shapes.length, box.getAttribute('aria-label')];""",
            chart)
        expect(box[0] <= svg[0] < svg[1] <= box[1], f"{where}: {chart} is drawn from {svg} in {box}")
        expect(shapes > 0, f"{where}: {chart} has no shape")
        expect(label, f"{where}: {chart} has no label")


def check_console(browser):
    expect(browser.js("return performance.getEntriesByType('resource').length") == 0, "the page fetched something")
    log = browser.driver.get_log("browser")
    expect(not log, f"the browser's console says {log}")


def check_table(browser, title, row, expected):
    """A line of a table of durations; what is expected to be None may be anything."""
    cells = browser.js("""return [...document.querySelectorAll('.figures table')]
        .filter(table => table.getAttribute('aria-label') === arguments[0])
        .flatMap(table => [...table.tBodies[0].rows].filter(row => row.cells[0].textContent === arguments[1]))
        .map(row => [...row.cells].slice(1).map(cell => Number(cell.textContent)))""", title, row)
    expect(len(cells) == 1, f"{title}: {len(cells)} lines {row}")
    expect(len(cells[0]) == len(expected), f"{title}, {row}: {cells[0]}")
    wrong = [pair for pair in zip(cells[0], expected) if pair[1] is not None and abs(pair[0] - pair[1]) > 0.051]
    expect(not wrong, f"{title}, {row}: {cells[0]}, expected {expected}")


def check_computed_rejection(browser, folder):
    """With the gains that the run began with, each mode counted by its mean square before the loop closed."""
    modes = fits.getdata(folder / "modes_in.fits", 1)["modes_in"].astype(float)
    expected = rejection_of(folder, (modes[:OPEN_CYCLES] ** 2).mean(axis=0))
    points = dict(browser.series("rejection"))["computed"]
    expect_close("the frequencies of the computed rejection", [point[0] for point in points],
                 numpy.arange(2, SEGMENT_LENGTH // 2) * RATE_HZ / SEGMENT_LENGTH)
    found = 10 ** (numpy.array([point[1] for point in points]) / 20)
    expect_close(f"the computed rejection of {folder.name}", found, expected, 1e-3)  # of four digits


def check_injected(browser, folder):
    """Gains that differ, and references that are not rejected."""
    expect([name for name, _ in browser.series("rejection")] == ["computed"], "a rejection is measured")
    check_computed_rejection(browser, folder)
    unweighted = 20 * numpy.log10(rejection_of(folder, numpy.ones(MODES)))
    computed = [point[1] for point in dict(browser.series("rejection"))["computed"]]
    expect(numpy.abs(unweighted - computed).max() > 0.1, "the weights make no difference here")
    expect("Measured" not in caption_of(browser, "rejection"), caption_of(browser, "rejection"))
    expect("with the gains that the run began with" in caption_of(browser, "rejection"), "another computed rejection")
    expect("The rejection as measured" in " ".join(browser.texts(".note li")), "it does not say what is left out")


def check_figures(browser, folder):
    """Every chart's data against the run's own files."""
    summary = json.loads((folder / "summary.json").read_text())
    modes = fits.getdata(folder / "modes_in.fits", 1)["modes_in"].astype(float)
    before, after = modes[:OPEN_CYCLES], modes[JUDGED_CYCLE:]

    (_, residual), *_ = browser.series("residual")
    expect_close("times of the residual", [point[0] for point in residual], numpy.arange(CYCLES) / RATE_HZ)
    expect_close("the residual", [point[1] for point in residual], numpy.sqrt((modes**2).sum(axis=1)) * NM_PER_UM)
    ((_, sensors),) = browser.series("edge_sensors")
    judged = numpy.array([point[1] for point in sensors[JUDGED_CYCLE:]], dtype=float)
    expect_close("the edge sensors", [numpy.sqrt((judged**2).mean())], [summary["edge_sensor_rms_nm"]["after"]])

    spectra = dict(browser.series("spectra"))
    frequencies = numpy.arange(2, SEGMENT_LENGTH // 2) * RATE_HZ / SEGMENT_LENGTH
    expect_close("the frequencies", [point[0] for point in spectra["before"]], frequencies)
    densities = {name: welch(part) for name, part in (("before", before), ("after", after))}
    for name, density in densities.items():
        expect_close(f"the logarithm of the density {name}", numpy.log([point[1] for point in spectra[name]]),
                     numpy.log(density))
    rejection = dict(browser.series("rejection"))
    expect_close("the measured rejection", [point[1] for point in rejection["measured"]],
                 10 * numpy.log10(densities["after"] / densities["before"]), 5e-3)
    check_computed_rejection(browser, folder)

    per_mode = dict(browser.series("modes"))
    for name, part in (("before", before), ("after", after)):
        expect_close(f"the modes {name}", [point[1] for point in per_mode[name]],
                     numpy.sqrt((part**2).mean(axis=0)) * NM_PER_UM)
    cycle_times = dict(browser.series("cycle_times"))
    expect(sum(count for _, _, count in cycle_times["cycles"]) == summary["cycles"] == CYCLES, "not every cycle counts")
    bars = browser.js("return document.querySelectorAll('#chart-cycle_times svg path[fill=\"#0063a3\"]').length")
    expect(bars >= len(cycle_times["cycles"]), f"{bars} bars for {len(cycle_times['cycles'])} counts")

    ((_, executions),) = browser.series("execution_times")
    expect(sum(count for _, _, count in executions) == CYCLES, "not every execution counts")
    for row, key in (("cycle", "cycle_time_us"), ("task execution", "execution_time_us")):
        check_table(browser, "Time", row, [summary[key].get(name) for name in PERCENTILES])  # it has no 99.99 %

    marks = browser.js("return ravelReport.charts.residual.getOption().series[0].markLine.data.map(m => m.xAxis)")
    expect(marks == [OPEN_CYCLES / RATE_HZ, 2], f"marks at {marks}")
    drawn = browser.find("#chart-residual").get_attribute("textContent")
    expect("loop closes" in drawn, "no mark where the loop closes")
    expect(any("kp = 0.3" in text for text in browser.texts("figcaption li")), "the script's step is not named")
    figures = {row.split(" ", 1)[0]: row for row in browser.texts("section[aria-label=Result] tbody tr")}
    expect(f"{summary['edge_sensor_rms_nm']['before']:.1f}" in figures["edge"], f"the result says {figures}")
    expect("the loop held" in browser.find(".verdict").text, "another verdict")
    parameters = " ".join(browser.texts(".parameters tr"))
    for text in (f"control modes {MODES}", f"cycle rate {RATE_HZ} Hz", "phase margin",
                 f"kernel Linux {os.uname().release}", "frequency governor", "isolated CPUs", "memory",
                 summary["blas"]):
        expect(text in parameters, f"the parameters do not say {text}")


def segment_text(browser):
    return browser.find("section[aria-label='The mirror'] .readout").text


def check_extremes(browser, which, pistons):
    """The largest errors of a map have the deep colours of their side."""
    fills = browser.fills(which)
    for extreme, sign in ((max(pistons), 1), (min(pistons), -1)):
        red, _, blue = (int(part) for part in re.findall(r"\d+", fills[pistons.index(extreme)]))
        expect(sign * (red - blue) > 50, f"map {which}: {extreme} tenths of a nm have red {red}, blue {blue}")


def check_mirror(browser):
    mirror = browser.js("return ravelReport.data.mirror")
    for which in (0, 1):
        fills = browser.fills(which)
        expect(len(fills) == SEGMENTS, f"map {which} has {len(fills)} hexagons")
        expect(len(set(fills)) > 50, f"map {which} has {len(set(fills))} colours only")
        ticks = browser.js("return [...document.querySelectorAll('.legend .ticks')[arguments[0]].children]"
                           ".map(t => t.textContent)", which)
        expect(len(ticks) == 5 and ticks[2] == "0" and ticks[4].endswith("nm"), f"the legend says {ticks}")
    check_extremes(browser, 0, mirror["piston_tenths_nm"][mirror["before"]])
    check_extremes(browser, 1, mirror["piston_tenths_nm"][-1])

    slider = browser.focus("input[type=range]")
    last = int(slider.get_attribute("value"))
    expect(last == len(mirror["time_s"]) - 1, "the slider does not begin at the end")
    old = browser.fills(1)
    browser.press(Keys.HOME)
    expect(slider.get_attribute("value") == "0", "the slider does not listen to the keyboard")
    expect(browser.fills(1) != old, "the slider changes no colour")
    check_extremes(browser, 1, mirror["piston_tenths_nm"][0])
    expect(slider.get_attribute("aria-valuetext").startswith("0 s,"), slider.get_attribute("aria-valuetext"))

    browser.focus(".controls button")
    browser.press(Keys.ENTER)
    expect(browser.find(".controls button").text == "Pause", "it does not play")
    browser.wait("the next moments", lambda: int(slider.get_attribute("value")) >= 2)
    browser.press(Keys.SPACE)
    expect(browser.find(".controls button").text == "Play", "it does not pause")
    moment = int(slider.get_attribute("value"))

    browser.focus(".map:nth-child(2) svg")
    browser.press(Keys.ARROW_RIGHT)
    browser.press(Keys.ARROW_UP)
    q, r = mirror["segments"][0]
    segment = mirror["segments"].index([q, r + 1])
    text = segment_text(browser)
    expect(text.startswith(f"Segment {segment} (q {q}, r {r + 1}): "), f"the keyboard leads to {text}")
    value = mirror["piston_tenths_nm"][moment][segment] / 10
    shown = float(re.search(r"before, ([−\d.]+) nm at", text)[1].replace("−", "-"))
    expect(abs(shown - value) <= 0.006 * abs(value), f"{text}: expected {value}")

    hexagon = browser.find(".map polygon[data-segment='400']")
    browser.js("arguments[0].scrollIntoView({block: 'center'})", hexagon)
    ActionChains(browser.driver).move_to_element(hexagon).perform()
    expect(browser.find(".tip").text.startswith("Segment 400 (q "), f"the pointer shows {browser.find('.tip').text}")


def check_keyboard(browser, charts):
    for chart in charts:
        browser.focus(f"#chart-{chart}")
        browser.press(Keys.HOME)
        browser.press(Keys.ARROW_RIGHT)
        told = browser.js("return document.getElementById('chart-' + arguments[0]).parentElement"
                          ".querySelector('.readout').textContent", chart)
        expect(re.search(r"\d", told), f"{chart} tells {told!r} to the keyboard")
        details = browser.find(f"#chart-{chart} ~ details")
        browser.js("arguments[0].firstChild.scrollIntoView({block: 'center'})", details)
        details.find_element(By.TAG_NAME, "summary").send_keys(Keys.ENTER)
        count = "return arguments[0].querySelectorAll('tbody tr').length"
        browser.wait(f"the table of {chart}", lambda: browser.js(count, details) > 0)
        points = browser.series(chart)[0][1]
        is_outline = isinstance(points[0], list) and points[0][1:] == [FLOOR]  # begins and ends at 0
        expect(browser.js(count, details) >= len(points) - (2 if is_outline else 0), f"the table of {chart} is short")
    outline = browser.js("const b = document.getElementById('theme'); b.focus({focusVisible: true});"
                         "return getComputedStyle(b).outlineStyle")
    expect(outline == "solid", "the focus cannot be seen")
    theme = browser.js("return document.documentElement.dataset.theme")
    browser.press(Keys.ENTER)
    expect(browser.js("return document.documentElement.dataset.theme") != theme, "the theme does not change")


DARK = [{"name": "prefers-color-scheme", "value": "dark"}]


def check_pointer(browser, charts):
    """What is pointed at tells its figures."""
    for chart in charts:
        drawing = browser.find(f"#chart-{chart}")
        browser.js("arguments[0].scrollIntoView({block: 'center'})", drawing)
        ActionChains(browser.driver).move_to_element(drawing).perform()
        told = ("return [...arguments[0].children].slice(1)"
                ".filter(part => getComputedStyle(part).visibility === 'visible').map(part => part.textContent).join(' ')")
        browser.wait(f"what {chart} tells the pointer", lambda: re.search(r"\d", browser.js(told, drawing)))


def check_paper(browser):
    """The printed charts fit and are light."""
    browser.js("window.dispatchEvent(new Event('beforeprint'))")
    expect(browser.js("return document.documentElement.dataset.theme") == "light", "paper is not dark")
    browser.driver.execute_cdp_cmd("Emulation.setEmulatedMedia", {"media": "print", "features": DARK})
    browser.driver.execute_cdp_cmd("Emulation.setDeviceMetricsOverride",
                                   {"width": PAPER[0], "height": PAPER[1], "deviceScaleFactor": 1, "mobile": False})
    cut = browser.js("""return [...document.querySelectorAll('.card')].filter(card => {
            const box = card.getBoundingClientRect();
            const inner = [...card.querySelectorAll('.chart svg, .map svg, table')]
                .map(part => part.getBoundingClientRect());
            return box.right > arguments[0] || (box.height > arguments[1] && !card.matches('.parameters'))
                || inner.some(part => part.left < box.left || part.right > box.right);
        }).map(card => card.textContent.slice(0, 60))""", *PAPER)
    expect(not cut, f"on paper these are cut: {cut}")
    browser.driver.execute_cdp_cmd("Emulation.setEmulatedMedia", {"media": "", "features": DARK})
    browser.js("window.dispatchEvent(new Event('afterprint'))")
    expect(browser.js("return document.documentElement.dataset.theme") == "dark", "the screen is not dark again")


def write_timings_only(page, reduced):
    """A page with nothing but timings, of paced cycles that were missed."""
    text = page.read_text()
    begin = text.index(">", text.index('id="report-data"')) + 1
    end = text.index("</script>", begin)
    data = json.loads(text[begin:end])
    for section in ("mirror", "residual", "surface", "edge_sensors", "spectra", "mode_rms_nm"):
        del data[section]
    for key in ("figures", "marks"):
        data[key] = []
    data["judged_s"] = data["end_s"] = data["crossover_hz"] = None
    times = data["cycle_times"]
    times["paced"] = True
    times["missed"] = 3
    times["marked"][-1] = 1
    reduced.write_text(text[:begin] + json.dumps(data).replace("<", "\\u003c") + text[end:])


def check_timings_only(browser, width):
    check_layout(browser, width, "light", TIMES)
    (name, late) = browser.series("cycle_times")[1]
    expect(name == "before a missed cycle" and len(late) == 1, f"missed cycles are drawn as {name}: {late}")
    expect("deadline" in browser.find("#chart-cycle_times").get_attribute("textContent"), "no mark at the deadline")
    caption = browser.find("#chart-cycle_times").find_element(By.XPATH, "../figcaption").text
    expect("4000 µs; 3 missed" in caption, caption)
    expect(not browser.texts(".map"), "there is a mirror")
    check_keyboard(browser, TIMES)
    check_console(browser)


def caption_of(browser, chart):
    return browser.find(f"#chart-{chart}").find_element(By.XPATH, "../figcaption").text


def check_qualification(browser, result):
    """Every chart and table against the qualification's own file."""
    workers = result["workers"]
    places = ["any CPU" if worker["cpu"] < 0 else f"CPU {worker['cpu']}" for worker in workers]
    names = [f"worker{index} on {place}" for index, place in enumerate(places)]
    for name, worker in zip(names, workers):
        check_table(browser, "Execution", name, [worker["execution_us"][key] for key in PERCENTILES])
        check_table(browser, "Start latency", name, [worker["start_latency_us"][key] for key in PERCENTILES])
    check_table(browser, "Whole cycle", "start to ready", [result["cycle_us"][key] for key in PERCENTILES])
    for chart in ("execution_times", "start_latencies"):
        series = browser.series(chart)
        if len(workers) > 6:
            ((name, bars),) = series
            expect(name == "all workers", f"{chart} draws {name}")
            expect(sum(count for _, _, count in bars) == len(workers) * result["cycles"], f"{chart}: not every cycle")
        else:
            expect([name for name, _ in series] == names, f"{chart} draws {[name for name, _ in series]}")
            for name, points in series:
                counted = sum(count for _, count in points if count > FLOOR)
                expect(counted == result["cycles"], f"{chart} counts {counted} cycles of {name}")
    speeds = dict(browser.series("speeds"))
    expect_close("the product's speed", speeds["product"], [worker["gb_per_s"] for worker in workers], 1e-9)
    expect_close("the read's speed", speeds["read"], [worker["read_gb_per_s"] for worker in workers], 1e-9)
    cycle_times = dict(browser.series("cycle_times"))
    expect(sum(count for _, _, count in cycle_times["cycles"]) == result["cycles"], "not every cycle counts")
    late = sum(count for _, _, count in cycle_times.get("beyond the deadline", []))
    expect(late == result["late_cycles"], f"{late} cycles are marked as late")
    drawn = browser.find("#chart-cycle_times").get_attribute("textContent")
    expect(("deadline" in drawn) == (result["deadline_us"] is not None), f"the deadline in {drawn}")
    said = f"{result['late_cycles']} cycles took longer" if result["deadline_us"] else "No deadline was set."
    expect(said in caption_of(browser, "cycle_times"), caption_of(browser, "cycle_times"))
    expect(browser.find(".verdict").text == result["verdict"], f"the verdict is {browser.find('.verdict').text}")
    good = "good" in browser.find(".verdict").get_attribute("class")
    expect(good == result["held"], "the verdict's colour says something else")
    parameters = " ".join(browser.texts(".parameters tr"))
    for name, worker in zip(names, workers):
        missed = worker["missed_deadlines"]
        text = "no deadline" if missed is None else f"{missed} of {result['cycles']} cycles"
        expect(f"{name} {text}" in parameters, f"the parameters do not say {name} {text}: {parameters}")
    for text in ("matrix of each worker 20 x 300", "pace flat out", result["blas"], os.uname().release):
        expect(text in parameters, f"the parameters do not say {text}: {parameters}")
    expect(not browser.texts(".map"), "there is a mirror")


def check_tabulator(browser):
    """Everything can be reached from the top by the tabulator alone."""
    browser.js("document.activeElement.blur(); window.scrollTo(0, 0)")
    reached = []
    for _ in range(60):
        browser.press(Keys.TAB)
        reached.append(browser.js("const a = document.activeElement;"
                                  "return a.id || a.type || a.tagName.toLowerCase()"))
    wanted = ["theme", "range", *(f"chart-{chart}" for chart in CHARTS)]
    expect(not set(wanted) - set(reached), f"the tabulator does not reach {set(wanted) - set(reached)}")


def main():
    ravelctl, matrices, chromium, chromedriver = sys.argv[1:5]
    with tempfile.TemporaryDirectory(prefix="ravelctl-browser-") as directory:
        folder = pathlib.Path(directory) / "run <!-- & </script> #1"
        script = pathlib.Path(directory) / "changes.toml"
        script.write_text(SCRIPT)
        run(ravelctl, matrices, folder, "--script", str(script))
        frames = pathlib.Path(directory) / "frames"
        run(ravelctl, matrices, frames, "--record", "es")
        injected = pathlib.Path(directory) / "injected"
        gains = pathlib.Path(directory) / "gains.fits"
        save_gains(folder, gains, numpy.linspace(0.2, 1, MODES))
        step = pathlib.Path(directory) / "step.fits"
        subprocess.run([ravelctl, "make-modulation", "step", "--output", step, "--modes", str(MODES), "--quiet"],
                       check=True)
        run(ravelctl, matrices, injected, "--gains", str(gains), "--inject", str(step))
        late = pathlib.Path(directory) / "late"
        many = pathlib.Path(directory) / "many"
        results = {late: qualify(ravelctl, late, 1, "--workers", "2", "--cycles", "400", "--deadline-us", "1"),
                   many: qualify(ravelctl, many, 0, "--workers", "7", "--cycles", "100")}
        browser = Browser(chromium, chromedriver)
        try:
            for width in (1280, 390):
                for scheme in ("light", "dark"):
                    browser.open(folder / "report.html", width, scheme)
                    check_layout(browser, width, scheme, CHARTS)
                    check_console(browser)
                    if scheme == "light":
                        check_figures(browser, folder)
                        check_tabulator(browser)
                        check_mirror(browser)
                        check_pointer(browser, ["residual", "edge_sensors", "spectra", "rejection", "modes"])
                        check_keyboard(browser, CHARTS)
                    else:
                        check_paper(browser)
                    check_console(browser)
            browser.open(injected / "report.html", 1280, "light")
            check_layout(browser, 1280, "light", CHARTS)
            check_injected(browser, injected)
            check_pointer(browser, ["rejection"])
            check_keyboard(browser, ["rejection"])
            check_console(browser)
            recorded = {"residual", "edge_sensors"} | TIMES
            browser.open(frames / "report.html", 390, "dark")
            check_layout(browser, 390, "dark", recorded)
            expect("were not recorded" in " ".join(browser.texts(".note li")), "it does not say what is left out")
            check_console(browser)
            reduced = pathlib.Path(directory) / "timings.html"
            write_timings_only(folder / "report.html", reduced)
            for width in (1280, 390):
                browser.open(reduced, width, "light")
                check_timings_only(browser, width)
            for page, result in results.items():
                for width, scheme in ((1280, "light"), (390, "dark")):
                    browser.open(page / "report.html", width, scheme)
                    check_layout(browser, width, scheme, WORKER_CHARTS)
                    check_qualification(browser, result)
                    check_pointer(browser, ["speeds"])
                    check_keyboard(browser, WORKER_CHARTS)
                    check_console(browser)
        finally:
            browser.driver.quit()
    print("the pages show what their files say")


main()
