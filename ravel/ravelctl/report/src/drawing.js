// What all charts share: axes, lines, marks, and how they look.

import { format, formatPower } from './page.js';
import { colours } from './theme.js';

export function axis(name, more = {}) {
  const { text, quiet, line } = colours();
  return {
    type: 'value',
    name,
    nameLocation: 'middle',
    nameGap: 30,
    nameTextStyle: { color: text, fontSize: 12 },
    axisLine: { show: true, onZero: false, lineStyle: { color: quiet } },
    axisTick: { lineStyle: { color: quiet } },
    splitLine: { lineStyle: { color: line } },
    ...more,
    axisLabel: { color: quiet, fontSize: 12, hideOverlap: true, ...more.axisLabel },
  };
}

export function logAxis(name, more = {}) {
  const axisLabel = { formatter: formatPower, ...more.axisLabel };
  return { ...axis(name, { ...more, axisLabel }), type: 'log' };
}

/** `symbols`: the series are single points rather than lines. */
export function base(x, y, series, symbols = false) {
  const { text, quiet, card } = colours();
  return {
    animation: false,
    aria: { enabled: true },
    textStyle: { fontFamily: 'system-ui, "DejaVu Sans", sans-serif' },
    grid: { left: 66, right: 18, top: 44, bottom: 48 },
    legend: {
      top: 0,
      left: 0,
      textStyle: { color: text, fontSize: 12 },
      itemWidth: 28,
      inactiveColor: quiet,
      itemStyle: { opacity: symbols ? 1 : 0 },
    },
    tooltip: {
      trigger: 'axis',
      confine: true,
      backgroundColor: card,
      borderColor: quiet,
      textStyle: { color: text, fontSize: 12 },
      axisPointer: { lineStyle: { color: quiet } },
    },
    xAxis: x,
    yAxis: { ...y, nameGap: 48 },
    series,
  };
}

export function line(name, data, colour, more = {}) {
  return {
    type: 'line',
    name,
    data,
    symbol: 'none',
    connectNulls: false,
    emphasis: { disabled: true },
    itemStyle: { color: colour },
    ...more,
    lineStyle: { color: colour, width: 1.8, ...more.lineStyle },
  };
}

/** Lines across the chart at moments or frequencies. */
export function marks(places, letters = true) {
  const { mark, text, card } = colours();
  return {
    symbol: 'none',
    silent: true,
    animation: false,
    data: places.map(({ at, name, dotted }, index) => ({
      xAxis: at,
      lineStyle: { color: mark, type: dotted ? 'dotted' : 'dashed', width: 1.5 },
      label: {
        formatter: letters && dotted ? String(index) : name,
        position: letters && dotted ? 'end' : 'insideEndTop',
        rotate: letters && dotted ? 0 : 90,
        color: text,
        textBorderColor: card,
        textBorderWidth: 2,
        fontSize: 11,
      },
    })),
  };
}

/** The smallest and the largest of some values, in words. */
export const range = (values) => {
  const known = values.filter((value) => value !== null && Number.isFinite(value));
  return known.length ? `${format(Math.min(...known))} to ${format(Math.max(...known))}` : 'nothing';
};
