// SPDX-License-Identifier: Apache-2.0
// Elements and numbers as text. Text from files only ever becomes text nodes and attributes.

/** h('a', {href: '#'}, 'text', child): null children are left out. */
export function h(tag, attributes = {}, ...children) {
  return fill(document.createElement(tag), attributes, children);
}

/** The same for drawings. */
export function svg(tag, attributes = {}, ...children) {
  return fill(document.createElementNS('http://www.w3.org/2000/svg', tag), attributes, children);
}

function fill(element, attributes, children) {
  for (const [name, value] of Object.entries(attributes)) {
    if (value === null || value === undefined || value === false) continue;
    if (name.startsWith('on')) element.addEventListener(name.slice(2), value);
    else element.setAttribute(name, value === true ? '' : value);
  }
  element.append(
    ...children.flat(Infinity).filter((child) => child !== null && child !== undefined),
  );
  return element;
}

/** 12345.678 as "12 345.68", with narrow spaces that do not break. */
export function number(value, digits = 0) {
  if (!Number.isFinite(value)) return '–';
  const [whole, rest] = Math.abs(value).toFixed(digits).split('.');
  const sign = value < 0 && Number(value.toFixed(digits)) !== 0 ? '−' : '';
  return sign + whole.replace(/\B(?=(\d{3})+$)/g, '\u202f') + (rest ? `.${rest}` : '');
}

/** A share from 0 to 1. Small ones keep a digit that says something. */
export function percent(share) {
  if (!Number.isFinite(share)) return '–';
  const value = 100 * share;
  const digits = value > 0 && value < 1 ? 2 : value < 99.95 ? 1 : value < 99.995 ? 2 : 0;
  return `${number(value, digits)}\u202f%`;
}

export function duration(seconds) {
  if (seconds < 0.1) return `${number(1000 * seconds)} ms`;
  if (seconds < 60) return `${number(seconds, seconds < 9.995 ? 2 : 1)} s`;
  const minutes = Math.round(seconds / 60);
  if (seconds < 3600) return `${Math.floor(seconds / 60)} min ${Math.floor(seconds % 60)} s`;
  return `${Math.floor(minutes / 60)} h ${minutes % 60} min`;
}

export function memory(bytes) {
  return bytes < 1e9 ? `${number(bytes / 1e6)} MB` : `${number(bytes / 1e9, 2)} GB`;
}
