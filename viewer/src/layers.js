// SPDX-License-Identifier: Apache-2.0
// The layers of the map as canvases on the report's grid, made when they are first shown.
import { hasLayer, readPicture } from './data.js';
import { QUALITY, hiddenColour, photoColour } from './colours.js';

/** Canvases that are kept; a large one takes 64 MB. */
const KEPT = 3;

function canvasOf(grid) {
  const canvas = document.createElement('canvas');
  canvas.width = grid.cols;
  canvas.height = grid.rows;
  return canvas;
}

/** Colours cells through `colourOf(index)`: [r, g, b] or null for nothing, band by band of rows. */
function paint(grid, colourOf) {
  const canvas = canvasOf(grid);
  const context = canvas.getContext('2d');
  const BAND = 256;
  for (let first = 0; first < grid.rows; first += BAND) {
    const rows = Math.min(BAND, grid.rows - first);
    const image = context.createImageData(grid.cols, rows);
    const base = first * grid.cols;
    for (let i = 0; i < grid.cols * rows; ++i) {
      const colour = colourOf(base + i);
      if (!colour) continue;
      image.data[4 * i] = colour[0];
      image.data[4 * i + 1] = colour[1];
      image.data[4 * i + 2] = colour[2];
      image.data[4 * i + 3] = 255;
    }
    context.putImageData(image, 0, first);
  }
  return canvas;
}

const BLACK = [0, 0, 0];

/** A picture, cut to the cells that hold something. */
async function picture(name, grid, mask) {
  const bitmap = await readPicture(name);
  const canvas = mask ? paint(grid, (i) => (mask[i] ? BLACK : null)) : canvasOf(grid);
  const context = canvas.getContext('2d');
  if (mask) context.globalCompositeOperation = 'source-in';
  context.drawImage(bitmap, 0, 0, grid.cols, grid.rows);
  bitmap.close();
  return canvas;
}

/**
 * The layers that this page has, in the order of the map's buttons. `smooth`: drawn smoothly when
 * enlarged; cells with a meaning of their own keep their edges.
 */
export function makeLayers(report, planes) {
  const { grid } = report;
  const mostHidden = planes.hidden ? planes.hidden.reduce((a, b) => Math.max(a, b), 0) : 0;
  const photoColours = report.photos.map((photo) => photoColour(photo.number));
  const all = [
    {
      id: 'mosaic',
      title: 'Mosaic',
      about: 'The true orthophoto: every cell from a photo that sees it.',
      there: hasLayer('mosaic'),
      smooth: true,
      make: () => picture('mosaic', grid, planes.alpha),
    },
    {
      id: 'naive',
      title: 'Naive mosaic',
      about:
        'For comparison: the nearest photo laid over the surface without asking what it can see. ' +
        'Roofs and walls repeat over the ground behind them.',
      there: hasLayer('naive'),
      smooth: true,
      make: () => picture('naive', grid, planes.nearest),
    },
    {
      id: 'source',
      title: 'Source photo',
      about: 'Which photo supplied the cell: one colour per photo, as in the table.',
      there: planes.source !== null,
      make: () => paint(grid, (i) => photoColours[planes.source[i] - 1]),
    },
    {
      id: 'quality',
      title: 'Quality',
      about: 'How well the cell was seen; shares are of the ground that photos cover.',
      there: planes.quality !== null,
      make: () => paint(grid, (i) => QUALITY[planes.quality[i]]?.colour),
    },
    {
      id: 'hidden',
      title: 'Hidden count',
      about: 'How many photos have the cell in their frame and, by their masks, cannot see it.',
      there: planes.hidden !== null,
      mostHidden,
      make: () =>
        paint(grid, (i) => (planes.frames[i] ? hiddenColour(planes.hidden[i], mostHidden) : null)),
    },
    {
      id: 'relief',
      title: 'Relief',
      about: 'The surface model, lit from the north-west.',
      there: hasLayer('relief'),
      smooth: true,
      make: () => picture('relief', grid, planes.known),
    },
  ];
  return all.filter((layer) => layer.there);
}

/** Keeps the canvases of the layers shown last. */
export class CanvasStore {
  #made = new Map();

  /** @returns {Promise<HTMLCanvasElement>} */
  get(layer) {
    const canvas = this.#made.get(layer.id) ?? Promise.resolve(layer.make());
    this.#made.delete(layer.id);
    this.#made.set(layer.id, canvas);
    if (this.#made.size > KEPT) this.#made.delete(this.#made.keys().next().value);
    return canvas;
  }
}
