// Where things stand: taps report the point of the plan that was touched, and the dot stands on the point it was given.
import assert from 'node:assert/strict';
import { test } from 'node:test';
import { BLUE, RED, addFile, address, assertNear, openMap, plan, useBrowser } from './browser.mjs';

useBrowser();

// A tenth of a metre, in map pixels; or a tenth of a screen pixel where that is more, since pictures tell no finer.
const allowed = (mapPixelsToScreenPixel) => Math.max(0.5, 0.1 * mapPixelsToScreenPixel);

// Pixels of the plan's file; mark: a red square, clear of the buttons.
const maps = {
  'a sample plan': { width: 900, height: 600, perMeter: 25, mark: { x: 300, y: 200, side: 30 } },
  'a cropped plan': { width: 900, height: 600, perMeter: 25, crop: { width: 640, height: 500 }, mark: { x: 560, y: 150, side: 30 } },
  'a size that was cut to whole pixels': { width: 1009, height: 709, perMeter: 60, mark: { x: 980, y: 60, side: 24 } },
  'five thousand pixels': { width: 5000, height: 5000, perMeter: 5, mark: { x: 1100, y: 3300, side: 260 } },
  'a file without a size of its own': { width: 900, height: 600, perMeter: 25, mark: { x: 200, y: 450, side: 30 }, size: '' },
};

function parameters(name, { width, height, perMeter, crop = { width, height } }) {
  const scaled = (pixels) => Math.trunc(pixels * 5 / perMeter);
  return {
    'dot-x': '', 'dot-y': '', 'map-width': scaled(width), 'map-height': scaled(height),
    'crop-width': scaled(crop.width), 'crop-height': scaled(crop.height), 'map-file': `${name}.svg`, 'uncertainty-radius': '',
  };
}

async function open(name, options) {
  const map = maps[name];
  addFile(`${name}.svg`, plan({ ...map, marks: [{ ...map.mark, colour: RED }] }));
  const screen = await openMap(address(parameters(name, map)), options);
  await screen.settle();
  return { screen, truth: { x: map.mark.x * 5 / map.perMeter, y: map.mark.y * 5 / map.perMeter } };
}

const ratios = { 'a sample plan': [1, 3], 'a cropped plan': [1.5], 'a size that was cut to whole pixels': [1], 'five thousand pixels': [2], 'a file without a size of its own': [1] };
for (const name of Object.keys(maps)) {
  for (const ratio of ratios[name]) {
    test(`${name}, pixel ratio ${ratio}: taps and dot agree with the plan at every zoom and after a pan`, async () => {
      const { screen, truth } = await open(name, { ratio });
      const tolerance = allowed(Math.max(maps[name].width * 5 / maps[name].perMeter / 776, maps[name].height * 5 / maps[name].perMeter / 576) / ratio);
      const check = async (where) => {
        const mark = await screen.find(RED);
        assertNear(await screen.click(mark), truth, tolerance, `tap ${where}`);
        await screen.call(`setDotPosition(${truth.x}, ${truth.y}, 4, true)`);
        assertNear(await screen.dot(), mark, 1 / ratio, `dot ${where}`);
        await screen.call('hideDot()');
        assert.ok(await screen.isSharp(), `sharp ${where}`);
      };
      await screen.drag({ x: 400, y: 300 }, { x: 405, y: 300 }); // from now on the map doesn't follow the dot
      await check('when all is shown');
      for (const pixels of [-180, -240]) {
        const mark = await screen.find(RED);
        await screen.wheel(mark, pixels);
        assertNear(await screen.find(RED), mark, 1, 'the plan under the pointer');
        await check(`after the wheel turned by ${pixels}`);
      }
      const mark = await screen.find(RED);
      await screen.drag({ x: 400, y: 300 }, { x: 371, y: 333 });
      assertNear(await screen.find(RED), { x: mark.x - 29, y: mark.y + 33 }, 1, 'the plan after a pan');
      await check('after a pan');
      assert.deepEqual(screen.troubles, []);
      await screen.close();
    });
  }
}

test('what is cropped away is neither shown nor reported', async () => {
  addFile('edge.svg', plan({ width: 900, height: 600, marks: [{ x: 800, y: 300, side: 60, colour: BLUE }, { x: 300, y: 300, side: 60, colour: RED }] }));
  const screen = await openMap(address(parameters('edge', { width: 900, height: 600, perMeter: 25, crop: { width: 700, height: 600 } })));
  await screen.settle();
  assert.equal(await screen.find(BLUE), null);
  assert.notEqual(await screen.find(RED), null);
  assert.equal(await screen.click({ x: 4, y: 300 }), null, 'beside the plan');
  await screen.close();
});

test('the dot glides, ends exactly where it should, and jumps where it is told to or nothing shall move', async () => {
  for (const reducedMotion of ['no-preference', 'reduce']) {
    const { screen } = await open('a sample plan', { reducedMotion });
    const middle = await screen.call('({ x: innerWidth / 2, y: innerHeight / 2 })'); // of a plan of 180 by 120
    const perPixel = (800 - 24) / 180;
    const place = (x, y) => ({ x: middle.x + (x - 90) * perPixel, y: middle.y + (y - 60) * perPixel });
    await screen.call('setDotPosition(20, 30, 4, true)');
    await screen.page.waitForTimeout(700);
    assertNear(await screen.dot(), place(20, 30), 0.1, 'the first position');
    await screen.call('setDotPosition(120, 90, 4, true)');
    await screen.page.waitForTimeout(120);
    const way = (await screen.dot()).x;
    if (reducedMotion === 'reduce') assert.equal(Math.round(way), Math.round(place(120, 90).x));
    else assert.ok(way > place(21, 0).x && way < place(119, 0).x, `on its way: ${way}`);
    await screen.page.waitForTimeout(700);
    assertNear(await screen.dot(), place(120, 90), 0.1, 'the end of the way');
    await screen.call('setDotPosition(60, 60, 4, false)');
    await screen.page.waitForTimeout(60);
    assertNear(await screen.dot(), place(60, 60), 0.1, 'a jump');
    await screen.call('for (const bad of [NaN, Infinity, undefined, {}, 1e300]) { setDotPosition(bad, 5, 4, true); setDotPositionAutomatic(5, bad, 4); highlightPolygon(bad); }');
    await screen.page.waitForTimeout(700);
    assertNear(await screen.dot(), place(60, 60), 0.1, 'after positions that are none');
    assert.deepEqual(screen.troubles, []);
    await screen.close();
  }
});
