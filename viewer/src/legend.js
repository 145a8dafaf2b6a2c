// SPDX-License-Identifier: Apache-2.0
// What the colours of a layer mean.
import { QUALITY, css, hiddenColour } from './colours.js';
import { coveredCells } from './data.js';
import { h, percent } from './dom.js';

const key = (colour, text) =>
  h('li', {}, h('span', { class: 'chip', style: `background:${css(colour)}` }), text);

function qualityKeys(summary) {
  const covered = coveredCells(summary);
  const share = (cells) => (covered > 0 ? ` ${percent(cells / covered)}` : '');
  const cells = { 1: summary.seen - summary.seenByOne, 2: summary.seenByOne, 3: summary.filled };
  return Object.entries(QUALITY).map(([value, q]) => key(q.colour, q.short + share(cells[value])));
}

function hiddenKeys(most) {
  const count = Math.min(most, 5);
  const values = [
    ...new Set(
      Array.from({ length: count + 1 }, (_, i) => Math.round((i * most) / Math.max(count, 1))),
    ),
  ];
  return values.map((n) => key(hiddenColour(n, most), n === 0 ? 'hidden from none' : String(n)));
}

/** The legend's children for the layers shown (one or two). */
export function legendOf(layers, summary) {
  return layers.map((layer) => {
    const keys =
      layer.id === 'quality'
        ? qualityKeys(summary)
        : layer.id === 'hidden'
          ? hiddenKeys(layer.mostHidden)
          : [];
    return h(
      'div',
      { class: 'entry' },
      h('p', {}, h('strong', {}, layer.title), ` ${layer.about}`),
      keys.length ? h('ul', { class: 'keys' }, keys) : null,
    );
  });
}
