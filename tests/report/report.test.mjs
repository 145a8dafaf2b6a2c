// SPDX-License-Identifier: Apache-2.0
// A report page in a browser, held against the files of its job. REPORT_JOB: the job's OUT; REPORT_TOWN: the town
// it was run on; REPORT_BROKEN: the number of the photo that was damaged on purpose.
import assert from 'node:assert/strict';
import path from 'node:path';
import { after, before, test } from 'node:test';
import {
  chooseLayer,
  coloursAt,
  complaints,
  drawnPixels,
  openReport,
  placement,
  rgbOf,
  settled,
  startBrowser,
} from './browser.mjs';
import {
  makeRandom,
  plainPoints,
  readMasks,
  readPhotos,
  readRaster,
  require,
} from './job_files.mjs';

const job = process.env.REPORT_JOB;
const photos = readPhotos(process.env.REPORT_TOWN);
const broken = Number(process.env.REPORT_BROKEN);
let browser, page, mosaic, source, quality, map;
before(async () => {
  browser = await startBrowser();
  [mosaic, source, quality] = await Promise.all(
    ['mosaic', 'source', 'quality'].map((name) => readRaster(path.join(job, `${name}.tif`))),
  );
  page = await openReport(browser, job);
  map = await placement(page, mosaic);
});
after(() => browser?.close());

const fresh = async () => {
  await page.selectOption('#compare', '');
  for (const box of await page.locator('.boxes input').all()) await box.uncheck();
  await page.getByRole('button', { name: 'Show all' }).click();
  await chooseLayer(page, 'Mosaic', 'mosaic');
  await page.evaluate(() => scrollTo(0, 0));
  await page.mouse.move(2, 2);
};
const near = (a, b, most = 3) => [0, 1, 2].every((i) => Math.abs(a[i] - b[i]) <= most);
const share = (list, fits) => list.filter(fits).length / list.length;

/** Mean of the mosaic around a ground point, over what a pixel of the map shows. */
function meanColour([x, y]) {
  const reach = Math.ceil(map.resolution / mosaic.cell / 2);
  return [0, 1, 2].map((band) => {
    let sum = 0;
    for (let r = -reach; r <= reach; ++r) {
      for (let c = -reach; c <= reach; ++c)
        sum += mosaic.at(x + c * mosaic.cell, y + r * mosaic.cell, band);
    }
    return sum / (2 * reach + 1) ** 2;
  });
}
const difference = (a, b) =>
  (Math.abs(a[0] - b[0]) + Math.abs(a[1] - b[1]) + Math.abs(a[2] - b[2])) / 3;
const distance = (a, b) => Math.hypot(a[0] - b[0], a[1] - b[1]);
const center = () => [(mosaic.minX + mosaic.maxX) / 2, (mosaic.minY + mosaic.maxY) / 2];
/** Two numbers that a text names. */
const pairIn = (text, pattern) => text.replace(/\u202f/g, '').match(pattern).slice(1).map(Number);
const middle = (list) => [...list].sort((a, b) => a - b)[list.length >> 1];

test('the mosaic and the naive mosaic show the ground, and differ beside buildings', async () => {
  await fresh();
  const points = plainPoints(quality, 600, 1);
  const places = points.map(map.toMap);
  const truth = points.map(meanColour);
  const shown = await coloursAt(page, places);
  assert.ok(middle(shown.map((c, i) => difference(c, truth[i]))) < 8);
  assert.ok(shown.every((c) => c[3] === 255));
  await chooseLayer(page, 'Naive mosaic', 'naive');
  const naive = await coloursAt(page, places);
  const apart = naive.map((c, i) => difference(c, truth[i]));
  assert.ok(middle(apart) < 20, `naive mosaic is ${middle(apart)} off`);
  assert.ok(share(apart, (d) => d > 45) > 0.005, 'the naive mosaic shows no wrong place');
});

