// Charts of what the processors took: histograms of durations, and speeds.

import { axis, base, line, logAxis, marks, range } from './drawing.js';
import { format, formatPower } from './page.js';
import { colours } from './theme.js';

const FLOOR = 0.5; // of counts: a logarithmic axis has no 0

const countAxis = (name) =>
  logAxis(name, { min: FLOOR, axisLabel: { formatter: (value) => (value < 1 ? '' : formatPower(value)) } });

/** Bars between a histogram's edges; empty ones are left out. */
function bars(name, edges, counts, colour) {
  return {
    type: 'custom',
    name,
    itemStyle: { color: colour },
    dimensions: ['from', 'to', 'count'],
    encode: { x: [0, 1], y: 2, tooltip: [2] },
    data: counts.map((count, index) => [edges[index], edges[index + 1], count]).filter(([, , count]) => count > 0),
    renderItem: (_, api) => {
      const [left, top] = api.coord([api.value(0), api.value(2)]);
      const [right, bottom] = api.coord([api.value(1), FLOOR]);
      return {
        type: 'rect',
        shape: { x: left, y: top, width: Math.max(1, right - left - 1), height: bottom - top },
        style: { fill: colour },
      };
    },
  };
}

/** A histogram of bars; `from` and `to` may widen it. */
function barChart(series, name, from, to) {
  const option = base(logAxis('time, µs', { min: from, max: to }), countAxis(name), series, true);
  option.tooltip.trigger = 'item';
  option.tooltip.formatter = ({ seriesName, value }) =>
    `${format(value[0])} to ${format(value[1])} µs<br>${seriesName}: ${value[2]}`;
  return option;
}

/** What the cycles had to keep to, and whether they did. */
function judgement(cycle) {
  if (cycle.late !== null) {
    const missed = cycle.paced ? `; ${cycle.missed} instants missed` : '';
    return cycle.deadline_us === null
      ? 'No deadline was set.'
      : `Deadline ${format(cycle.deadline_us)} µs: ${cycle.late} cycles took longer${missed}.`;
  }
  return cycle.paced
    ? `The next cycle is due after ${format(cycle.deadline_us)} µs; ${cycle.missed} missed.`
    : 'The cycles were not paced, so none could be missed.';
}

/** Cycle times of a run or a qualification. */
export function cycleChart(data) {
  const cycle = data.cycle_times;
  const { edges_us: edges, counts, marked, percentiles_us: of } = cycle;
  const isQualification = cycle.late !== null;
  const markedName = isQualification ? 'beyond the deadline' : 'before a missed cycle';
  const deadline = isQualification || cycle.paced ? cycle.deadline_us : null;
  return {
    name: 'cycle_times',
    group: 'Timing',
    title: 'Cycle times',
    summary:
      `${isQualification ? 'From the start to all workers ready' : 'From the cycle’s instant to its commands'}: ` +
      `median ${format(of.p50)} µs, 99.9 % ${format(of.p999)} µs, largest ${format(of.max)} µs. ${judgement(cycle)}`,
    notes: [],
    option: () => {
      const all = bars('cycles', edges, counts, colours().after);
      if (deadline !== null) {
        all.markLine = marks([{ at: deadline, name: 'deadline' }]);
      }
      const late = marked.some((count) => count > 0) ? [bars(markedName, edges, marked, colours().missed)] : [];
      const last = edges[edges.length - 1];
      const from = Math.min(edges[0], deadline === null ? edges[0] : deadline / 1.1);
      return barChart([all, ...late], 'cycles', from, Math.max(last, deadline === null ? 0 : 1.1 * deadline));
    },
    table: {
      columns: ['from, µs', 'to, µs', 'cycles', markedName],
      rows: () => counts.map((count, index) => [edges[index], edges[index + 1], String(count), String(marked[index])]),
    },
  };
}

const DASHES = ['solid', 'dashed', 'dotted', [10, 4, 2, 4]];
const MOST_OUTLINES = 6; // that can be told apart

/** The outline of a histogram, which may lie over others. */
function outline({ name, edges_us: edges, counts }, index) {
  const { after, before, third, mark } = colours();
  const points = counts.map((count, bin) => [edges[bin], count > 0 ? count : FLOOR]);
  return line(
    name,
    [[edges[0], FLOOR], ...points, [edges[edges.length - 1], FLOOR]],
    [after, before, third, mark][index % 4],
    {
      step: 'end',
      lineStyle: { type: DASHES[(index + Math.floor(index / 4)) % 4] },
    },
  );
}

/** The counts of all histograms in the bins that any of them has: [from, to, counts]. */
function sharedBins(histograms) {
  const bins = new Map();
  histograms.forEach(({ edges_us: edges, counts }, which) => {
    counts.forEach((count, bin) => {
      const known = bins.get(edges[bin]) ?? [edges[bin], edges[bin + 1], histograms.map(() => 0)];
      known[2][which] = count;
      bins.set(edges[bin], known);
    });
  });
  return [...bins.values()].sort((a, b) => a[0] - b[0]);
}

