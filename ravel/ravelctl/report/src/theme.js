// Light and dark. Colours follow Okabe and Ito, whom people with any colour vision can tell apart; what differs in
// colour also differs in brightness or in the line's pattern.

const LIGHT = {
  text: '#1b1f24',
  quiet: '#57606a',
  line: '#d0d7de',
  card: '#ffffff',
  before: '#b34700',
  after: '#0063a3',
  third: '#00735c',
  mark: '#6b3fa0',
  missed: '#b34700',
  // From - over 0 to +.
  diverging: ['#08306b', '#2171b5', '#9ecae1', '#f4f4f2', '#fdbe85', '#d9650b', '#7f2704'],
};

const DARK = {
  text: '#e8ecf0',
  quiet: '#a3adb8',
  line: '#39424d',
  card: '#181d23',
  before: '#f0a830',
  after: '#62bdf5',
  third: '#3fd0a8',
  mark: '#cbb2f7',
  missed: '#f0a830',
  diverging: ['#b9e2ff', '#5fb0ee', '#2f6b98', '#363d46', '#96521b', '#ee8a35', '#ffdcb8'],
};

const listeners = [];
let chosen = null; // the user's, who is asked only through the button
let printing = false;
const system = window.matchMedia('(prefers-color-scheme: dark)');

export function isDark() {
  return !printing && (chosen ?? (system.matches ? 'dark' : 'light')) === 'dark';
}

export function colours() {
  return isDark() ? DARK : LIGHT;
}

/** Calls `listener` whenever colours or the page's width for paper change. */
export function onTheme(listener) {
  listeners.push(listener);
}

function apply() {
  document.documentElement.dataset.theme = isDark() ? 'dark' : 'light';
  const button = document.getElementById('theme');
  button.textContent = isDark() ? 'Light' : 'Dark';
  button.setAttribute('aria-label', isDark() ? 'Use light colours' : 'Use dark colours');
  listeners.forEach((listener) => listener(printing));
}

export function startTheme() {
  document.getElementById('theme').addEventListener('click', () => {
    chosen = isDark() ? 'light' : 'dark';
    apply();
  });
  system.addEventListener('change', apply);
  window.addEventListener('beforeprint', () => {
    printing = true;
    apply();
  });
  window.addEventListener('afterprint', () => {
    printing = false;
    apply();
  });
  apply();
}

/** The colour of `value`, from -1 to 1, as an rgb() text. */
export function divergingColour(value) {
  const stops = colours().diverging;
  const place = ((Math.max(-1, Math.min(1, value)) + 1) / 2) * (stops.length - 1);
  const index = Math.min(Math.floor(place), stops.length - 2);
  const channel = (stop, at) => parseInt(stop.slice(at, at + 2), 16);
  const mixed = [1, 3, 5].map((at) => {
    const from = channel(stops[index], at);
    return Math.round(from + (channel(stops[index + 1], at) - from) * (place - index));
  });
  return `rgb(${mixed.join(',')})`;
}
