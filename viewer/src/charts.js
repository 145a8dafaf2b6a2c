// SPDX-License-Identifier: Apache-2.0
// What each photo gave against what it could not see, one dot per photo.
import { css, photoColour } from './colours.js';
import { percent, svg } from './dom.js';

/** Round steps that cut 0 to `most` into at most five parts. */
export function ticks(most) {
  if (!(most > 0)) return [0, 1];
  const raw = most / 4;
  const power = 10 ** Math.floor(Math.log10(raw));
  const step = [1, 2, 2.5, 5, 10].find((f) => f * power >= raw) * power;
  const list = [];
  for (let i = 0; i * step < most + step * 0.999; ++i) list.push(i * step);
  return list;
}

const label = (share) => `${Number((100 * share).toPrecision(3))} %`;

/** @param onPick called with the photo whose dot is clicked */
export function photoChart(photos, onPick) {
  const shown = photos.filter((p) => Number.isFinite(p.hidden) && Number.isFinite(p.supplied));
  if (shown.length < 2) return null;
  const width = 460;
  const height = 300;
  const area = { left: 56, right: width - 16, top: 14, bottom: height - 46 };
  const xs = ticks(Math.max(...shown.map((p) => p.hidden)));
  const ys = ticks(Math.max(...shown.map((p) => p.supplied)));
  const x = (v) => area.left + ((area.right - area.left) * v) / xs.at(-1);
  const y = (v) => area.bottom - ((area.bottom - area.top) * v) / ys.at(-1);
  const best = shown.reduce((a, b) => (b.supplied > a.supplied ? b : a));
  const blind = shown.reduce((a, b) => (b.hidden > a.hidden ? b : a));
  const summary =
    `Hidden against supplied share of ${shown.length} photos. ${best.name} supplied the most, ` +
    `${percent(best.supplied)} of the mosaic; most is hidden from ${blind.name}, ` +
    `${percent(blind.hidden)}. The table of photos holds all values.`;
  return svg(
    'svg',
    { viewBox: `0 0 ${width} ${height}`, class: 'chart', role: 'img', 'aria-label': summary },
    xs.map((v) => [
      svg('line', { class: 'grid', x1: x(v), x2: x(v), y1: area.top, y2: area.bottom }),
      svg('text', { x: x(v), y: area.bottom + 17, 'text-anchor': 'middle' }, label(v)),
    ]),
    ys.map((v) => [
      svg('line', { class: 'grid', x1: area.left, x2: area.right, y1: y(v), y2: y(v) }),
      svg('text', { x: area.left - 7, y: y(v) + 4, 'text-anchor': 'end' }, label(v)),
    ]),
    svg(
      'text',
      { x: (area.left + area.right) / 2, y: height - 8, 'text-anchor': 'middle' },
      'hidden share of the photo’s own ground',
    ),
    svg(
      'text',
      {
        transform: `translate(12 ${(area.top + area.bottom) / 2}) rotate(-90)`,
        'text-anchor': 'middle',
      },
      'share of the mosaic supplied',
    ),
    shown.map((photo) =>
      svg(
        'circle',
        {
          cx: x(photo.hidden),
          cy: y(photo.supplied),
          r: shown.length > 150 ? 4 : 6,
          fill: css(photoColour(photo.number)),
          onclick: () => onPick(photo),
        },
        svg(
          'title',
          {},
          `${photo.name}: hidden ${percent(photo.hidden)}, supplied ${percent(photo.supplied)}`,
        ),
      ),
    ),
  );
}
