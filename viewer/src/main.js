// SPDX-License-Identifier: Apache-2.0
import 'ol/ol.css';
import './page.css';
import './map.css';
import { photoChart } from './charts.js';
import { coveredCells, readPlanes, readReport } from './data.js';
import { duration, h, memory, number, percent } from './dom.js';
import { makeMapSection } from './map_section.js';
import { pairList, photoTable, stageTable } from './tables.js';

const figure = (name, value) => h('div', {}, h('dt', {}, name), h('dd', {}, value));

function unitOf(report) {
  if (!report.crs || report.crs.metresPerUnit === 1) return 'm';
  return Math.abs(report.crs.metresPerUnit - 0.3048) < 1e-4 ? 'ft' : 'units';
}

function header(report) {
  const { summary: s, photos, grid } = report;
  const unit = unitOf(report);
  const failed = photos.filter((photo) => photo.done === false).length;
  const share = (cells) => percent(cells / coveredCells(s));
  const cell = `${Number(s.gsd.toPrecision(4))} ${unit}`;
  const size = `${number(grid.cols * grid.cellX)} × ${number(grid.rows * grid.cellY)} ${unit}`;
  return h(
    'header',
    {},
    h('h1', {}, report.title || 'True orthophoto report'),
    h(
      'p',
      { class: 'crs' },
      report.crs
        ? [report.crs.name, report.crs.code ? ` (${report.crs.code})` : '']
        : 'coordinate system unknown',
    ),
    h(
      'dl',
      { class: 'figures' },
      figure(
        'Photos',
        failed ? `${photos.length - failed} of ${photos.length}` : String(photos.length),
      ),
      failed
        ? h('div', { class: 'bad' }, h('dt', {}, 'Failed'), h('dd', {}, String(failed)))
        : null,
      figure('Cell', cell),
      grid.cols ? figure('Ground', size) : null,
      s.mosaicMade ? figure('Seen', share(s.seen)) : null,
      s.mosaicMade ? figure('By one photo only', share(s.seenByOne)) : null,
      s.mosaicMade ? figure('Filled', share(s.filled)) : null,
      s.mosaicMade ? figure('Seams', `${number(s.seamLength)} ${unit}`) : null,
      figure('Time', duration(s.seconds)),
      figure('Peak memory', memory(s.peakMemoryBytes)),
    ),
  );
}

function photoSection(report, onPick) {
  const filter = h('input', { type: 'search', id: 'filter', placeholder: 'name or reason' });
  const table = photoTable(report.photos, onPick);
  const count = h('span', { class: 'quiet', role: 'status' });
  const fits = (photo, text) =>
    `${photo.number} ${photo.name} ${photo.done === false ? `failed ${photo.reason}` : 'done'}`
      .toLowerCase()
      .includes(text);
  filter.addEventListener('input', () => {
    const rows = report.photos.filter((p) => fits(p, filter.value.trim().toLowerCase()));
    table.update(rows);
    count.textContent = rows.length < report.photos.length ? `${rows.length} shown` : '';
  });
  const chart = photoChart(report.photos, onPick);
  return h(
    'section',
    { class: 'photos', 'aria-labelledby': 'photos-title' },
    h('h2', { id: 'photos-title' }, 'Photos'),
    h('p', { class: 'filter' }, h('label', { for: 'filter' }, 'Find '), filter, count),
    h(
      'div',
      { class: 'scroll', tabindex: '0', role: 'region', 'aria-label': 'Table of photos' },
      table,
    ),
    chart
      ? h(
          'figure',
          {},
          chart,
          h('figcaption', {}, 'A photo far right and low sees little and gives little.'),
        )
      : null,
  );
}

function section(id, title, ...content) {
  return h('section', { 'aria-labelledby': id }, h('h2', { id }, title), content);
}

async function start() {
  const report = readReport();
  const app = document.getElementById('app');
  const hasGrid = report.grid.cols > 0;
  const mapSection = hasGrid ? makeMapSection(report, await readPlanes()) : null;
  const { summary: s } = report;
  app.append(
    h('a', { class: 'skip', href: '#photos-title' }, 'Skip the map'),
    header(report),
    h(
      'main',
      {},
      mapSection?.element ?? h('p', { class: 'empty' }, 'This job has no picture to show.'),
      h(
        'div',
        { class: 'below' },
        photoSection(report, (photo) => mapSection?.showPhoto(photo)),
        h(
          'div',
          { class: 'side-column' },
          report.notes.length
            ? section(
                'notes-title',
                'Notes',
                h(
                  'ul',
                  { class: 'notes' },
                  report.notes.map((n) => h('li', {}, n)),
                ),
              )
            : null,
          section(
            'stages-title',
            'Stages',
            stageTable(report.stages),
            s.photosKept
              ? h('p', { class: 'quiet' }, `${s.photosKept} photos were kept from an earlier run.`)
              : null,
          ),
          report.settings.length
            ? section('settings-title', 'Settings', pairList(report.settings))
            : null,
          report.versions.length
            ? section('versions-title', 'Versions', pairList(report.versions))
            : null,
        ),
      ),
    ),
  );
  await mapSection?.start();
  app.dataset.ready = 'true';
}

start().catch((error) => {
  const text = `The report cannot be shown: ${error.message}. A current browser is needed.`;
  document.getElementById('app').append(h('p', { class: 'empty bad', role: 'alert' }, text));
  throw error;
});
