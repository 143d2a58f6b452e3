// Small helpers for elements and numbers.

/** An element with attributes (or properties, for functions) and children. */
export function element(name, attributes = {}, ...children) {
  const made = document.createElement(name);
  for (const [key, value] of Object.entries(attributes)) {
    if (typeof value === 'function') {
      made.addEventListener(key, value);
    } else if (value !== undefined && value !== null) {
      made.setAttribute(key, value);
    }
  }
  made.append(...children);
  return made;
}

/** A number with about three significant digits and no exponent where that can be read. */
export function format(value) {
  if (value === null || value === undefined || !Number.isFinite(value)) {
    return '-';
  }
  const size = Math.abs(value);
  if (size !== 0 && (size < 1e-3 || size >= 1e7)) {
    return value.toExponential(1).replace('e+', 'e').replace('-', '−');
  }
  const digits =
    size >= 100 || size === 0 ? 0 : size >= 10 ? 1 : size >= 1 ? 2 : size >= 0.1 ? 3 : size >= 0.01 ? 4 : 5;
  return value.toFixed(digits).replace('-', '−');
}

/** Ticks of a logarithmic axis: 0.01, 1, 1000, and powers of ten, or 1.8·10⁶ at its ends, beyond. */
export function formatPower(value) {
  const size = Math.abs(value);
  if (size >= 0.001 && size < 1e5) {
    return String(Number(value.toPrecision(3)));
  }
  const power = Math.floor(Math.log10(size) + 1e-9);
  const factor = size / 10 ** power;
  const raised = String(power).replace(/[-0-9]/g, (letter) => '⁻⁰¹²³⁴⁵⁶⁷⁸⁹'['-0123456789'.indexOf(letter)]);
  return `${factor > 1.05 ? `${factor.toFixed(1)}·` : ''}10${raised}`;
}

/** A table that is built when it is unfolded. `rows` makes the rows then. */
export function foldedTable(title, columns, rows) {
  const details = element('details', {}, element('summary', {}, title));
  const fill = () => {
    details.querySelector('.scroll')?.remove();
    if (!details.open) {
      return;
    }
    const head = element('tr', {}, ...columns.map((column) => element('th', { scope: 'col' }, column)));
    const body = element('tbody');
    for (const row of rows()) {
      body.append(
        element('tr', {}, ...row.map((cell) => element('td', {}, typeof cell === 'string' ? cell : format(cell)))),
      );
    }
    details.append(
      element(
        'div',
        { class: 'scroll', tabindex: 0, role: 'region', 'aria-label': title },
        element('table', {}, element('thead', {}, head), body),
      ),
    );
  };
  details.addEventListener('toggle', fill);
  details.refresh = fill;
  return details;
}