/** A histogram of one worker or of several. */
function durationChart(histograms, name, title, what) {
  const bins = sharedBins(histograms);
  const totals = bins.map(([, , counts]) => counts.reduce((a, b) => a + b));
  const edges = [...bins.map(([from]) => from), bins[bins.length - 1][1]];
  const medians = histograms.map((one) => one.median_us);
  const largest = Math.max(...histograms.map((one) => one.max_us));
  const together = histograms.length > MOST_OUTLINES;
  const outlined = histograms.length > 1 && !together;
  return {
    name,
    group: 'Timing',
    title,
    summary:
      `${what}: median ${Math.min(...medians) < Math.max(...medians) ? range(medians) : format(medians[0])} µs, ` +
      `largest ${format(largest)} µs.` +
      (together ? ` All ${histograms.length} workers together; the tables tell them apart.` : ''),
    notes: [],
    option: () => {
      if (!outlined) {
        const label = together ? 'all workers' : histograms[0].name;
        return barChart([bars(label, edges, totals, colours().after)], 'cycles', edges[0], edges[edges.length - 1]);
      }
      const option = base(
        logAxis('time, µs', { min: edges[0], max: edges[edges.length - 1] }),
        countAxis('cycles'),
        histograms.map(outline),
      );
      option.tooltip.formatter = ([{ axisValue }]) => {
        const next = bins.findIndex(([from]) => from > axisValue * 1.0001);
        return describeBin((next < 0 ? bins.length : Math.max(next, 1)) - 1).join('<br>');
      };
      return option;
    },
    ...(outlined ? { describe: (index) => describeBin(index).join('; '), count: bins.length, first: 1 } : {}),
    table: {
      columns: ['from, µs', 'to, µs', ...histograms.map((one) => one.name)],
      rows: () => bins.map(([from, to, counts]) => [from, to, ...counts.map(String)]),
    },
  };

  function describeBin(index) {
    const [from, to, counts] = bins[Math.min(index, bins.length - 1)];
    return [`${format(from)} to ${format(to)} µs`, ...histograms.map((one, which) => `${one.name}: ${counts[which]}`)];
  }
}

function speedChart(speeds) {
  const ratio = ({ product_gb_per_s: product, read_gb_per_s: read }) => (product && read ? product / read : null);
  const column = (name, key, colour, decal) => ({
    type: 'bar',
    name,
    data: speeds.map((one) => one[key]),
    itemStyle: { color: colour, ...(decal ? { decal } : {}) },
    label: { show: few, position: 'top', color: colours().text, formatter: ({ value }) => format(value) },
    barMaxWidth: 60,
    emphasis: { disabled: true },
  });
  const ratios = speeds.map(ratio);
  const few = speeds.length <= 4; // on the narrowest page each has its name below it and its figures above
  return {
    name: 'speeds',
    group: 'Timing',
    title: 'Speed of the product against a streaming read',
    summary:
      'Bytes of the matrix over the median time: of the product, and of only reading the same bytes in between. ' +
      `Ratio ${range(ratios)}.`,
    notes: [],
    option: () => {
      const { text } = colours();
      const option = base(
        {
          ...axis('', {}),
          type: 'category',
          data: speeds.map((one) => one.name),
          axisLabel: few
            ? { color: text, fontSize: 12, interval: 0, formatter: (name) => name.replace(' on ', '\non ') }
            : { color: text, fontSize: 12, rotate: 90, hideOverlap: true },
        },
        axis('GB/s', { min: 0 }),
        [
          column('product', 'product_gb_per_s', colours().after),
          column('read', 'read_gb_per_s', colours().before, {
            symbol: 'rect',
            color: 'rgba(255,255,255,0.45)',
            dashArrayX: [1, 0],
            dashArrayY: [3, 4],
            rotation: -Math.PI / 4,
          }),
        ],
        true,
      );
      option.tooltip.formatter = ([{ dataIndex }]) => describeSpeed(dataIndex).join('<br>');
      option.tooltip.axisPointer = { type: 'shadow' };
      option.grid.bottom = few ? 48 : 110;
      return option;
    },
    describe: (index) => describeSpeed(index).join('; '),
    count: speeds.length,
    table: {
      columns: ['worker', 'product, GB/s', 'read, GB/s', 'ratio'],
      rows: () => speeds.map((one, index) => [one.name, one.product_gb_per_s, one.read_gb_per_s, ratios[index]]),
    },
  };

  function describeSpeed(index) {
    const one = speeds[Math.min(index, speeds.length - 1)];
    return [
      one.name,
      `product ${format(one.product_gb_per_s)} GB/s`,
      `read ${format(one.read_gb_per_s)} GB/s`,
      `ratio ${format(ratio(one))}`,
    ];
  }
}

/** What the workers took, one by one or together. */
export function workerCharts(data) {
  const charts = [];
  if (data.execution_times) {
    charts.push(
      durationChart(data.execution_times, 'execution_times', 'Execution times', 'Of the workers’ task in a cycle'),
    );
  }
  if (data.start_latencies) {
    charts.push(
      durationChart(
        data.start_latencies,
        'start_latencies',
        'Start latency',
        'From giving the start to the worker at work',
      ),
    );
  }
  if (data.speeds) {
    charts.push(speedChart(data.speeds));
  }
  return charts;
}
