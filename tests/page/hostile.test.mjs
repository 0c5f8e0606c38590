// Parameters and calls that mean harm, or nothing: no script runs, nothing is loaded from elsewhere, the page still works.
import assert from 'node:assert/strict';
import { test } from 'node:test';
import { BLUE, RED, addFile, address, assertNear, openMap, pageFolder, plan, useBrowser } from './browser.mjs';

useBrowser();

const red = { x: 300, y: 200, side: 60, colour: RED };
const sizes = { 'map-width': 180, 'map-height': 120, 'crop-width': 180, 'crop-height': 120 };

const harmful = [
  '"><script>window.pwned=1</script>', "'-(window.pwned=1)-'", '<img src=x onerror=window.pwned=1>.svg', 'javascript:window.pwned=1//.svg',
  'data:image/svg+xml,<svg onload=window.pwned=1>', '%22%3E%3Cscript%3Ewindow.pwned=1%3C/script%3E', '../secret.svg', '..%2Fsecret.svg',
  '%2e%2e%2fsecret.svg', '..\\secret.svg', '/etc/hostname', 'file:///etc/hostname', '//host/x.svg', 'http://localhost:1/x.svg', '..', '.', '',
  '%', '%zz', '%FF%FE.svg', '%00.svg', 'a\tb.svg', '__proto__', 'constructor', 'x[__proto__][pwned]=1', 'x&__proto__[pwned]=1', 'a'.repeat(300), 'a'.repeat(300000),
];

test('no value of a parameter runs a script or loads anything from another place', async () => {
  const screen = await openMap('about:blank');
  for (const value of harmful) {
    await screen.show(address({ ...sizes, 'map-file': value, 'dot-x': value, 'dot-y': 60, 'uncertainty-radius': value }));
    await screen.page.getByText('The plan of this map is missing').waitFor();
    assert.deepEqual(screen.troubles, [], value.slice(0, 100));
    assert.equal(await screen.call('window.pwned ?? ({}).pwned ?? null'), null);
    assert.equal(await screen.dot(), null);
    await screen.call('setDotPosition(90, 60, 9, true)');
    assertNear(await screen.dot(), { x: 400, y: 300 }, 1, 'the dot on the grid');
  }
  await screen.close();
});

test('odd names of plans that do exist are found', async () => {
  const names = ['ground floor.svg', 'a+b.svg', 'a&b=c.svg', 'a#b?c.svg', "it's (1); [2] {3}.svg", '50% off.svg', 'a%20b.svg', 'Erdgeschoß ☃.svg', '"quoted".svg', '~x!*,@$.svg'];
  const screen = await openMap('about:blank');
  for (const name of names) {
    addFile(name, plan({ width: 900, height: 600, marks: [red] }));
    await screen.show(address({ 'dot-x': '', 'map-file': name, ...sizes }));
    await screen.settle();
    assert.ok(await screen.find(RED), name);
    assert.deepEqual(screen.troubles, []);
  }
  await screen.close();
});

test('of names that differ by an escape each is taken literally, in a plain address and in one that says it is escaped', async () => {
  const blue = { ...red, colour: BLUE };
  addFile('twin%20plan.svg', plan({ width: 900, height: 600, marks: [red] }));
  addFile('twin plan.svg', plan({ width: 900, height: 600, marks: [blue] }));
  addFile('alone%20.svg', plan({ width: 900, height: 600, marks: [blue] }));
  const screen = await openMap('about:blank');
  const plain = (name) => address({ ...sizes, 'map-file': name });
  const escaped = (name) => `${plain(encodeURIComponent(name))}#escaped`;
  for (const [url, colour] of [[plain('twin%20plan.svg'), RED], [escaped('twin%20plan.svg'), RED], [escaped('twin plan.svg'), BLUE], [escaped('alone .svg'), null]]) {
    await screen.show('about:blank');
    await screen.show(url);
    await screen.settle();
    for (const each of [RED, BLUE]) assert.equal(Boolean(await screen.find(each)), each === colour, `${url} ${each}`);
  }
  await screen.close();
});

test('a plan with a script in it is a picture', async () => {
  addFile('scripted.svg', plan({ width: 900, height: 600, marks: [red] }).replace('</svg>', '<script>top.pwned = 1; location = "quembly:x"</script><image href="http://localhost:1/x.png" width="9" height="9"/></svg>'));
  const screen = await openMap(address({ ...sizes, 'map-file': 'scripted.svg' }));
  await screen.settle();
  assert.ok(await screen.find(RED));
  assert.deepEqual([screen.troubles, await screen.call('[window.pwned, reported.length]')], [[], [undefined, 0]]);
  await screen.close();
});

test('sizes and positions that are none, or huge, leave a map that can be used', async () => {
  addFile('plain.svg', plan({ width: 900, height: 600, marks: [red] }));
  const bad = ['', 'NaN', 'inf', '-1', '0', '1e5', '99999999999999999999', '-9223372036854775808', '0x10', ' 7', '9999999'];
  const screen = await openMap('about:blank');
  for (const value of bad) {
    await screen.show(address({ 'map-width': value, 'map-height': value, 'crop-width': value, 'crop-height': value, 'dot-x': value, 'dot-y': value, 'uncertainty-radius': value, 'map-file': 'plain.svg' }));
    await screen.settle();
    assertNear(await screen.find(RED), { x: 400 - 150 * 776 / 900, y: 300 - 100 * 776 / 900 }, value === '9999999' ? 99 : 2, `the whole plan with ${value}`);
    assert.deepEqual(screen.troubles, []);
  }
  await screen.show(`${pageFolder()}/map.html`);
  await screen.page.getByText('The plan of this map is missing').waitFor();
  await screen.close();
});

test('areas: drawn where they are, taken away by an empty list, and nonsense in the text harms nothing', async () => {
  addFile('plain.svg', plan({ width: 900, height: 600 }));
  const screen = await openMap(address({ ...sizes, 'map-file': 'plain.svg' }));
  const amber = () => screen.find([255, 255, 0], 30);
  await screen.settle();
  assert.equal(await amber(), null);
  await screen.call('highlightPolygon("40.0,30.0 80.0,30.0 80.0,70.0 40.0,70.0 ")');
  await screen.settle();
  const perPixel = 776 / 180;
  assertNear(await amber(), { x: 400 + (60 - 90) * perPixel, y: 300 + (50 - 60) * perPixel }, 3, 'the area');
  await screen.call('highlightPolygon("")');
  await screen.settle();
  assert.equal(await amber(), null);
  await screen.call(`for (const text of ['nan,nan inf,1 ', ',', '1,2', '1,2 3', '<b>,"', 'x'.repeat(1 << 20), '1,1 '.repeat(200000), undefined, null, {}]) highlightPolygon(text)`);
  await screen.settle();
  assert.deepEqual(screen.troubles, []);
  await screen.close();
});
