// The mirror: one hexagon per segment, before and at a moment that a slider chooses.

import { element, foldedTable, format } from './page.js';
import { colours, divergingColour, onTheme } from './theme.js';

const SVG = 'http://www.w3.org/2000/svg';
const ROOT3 = Math.sqrt(3);

/** The smallest of 1, 2, 5, 10, 20, ... that is not below `value`. */
function roundUp(value) {
  const power = 10 ** Math.floor(Math.log10(Math.max(value, 1e-6)));
  return [1, 2, 5, 10].map((step) => step * power).find((step) => step >= value * (1 - 1e-9)) ?? 10 * power;
}

/** A scale that shows all but the few largest errors; those beyond it have its end's colour. */
function scaleFor(values) {
  const sizes = values
    .filter((value) => value !== null)
    .map(Math.abs)
    .sort((a, b) => a - b);
  return sizes.length ? roundUp(sizes[Math.floor(0.98 * (sizes.length - 1))] || 0.1) : 1;
}

class Map {
  constructor(mirror, name, onChoose) {
    this.mirror = mirror;
    this.onChoose = onChoose;
    this.svg = document.createElementNS(SVG, 'svg');
    this.svg.setAttribute('tabindex', '0');
    this.svg.setAttribute('role', 'application');
    this.svg.setAttribute('aria-roledescription', 'mirror map');
    this.title = element('h3', {}, name);
    this.bar = element('div', { class: 'bar' });
    this.ticks = element('div', { class: 'ticks' });
    this.box = element(
      'div',
      { class: 'map' },
      this.title,
      this.svg,
      element('div', { class: 'legend' }, this.bar, this.ticks),
    );
    this.draw();
    this.svg.addEventListener('pointermove', (event) => this.hover(event));
    this.svg.addEventListener('pointerleave', () => this.onChoose(null));
    this.svg.addEventListener('keydown', (event) => this.step(event));
  }

  draw() {
    const corners = [];
    let extent = 0;
    for (let k = 0; k < 6; ++k) {
      const angle = Math.PI / 6 + (k * Math.PI) / 3;
      corners.push([Math.cos(angle) / ROOT3, Math.sin(angle) / ROOT3]);
    }
    this.polygons = this.mirror.segments.map(([q, r], index) => {
      const x = q + r / 2;
      const y = (-ROOT3 / 2) * r; // up on the mirror is up on the page
      extent = Math.max(extent, Math.abs(x) + 1, Math.abs(y) + 1);
      const polygon = document.createElementNS(SVG, 'polygon');
      polygon.setAttribute(
        'points',
        corners.map(([dx, dy]) => `${(x + dx).toFixed(3)},${(y + dy).toFixed(3)}`).join(' '),
      );
      polygon.dataset.segment = index;
      this.svg.append(polygon);
      return polygon;
    });
    this.svg.setAttribute('viewBox', `${-extent} ${-extent} ${2 * extent} ${2 * extent}`);
  }

  show(name, values, scale) {
    this.title.textContent = name;
    this.svg.setAttribute(
      'aria-label',
      `${name}: errors of ${values.length} segments. Arrow keys go from segment to segment.`,
    );
    values.forEach((value, index) => {
      this.polygons[index].setAttribute('fill', value === null ? 'none' : divergingColour(value / scale));
    });
    this.bar.style.background = `linear-gradient(to right, ${colours().diverging.join(',')})`;
    this.ticks.replaceChildren(
      ...[-1, -0.5, 0, 0.5, 1].map((part) =>
        element(
          'span',
          {},
          `${part < 0 ? '−' : part > 0 ? '+' : ''}${format(Math.abs(part * scale))}${part === 1 ? ' nm' : ''}`,
        ),
      ),
    );
  }

  mark(segment) {
    this.marked?.classList.remove('chosen');
    this.marked = segment === null ? undefined : this.polygons[segment];
    if (this.marked) {
      this.marked.classList.add('chosen');
      this.svg.append(this.marked); // above its neighbours
    }
  }

  hover(event) {
    const segment = event.target.dataset?.segment;
    this.onChoose(segment === undefined ? null : Number(segment), event);
  }

  step(event) {
    const [dq, dr] = { ArrowRight: [1, 0], ArrowLeft: [-1, 0], ArrowUp: [0, 1], ArrowDown: [0, -1] }[event.key] ?? [
      0, 0,
    ];
    if (dq === 0 && dr === 0) {
      return;
    }
    event.preventDefault();
    const from = this.marked ? Number(this.marked.dataset.segment) : null;
    if (from === null) {
      this.onChoose(0);
      return;
    }
    let [q, r] = this.mirror.segments[from];
    for (let i = 0; i < 40; ++i) {
      // over the hole in the middle
      q += dq;
      r += dr;
      const next = this.mirror.segments.findIndex(([otherQ, otherR]) => otherQ === q && otherR === r);
      if (next >= 0) {
        this.onChoose(next);
        return;
      }
    }
  }
}

