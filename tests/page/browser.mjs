// The map page in Chromium, with what a person sees of it: where things are on the screen, and what a touch reports.
import assert from 'node:assert/strict';
import fs from 'node:fs';
import os from 'node:os';
import path from 'node:path';
import { after, before } from 'node:test';
import { pathToFileURL } from 'node:url';
import { chromium } from 'playwright-core';

const RESOURCES = process.env.WAYLOOM_RESOURCES;
export const FLAGS = ['--no-sandbox', '--disable-gpu', '--disable-quic', '--no-first-run', '--disable-background-networking', '--disable-component-update', '--disable-sync'];
export const RED = [255, 0, 0];
export const BLUE = [0, 0, 255];

export let browser;
let folder;
let laboratory; // a page that reads pictures

export function useBrowser() {
  before(async () => {
    assert.ok(RESOURCES, 'WAYLOOM_RESOURCES names the folder of the page');
    browser = await chromium.launch({ executablePath: process.env.CHROMIUM || '/usr/bin/chromium', args: FLAGS });
    laboratory = await browser.newPage();
    folder = fs.mkdtempSync(path.join(os.tmpdir(), 'wayloom-page-'));
    fs.cpSync(RESOURCES, folder, { recursive: true });
  });
  after(async () => {
    await browser?.close();
    if (folder) fs.rmSync(folder, { recursive: true });
  });
}

// A plan of that many picture pixels with square marks, each centred on its point.
export function plan({ width, height, marks = [], size = `width="${width}" height="${height}"` }) {
  const squares = marks.map(({ x, y, side, colour }) => `<rect x="${x - side / 2}" y="${y - side / 2}" width="${side}" height="${side}" fill="rgb(${colour})"/>`);
  return `<svg xmlns="http://www.w3.org/2000/svg" ${size} viewBox="0 0 ${width} ${height}"><rect width="100%" height="100%" fill="#fff"/>${squares.join('')}</svg>`;
}

export function addFile(name, text) {
  fs.writeFileSync(path.join(folder, name), text);
}

export function pageFolder() {
  return pathToFileURL(folder).href;
}

// Parameters as the view writes them: names and values without any escape.
export function address(parameters) {
  return `${pageFolder()}/map.html?${Object.entries(parameters).map(([name, value]) => `${name}=${value}`).join('&')}`;
}

export async function openMap(url, options = {}) {
  const { ratio = 1, width = 800, height = 600, ...rest } = options;
  const context = await browser.newContext({ viewport: { width, height }, deviceScaleFactor: ratio, hasTouch: true, ...rest });
  const page = await context.newPage();
  const troubles = [];
  page.on('pageerror', (error) => troubles.push(`error: ${error.message}`));
  page.on('dialog', (dialog) => troubles.push(`dialog: ${dialog.message()}`) && dialog.dismiss());
  page.on('console', (message) => message.text().includes('Content Security Policy') && troubles.push(message.text()));
  page.on('request', (request) => request.url().startsWith(`${pageFolder()}/`) || troubles.push(`request: ${request.url()}`));
  // Refuses the navigations that report, as the program around the page does.
  await page.addInitScript(() => {
    window.reported = [];
    navigation.addEventListener('navigate', (event) => {
      if (!event.destination.url.startsWith('quembly:')) return;
      window.reported.push(event.destination.url);
      event.preventDefault();
    });
  });
  const screen = new Screen(page, ratio, troubles, await context.newCDPSession(page));
  await screen.show(url);
  return screen;
}

export class Screen {
  constructor(page, ratio, troubles, devtools) {
    Object.assign(this, { page, ratio, troubles, devtools });
  }

  show(url) {
    return this.page.goto(url);
  }

  close() {
    return this.page.context().close();
  }

  call(script) {
    return this.page.evaluate(script);
  }

  // Until nothing has moved for a while and the picture is sharp.
  async settle() {
    const state = () => this.page.evaluate(() => ['overview', 'detail', 'marker'].map((id) => document.getElementById(id).style.transform).join());
    let last = '';
    for (let same = 0; same < 3; ) {
      await this.page.waitForTimeout(90);
      const now = await state();
      same = now === last ? same + 1 : 0;
      last = now;
    }
  }

