// SPDX-License-Identifier: MIT
// tvsim's dashboard in headless Chromium: the page follows what an assistant
// application (zorctl) does to the television, and its controls reach a
// listening application. Run by run-browser-test.sh (CTest label "web").
import { test, before, after } from 'node:test';
import assert from 'node:assert/strict';
import { spawn, execFile } from 'node:child_process';
import { mkdtempSync, mkdirSync, rmSync } from 'node:fs';
import { tmpdir } from 'node:os';
import path from 'node:path';
import { promisify } from 'node:util';
import { chromium } from 'playwright-core';

const run = promisify(execFile);
const binDir = process.env.ZOR_TEST_BIN_DIR;
const artifacts = process.env.ZOR_WEB_ARTIFACTS || path.join(binDir, 'web-artifacts');
const tvsimPath = path.join(binDir, 'sim', 'tvsim');
const zorctlPath = path.join(binDir, 'tools', 'zorctl');

const sourceDir = path.resolve(path.dirname(new URL(import.meta.url).pathname), '..', '..');

const work = mkdtempSync(path.join(tmpdir(), 'zor-web-browser-'));
mkdirSync(path.join(work, 'alsa'));
// The sound devices are files and FIFOs of our own; tvsim --xmos plays the
// far-field board into them.
const env = {
  ...process.env,
  ZOR_RUNTIME_DIR: path.join(work, 'run'),
  ZOR_MUP_TIMEOUT_MS: '3000',
  ALSA_CONFIG_PATH: path.join(sourceDir, 'sim', 'alsa', 'asound.conf'),
  ZOR_ALSA_DIR: path.join(work, 'alsa'),
  ZOR_XMOS_DEVICE: path.join(work, 'run', 'xmos.sock'),
};

let tvsim;
let listen;
let address;
let context;
let page;

// A child process whose output is collected; `waitFor` resolves once a
// pattern has appeared (or rejects after `ms`).
function startProcess(program, args) {
  const child = spawn(program, args, { env, stdio: ['ignore', 'pipe', 'pipe'] });
  child.output = '';
  const collect = (chunk) => { child.output += chunk.toString(); };
  child.stdout.on('data', collect);
  child.stderr.on('data', collect);
  child.waitFor = (pattern, ms) => new Promise((resolve, reject) => {
    const found = () => child.output.match(pattern);
    if (found()) return resolve(found());
    const timer = setTimeout(() => {
      child.stdout.off('data', check);
      reject(new Error(`no ${pattern} from ${path.basename(program)} within ${ms} ms:\n${child.output}`));
    }, ms);
    const check = () => {
      if (!found()) return;
      clearTimeout(timer);
      child.stdout.off('data', check);
      resolve(found());
    };
    child.stdout.on('data', check);
  });
  return child;
}

function stopProcess(child, signal = 'SIGTERM') {
  if (!child || child.exitCode !== null) return Promise.resolve();
  return new Promise((resolve) => {
    const timer = setTimeout(() => { child.kill('SIGKILL'); }, 5000);
    child.once('exit', () => { clearTimeout(timer); resolve(); });
    child.kill(signal);
  });
}

before(async () => {
  mkdirSync(artifacts, { recursive: true });
  tvsim = startProcess(tvsimPath, ['--xmos', '--web', '--web-port', '0']);
  const match = await tvsim.waitFor(/dashboard at (http:\/\/\S+)/, 10000);
  address = match[1];

  // A listening assistant with the far-field microphone; the television
  // reports the board before the application completes its initialisation.
  listen = startProcess(zorctlPath, ['listen', '--source', 'ffm', '--init-delay', '1',
    '--stream-seconds', '0.5', '--wav', path.join(work, 'listen.wav')]);
  await listen.waitFor(/event: callbacks registered/, 10000);
  await run(tvsimPath, ['ctl', 'ffm-sup', '1', '1', '2'], { env });
  await listen.waitFor(/event: init-completed/, 10000);

  context = await chromium.launchPersistentContext(path.join(work, 'profile'), {
    executablePath: process.env.CHROMIUM || '/usr/bin/chromium',
    headless: true,
    viewport: { width: 1400, height: 1000 },
    args: [
      '--headless', '--no-sandbox', '--disable-gpu', '--disable-background-networking',
      '--disable-component-update', '--disable-sync', '--disable-quic', '--no-first-run',
    ],
  });
  page = context.pages()[0] || await context.newPage();
});

