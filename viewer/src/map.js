// SPDX-License-Identifier: Apache-2.0
// The map: one raster layer that draws the chosen layer, and a second one right of the swipe line.
import Map from 'ol/Map.js';
import View from 'ol/View.js';
import Layer from 'ol/layer/Layer.js';
import Projection from 'ol/proj/Projection.js';
import ScaleLine from 'ol/control/ScaleLine.js';
import Zoom from 'ol/control/Zoom.js';
import { defaults as defaultInteractions } from 'ol/interaction/defaults.js';
import { getHeight, getWidth } from 'ol/extent.js';
import { extentOf } from './data.js';
import { CanvasStore } from './layers.js';

/** Draws the part of a canvas on the grid that the view shows, between two columns of the map. */
function drawPart(context, grid, side, frame, fromX, toX) {
  const { canvas, layer } = side;
  const { size, pixelRatio } = frame;
  const { center, resolution } = frame.viewState;
  const scaleX = grid.cellX / resolution;
  const scaleY = grid.cellY / resolution;
  const left = (grid.minX - center[0]) / resolution + size[0] / 2;
  const top = (center[1] - grid.maxY) / resolution + size[1] / 2;
  // Only the cells in sight, with one to spare: enlarged a lot, the whole would be huge.
  const col = Math.max(Math.floor(-left / scaleX) - 1, 0);
  const row = Math.max(Math.floor(-top / scaleY) - 1, 0);
  const cols = Math.min(Math.ceil((size[0] - left) / scaleX) + 1, grid.cols) - col;
  const rows = Math.min(Math.ceil((size[1] - top) / scaleY) + 1, grid.rows) - row;
  if (cols <= 0 || rows <= 0 || toX <= fromX) return;
  context.save();
  context.scale(pixelRatio, pixelRatio);
  context.beginPath();
  context.rect(fromX, 0, toX - fromX, size[1]);
  context.clip();
  const shrunk = scaleX * pixelRatio < 1;
  context.imageSmoothingEnabled = shrunk || layer.smooth === true;
  context.imageSmoothingQuality = shrunk ? 'medium' : 'low';
  context.drawImage(
    canvas,
    col,
    row,
    cols,
    rows,
    left + col * scaleX,
    top + row * scaleY,
    cols * scaleX,
    rows * scaleY,
  );
  context.restore();
}

export class ReportMap {
  #store = new CanvasStore();
  #left = null;
  #right = null;
  #asked = { left: null, right: null };
  /** Share of the map's width where the second layer begins. */
  swipe = 0.5;

  constructor(target, report, overlays) {
    this.report = report;
    this.extent = extentOf(report.grid);
    const canvas = document.createElement('canvas');
    canvas.className = 'raster';
    const raster = new Layer({ render: (frame) => this.#render(canvas, frame) });
    this.raster = raster;
    const cell = Math.min(report.grid.cellX, report.grid.cellY);
    const view = new View({
      projection: new Projection({
        code: 'ground',
        units: 'm',
        metersPerUnit: report.crs?.metresPerUnit ?? 1,
        extent: this.extent,
      }),
      center: [(this.extent[0] + this.extent[2]) / 2, (this.extent[1] + this.extent[3]) / 2],
      resolution: Math.max(getWidth(this.extent), getHeight(this.extent)) / 600,
      minResolution: cell / 24,
      maxResolution: (4 * Math.max(getWidth(this.extent), getHeight(this.extent))) / 300,
      enableRotation: false,
      showFullExtent: true,
    });
    this.map = new Map({
      target,
      layers: [raster, ...overlays],
      view,
      controls: [new Zoom(), new ScaleLine({ minWidth: 80 })],
      interactions: defaultInteractions({ altShiftDragRotate: false, pinchRotate: false }),
    });
    this.fit();
  }

  fit(extent = this.extent) {
    this.map.getView().fit(extent, { padding: [16, 16, 16, 16] });
  }

  /** Moves to a part of the ground, at once where people asked for less motion. */
  goTo(extent) {
    const calm = matchMedia('(prefers-reduced-motion: reduce)').matches;
    this.map.getView().fit(extent, { padding: [40, 40, 40, 40], duration: calm ? 0 : 350 });
  }

  /** Shows a layer on its side; resolves when it is drawn from. `layer` null: none. */
  async show(side, layer) {
    this.#asked[side] = layer;
    const canvas = layer ? await this.#store.get(layer) : null;
    // Another layer may have been asked for meanwhile.
    if (this.#asked[side] !== layer) return;
    if (side === 'left') this.#left = layer && { layer, canvas };
    else this.#right = layer && { layer, canvas };
    this.map.getTargetElement().setAttribute(`data-${side}`, layer?.id ?? '');
    this.raster.changed();
  }

  get compares() {
    return this.#right !== null;
  }

  setSwipe(share) {
    this.swipe = Math.min(Math.max(share, 0), 1);
    this.raster.changed();
  }

  #render(canvas, frame) {
    const width = Math.round(frame.size[0] * frame.pixelRatio);
    const height = Math.round(frame.size[1] * frame.pixelRatio);
    if (canvas.width !== width || canvas.height !== height) {
      canvas.width = width;
      canvas.height = height;
    }
    const context = canvas.getContext('2d');
    context.clearRect(0, 0, width, height);
    const { grid } = this.report;
    const border = this.#right ? this.swipe * frame.size[0] : frame.size[0];
    if (this.#left) drawPart(context, grid, this.#left, frame, 0, border);
    if (this.#right) drawPart(context, grid, this.#right, frame, border, frame.size[0]);
    return canvas;
  }
}
