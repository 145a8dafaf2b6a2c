// SPDX-License-Identifier: Apache-2.0
// A job's own files, read independently of the page: what it must show.
import { readFileSync, readdirSync } from 'node:fs';
import { createRequire } from 'node:module';
import path from 'node:path';

export const require = createRequire(new URL('../../viewer/package.json', import.meta.url));
const { addDecoder, BaseDecoder, fromArrayBuffer } = require('geotiff');
const { ZSTDDecoder } = require('zstddec');

/** More than a tile of any of the job's rasters. */
const TILE_BYTES = 1 << 23;
addDecoder(50000, async () => {
  const zstd = new ZSTDDecoder();
  await zstd.init();
  return class extends BaseDecoder {
    decodeBlock(block) {
      return zstd.decode(new Uint8Array(block), TILE_BYTES).buffer;
    }
  };
});

export async function readRaster(file) {
  const bytes = readFileSync(file);
  const tiff = await fromArrayBuffer(
    bytes.buffer.slice(bytes.byteOffset, bytes.byteOffset + bytes.length),
  );
  const image = await tiff.getImage(0);
  const bands = await image.readRasters();
  const [minX, maxY] = image.getOrigin();
  const cell = image.getResolution()[0];
  const cols = image.getWidth();
  const rows = image.getHeight();
  return {
    bands,
    cols,
    rows,
    cell,
    minX,
    maxY,
    maxX: minX + cols * cell,
    minY: maxY - rows * cell,
    ground: (col, row) => [minX + (col + 0.5) * cell, maxY - (row + 0.5) * cell],
    /** Value of the cell under a ground point, 0 outside. */
    at(x, y, band = 0) {
      const col = Math.floor((x - minX) / cell);
      const row = Math.floor((maxY - y) / cell);
      return col < 0 || row < 0 || col >= cols || row >= rows ? 0 : bands[band][row * cols + col];
    },
  };
}

/** Photos in job order: name, x, y. */
export function readPhotos(town) {
  return readFileSync(path.join(town, 'photos.txt'), 'utf8')
    .split('\n')
    .slice(3)
    .filter(Boolean)
    .map((line) => line.split(' '))
    .map(([name, x, y]) => ({ name, x: Number(x), y: Number(y) }));
}

export async function readMasks(job) {
  const dir = path.join(job, 'ortho');
  const names = readdirSync(dir).filter((name) => name.endsWith('_obs.tif'));
  return Promise.all(names.map((name) => readRaster(path.join(dir, name))));
}

/** A repeatable series of numbers from 0 to 1. */
export function makeRandom(seed) {
  let state = seed;
  return () => {
    state = (Math.imul(state, 1664525) + 1013904223) >>> 0;
    return state / 2 ** 32;
  };
}

/** Ground points in cells whose surroundings of `reach` cells hold one value: [x, y, value]. */
export function plainPoints(raster, count, reach = 3) {
  const random = makeRandom(7);
  const points = [];
  for (let tries = 0; tries < 200 * count && points.length < count; ++tries) {
    const col = reach + Math.floor(random() * (raster.cols - 2 * reach));
    const row = reach + Math.floor(random() * (raster.rows - 2 * reach));
    const [x, y] = raster.ground(col, row);
    const value = raster.at(x, y);
    let plain = true;
    for (let r = -reach; r <= reach && plain; ++r) {
      for (let c = -reach; c <= reach && plain; ++c) {
        plain = raster.bands[0][(row + r) * raster.cols + col + c] === value;
      }
    }
    if (plain) points.push([x, y, value]);
  }
  return points;
}