after(async () => {
  if (page) {
    await page.screenshot({ path: path.join(artifacts, 'dashboard.png'), fullPage: true }).catch(() => {});
  }
  if (context) await context.close();
  await stopProcess(listen, 'SIGINT');
  await stopProcess(tvsim);
  rmSync(work, { recursive: true, force: true });
});

// Problems of the page's layout at the current window width: sideways
// scrolling, anything reaching outside the window, blocks of the page on top
// of each other, a row's label over its value, text spilling out of its box.
function layoutProblems() {
  const problems = [];
  const width = document.documentElement.clientWidth;
  const name = (el) => el.id ? '#' + el.id : el.tagName.toLowerCase() + (el.className ? '.' + String(el.className).split(' ')[0] : '');
  const visible = (el) => {
    const r = el.getBoundingClientRect();
    return r.width > 0 && r.height > 0 && getComputedStyle(el).visibility !== 'hidden';
  };
  const overlap = (a, b) => {
    const p = a.getBoundingClientRect();
    const q = b.getBoundingClientRect();
    return Math.min(p.right, q.right) - Math.max(p.left, q.left) > 0.5 &&
      Math.min(p.bottom, q.bottom) - Math.max(p.top, q.top) > 0.5;
  };
  if (document.documentElement.scrollWidth > width) {
    problems.push(`the page scrolls sideways (${document.documentElement.scrollWidth} > ${width} px)`);
  }
  for (const el of document.body.querySelectorAll('*')) {
    if (!visible(el) || el.closest('#log li')) continue;
    const r = el.getBoundingClientRect();
    if (r.left < -0.5 || r.right > width + 0.5) {
      problems.push(`${name(el)} reaches outside the window (${Math.round(r.left)}..${Math.round(r.right)} of ${width} px)`);
    }
    const style = getComputedStyle(el);
    if (el.clientWidth > 0 && style.overflowX === 'visible' && el.scrollWidth > el.clientWidth + 1 &&
        !(el instanceof HTMLCanvasElement)) {
      problems.push(`${name(el)} holds more than it shows (${el.scrollWidth} > ${el.clientWidth} px)`);
    }
  }
  const blocks = [document.querySelector('header'), ...document.querySelectorAll('main > *')]
    .filter(visible);
  for (let i = 0; i < blocks.length; i++) {
    for (let j = i + 1; j < blocks.length; j++) {
      if (overlap(blocks[i], blocks[j])) problems.push(`${name(blocks[i])} overlaps ${name(blocks[j])}`);
    }
  }
  for (const row of document.querySelectorAll('.state tr')) {
    const [label, value] = row.children;
    if (overlap(label, value)) problems.push(`"${label.textContent}" overlaps its value`);
  }
  return problems;
}

test('the page loads and goes live', async () => {
  const consoleErrors = [];
  page.on('console', (message) => { if (message.type() === 'error') consoleErrors.push(message.text()); });
  const failed = [];
  page.on('response', (response) => { if (response.status() >= 400) failed.push(response.url()); });
  await page.goto(address);
  await page.locator('#link', { hasText: 'live' }).waitFor({ timeout: 5000 });
  assert.equal(await page.title(), 'tvsim — virtual television');
  assert.equal(await page.locator('#screen-name').textContent(), 'BBC One');
  assert.equal(await page.locator('#st-power').textContent(), 'on');
  // The icon too: nothing the page asks for is missing.
  await page.waitForLoadState('networkidle').catch(() => {});
  assert.deepEqual(failed, []);
  assert.deepEqual(consoleErrors, []);
});

for (const width of [360, 800, 1400]) {
  test(`at ${width} px nothing overlaps or overflows`, async () => {
    await page.setViewportSize({ width, height: 900 });
    // Two frames: the layout of the new width is done.
    await page.evaluate(() => new Promise((done) => requestAnimationFrame(() => requestAnimationFrame(done))));
    await page.screenshot({ path: path.join(artifacts, `dashboard-${width}.png`), fullPage: true });
    assert.deepEqual(await page.evaluate(layoutProblems), []);
    await page.setViewportSize({ width: 1400, height: 1000 });
  });
}