test('source photo: every cell has the colour that the table gives its photo', async () => {
  await fresh();
  await chooseLayer(page, 'Source photo', 'source');
  const points = plainPoints(source, 300).filter(([, , number]) => number > 0);
  const shown = await coloursAt(page, points.map(map.toMap));
  const chips = {};
  for (const row of await page.locator('.photos tbody tr').all()) {
    const colour = await row.locator('.chip').evaluate((e) => getComputedStyle(e).backgroundColor);
    chips[await row.getAttribute('data-number')] = rgbOf(colour);
  }
  points.forEach(([, , number], i) => assert.ok(near(shown[i], chips[number]), `photo ${number}`));
  assert.ok(new Set(points.map((p) => p[2])).size >= 3);
  assert.equal(new Set(Object.values(chips).map(String)).size, photos.length);
});

const legendColours = () =>
  page
    .locator('#legend .keys .chip')
    .evaluateAll((chips) => chips.map((e) => getComputedStyle(e).backgroundColor));

test('quality and hidden count: cells have the colours of the legend', async () => {
  await fresh();
  await chooseLayer(page, 'Quality', 'quality');
  const graded = plainPoints(quality, 400, 2);
  let shown = await coloursAt(page, graded.map(map.toMap));
  let legend = (await legendColours()).map(rgbOf);
  assert.equal(legend.length, 3);
  graded.forEach(([, , value], i) =>
    assert.ok(value === 0 || near(shown[i], legend[value - 1]), `quality ${value}`),
  );

  await chooseLayer(page, 'Hidden count', 'hidden');
  const masks = await readMasks(job);
  legend = (await legendColours()).map(rgbOf);
  const keys = await page.locator('#legend .keys li').allTextContents();
  const random = makeRandom(3);
  const counted = [];
  for (let i = 0; i < 3000; ++i) {
    const [col, row] = [mosaic.cols, mosaic.rows].map((n) => Math.floor(random() * n));
    const at = mosaic.ground(col, row);
    const count = ([x, y]) => masks.reduce((n, mask) => n + (mask.at(x, y) === 255), 0);
    const own = count(at);
    const around = [-2, 0, 2].flatMap((r) =>
      [-2, 0, 2].map((c) => count([at[0] + c * mosaic.cell, at[1] + r * mosaic.cell])),
    );
    if (around.every((n) => n === own)) counted.push([at, own]);
  }
  shown = await coloursAt(page, counted.map(([at]) => map.toMap(at)));
  for (const count of [0, 1, 2]) {
    const key = count === 0 ? 0 : keys.findIndex((text) => text.trim() === String(count));
    const cells = shown.filter((_, i) => counted[i][1] === count);
    if (key < 0 || cells.length === 0) continue;
    assert.ok(share(cells, (c) => near(c, legend[key])) > 0.9, `hidden from ${count}`);
  }
  assert.ok(counted.some(([, n]) => n > 0));
});

test('relief: grey, full, and neither flat nor empty', async () => {
  await fresh();
  await chooseLayer(page, 'Relief', 'relief');
  const shown = await coloursAt(page, plainPoints(quality, 400, 1).map(map.toMap));
  const isGrey = ([r, g, b, a]) => a === 255 && Math.max(r, g, b) - Math.min(r, g, b) <= 4;
  assert.ok(shown.every(isGrey));
  const level = 1 + 254 * Math.SQRT1_2;
  assert.ok(share(shown, ([r]) => Math.abs(r - level) < 30) > 0.3, 'no level ground');
  assert.ok(share(shown, ([r]) => Math.abs(r - level) > 60) > 0.02, 'no slope');
});

