// The charts: what each shows, in words, as a drawing and as a table.

import { axis, base, line, logAxis, marks, range } from './drawing.js';
import { element, foldedTable, format } from './page.js';
import { colours } from './theme.js';
import { cycleChart, workerCharts } from './timing.js';

const times = (series) => series.rms.map((_, index) => series.first_s + index * series.step_s);
const pairs = (xs, ys) => xs.map((x, index) => [x, ys[index] > 0 ? ys[index] : null]);

/** Where the loop closes, with its name, and the script's steps and the like, with their numbers. */
function timeMarks(data) {
  const closing = data.marks.filter((mark) => !mark.numbered).map((mark) => ({ at: mark.time_s, name: mark.what }));
  const steps = data.marks.filter((mark) => mark.numbered).map((mark) => ({ at: mark.time_s, dotted: true }));
  const lines = marks([...closing, ...steps]);
  steps.forEach((_, index) => {
    lines.data[closing.length + index].label.formatter = String(index + 1);
  });
  return lines;
}

function beforeAfter(data, name) {
  const figure = data.figures.find((one) => one.name === name);
  return figure ? `${format(figure.before_nm)} nm rms before, ${format(figure.after_nm)} nm rms after` : '';
}

/** Lines over time with what is between each point's extremes. */
function timeChart(data, lines) {
  const series = [];
  lines.forEach(({ name, series: thinned, colour, type }, index) => {
    const x = times(thinned);
    const shown = line(name, pairs(x, thinned.rms), colour, { lineStyle: { type } });
    if (index === 0) {
      shown.markLine = timeMarks(data);
    }
    series.push(shown);
    for (const bound of thinned.low ? ['low', 'high'] : []) {
      series.push(
        line(`${name}, ${bound === 'low' ? 'smallest' : 'largest'}`, pairs(x, thinned[bound]), colour, {
          lineStyle: { width: 0.8, opacity: 0.45 },
        }),
      );
    }
  });
  const known = lines.flatMap(({ series: { rms } }) => rms).filter((value) => value > 0);
  const spread = Math.max(...known) / Math.min(...known);
  const y = spread > 10 ? logAxis('rms, nm') : axis('rms, nm', { min: 0 });
  const option = base(axis('time, s', { min: 0, max: data.end_s }), y, series);
  option.legend.data = lines.map(({ name }) => name);
  option.grid.top = lines.length > 1 ? 64 : 48; // the names may take a line each, and the steps' numbers are below them
  return option;
}

function timeTable(columns) {
  const longest = columns.reduce((a, b) => (a.series.rms.length >= b.series.rms.length ? a : b)).series;
  const near = (series, time) => series.rms[Math.round((time - series.first_s) / series.step_s)] ?? null;
  return {
    columns: ['time, s', ...columns.map(({ name }) => `${name}, nm`)],
    rows: () => times(longest).map((time) => [time.toFixed(3), ...columns.map(({ series }) => near(series, time))]),
  };
}

/** Every chart that the data have something for: name, title, summary, option and table. */
export function chartsOf(data) {
  const charts = [];
  const steps = data.marks.filter((mark) => mark.numbered);
  const closing = data.marks.find((mark) => !mark.numbered);
  const closes = closing ? ` The loop closes at ${format(closing.time_s)} s.` : '';

  if (data.residual) {
    const lines = () => [
      { name: 'controlled modes, measured', series: data.residual, colour: colours().after },
      ...(data.surface
        ? [{ name: 'whole surface, true', series: data.surface, colour: colours().before, type: 'dashed' }]
        : []),
    ];
    charts.push({
      name: 'residual',
      group: 'Over time',
      title: 'Residual of the surface',
      summary:
        `Controlled modes: ${beforeAfter(data, 'surface, controlled modes') || `${range(data.residual.rms)} nm rms`}.` +
        closes +
        (data.judged_s === null ? '' : ` After means from ${format(data.judged_s)} s on.`),
      notes: steps.map((step) => `${format(step.time_s)} s, ${step.what}`),
      option: () => timeChart(data, lines()),
      table: timeTable(lines()),
    });
  }
  if (data.edge_sensors) {
    const lines = () => [{ name: 'edge sensors', series: data.edge_sensors, colour: colours().third }];
    charts.push({
      name: 'edge_sensors',
      group: 'Over time',
      title: 'Edge-sensor residuals',
      summary: `All readings together: ${beforeAfter(data, 'edge sensors')}.${closes}`,
      notes: [],
      option: () => timeChart(data, lines()),
      table: timeTable(lines()),
    });
  }
  if (data.spectra) {
    charts.push(...spectrumCharts(data));
  }
  if (data.mode_rms_nm) {
    charts.push(modeChart(data));
  }
  if (data.cycle_times) {
    charts.push(cycleChart(data));
  }
  charts.push(...workerCharts(data));
  return charts;
}

