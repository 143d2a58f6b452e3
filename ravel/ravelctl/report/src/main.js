// Builds the page from the data that it holds. Sections without data are left out.

import { BarChart, CustomChart, LineChart } from 'echarts/charts';
import { AriaComponent, GridComponent, LegendComponent, MarkLineComponent, TooltipComponent } from 'echarts/components';
import { init, use } from 'echarts/core';
import { SVGRenderer } from 'echarts/renderers';

import { chartFigure, chartsOf, describePoint } from './charts.js';
import { mirrorSection } from './mirror.js';
import { element, format } from './page.js';
import { onTheme, startTheme } from './theme.js';

use([
  AriaComponent,
  BarChart,
  CustomChart,
  GridComponent,
  LegendComponent,
  LineChart,
  MarkLineComponent,
  SVGRenderer,
  TooltipComponent,
]);

const ON_PAPER = { width: 660, height: 300 }; // px, of a chart: two of them go on a page of A4 or letter paper

function verdictOf(data) {
  const count = data.problems.length;
  return data.verdict + (count === 0 ? '' : count === 1 ? ', with a problem' : `, with ${count} problems`);
}

function resultSection(data) {
  const card = element(
    'div',
    { class: 'card' },
    element('p', { class: `verdict ${data.good ? 'good' : 'bad'}` }, verdictOf(data)),
  );
  if (data.problems.length) {
    card.append(
      element(
        'ul',
        { class: 'problems', 'aria-label': 'Problems' },
        ...data.problems.map((problem) => element('li', {}, problem)),
      ),
    );
  }
  if (data.figures.length) {
    const row = ({ name, before_nm: before, after_nm: after }) =>
      element(
        'tr',
        {},
        element('th', { scope: 'row' }, name),
        element('td', {}, format(before)),
        element('td', {}, format(after)),
        element('td', {}, before && after ? format(before / after) : '-'),
      );
    const head = ['rms, nm', 'before', 'after', 'times less'].map((text) => element('th', { scope: 'col' }, text));
    card.append(
      element(
        'table',
        {},
        element('thead', {}, element('tr', {}, ...head)),
        element('tbody', {}, ...data.figures.map(row)),
      ),
    );
  }
  if (data.left_out.length) {
    card.append(
      element('p', { class: 'note' }, 'Not in this report:'),
      element('ul', { class: 'problems note' }, ...data.left_out.map((text) => element('li', {}, text))),
    );
  }
  return element('section', { 'aria-label': 'Result' }, element('h2', {}, 'Result'), card);
}

/** Tables of durations. The roles say again what a narrow page's style would take from the elements. */
function figureTables(tables) {
  const cell = (name, role, attributes, text) => element(name, { role, ...attributes }, text);
  const line = ({ name, values }, columns) =>
    element(
      'tr',
      { role: 'row' },
      cell('th', 'rowheader', { scope: 'row' }, name),
      ...values.map((value, index) =>
        cell('td', 'cell', { 'data-column': columns[index] }, value === null ? '-' : value.toFixed(1)),
      ),
    );
  return tables.map(({ title, columns, rows }) => {
    const head = [`${title}, µs`, ...columns].map((text) => cell('th', 'columnheader', { scope: 'col' }, text));
    return element(
      'div',
      { class: 'card figures' },
      element(
        'table',
        { role: 'table', 'aria-label': title },
        element('thead', { role: 'rowgroup' }, element('tr', { role: 'row' }, ...head)),
        element('tbody', { role: 'rowgroup' }, ...rows.map((row) => line(row, columns))),
      ),
    );
  });
}

function parameterSection(data) {
  const tables = data.parameters.map(({ title, rows }) =>
    element(
      'div',
      { class: 'card parameters' },
      element(
        'table',
        {},
        element('caption', {}, title),
        element(
          'tbody',
          {},
          ...rows.map(([name, value]) =>
            element('tr', {}, element('th', { scope: 'row' }, name), element('td', {}, value)),
          ),
        ),
      ),
    ),
  );
  return element(
    'section',
    { 'aria-label': 'Parameters' },
    element('h2', {}, 'Parameters'),
    element('div', { class: 'columns' }, ...tables),
  );
}

/** Left and right go from point to point. */
function addKeys(chart, drawing, readout, drawn) {
  let index = -1;
  drawing.addEventListener('keydown', (event) => {
    const count = chart.count ?? chart.option().series[0].data.length;
    const step = { ArrowRight: 1, ArrowLeft: -1, PageUp: 20, PageDown: -20 }[event.key];
    if (event.key === 'Escape') {
      drawn.dispatchAction({ type: 'hideTip' });
      return;
    }
    if (step !== undefined) {
      index = Math.max(0, Math.min(count - 1, index + step));
    } else if (event.key === 'Home' || event.key === 'End') {
      index = event.key === 'Home' ? 0 : count - 1;
    } else {
      return;
    }
    event.preventDefault();
    drawn.dispatchAction({ type: 'showTip', seriesIndex: 0, dataIndex: index + (chart.first ?? 0) });
    readout.textContent = describePoint(chart, chart.option(), index);
  });
  drawing.addEventListener('blur', () => drawn.dispatchAction({ type: 'hideTip' }));
}

function build(data) {
  document.title = `ravelctl: ${data.title}`;
  document.getElementById('title').textContent = data.title.replace(/T(\d\d:\d\d:\d\d)Z/, ' $1 UTC');
  document.getElementById('subtitle').textContent = `ravelctl ${data.version}: ${verdictOf(data)}`;
  document.getElementById('maker').textContent = `Written by ravelctl ${data.version}. This file needs no network.`;
  const main = document.getElementById('main');
  main.replaceChildren(resultSection(data));
  if (data.mirror) {
    main.append(mirrorSection(data));
  }
  const drawings = [];
  const charts = chartsOf(data);
  for (const group of new Set(charts.map((chart) => chart.group))) {
    const grouped = charts.filter((one) => one.group === group);
    const columns = element('div', { class: grouped.length > 1 ? 'columns' : '' });
    const tables = group === 'Timing' ? figureTables(data.tables) : [];
    for (const chart of grouped) {
      const made = chartFigure(chart);
      columns.append(made.figure);
      drawings.push({ chart, ...made });
    }
    main.append(element('section', { 'aria-label': group }, element('h2', {}, group), ...tables, columns));
  }
  main.append(parameterSection(data));

  const shown = {};
  for (const { chart, drawing, readout } of drawings) {
    const drawn = init(drawing, null, { renderer: 'svg' });
    const draw = (printing) => {
      drawn.resize(printing ? ON_PAPER : { width: 'auto', height: 'auto' });
      const option = chart.option();
      option.aria.label = { description: `${chart.title}. ${chart.summary} Arrow keys go from point to point.` };
      drawn.setOption(option, true);
    };
    addKeys(chart, drawing, readout, drawn);
    onTheme(draw);
    // Without a width there is nobody to draw for; browsers do that to a page for a moment to take its picture.
    new ResizeObserver(() => drawing.clientWidth > 0 && drawn.resize({ width: 'auto' })).observe(drawing);
    shown[chart.name] = drawn;
  }
  startTheme();
  window.ravelReport = { data, charts: shown }; // for the browser's console
}

build(JSON.parse(document.getElementById('report-data').textContent));