test('swipe: each side shows its own layer, by mouse and by keyboard', async () => {
  await fresh();
  const row = Array.from({ length: 120 }, (_, i) => [
    map.box.width / 2 - 180 + 3 * i,
    map.box.height / 2 - 40,
  ]);
  const alone = { mosaic: await coloursAt(page, row) };
  await chooseLayer(page, 'Quality', 'quality');
  alone.quality = await coloursAt(page, row);
  await chooseLayer(page, 'Mosaic', 'mosaic');
  await page.selectOption('#compare', 'quality');
  await page.waitForSelector('#map[data-right=quality]');
  const handle = page.getByRole('slider');
  const box = await handle.boundingBox();
  const border = map.box.width / 2 + 60;
  await page.mouse.move(box.x + box.width / 2, box.y + 200);
  await page.mouse.down();
  await page.mouse.move(map.box.x + border, box.y + 210, { steps: 4 });
  await page.mouse.up();
  await settled(page);
  const check = async (at) => {
    const shown = await coloursAt(page, row);
    row.forEach(([x], i) => {
      if (Math.abs(x - at) > 3)
        assert.deepEqual(shown[i], alone[x < at ? 'mosaic' : 'quality'][i], `at ${x}`);
    });
  };
  await check(border);
  const before = Number(await handle.getAttribute('aria-valuenow'));
  for (let i = 0; i < 5; ++i) await handle.press('ArrowLeft');
  await settled(page);
  assert.equal(Number(await handle.getAttribute('aria-valuenow')), before - 10);
  await check(border - 0.1 * map.box.width);
});

test('hover names the photo that supplied the cell, and where it is', async () => {
  await fresh();
  const points = plainPoints(source, 40, 2);
  for (const [x, y, number] of points) {
    const [left, top] = map.toMap([x, y]);
    await page.mouse.move(map.box.x + left, map.box.y + top);
    const text = await page.locator('#readout').textContent();
    const supplier = number ? await page.locator('#readout .supplier').textContent() : null;
    assert.equal(supplier, number ? photos[number - 1].name : null);
    const place = pairIn(text, /E (-?[\d.]+)\s+N (-?[\d.]+)/);
    assert.ok(distance(place, [x, y]) < 2 * map.resolution, `${place} is not ${x} ${y}`);
    const words = { 1: 'seen by several', 2: 'seen by one photo only', 3: 'filled' };
    assert.ok(text.includes(words[quality.at(x, y)]), text);
  }
});

test('seams run between photos; footprints and cameras are drawn', async () => {
  await fresh();
  for (const name of ['seams', 'cameras', 'footprints']) {
    await page.check(`input[name=${name}]`);
    await settled(page);
    const drawn = await drawnPixels(page, name);
    assert.ok(drawn.length > 100, name);
    if (name === 'seams') {
      const reach = 2.6 * map.resolution + 1.5 * source.cell;
      const atBorder = drawn
        .filter((_, i) => i % 7 === 0)
        .map(([left, top]) => {
          const x = center()[0] + (left - map.box.width / 2) * map.resolution;
          const y = center()[1] - (top - map.box.height / 2) * map.resolution;
          const around = [];
          for (let a = -reach; a <= reach; a += source.cell) {
            for (let b = -reach; b <= reach; b += source.cell) around.push(source.at(x + a, y + b));
          }
          return new Set(around.filter(Boolean)).size > 1;
        });
      const onSeams = share(atBorder, Boolean);
      assert.ok(onSeams > 0.97, `${onSeams} of the seam pixels lie on seams`);
    }
    await page.uncheck(`input[name=${name}]`);
    await settled(page);
    assert.equal((await drawnPixels(page, name)).length, 0, `${name} stay`);
  }
});

