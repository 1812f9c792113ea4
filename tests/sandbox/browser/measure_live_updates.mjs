// Measures how the console follows the sandbox: with the server-sent change stream (the default)
// and with polling ("?poll=<ms>"). Not a test: it prints figures and asserts nothing.
//
//   node measure_live_updates.mjs --sandbox <orvanta-sandbox> --bundle <folder with
//        OrvantaConfig.plist> [--chromium /usr/bin/chromium] [--probes 20] [--burst 2000]
//
// For each mode, with the page open in headless Chromium and the sandbox in its own process:
// - latency: an event is posted, and the page notes when its row appears (20 probes, spaced);
// - idle: over 10 s with nothing happening, the page's requests and the sandbox's CPU time;
// - burst: 2,000 events posted 10 at a time; the page's refreshes, the sandbox's CPU time, and
//   how long after the last post the page shows the final count.

import { readFileSync } from 'node:fs';
import path from 'node:path';
import { setTimeout as delay } from 'node:timers/promises';

import { launchChromium, parseArguments, startSandbox } from './support.mjs';

const options = parseArguments(process.argv.slice(2));
const probes = Number(options.probes || 20);
const burst = Number(options.burst || 2000);
const plist = readFileSync(path.join(options.bundle, 'OrvantaConfig.plist'), 'utf8');
const credential = (key) => plist.match(new RegExp(`<key>${key}</key>\\s*<string>([^<]*)</string>`))[1];
const appId = credential('AppId');
const eventsToken = credential('EventsToken');

const ticksPerSecond = 100;  // USER_HZ on Linux
function cpuMs(pid) {
  const fields = readFileSync(`/proc/${pid}/stat`, 'utf8').split(') ')[1].split(' ');
  return ((Number(fields[11]) + Number(fields[12])) * 1000) / ticksPerSecond;  // utime + stime
}

function eventBody(name) {
  return JSON.stringify({
    pushId: `a1b2c3|||${appId}`, eventName: name, createdAt: Date.now() / 1000,
    additionalStringFields: {}, additionalNumericFields: {}, additionalBoolFields: {},
    additionalDateFields: {},
  });
}

async function postEvent(baseUrl, name) {
  const response = await fetch(`${baseUrl}event`, {
    method: 'POST',
    headers: { 'Content-Type': 'application/json', Authorization: eventsToken },
    body: eventBody(name),
  });
  await response.arrayBuffer();
  if (response.status !== 201) throw new Error(`event refused: ${response.status}`);
}

const percentile = (sorted, p) => sorted[Math.min(sorted.length - 1, Math.floor(p * sorted.length))];

async function measure(context, sandbox, mode) {
  await fetch(new URL('reset', sandbox.consoleUrl), { method: 'POST' });
  const page = await context.newPage();
  await page.goto(sandbox.consoleUrl + (mode.poll ? `?poll=${mode.poll}` : ''));
  await page.locator(`#live[data-state="${mode.poll ? 'polling' : 'live'}"]`).waitFor();
  // The page notes when each event row first appears.
  await page.evaluate(() => {
    window.seen = {};
    new MutationObserver(() => {
      for (const cell of document.querySelectorAll('#event-rows .event-name code')) {
        if (!(cell.textContent in window.seen)) window.seen[cell.textContent] = Date.now();
      }
    }).observe(document.getElementById('event-rows'), { childList: true, subtree: true });
  });

  const latencies = [];
  for (let i = 0; i < probes; i += 1) {
    const name = `probe-${i}`;
    const sent = Date.now();
    await postEvent(sandbox.baseUrl, name);
    await page.waitForFunction((n) => n in window.seen, name, { timeout: 30_000 });
    latencies.push((await page.evaluate((n) => window.seen[n], name)) - sent);
    await delay(200 + Math.random() * 600);
  }
  latencies.sort((a, b) => a - b);

  const statsNow = () => page.evaluate(() => ({ ...window.sandboxConsole }));
  let before = await statsNow();
  let cpuBefore = cpuMs(sandbox.process.pid);
  await delay(10_000);
  let after = await statsNow();
  const idle = {
    requests: after.fetches - before.fetches,
    cpuMs: cpuMs(sandbox.process.pid) - cpuBefore,
  };

  before = after;
  cpuBefore = cpuMs(sandbox.process.pid);
  const started = Date.now();
  let next = 0;
  await Promise.all(Array.from({ length: 10 }, async () => {
    while (next < burst) {
      next += 1;
      await postEvent(sandbox.baseUrl, `burst-${next}`);
    }
  }));
  const posted = Date.now();
  const total = String(probes + burst);
  await page.waitForFunction((t) => document.getElementById('count-events').textContent === t, total,
    { timeout: 60_000 });
  const shown = Date.now();
  after = await statsNow();
  const result = {
    mode: mode.name,
    latencyMedianMs: percentile(latencies, 0.5),
    latencyWorstMs: latencies[latencies.length - 1],
    idleRequestsPer10s: idle.requests,
    idleSandboxCpuMsPer10s: idle.cpuMs,
    burstPostsPerSecond: Math.round((burst * 1000) / (posted - started)),
    burstPageRefreshes: after.refreshes - before.refreshes,
    burstPageRequests: after.fetches - before.fetches,
    burstSandboxCpuMs: cpuMs(sandbox.process.pid) - cpuBefore,
    burstCaughtUpAfterMs: shown - posted,
  };
  await page.close();
  return result;
}

const { context, close } = await launchChromium(options.chromium || '/usr/bin/chromium');
const sandbox = await startSandbox(options.sandbox, path.join(options.bundle, 'OrvantaConfig.plist'));
try {
  const results = [];
  for (const mode of [{ name: 'server-sent events' }, { name: 'polling every 1000 ms', poll: 1000 },
    { name: 'polling every 250 ms', poll: 250 }]) {
    results.push(await measure(context, sandbox, mode));
  }
  console.table(results);
} finally {
  await close();
  await sandbox.stop();
}
