// SPDX-License-Identifier: Apache-2.0
// Tables that sort by a click on a column's head.
import { css, photoColour } from './colours.js';
import { duration, h, memory, percent } from './dom.js';

const collator = new Intl.Collator(undefined, { numeric: true });

/** Missing values last, whatever the direction. */
export function compareBy(value, descending) {
  return (a, b) => {
    const x = value(a);
    const y = value(b);
    if (x === null || y === null) return (x === null) - (y === null);
    const order = typeof x === 'number' ? x - y : collator.compare(x, y);
    return descending ? -order : order;
  };
}

/**
 * @param columns [{title, value(row) for sorting, cell(row) -> nodes, numeric, descendingFirst}]
 * @returns the table element, with `.update(rows)`
 */
function sortableTable(caption, columns, rowElement, first) {
  let sorted = { column: first, descending: false };
  let rows = [];
  const body = h('tbody');
  const heads = columns.map((column) => {
    const button = h(
      'button',
      { type: 'button', onclick: () => sortBy(column) },
      column.title,
      h('span', { class: 'arrow', 'aria-hidden': 'true' }),
    );
    return h('th', { scope: 'col', class: column.class ?? null }, button);
  });
  const table = h(
    'table',
    {},
    h('caption', { class: 'for-ears' }, caption),
    h('thead', {}, h('tr', {}, heads)),
    body,
  );

  function sortBy(column) {
    const again = sorted.column === column;
    sorted = {
      column,
      descending: again ? !sorted.descending : column.descendingFirst === true,
    };
    draw();
  }
  function draw() {
    heads.forEach((head, i) => {
      if (columns[i] !== sorted.column) head.removeAttribute('aria-sort');
      else head.setAttribute('aria-sort', sorted.descending ? 'descending' : 'ascending');
    });
    const ordered = [...rows].sort(compareBy(sorted.column.value, sorted.descending));
    body.replaceChildren(...ordered.map(rowElement));
  }
  table.update = (next) => {
    rows = next;
    draw();
  };
  return table;
}

function meter(share, most, kind) {
  const width = most > 0 ? Math.max((100 * share) / most, share > 0 ? 1.5 : 0) : 0;
  return h(
    'span',
    { class: 'meter', 'aria-hidden': 'true' },
    h('span', { class: `fill ${kind}`, style: `width:${width.toFixed(1)}%` }),
  );
}

const shareOf = (photo, field) => (Number.isFinite(photo[field]) ? photo[field] : null);

/** @param onPick called with the photo whose name is clicked */
export function photoTable(photos, onPick) {
  const most = {
    hidden: Math.max(0, ...photos.map((photo) => photo.hidden ?? 0)),
    supplied: Math.max(0, ...photos.map((photo) => photo.supplied ?? 0)),
  };
  const numberColumn = { title: 'No.', value: (p) => p.number, class: 'numeric' };
  const columns = [
    numberColumn,
    { title: 'Photo', value: (p) => p.name },
    {
      title: 'Hidden',
      value: (p) => shareOf(p, 'hidden'),
      class: 'numeric',
      descendingFirst: true,
    },
    {
      title: 'Supplied',
      value: (p) => shareOf(p, 'supplied'),
      class: 'numeric',
      descendingFirst: true,
    },
    { title: 'State', value: (p) => (p.done === false ? `0 ${p.reason}` : '1') },
  ];
  const share = (photo, field) => {
    const value = shareOf(photo, field);
    return h(
      'td',
      { class: 'numeric' },
      value === null ? h('span', { class: 'quiet' }, '–') : percent(value),
      value === null ? null : meter(value, most[field], field),
    );
  };
  const rowElement = (photo) =>
    h(
      'tr',
      { 'data-number': photo.number, class: photo.done === false ? 'failed' : null },
      h('td', { class: 'numeric quiet' }, String(photo.number)),
      h(
        'th',
        { scope: 'row' },
        h(
          'button',
          {
            type: 'button',
            class: 'photo',
            onclick: () => onPick(photo),
            title: 'Show on the map',
          },
          h('span', {
            class: 'chip',
            style: `background:${css(photoColour(photo.number))}`,
            'aria-hidden': 'true',
          }),
          photo.name,
        ),
      ),
      share(photo, 'hidden'),
      share(photo, 'supplied'),
      h(
        'td',
        {},
        photo.done === false ? h('span', { class: 'bad' }, `Failed: ${photo.reason}`) : 'Done',
      ),
    );
  const table = sortableTable('Photos of the job', columns, rowElement, numberColumn);
  table.update(photos);
  return table;
}

/** Stages in their order, with their times as bars. */
export function stageTable(stages) {
  const longest = Math.max(0, ...stages.map((stage) => stage.seconds));
  const withMemory = stages.some((stage) => Number.isFinite(stage.memory));
  const all = stages.reduce((sum, stage) => sum + stage.seconds, 0);
  return h(
    'table',
    { class: 'stages' },
    h('caption', { class: 'for-ears' }, 'Stages of the job with their times'),
    h(
      'thead',
      {},
      h(
        'tr',
        {},
        h('th', { scope: 'col' }, 'Stage'),
        h('th', { scope: 'col' }, 'Time'),
        withMemory ? h('th', { scope: 'col', class: 'numeric' }, 'Peak memory') : null,
      ),
    ),
    h(
      'tbody',
      {},
      stages.map((stage) =>
        h(
          'tr',
          {},
          h('th', { scope: 'row' }, stage.name),
          h(
            'td',
            { class: 'bar' },
            meter(stage.seconds, longest, 'time'),
            h('span', {}, duration(stage.seconds)),
            h('span', { class: 'quiet share' }, all > 0 ? percent(stage.seconds / all) : ''),
          ),
          withMemory
            ? h('td', { class: 'numeric' }, stage.memory ? memory(stage.memory) : '–')
            : null,
        ),
      ),
    ),
  );
}

/** Names and values. */
export function pairList(pairs) {
  return h(
    'dl',
    { class: 'pairs' },
    pairs.map(([name, value]) => h('div', {}, h('dt', {}, name), h('dd', {}, value))),
  );
}
