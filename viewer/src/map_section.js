// SPDX-License-Identifier: Apache-2.0
// The map with its controls, legend and the line that says what is under the pointer.
import { legendOf } from './legend.js';
import { makeLayers } from './layers.js';
import { ReportMap } from './map.js';
import { makeOverlays, markPhoto, photoExtent } from './overlays.js';
import { cellElements, cellSentence, describeCell } from './readout.js';
import { makeSwipe } from './swipe.js';
import { extentOf } from './data.js';
import { h } from './dom.js';

const HELP =
  'Arrow keys move, plus and minus zoom, 0 shows everything, 1 to 6 change the layer. ' +
  'The cell in the middle is read out.';

function layerButtons(layers, onChoose) {
  return h(
    'fieldset',
    { class: 'pills' },
    h('legend', { class: 'for-ears' }, 'Layer'),
    layers.map((layer, i) =>
      h(
        'label',
        {},
        h('input', {
          type: 'radio',
          name: 'layer',
          value: layer.id,
          checked: i === 0,
          onchange: () => onChoose(layer),
        }),
        h('span', {}, layer.title),
      ),
    ),
  );
}

function overlayBoxes(overlays) {
  const box = (title, name) =>
    h(
      'label',
      {},
      h('input', {
        type: 'checkbox',
        name,
        onchange: (event) => overlays[name].setVisible(event.target.checked),
      }),
      h('span', {}, title),
    );
  return h(
    'fieldset',
    { class: 'boxes' },
    h('legend', { class: 'for-ears' }, 'Over the map'),
    box('Footprints', 'footprints'),
    box('Seams', 'seams'),
    box('Cameras', 'cameras'),
  );
}

/** @returns {{element, start(), showPhoto(photo)}} start() once the element is in the page */
export function makeMapSection(report, planes) {
  const layers = makeLayers(report, planes);
  const extent = extentOf(report.grid);
  const overlays = makeOverlays(report, extent);
  const ids = layers.map((layer) => layer.id);
  let map = null;
  let pinned = null; // the photo picked from the table or a chart
  let shown = { left: layers[0], right: null };

  const target = h('div', {
    id: 'map',
    tabindex: '0',
    role: 'application',
    'aria-label': 'Map of the mosaic',
    'aria-describedby': 'map-help',
  });
  const swipe = makeSwipe((share) => map?.setSwipe(share));
  const crosshair = h('div', { class: 'crosshair', 'aria-hidden': 'true' });
  const readout = h('div', { class: 'readout', id: 'readout' });
  const spoken = h('div', { class: 'for-ears', role: 'status', id: 'spoken' });
  const legend = h('div', { class: 'legend', id: 'legend' });

  const show = () => {
    legend.replaceChildren(...legendOf([shown.left, shown.right].filter(Boolean), report.summary));
    swipe.between(shown.left, shown.right);
    return Promise.all([map.show('left', shown.left), map.show('right', shown.right)]);
  };
  const choose = (layer) => {
    shown.left = layer;
    show();
  };
  const pills = layerButtons(layers, choose);
  const compare = h(
    'select',
    {
      id: 'compare',
      onchange: (event) => {
        shown.right = layers.find((layer) => layer.id === event.target.value) ?? null;
        show();
      },
    },
    h('option', { value: '' }, 'nothing'),
    layers.map((layer) => h('option', { value: layer.id }, layer.title)),
  );

  /** Says what is at a ground point: in the line, and where asked for, aloud. */
  const tell = (point, aloud) => {
    const cell = describeCell(report, planes, point);
    readout.replaceChildren(...cellElements(report, cell, ids).filter(Boolean));
    markPhoto(overlays.mark, cell?.photo ?? pinned);
    if (aloud) spoken.textContent = cellSentence(report, cell);
  };
  const rest = () => {
    readout.replaceChildren(
      h('span', { class: 'quiet' }, 'Point at a cell to see which photo supplied it.'),
    );
    markPhoto(overlays.mark, pinned);
  };
  const keyed = () => target.matches(':focus-visible');
  const keys = (event) => {
    const layer = layers[Number(event.key) - 1];
    if (event.key === '0') map.fit();
    else if (layer && !event.ctrlKey && !event.metaKey && !event.altKey) {
      pills.querySelector(`[value=${layer.id}]`).checked = true;
      choose(layer);
    } else return;
    event.preventDefault();
  };

  const element = h(
    'section',
    { class: 'map-section', 'aria-labelledby': 'map-title' },
    h('h2', { class: 'for-ears', id: 'map-title' }, 'Map'),
    h(
      'div',
      { class: 'toolbar' },
      pills,
      h('label', { class: 'compare' }, 'compare with ', compare),
      overlayBoxes(overlays),
      h('button', { type: 'button', class: 'plain', onclick: () => map.fit() }, 'Show all'),
    ),
    h('div', { class: 'stage' }, target, crosshair, swipe),
    readout,
    spoken,
    legend,
    h('p', { class: 'for-ears', id: 'map-help' }, HELP),
  );

  return {
    element,
    start() {
      map = new ReportMap(target, report, [
        overlays.footprints,
        overlays.seams,
        overlays.mark,
        overlays.cameras,
      ]);
      map.map.on('pointermove', (event) => {
        if (!event.dragging && event.originalEvent.pointerType !== 'touch') tell(event.coordinate);
      });
      map.map.on('click', (event) => tell(event.coordinate, true));
      map.map.getViewport().addEventListener('pointerleave', (event) => {
        if (event.pointerType !== 'touch') rest();
      });
      map.map.on('moveend', () => {
        if (keyed()) tell(map.map.getView().getCenter(), true);
      });
      target.addEventListener('focus', () => {
        if (keyed()) tell(map.map.getView().getCenter(), true);
      });
      target.addEventListener('keydown', keys);
      rest();
      return show();
    },
    showPhoto(photo) {
      pinned = photo;
      markPhoto(overlays.mark, photo);
      map.goTo(photoExtent(photo, extent));
      target.scrollIntoView({ block: 'center', behavior: 'instant' });
      spoken.textContent = `The map shows photo ${photo.name}.`;
    },
  };
}