test('the table sorts, says what failed, finds, and shows a photo on the map', async () => {
  await fresh();
  const column = async (n) =>
    (await page.locator(`.photos tbody tr td:nth-of-type(${n})`).allTextContents())
      .map(parseFloat)
      .filter(Number.isFinite);
  const sorted = (list, sign) => list.every((v, i) => i === 0 || sign * (v - list[i - 1]) >= 0);
  await page.getByRole('button', { name: 'Hidden', exact: true }).click();
  assert.ok(sorted(await column(2), -1));
  assert.equal(await page.locator('th[aria-sort=descending]').count(), 1);
  await page.getByRole('button', { name: 'Hidden', exact: true }).press('Enter');
  assert.ok(sorted(await column(2), 1));
  const supplied = await column(3);
  assert.ok(Math.abs(supplied.reduce((a, b) => a + b, 0) - 100) < 1);
  const failed = page.locator('.photos tr.failed');
  assert.equal(await failed.count(), 1);
  assert.equal(await failed.getAttribute('data-number'), String(broken));
  assert.match(await failed.textContent(), /Failed: .{8}/);

  await page.fill('#filter', photos[0].name);
  assert.equal(await page.locator('.photos tbody tr').count(), 1);
  await page.getByRole('button', { name: photos[0].name }).click();
  await page.waitForTimeout(600);
  const box = await page.locator('#map').boundingBox();
  await page.mouse.move(box.x + box.width / 2, box.y + box.height / 2);
  const text = await page.locator('#readout').textContent();
  const place = pairIn(text, /E ([\d.]+)\s+N ([\d.]+)/);
  const { x, y } = photos[0];
  assert.ok(distance(place, [x, y]) < 8, 'the photo is not in the middle');
  assert.ok((await drawnPixels(page, 'mark')).length > 100, 'the photo is not marked');
  await page.fill('#filter', '');
});

test('the keyboard moves, zooms, changes layers and hears the cell in the middle', async () => {
  await fresh();
  const target = page.locator('#map');
  await page.getByRole('checkbox', { name: 'Cameras' }).focus();
  await page.keyboard.press('Tab');
  await page.keyboard.press('Tab');
  assert.equal(await page.evaluate(() => document.activeElement.id), 'map');
  const outline = await target.evaluate((e) => getComputedStyle(e).outlineStyle);
  assert.equal(outline, 'solid', 'focus does not show');
  const spoken = async () => {
    await page.waitForTimeout(450);
    const text = await page.locator('#spoken').textContent();
    return { text, at: pairIn(text, /East (\d+\.\d+), north (\d+\.\d+)/) };
  };
  await page.keyboard.press('+');
  const first = await spoken();
  const number = source.at(...first.at);
  assert.ok(first.text.includes(number ? photos[number - 1].name : 'No photo'), first.text);
  await page.keyboard.press('ArrowRight');
  const second = await spoken();
  assert.ok(second.at[0] > first.at[0] + 1 && Math.abs(second.at[1] - first.at[1]) < 1);
  await page.keyboard.press('4');
  await page.waitForSelector('#map[data-left=quality]');
  await page.keyboard.press('0');
  const third = await spoken();
  assert.ok(Math.abs(third.at[0] - center()[0]) < 1);
});

for (const [name, viewport, colorScheme] of [
  ['desktop, light', { width: 1280, height: 960 }, 'light'],
  ['phone, dark', { width: 390, height: 844 }, 'dark'],
]) {
  test(`no barrier found: ${name}`, async () => {
    const hasTouch = viewport.width < 500;
    const other = await openReport(browser, job, { viewport, colorScheme, hasTouch });
    const fits = await other.evaluate(() => document.documentElement.scrollWidth <= innerWidth);
    assert.ok(fits, 'scrolls sideways');
    if (hasTouch) {
      const box = await other.locator('#map').boundingBox();
      await other.touchscreen.tap(box.x + box.width / 2, box.y + box.height / 2);
      await other.waitForTimeout(400);
      const number = source.at(...center());
      const text = await other.locator('#readout').textContent();
      assert.ok(text.includes(number ? photos[number - 1].name : 'no photo'), text);
    }
    await other.selectOption('#compare', 'hidden');
    // The page forbids itself foreign scripts; the checker comes in through the debugger.
    await other.evaluate(require('axe-core').source);
    const { violations } = await other.evaluate(() => globalThis.axe.run());
    assert.deepEqual(violations.map((v) => `${v.id}: ${v.nodes[0].html}`), []);
    await other.context().close();
  });
}

test('no page complained or asked the network for anything', () =>
  assert.deepEqual(complaints, []));
