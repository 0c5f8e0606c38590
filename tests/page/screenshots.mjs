// Writes the pictures that documents show of the map page: node screenshots.mjs FOLDER
import fs from 'node:fs';
import os from 'node:os';
import path from 'node:path';
import { chromium } from 'playwright-core';
import { FLAGS } from './browser.mjs';

const [images] = process.argv.slice(2);
const folder = fs.mkdtempSync(path.join(os.tmpdir(), 'wayloom-pictures-'));
fs.cpSync(process.env.WAYLOOM_RESOURCES, folder, { recursive: true });
fs.cpSync(path.join(process.env.WAYLOOM_EXAMPLES, 'venue/bundle'), folder, { recursive: true });

const ground = 'map-width=180&map-height=120&crop-width=180&crop-height=105&map-file=ground-floor.svg&dot-x=96&dot-y=58&uncertainty-radius=18';
const upper = 'map-width=100&map-height=100&crop-width=100&crop-height=100&map-file=upper-floor.svg';
const pictures = [
  { name: 'map-light', query: ground, colorScheme: 'light', width: 640, height: 400 },
  { name: 'map-dark', query: ground, colorScheme: 'dark', width: 640, height: 400 },
  { name: 'map-phone', query: upper, colorScheme: 'light', width: 320, height: 480, script: 'highlightPolygon("63,12 87,12 87,36 63,36 "); setDotPosition(72, 48, 9, true)' },
];

const browser = await chromium.launch({ executablePath: process.env.CHROMIUM || '/usr/bin/chromium', args: FLAGS });
for (const { name, query, colorScheme, width, height, script } of pictures) {
  const page = await browser.newPage({ viewport: { width, height }, colorScheme });
  await page.goto(`file://${folder}/map.html?${query}`);
  if (script) await page.evaluate(script);
  await page.waitForTimeout(1500);
  await page.screenshot({ path: path.join(images, `${name}.png`) });
  await page.close();
}
await browser.close();
fs.rmSync(folder, { recursive: true });
