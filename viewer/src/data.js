// SPDX-License-Identifier: Apache-2.0
// What the page carries: one JSON text, and layers as base64 in script elements.

/** @returns {object} the report's data */
export function readReport(doc = document) {
  const report = JSON.parse(doc.getElementById('report-data').textContent);
  report.byNumber = new Map(report.photos.map((photo) => [photo.number, photo]));
  return report;
}

export function hasLayer(name, doc = document) {
  return doc.getElementById(`layer-${name}`) !== null;
}

function bytesOf(element) {
  const text = atob(element.textContent);
  const bytes = new Uint8Array(text.length);
  for (let i = 0; i < text.length; ++i) bytes[i] = text.charCodeAt(i);
  return bytes;
}

/** A picture layer, decoded; null when the page has none of this name. */
export async function readPicture(name, doc = document) {
  const element = doc.getElementById(`layer-${name}`);
  if (!element) return null;
  return createImageBitmap(new Blob([bytesOf(element)], { type: 'image/jpeg' }));
}

/**
 * The numbers of a plane, row by row; null when the page has none of this name. They come through
 * no canvas: browsers may alter what they read from one.
 */
export async function readPlane(name, doc = document) {
  const element = doc.getElementById(`layer-${name}`);
  if (!element) return null;
  const stream = new Blob([bytesOf(element)])
    .stream()
    .pipeThrough(new DecompressionStream('deflate'));
  const buffer = await new Response(stream).arrayBuffer();
  return element.dataset.bits === '16' ? new Uint16Array(buffer) : new Uint8Array(buffer);
}

/** All planes of the page by name. */
export async function readPlanes() {
  const names = ['alpha', 'source', 'quality', 'nearest', 'frames', 'hidden', 'known'];
  const planes = await Promise.all(names.map((name) => readPlane(name)));
  return Object.fromEntries(names.map((name, i) => [name, planes[i]]));
}

/** Cells in some photo's frame: what shares of the mosaic refer to. */
export const coveredCells = (summary) => summary.seen + summary.filled + summary.neverCovered;

/** Column and row of a ground point, and its place in the planes; null outside the grid. */
export function cellAt(grid, [x, y]) {
  const col = Math.floor((x - grid.minX) / grid.cellX);
  const row = Math.floor((grid.maxY - y) / grid.cellY);
  if (col < 0 || row < 0 || col >= grid.cols || row >= grid.rows) return null;
  return { col, row, index: row * grid.cols + col };
}

export function extentOf(grid) {
  return [
    grid.minX,
    grid.maxY - grid.rows * grid.cellY,
    grid.minX + grid.cols * grid.cellX,
    grid.maxY,
  ];
}
