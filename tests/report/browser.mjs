// SPDX-License-Identifier: Apache-2.0
// A browser on a report page, and what its map shows.
import { pathToFileURL } from 'node:url';
import path from 'node:path';
import { require } from './job_files.mjs';

const { chromium } = require('playwright-core');
const FLAGS =
  '--headless --no-sandbox --disable-gpu --disable-quic --no-first-run --disable-sync ' +
  '--disable-background-networking --disable-component-update';

export function startBrowser() {
  return chromium.launch({
    executablePath: process.env.CHROMIUM ?? '/usr/bin/chromium',
    args: FLAGS.split(' '),
  });
}

/** Everything that pages said or asked for and should not have. */
export const complaints = [];

export async function openReport(browser, job, options = {}) {
  const context = await browser.newContext({ viewport: { width: 1280, height: 960 }, ...options });
  const page = await context.newPage();
  page.on('console', (message) => {
    // The test reads the map's canvas more often than a page would.
    const ours = message.text().includes('willReadFrequently');
    if (['error', 'warning'].includes(message.type()) && !ours) complaints.push(message.text());
  });
  page.on('pageerror', (error) => complaints.push(error.message));
  page.on('request', (request) => {
    if (!/^(file|blob):/.test(request.url()))
      complaints.push(`request: ${request.url().slice(0, 80)}`);
  });
  await page.goto(pathToFileURL(path.join(job, 'report.html')).href);
  await page.waitForSelector('#app[data-ready=true]');
  await settled(page);
  return page;
}

/** Waits until the map has been drawn. */
export const settled = (page) =>
  page.evaluate(async () => {
    for (let i = 0; i < 2; ++i) await new Promise(requestAnimationFrame);
    await new Promise((done) => setTimeout(done, 60));
  });

export async function chooseLayer(page, title, id) {
  await page.click(`.pills label:has-text("${title}")`);
  await page.waitForSelector(`#map[data-left=${id}]`);
  await settled(page);
}

/**
 * Where ground lies on the map after "Show all": the mosaic in the middle with 16 pixels around
 * it, by the sizes alone.
 */
export async function placement(page, raster) {
  const box = await page.locator('#map').boundingBox();
  const resolution = Math.max(
    (raster.maxX - raster.minX) / (box.width - 32),
    (raster.maxY - raster.minY) / (box.height - 32),
  );
  const middle = [(raster.minX + raster.maxX) / 2, (raster.minY + raster.maxY) / 2];
  return {
    box,
    resolution,
    toMap: ([x, y]) => [
      box.width / 2 + (x - middle[0]) / resolution,
      box.height / 2 - (y - middle[1]) / resolution,
    ],
  };
}

/** Colours [r, g, b, a] of a canvas of the map at points of the map. */
export function coloursAt(page, points, selector = 'canvas.raster') {
  return page.evaluate(
    ({ points, selector }) => {
      const canvas = document.querySelector(`#map ${selector}`);
      const context = canvas.getContext('2d');
      const image = context.getImageData(0, 0, canvas.width, canvas.height);
      const scale = canvas.width / document.getElementById('map').clientWidth;
      return points.map(([x, y]) => {
        const i = 4 * (Math.floor(y * scale) * canvas.width + Math.floor(x * scale));
        return [...image.data.slice(i, i + 4)];
      });
    },
    { points, selector },
  );
}

/** Places of the map where a vector layer has drawn. */
export function drawnPixels(page, name) {
  return page.evaluate((name) => {
    const canvas = document.querySelector(`#map .${name} canvas, #map canvas.${name}`);
    if (!canvas || canvas.offsetParent === null) return [];
    const scale = canvas.width / document.getElementById('map').clientWidth;
    const { data } = canvas.getContext('2d').getImageData(0, 0, canvas.width, canvas.height);
    const found = [];
    for (let i = 0; i < data.length / 4; ++i) {
      if (data[4 * i + 3] < 200) continue;
      found.push([(i % canvas.width) / scale, Math.floor(i / canvas.width) / scale]);
    }
    return found;
  }, name);
}

export const rgbOf = (text) => text.match(/\d+/g).slice(0, 3).map(Number);