function spectrumCharts(data) {
  const { spectra } = data;
  const x = spectra.frequency_hz;
  const rows =
    (...columns) =>
    () =>
      x.map((frequency, index) => [frequency, ...columns.map((column) => column[index])]);
  const decibel = (value) => (value > 0 ? 20 * Math.log10(value) : null);
  const resolution = `Welch’s method, ${format(spectra.resolution_hz)} Hz from bin to bin.`;
  const ends = { min: x[0], max: x[x.length - 1] };
  const isMeasured = spectra.rejection_measured.length > 0;
  return [
    {
      name: 'spectra',
      group: 'Over frequency',
      title: 'Power spectra of the controlled modes',
      summary: `Density before: ${range(spectra.before)} nm²/Hz; after: ${range(spectra.after)} nm²/Hz. ${resolution}`,
      notes: [],
      option: () =>
        base(logAxis('frequency, Hz', ends), logAxis('density, nm²/Hz'), [
          line('before', pairs(x, spectra.before), colours().before, { lineStyle: { type: 'dashed' } }),
          line('after', pairs(x, spectra.after), colours().after),
        ]),
      table: {
        columns: ['frequency, Hz', 'before, nm²/Hz', 'after, nm²/Hz'],
        rows: rows(spectra.before, spectra.after),
      },
    },
    {
      name: 'rejection',
      group: 'Over frequency',
      title: 'Rejection of disturbances',
      summary:
        (isMeasured ? 'Measured: the square root of the spectra’s ratio. ' : '') +
        'Computed: |1/(1 + L)| with the gains that the run began with; what a script changes is not in it. ' +
        'Below 0 dB the loop rejects.' +
        (data.crossover_hz ? ` Crossover ${format(data.crossover_hz)} Hz.` : ''),
      notes: [],
      option: () => {
        const computed = line(
          'computed',
          x.map((f, i) => [f, decibel(spectra.rejection_computed[i])]),
          colours().before,
          {
            lineStyle: { type: 'dashed' },
          },
        );
        computed.z = 3;
        if (data.crossover_hz >= ends.min && data.crossover_hz <= ends.max) {
          computed.markLine = marks([{ at: data.crossover_hz, name: 'crossover' }]);
        }
        const measured = () =>
          line(
            'measured',
            x.map((f, i) => [f, decibel(spectra.rejection_measured[i])]),
            colours().after,
          );
        return base(
          logAxis('frequency, Hz', ends),
          axis('rejection, dB'),
          isMeasured ? [measured(), computed] : [computed],
        );
      },
      table: {
        columns: ['frequency, Hz', ...(isMeasured ? ['measured'] : []), 'computed'],
        rows: rows(...(isMeasured ? [spectra.rejection_measured] : []), spectra.rejection_computed),
      },
    },
  ];
}

function modeChart(data) {
  const { before, after } = data.mode_rms_nm;
  const indices = (before.length ? before : after).map((_, index) => index);
  const points = (values) => pairs(indices, values);
  const said = (values) => (values.length ? `${range(values)} nm` : 'not recorded');
  return {
    name: 'modes',
    group: 'Modes',
    title: 'Rms of each measured mode',
    summary:
      `${indices.length} modes, the least stiff ones first; of surface, before: ${said(before)}; ` +
      `after: ${said(after)}.`,
    notes: [],
    option: () =>
      base(
        axis('mode', { min: 0, max: indices.length - 1, minInterval: 1 }),
        logAxis('rms, nm'),
        [
          // One by one: neighbours have nothing to do with each other.
          ...(before.length
            ? [
                line('before', points(before), colours().before, {
                  symbol: 'circle',
                  symbolSize: 4,
                  lineStyle: { width: 0 },
                }),
              ]
            : []),
          ...(after.length
            ? [
                line('after', points(after), colours().after, {
                  symbol: 'diamond',
                  symbolSize: 5,
                  lineStyle: { width: 0 },
                }),
              ]
            : []),
        ],
        true,
      ),
    table: {
      columns: ['mode', 'before, nm', 'after, nm'],
      rows: () => indices.map((index) => [String(index), before[index] ?? null, after[index] ?? null]),
    },
  };
}

/** Text of a point for those who do not see the drawing. */
export function describePoint(chart, option, index) {
  if (chart.describe) {
    return chart.describe(index);
  }
  const shown = option.series.filter((series) => !/, (smallest|largest)$/.test(series.name));
  const first = shown[0].data[Math.min(index, shown[0].data.length - 1)];
  if (first.length === 3) {
    return `${format(first[0])} to ${format(first[1])}: ${first[2]} cycles`;
  }
  const values = shown.map((series) => {
    const point = series.data.reduce(
      (a, b) => (Math.abs(b[0] - first[0]) < Math.abs(a[0] - first[0]) ? b : a),
      series.data[0],
    );
    return point ? `${series.name} ${format(point[1])}` : '';
  });
  const where = chart.name === 'modes' ? first[0] : format(first[0]);
  return `${option.xAxis.name} ${where}: ${values.filter(Boolean).join('; ')}`;
}

/** The element of a chart: caption, drawing, what is pointed at, table. */
export function chartFigure(chart) {
  const drawing = element('div', {
    class: 'chart',
    id: `chart-${chart.name}`,
    tabindex: 0,
    role: 'application',
    'aria-roledescription': 'chart',
  });
  const readout = element('output', { class: 'readout', 'aria-live': 'polite' });
  const notes = chart.notes.length
    ? [
        element(
          'details',
          chart.notes.length <= 6 ? { open: '' } : {},
          element('summary', {}, 'What the numbers in the drawing mean'),
          element('ol', { class: 'note' }, ...chart.notes.map((note) => element('li', {}, note))),
        ),
      ]
    : [];
  const figure = element(
    'figure',
    { class: 'card' },
    element('figcaption', {}, element('h3', {}, chart.title), element('p', {}, chart.summary), ...notes),
    drawing,
    readout,
    foldedTable('Data table', chart.table.columns, chart.table.rows),
  );
  return { figure, drawing, readout };
}