test('known values show their names beside their numbers', async () => {
  await run(zorctlPath, ['picture-style', '1'], { env });
  await page.locator('#st-picture', { hasText: 'vivid (1)' }).waitFor({ timeout: 2000 });
  await run(zorctlPath, ['sound-style', '3'], { env });
  await page.locator('#st-sound', { hasText: 'speech (3)' }).waitFor({ timeout: 2000 });
  assert.equal(await page.locator('#st-player').textContent(), 'stopped (0)');
  assert.equal(await page.locator('#st-active-app').textContent(), 'live TV (0)');
  // A value the television has no name for stays a number.
  await run(zorctlPath, ['picture-style', '42'], { env });
  await page.locator('#st-picture', { hasText: /^42$/ }).waitFor({ timeout: 2000 });
});

test('a volume set by zorctl shows within one second', async () => {
  await run(zorctlPath, ['volume', 'set', '42'], { env });
  const sent = Date.now();
  await page.locator('#st-volume', { hasText: '42 / 100' }).waitFor({ timeout: 1000 });
  assert.ok(Date.now() - sent <= 1000);
  assert.equal(await page.locator('#screen-volume-text').textContent(), '42');
  // The decoded line is in the log.
  await page.locator('#log li', { hasText: 'OXA_TV_CMD_ID_AUDIO_SetVolume' }).first().waitFor({ timeout: 1000 });
});

test('state from other commands shows on the screen and the side panel', async () => {
  await run(zorctlPath, ['tune-channel', '7'], { env });
  await page.locator('#screen-name', { hasText: 'Film4' }).waitFor({ timeout: 2000 });
  await run(zorctlPath, ['token', 'set', 'SECRET-browser-token'], { env });
  await page.locator('#st-token', { hasText: 'present' }).waitFor({ timeout: 2000 });
  const html = await page.content();
  assert.ok(!html.includes('SECRET-browser-token'), 'the token text reached the page');
});

test('the microphone-tap control runs a listening application\'s callback', async () => {
  await page.click('#btn-tap');
  await listen.waitFor(/event: mic-button-tapped/, 5000);
  await page.locator('#message', { hasText: 'tap: reply=0' }).waitFor({ timeout: 2000 });
});

test('the DSP-ready control reaches the application', async () => {
  await page.click('#btn-dsp-ready');
  await page.locator('#message', { hasText: 'dsp 1: reply=0' }).waitFor({ timeout: 2000 });
  await page.locator('#log li', { hasText: 'dsp 1 -> ok reply=0' }).first().waitFor({ timeout: 2000 });
});

test('malformed input is refused with a message on the page', async () => {
  await page.fill('#in-power', 'abc');
  await page.click('form[data-command="power"] button');
  const message = page.locator('#message.error');
  await message.waitFor({ timeout: 2000 });
  assert.match(await message.textContent(), /not a number: abc/);
  await page.fill('#in-power', '1');
});

test('saying a sentence draws its waveform', async (t) => {
  const state = await (await fetch(new URL('/api/state', address))).json();
  if (!state.farField) {
    t.skip('this tvsim has no simulated far-field device');
    return;
  }
  await page.fill('#in-say', 'Alexa, what time is it?');
  await page.click('#btn-say');
  await page.waitForFunction(() => Number(document.getElementById('waveform').dataset.samples) > 0,
    null, { timeout: 30000 });
  // Something was drawn: the canvas holds non-background pixels.
  const drawn = await page.evaluate(() => {
    const canvas = document.getElementById('waveform');
    const pixels = canvas.getContext('2d').getImageData(0, 0, canvas.width, canvas.height).data;
    let lit = 0;
    for (let i = 3; i < pixels.length; i += 4) if (pixels[i] > 0) lit++;
    return lit;
  });
  assert.ok(drawn > 1000, `only ${drawn} pixels drawn`);
  const caption = await page.locator('#ff-caption').textContent();
  assert.match(caption, /Alexa, what time is it\?/);
  assert.match(caption, /keyword 0\.\d\d–0\.\d\d s/);
  // The key press is marked when the application's far-field capture was
  // running; the wake word then reaches it.
  if (/key at/.test(caption)) {
    await listen.waitFor(/event: wake-word/, 5000);
  } else {
    t.diagnostic('no key press: the far-field capture was not running');
  }
});