  // What a function finds in a picture of the screen; it runs in a page.
  async read(options, find, ...argument) {
    const picture = (await this.page.screenshot(options)).toString('base64');
    return laboratory.evaluate(async ([data, text, more]) => {
      const image = new Image();
      image.src = `data:image/png;base64,${data}`;
      await image.decode();
      const { width, height } = image;
      const context = new OffscreenCanvas(width, height).getContext('2d');
      context.drawImage(image, 0, 0);
      return (0, eval)(text)({ pixels: context.getImageData(0, 0, width, height).data, width, height }, ...more);
    }, [picture, `(${find})`, argument]);
  }

  colour({ x, y }) {
    return this.read({ clip: { x, y, width: 1, height: 1 } }, ({ pixels }) => [...pixels.slice(0, 3)]);
  }

  // The middle of all that has a colour, on the screen; a pixel at an edge to white counts in part. None where there
  // is none of it.
  async find(colour, tolerance = 10) {
    const middle = await this.read({}, ({ pixels, width }, [wanted, most]) => {
      let [count, x, y] = [0, 0, 0];
      for (let i = 0; i < pixels.length; i += 4) {
        const missing = wanted.map((value, channel) => [value, 255 - pixels[i + channel]]);
        const off = missing.filter(([value]) => value === 0).map(([, lack]) => lack);
        const share = Math.min(...off) / 255;
        if (share < 0.15 || Math.max(...off) / 255 > share + 0.1 || missing.some(([value, lack]) => value === 255 && lack > most)) continue;
        count += share;
        x += share * ((i / 4) % width + 0.5);
        y += share * (Math.floor(i / 4 / width) + 0.5);
      }
      return count ? { x: x / count, y: y / count } : null;
    }, [colour, tolerance]);
    return middle && { x: middle.x / this.ratio, y: middle.y / this.ratio };
  }

  // The picture of the plan is as fine as the screen, and lies on it pixel by pixel.
  isSharp() {
    return this.page.evaluate(() => {
      const { width, style } = document.getElementById('detail');
      return width === Math.round(innerWidth * devicePixelRatio) && style.transform === 'matrix(1, 0, 0, 1, 0, 0)';
    });
  }

  async dot() {
    return this.page.evaluate(async () => {
      for (let frame = 0; frame < 2; frame += 1) await new Promise(requestAnimationFrame);
      const marker = document.getElementById('marker');
      const box = marker.getBoundingClientRect();
      return getComputedStyle(marker).visibility === 'visible' ? { x: box.x + box.width / 2, y: box.y + box.height / 2 } : null;
    });
  }

  // The reports so far, read as the view reads them.
  async taps() {
    const texts = await this.page.evaluate(() => window.reported);
    return texts.map((text) => text.split(':').pop().split(',').map(Math.fround)).map(([x, y]) => ({ x, y }));
  }

  // What a click on a point of the screen reports: null when nothing comes.
  async click(point) {
    const before = (await this.taps()).length;
    await this.page.mouse.click(point.x, point.y);
    await this.page.waitForTimeout(400);
    return (await this.taps())[before] ?? null;
  }

  async drag(from, to) {
    await this.page.mouse.move(from.x, from.y);
    await this.page.mouse.down();
    await this.page.mouse.move(to.x, to.y, { steps: 6 });
    await this.page.mouse.up();
    await this.settle();
  }

  async wheel(point, pixels) {
    await this.page.mouse.move(point.x, point.y);
    await this.page.mouse.wheel(0, pixels);
    await this.settle();
  }

  // Fingers that go down at the first points of their paths, along them, and up again.
  async fingers(paths, steps = 8) {
    const at = (part) => paths.map(([from, to], id) => ({ id, x: from.x + (to.x - from.x) * part, y: from.y + (to.y - from.y) * part }));
    const send = (type, touchPoints) => this.devtools.send('Input.dispatchTouchEvent', { type, touchPoints });
    await send('touchStart', at(0));
    for (let step = 1; step <= steps; step += 1) {
      await this.page.waitForTimeout(12);
      await send('touchMove', at(step / steps));
    }
    await send('touchEnd', []);
  }
}

export function assertNear(actual, expected, tolerance, what) {
  assert.ok(actual, `${what}: nothing there`);
  const off = Math.hypot(actual.x - expected.x, actual.y - expected.y);
  assert.ok(off <= tolerance, `${what}: (${actual.x}, ${actual.y}) is ${off.toFixed(3)} from (${expected.x}, ${expected.y}), allowed ${tolerance}`);
}
