// SPDX-License-Identifier: Apache-2.0
// What is known of one cell, in words.
import { cellAt } from './data.js';
import { QUALITY, css, photoColour } from './colours.js';
import { h, number } from './dom.js';

const nameOf = (report, n) => report.byNumber.get(n)?.name ?? `photo ${n}`;

/** Facts of the cell under a ground point; null outside the grid. */
export function describeCell(report, planes, point) {
  const cell = cellAt(report.grid, point);
  if (!cell) return null;
  const at = (plane) => (plane ? plane[cell.index] : null);
  return {
    point,
    photo: report.byNumber.get(at(planes.source)) ?? null,
    quality: at(planes.quality),
    frames: at(planes.frames),
    hidden: at(planes.hidden),
    nearest: at(planes.nearest),
  };
}

function seenText(cell) {
  const parts = [];
  if (QUALITY[cell.quality]) parts.push(QUALITY[cell.quality].text);
  if (cell.hidden !== null && cell.frames) {
    const photos = cell.frames === 1 ? '1 photo' : `${cell.frames} photos`;
    parts.push(`by their masks hidden from ${cell.hidden} of ${photos} over it`);
  }
  return parts.join(', ');
}

const decimals = (report) => (report.grid.cellX < 0.05 ? 3 : 2);

/** One sentence, for people who hear the page. */
export function cellSentence(report, cell) {
  if (!cell) return 'Outside the mosaic.';
  const [x, y] = cell.point.map((v) => v.toFixed(decimals(report)));
  const photo = cell.photo ? `Photo ${cell.photo.name}` : 'No photo';
  return `${photo}. East ${x}, north ${y}. ${seenText(cell)}.`;
}

/** The same for the line below the map. */
export function cellElements(report, cell, layers) {
  if (!cell) return [h('span', { class: 'quiet' }, 'Outside the mosaic')];
  const digits = decimals(report);
  const photo = cell.photo
    ? [
        h('span', { class: 'chip', style: `background:${css(photoColour(cell.photo.number))}` }),
        h('strong', { class: 'supplier' }, cell.photo.name),
        h('span', { class: 'quiet' }, `no. ${cell.photo.number}`),
      ]
    : [h('span', { class: 'quiet' }, 'no photo')];
  const naive =
    layers.includes('naive') && cell.nearest
      ? h('span', { class: 'quiet' }, `naive: ${nameOf(report, cell.nearest)}`)
      : null;
  return [
    h('span', { class: 'group' }, photo),
    h(
      'span',
      { class: 'group figures' },
      `E ${number(cell.point[0], digits)}  N ${number(cell.point[1], digits)}`,
    ),
    h('span', { class: 'group' }, seenText(cell)),
    naive,
  ];
}
