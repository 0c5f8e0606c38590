// What people see and hear, apart from where things are: themes, age, a missing plan, names, the first picture.
import assert from 'node:assert/strict';
import { test } from 'node:test';
import { RED, addFile, address, assertNear, openMap, plan, useBrowser } from './browser.mjs';

useBrowser();

const parameters = { 'dot-x': 40, 'dot-y': 60, 'map-width': 180, 'map-height': 120, 'crop-width': 180, 'crop-height': 120, 'map-file': 'looks.svg', 'uncertainty-radius': 20 };

async function open(options, changes = {}) {
  addFile('looks.svg', plan({ width: 900, height: 600, marks: [{ x: 700, y: 300, side: 60, colour: RED }] }));
  const screen = await openMap(address({ ...parameters, ...changes }), options);
  await screen.settle();
  return screen;
}

const brightness = (colour) => Math.max(...colour);

test('light and dark, also when it changes while the map is shown; a dark plan keeps its hues', async () => {
  const screen = await open({ colorScheme: 'light' });
  const mark = await screen.find(RED);
  const colours = () => Promise.all([{ x: 4, y: 4 }, { x: 400, y: 200 }, mark].map((point) => screen.colour(point)));
  const [ground, paper, red] = await colours();
  assert.deepEqual([paper, red], [[255, 255, 255], RED]);
  assert.ok(brightness(ground) > 200);
  await screen.page.emulateMedia({ colorScheme: 'dark' });
  await screen.settle();
  const [darkGround, darkPaper, darkRed] = await colours();
  assert.ok(brightness(darkGround) < 40 && brightness(darkPaper) < 60, `${darkGround}, ${darkPaper}`);
  assert.ok(darkRed[0] > 120 && darkRed[0] > 1.5 * Math.max(darkRed[1], darkRed[2]), `${darkRed}`);
  await screen.close();
});

test('the dot has the size of the uncertainty around it, and goes when it is hidden', async () => {
  const screen = await open();
  const circle = () => screen.page.evaluate(() => document.getElementById('uncertainty').getBoundingClientRect().toJSON());
  const perPixel = 776 / 180;
  const box = await circle();
  assert.ok(Math.abs(box.width - 40 * perPixel) < 1, `${box.width} wide`);
  assertNear({ x: box.x + box.width / 2, y: box.y + box.height / 2 }, await screen.dot(), 0.5, 'the circle');
  await screen.call('setDotPosition(40, 60, 3, true)');
  await screen.page.waitForTimeout(800);
  assert.ok(Math.abs((await circle()).width - 6 * perPixel) < 1);
  await screen.call('hideDot()');
  assert.equal(await screen.dot(), null);
  await screen.call('hideDot(); setDotPosition(50, 60, 3, true)');
  assertNear(await screen.dot(), { x: 400 - 40 * perPixel, y: 300 }, 1, 'back at the new place at once');
  await screen.close();
});

test('the circle ends where the plan does, and a rounded plan shows the ground at its corners, in both themes', async () => {
  const screen = await open({}, { 'map-file': 'rounded.svg', 'dot-x': 10, 'uncertainty-radius': 30 });
  addFile('rounded.svg', '<svg xmlns="http://www.w3.org/2000/svg" width="900" height="600"><rect width="900" height="600" rx="120" fill="#fff"/></svg>');
  for (const colorScheme of ['light', 'dark']) {
    await screen.page.emulateMedia({ colorScheme });
    await screen.page.reload();
    await screen.settle();
    await screen.page.waitForTimeout(300);
    const [ground, besideCircle, corner, paper, inCircle] = await Promise.all([{ x: 4, y: 4 }, { x: 9, y: 300 }, { x: 17, y: 47 }, { x: 400, y: 100 }, { x: 14, y: 300 }].map((point) => screen.colour(point)));
    assert.deepEqual([besideCircle, corner], [ground, ground], colorScheme);
    assert.notDeepEqual(paper, ground);
    assert.notDeepEqual(inCircle, paper);
  }
  await screen.close();
});

test('a plan that comes only after the page is shown in place of the grid', async () => {
  const screen = await open({}, { 'map-file': 'later.svg' });
  const message = screen.page.getByText('The plan of this map is missing');
  await message.waitFor();
  addFile('later.svg', plan({ width: 900, height: 600, marks: [{ x: 700, y: 300, side: 60, colour: RED }] }));
  await message.waitFor({ state: 'hidden' });
  await screen.settle();
  assert.ok(await screen.find(RED));
  await screen.close();
});

test('a position grows old after ten seconds, and young again with the next', async () => {
  const screen = await openMap('about:blank');
  await screen.page.clock.install();
  addFile('looks.svg', plan({ width: 900, height: 600 }));
  await screen.page.goto(address(parameters));
  const marker = () => screen.page.getByRole('img', { name: 'Your position' }).getAttribute('aria-label');
  // Under load, one call passes less time than it is asked for.
  const pass = async (milliseconds) => {
    const now = () => screen.page.evaluate(() => performance.now());
    const end = await now() + milliseconds;
    for (let left = milliseconds; left > 0; left = end - await now()) await screen.page.clock.runFor(Math.ceil(left));
  };
  await pass(9000);
  assert.equal(await marker(), 'Your position');
  await screen.call('setDotPosition(41, 60, 20, true)');
  await pass(9500);
  assert.equal(await marker(), 'Your position');
  await pass(1000);
  assert.equal(await marker(), 'Your position, out of date');
  const [red, green, blue] = await screen.page.evaluate(() => getComputedStyle(document.getElementById('marker')).backgroundColor.match(/\d+/g).map(Number));
  assert.ok(Math.max(red, green, blue) - Math.min(red, green, blue) < 30, 'grey');
  await screen.call('setDotPosition(42, 60, 20, true)');
  assert.equal(await marker(), 'Your position');
  await screen.close();
});

test('names for assistive technology, and news of the dot and of a missing plan', async () => {
  const screen = await open();
  const seen = async (role, name) => assert.equal(await screen.page.getByRole(role, { name, exact: true }).count(), 1, `${role} ${name}`);
  await seen('application', 'Map');
  await seen('img', 'Floor plan looks');
  await seen('img', 'Your position');
  for (const button of ['Zoom in', 'Zoom out', 'Show the whole map']) await seen('button', button);
  const news = () => screen.page.locator('#news').textContent();
  assert.equal(await news(), 'Your position is shown.');
  await screen.call('hideDot()');
  assert.equal(await news(), 'Your position is not known.');
  assert.equal(await screen.page.getByRole('img', { name: 'Your position' }).count(), 0);
  await screen.close();
  const missing = await open({}, { 'map-file': 'nowhere.svg' });
  assert.match(await missing.page.getByRole('status').first().textContent(), /plan of this map is missing/);
  assertNear(await missing.dot(), { x: 400 - 50 * 776 / 180, y: 300 }, 1, 'the dot on the grid');
  await missing.close();
});