/** The section of the mirror. */
export function mirrorSection(data) {
  const mirror = data.mirror;
  const frames = mirror.piston_tenths_nm.map((frame) => frame.map((value) => (value === null ? null : value / 10)));
  const last = frames.length - 1;
  const before = mirror.before;
  const beforeName =
    before === null
      ? ''
      : `Before: loop open, ${format(mirror.time_s[before])} s, ${format(mirror.rms_nm[before])} nm rms`;
  let frame = last;
  let chosen = null;
  let timer = null;

  const tip = element('div', { class: 'tip', hidden: '' });
  const readout = element('output', { class: 'readout', 'aria-live': 'polite' });
  const choose = (segment, event) => {
    chosen = segment;
    maps.forEach((map) => map.mark(segment));
    tip.hidden = segment === null || !event;
    if (!tip.hidden) {
      tip.textContent = describe(segment);
      const left = Math.min(event.clientX + 14, window.innerWidth - tip.offsetWidth - 8);
      tip.style.left = `${Math.max(4, left)}px`;
      tip.style.top = `${event.clientY + 16}px`;
    }
    tell();
  };
  const maps = [];
  const beforeMap = before === null ? null : new Map(mirror, '', choose);
  const nowMap = new Map(mirror, '', choose);
  if (beforeMap) {
    maps.push(beforeMap);
  }
  maps.push(nowMap);

  const slider = element('input', {
    type: 'range',
    min: 0,
    max: last,
    step: 1,
    value: last,
    'aria-label': 'Moment of the run',
    input: () => show(Number(slider.value)),
  });
  const moment = element('output', { class: 'moment' });
  const play = element('button', { type: 'button', click: () => (timer ? pause() : start()) }, 'Play');
  const scale = element(
    'select',
    { change: () => show(frame) },
    element('option', { value: 'own' }, 'each map its own'),
    ...(beforeMap ? [element('option', { value: 'before' }, 'both as before')] : []),
  );
  const table = foldedTable('Segments as a table', ['segment', 'q', 'r', 'before, nm', 'at the moment, nm'], () =>
    mirror.segments.map(([q, r], index) => [
      String(index),
      String(q),
      String(r),
      before === null ? null : frames[before][index],
      frames[frame][index],
    ]),
  );

  function describe(segment) {
    const [q, r] = mirror.segments[segment];
    const was = before === null ? '' : `${format(frames[before][segment])} nm before, `;
    const is = `${format(frames[frame][segment])} nm at ${format(mirror.time_s[frame])} s`;
    return `Segment ${segment} (q ${q}, r ${r}): ${was}${is}`;
  }
  function tell() {
    readout.textContent =
      chosen === null
        ? 'Point at a segment, or go to a map with the tabulator and use the arrow keys.'
        : describe(chosen);
  }
  function show(index) {
    frame = index;
    slider.value = index;
    const text = `${format(mirror.time_s[index])} s, ${format(mirror.rms_nm[index])} nm rms`;
    moment.textContent = text;
    slider.setAttribute('aria-valuetext', text);
    const own = scaleFor(frames[index]);
    const beforeScale = before === null ? own : scaleFor(frames[before]);
    beforeMap?.show(beforeName, frames[before], beforeScale);
    nowMap.show(`At ${text}`, frames[index], scale.value === 'before' ? beforeScale : own);
    table.refresh();
    tell();
  }
  function pause() {
    clearInterval(timer);
    timer = null;
    play.textContent = 'Play';
  }
  function start() {
    play.textContent = 'Pause';
    if (frame === last) {
      show(0);
    }
    timer = setInterval(() => {
      show(frame + 1);
      if (frame === last) {
        pause();
      }
    }, 150);
  }

  onTheme(() => show(frame));
  return element(
    'section',
    { 'aria-label': 'The mirror' },
    element('h2', {}, 'The mirror'),
    element(
      'div',
      { class: 'card' },
      element(
        'p',
        { class: 'note' },
        'Mean error of each segment’s three actuator points, nm. The moments are closest together where the loop closes.',
      ),
      element('div', { class: 'maps' }, ...maps.map((map) => map.box)),
      element('div', { class: 'controls' }, play, slider, moment, element('label', {}, 'Colour scale', scale)),
      readout,
      table,
      tip,
    ),
  );
}
