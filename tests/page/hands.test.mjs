// What hands do: mouse, fingers, keys and buttons move the map, and tell a tap from a pan.
import assert from 'node:assert/strict';
import { test } from 'node:test';
import { BLUE, RED, addFile, address, assertNear, openMap, plan, useBrowser } from './browser.mjs';

useBrowser();

const MIDDLE = { x: 400, y: 300 };

// A plan of 180 by 120 map pixels with marks at (60, 40) and (110, 80).
async function open(options) {
  addFile('hands.svg', plan({ width: 900, height: 600, marks: [{ x: 300, y: 200, side: 10, colour: RED }, { x: 550, y: 400, side: 10, colour: BLUE }] }));
  const screen = await openMap(address({ 'map-width': 180, 'map-height': 120, 'crop-width': 180, 'crop-height': 120, 'map-file': 'hands.svg' }), options);
  await screen.settle();
  return screen;
}

async function spread(screen) {
  const [red, blue] = [await screen.find(RED), await screen.find(BLUE)];
  return red && blue && blue.x - red.x;
}

test('a double click zooms about its point and reports nothing; two clicks apart report twice', async () => {
  const screen = await open();
  const [red, width] = [await screen.find(RED), await spread(screen)];
  await screen.page.mouse.dblclick(red.x, red.y);
  await screen.settle();
  await screen.page.waitForTimeout(350);
  assert.deepEqual(await screen.taps(), []);
  assertNear(await screen.find(RED), red, 1, 'the point of the double click');
  assert.ok(Math.abs(await spread(screen) / width - 2) < 0.02);
  await screen.page.mouse.click(200, 200);
  await screen.page.mouse.click(300, 200);
  await screen.page.waitForTimeout(400);
  assert.equal((await screen.taps()).length, 2);
  await screen.close();
});

test('a pan reports nothing, wherever it ends, and other buttons do nothing', async () => {
  const screen = await open();
  const red = await screen.find(RED);
  await screen.drag(MIDDLE, { x: 430, y: 280 });
  await screen.drag({ x: 430, y: 280 }, MIDDLE);
  await screen.page.mouse.move(500, 300);
  await screen.page.mouse.down();
  await screen.page.mouse.move(560, 330, { steps: 4 });
  await screen.page.mouse.move(500, 300, { steps: 4 });
  await screen.page.mouse.up();
  await screen.page.mouse.click(300, 300, { button: 'right' });
  await screen.page.waitForTimeout(400);
  assert.deepEqual(await screen.taps(), []);
  assertNear(await screen.find(RED), red, 1, 'the plan after there and back');
  await screen.close();
});

test('fingers: a tap reports, a pinch keeps the plan under both, a throw runs on and stops at a touch', async () => {
  const screen = await open();
  await screen.fingers([[await screen.find(RED), await screen.find(RED)]], 0);
  await screen.page.waitForTimeout(400);
  assertNear((await screen.taps())[0], { x: 60, y: 40 }, 0.5, 'the tap');
  const [red, blue] = [await screen.find(RED), await screen.find(BLUE)];
  const targets = [{ x: red.x - 60, y: red.y - 40 }, { x: blue.x + 40, y: blue.y + 40 }]; // along the line between them
  await screen.fingers([[red, targets[0]], [blue, targets[1]]]);
  await screen.settle();
  const growth = await spread(screen) / (blue.x - red.x);
  assert.ok(Math.abs(growth - (targets[1].x - targets[0].x) / (blue.x - red.x)) < 0.05, `pinched by ${growth}`);
  assertNear(await screen.find(RED), targets[0], 6, 'under the first finger');
  assertNear(await screen.find(BLUE), targets[1], 6, 'under the second finger');

  const start = await screen.find(RED);
  await screen.fingers([[{ x: 300, y: 300 }, { x: 540, y: 300 }]], 5);
  const thrown = (await screen.find(RED)).x - start.x;
  await screen.settle();
  const end = (await screen.find(RED)).x - start.x;
  assert.ok(end > 250 && end >= thrown, `thrown by ${thrown}, then ${end}`);
  assert.equal((await screen.taps()).length, 1);
  await screen.close();
});

test('keys and buttons: arrows move, plus and minus zoom about the middle, 0 shows all again', async () => {
  const screen = await open();
  const press = async (key) => {
    await screen.page.keyboard.press(key);
    await screen.settle();
  };
  const name = (label) => screen.page.getByRole('button', { name: label });
  const [red, width] = [await screen.find(RED), await spread(screen)];
  await press('ArrowRight');
  await press('ArrowDown');
  assertNear(await screen.find(RED), { x: red.x - 96, y: red.y - 96 }, 1, 'after the arrows');
  await press('0');
  assertNear(await screen.find(RED), red, 0.5, 'after 0');
  await press('+');
  assert.ok(await spread(screen) > 1.4 * width);
  await press('-');
  assertNear(await screen.find(RED), red, 0.5, 'after plus and minus');
  await name('Zoom in').click();
  await screen.settle();
  assert.ok(await spread(screen) > 1.4 * width);
  await screen.page.keyboard.press('Control+-');
  await name('Show the whole map').click();
  await screen.settle();
  assertNear(await screen.find(RED), red, 0.5, 'after the button');
  for (let i = 0; i < 30; i += 1) await screen.page.keyboard.press('-');
  await screen.settle();
  assertNear(await screen.find(RED), red, 0.5, 'zoomed out as far as it goes');
  assert.deepEqual(await screen.taps(), []);
  await screen.close();
});

test('the map follows the dot until someone pans, and again after locate', async () => {
  const screen = await open();
  const dotAt = async (script) => {
    await screen.call(script);
    await screen.settle();
    await screen.page.waitForTimeout(650);
    await screen.settle();
    return screen.dot();
  };
  const red = await screen.find(RED);
  assertNear(await dotAt('setDotPosition(60, 40, 5, true)'), red, 1, 'with all in view nothing moves');
  await screen.wheel(red, -240);
  await screen.wheel(red, -240);
  assertNear(await dotAt('setDotPosition(110, 80, 5, true)'), MIDDLE, 1, 'followed');
  await screen.drag(MIDDLE, { x: 300, y: 250 });
  const panned = await screen.dot();
  assertNear(panned, { x: 300, y: 250 }, 1, 'panned with the plan');
  const moved = await dotAt('setDotPosition(20, 20, 5, true)');
  assert.ok(moved.x < 0, 'left to itself after a pan');
  assertNear(await dotAt('setDotPositionAutomatic(20, 20, 5)'), MIDDLE, 1, 'located');
  assertNear(await dotAt('setDotPosition(150, 100, 5, true)'), MIDDLE, 1, 'followed again');
  await screen.close();
});

test('the window changes its size: all stays shown, or the middle stays in the middle', async () => {
  const screen = await open();
  await screen.page.setViewportSize({ width: 500, height: 700 });
  await screen.settle();
  assert.ok(await screen.find(RED) && await screen.find(BLUE));
  await screen.call('setDotPositionAutomatic(60, 40, 5)');
  await screen.page.waitForTimeout(700);
  await screen.page.setViewportSize({ width: 800, height: 600 });
  await screen.settle();
  assertNear(await screen.dot(), MIDDLE, 1, 'the dot');
  await screen.close();
});
