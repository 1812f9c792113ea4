// The sandbox console in a real browser: the kit (console_kit_host, on the kit's public interface)
// registers a device and tracks events against orvanta-sandbox, and the page in Debian's headless
// Chromium must show them as they arrive; a push composed on the page must reach the sandbox's
// state; a fault injected from the page must make the kit's next request fail as injected. The
// page's screenshot is kept in the artifacts folder.
//
//   node console_test.mjs --sandbox <orvanta-sandbox> --host <console_kit_host>
//        --bundle <folder with OrvantaConfig.plist> --artifacts <folder> [--chromium <path>]
//
// Exits 77 (skipped) when Chromium or playwright-core is missing.

import assert from 'node:assert/strict';
import { mkdirSync, mkdtempSync, rmSync } from 'node:fs';
import { tmpdir } from 'node:os';
import path from 'node:path';

import {
  Child, controlApi, launchChromium, parseArguments, PATIENCE_MS, startSandbox,
} from './support.mjs';

const options = parseArguments(process.argv.slice(2));
for (const required of ['sandbox', 'host', 'bundle', 'artifacts']) {
  if (!options[required]) throw new Error(`missing --${required}`);
}
const chromiumPath = options.chromium || '/usr/bin/chromium';
mkdirSync(options.artifacts, { recursive: true });
const failureScreenshot = path.join(options.artifacts, 'console-failure.png');
rmSync(failureScreenshot, { force: true });  // from an earlier run

// The token console_kit_host's platform delivers, in the kit's hex form.
const TOKEN = Array.from({ length: 32 }, (_, i) => ((i * 29 + 7) & 0xff).toString(16).padStart(2, '0'))
  .join('');

const { context, close: closeBrowser } = await launchChromium(chromiumPath);
const sandbox = await startSandbox(options.sandbox, path.join(options.bundle, 'OrvantaConfig.plist'));
const dataDirectory = mkdtempSync(path.join(tmpdir(), 'orvanta-console-kit-'));
const kit = new Child('console_kit_host', options.host,
  [sandbox.baseUrl, options.bundle, dataDirectory]);
const control = controlApi(sandbox.consoleUrl);
const page = await context.newPage();
page.setDefaultTimeout(PATIENCE_MS);
const pageProblems = [];
page.on('pageerror', (error) => pageProblems.push(`page error: ${error.message}`));
page.on('console', (message) => {
  if (message.type() === 'error') pageProblems.push(`console error: ${message.text()}`);
});

async function command(line) {
  kit.send(line);
  await kit.waitForLine(new RegExp(`^done ${line}$`));
}

const steps = [];
async function step(name, body) {
  process.stdout.write(`- ${name}\n`);
  steps.push(name);
  await body();
}

let failed = false;
let userId = '';  // of the device the kit registers
try {
  await step('the sandbox prints where its console is', async () => {
    assert.match(sandbox.consoleUrl, /^http:\/\/127\.0\.0\.1:\d+\/_sandbox\/$/);
    assert.equal(new URL(sandbox.consoleUrl).port, new URL(sandbox.baseUrl).port);
  });

  await step('the page opens and follows the sandbox live', async () => {
    await page.goto(sandbox.consoleUrl);
    await page.locator('#live[data-state="live"]').waitFor();
    assert.equal(await page.locator('#base-url').textContent(), sandbox.baseUrl);
    // Every control has a name a screen reader can say.
    const unnamed = await page.evaluate(() => [...document.querySelectorAll('input, select, textarea, button')]
      .filter((control) => !(control.labels && control.labels.length) && !control.getAttribute('aria-label')
        && !(control.textContent || '').trim())
      .map((control) => control.id || control.outerHTML));
    assert.deepEqual(unnamed, []);
  });

  await step('the device the kit registers appears on the page', async () => {
    await kit.waitForLine(/^ready$/);
    await command('register');
    const state = await control.waitForState('the device registered',
      (s) => s.devices.some((device) => device.registration_id === TOKEN));
    const device = state.devices[0];
    const card = page.locator('.device', { hasText: TOKEN });
    await card.waitFor();
    assert.match(await card.textContent(), new RegExp(device.user_id));
    assert.match(await card.textContent(), /registered 1×/);
    await page.locator(`#push-device option[value="${device.user_id}"]`).waitFor({ state: 'attached' });
    userId = device.user_id;
  });

  await step('the events the kit tracks appear with their typed parameters', async () => {
    for (const name of ['app_open', 'purchase', 'level_up']) await command(`track ${name}`);
    await control.waitForState('three events delivered', (s) => s.event_count >= 3);
    for (const name of ['app_open', 'purchase', 'level_up']) {
      await page.locator('#event-rows tr', { hasText: name }).waitFor();
    }
    const row = page.locator('#event-rows tr', { hasText: 'purchase' });
    assert.match(await row.locator('.param', { hasText: 'qty' }).textContent(), /2\s*integer/);
    assert.match(await row.locator('.param', { hasText: 'gift' }).textContent(), /false\s*Boolean/);
    assert.match(await row.locator('.param', { hasText: 'when' }).textContent(), /\d{4}-\d\d-\d\d.*date/);
    assert.equal(await row.locator('.token').getAttribute('title'), TOKEN);
    assert.match(await page.locator('#events .note').innerText(), /Deliveries above 1 are expected/);
    await page.locator('#request-list .request', { hasText: '/v1/event' }).first().waitFor();
    await page.locator('#violations-empty').waitFor();
  });

  await step('a request that breaks the contract is highlighted with its reason', async () => {
    const response = await fetch(`${sandbox.baseUrl}event`, {
      method: 'POST',
      headers: { 'Content-Type': 'application/json; charset=utf-8', Authorization: 'wrong' },
      body: '{}',
    });
    assert.equal(response.status, 401);
    await page.locator('#violation-list .violation', { hasText: 'not the events token' }).waitFor();
    await page.locator('#violation-banner').waitFor();
    await page.locator('#request-list .request.refused', { hasText: 'not the events token' }).waitFor();
  });

  await step('a push composed on the page is sent to the device', async () => {
    await page.selectOption('#push-device', userId);
    await page.fill('#push-id', 'console-push-1');
    await page.fill('#push-title', 'Flash sale');
    await page.fill('#push-body', 'Two hours only: everything at half price.');
    await page.fill('#push-image', 'https://example.com/sale.png');
    await page.selectOption('#push-action-type', 'BROWSER');
    await page.fill('#push-action-url', 'https://example.com/sale');
    await page.selectOption('#push-category', 'ACCEPTANCE_INVERTED');
    // The category's buttons are previewed in the kit's order, with the kit's titles.
    assert.deepEqual(await page.locator('#preview-buttons .preview-button').allTextContents(),
      ['Decline', 'Accept']);
    await page.selectOption('#button-accept-type', 'DEEPLINK');
    await page.fill('#button-accept-url', 'myapp://sale/accept');
    await page.click('#push-send');
    // The test's token stands for no push endpoint: set as the last push, not sent.
    await page.locator('#push-result', { hasText: 'not sent: the device\'s token is not a push endpoint' })
      .waitFor();

    const state = await control.waitForState('the push set', (s) => s.last_pushes[TOKEN]);
    assert.deepEqual(state.last_pushes[TOKEN], {
      id: 'console-push-1',
      registration_id: TOKEN,
      title: 'Flash sale',
      body: 'Two hours only: everything at half price.',
      image: 'https://example.com/sale.png',
      action: { action: { url: 'https://example.com/sale', type: 'BROWSER' } },
      action_buttons: {
        category_id: 'ORVANTA_PUSH_CATEGORY_ACCEPTANCE_INVERTED',
        items: [
          { text: 'Decline', action: { id: 'ORVANTA_PUSH_ACTION_DECLINE', type: 'NONE' } },
          { text: 'Accept',
            action: { id: 'ORVANTA_PUSH_ACTION_ACCEPT', url: 'myapp://sale/accept', type: 'DEEPLINK' } },
        ],
      },
    });
    assert.equal(state.sent.length, 1);
    assert.equal(state.sent[0].delivery.outcome, 'not_available');
    await page.locator('#sent-list .sent', { hasText: 'console-push-1' }).waitFor();
  });

  await step('a fault injected from the page makes the kit\'s next request fail as injected',
    async () => {
      await page.selectOption('#fault-endpoint', 'event');
      await page.fill('#fault-status', '503');
      await page.fill('#fault-count', '1');
      await page.click('#fault-inject');
      await page.locator('#fault-list .fault', { hasText: 'answer 503, for the next 1 request' })
        .waitFor();
      const before = (await control.call('GET', 'state')).request_count;
      assert.deepEqual((await control.call('GET', 'state')).faults.event,
        { status: 503, count: 1, delay_ms: 0, drop: false, content_type: false });

      await command('track after_fault');
      const firstEventPost = (s) => s.requests.find((r) => r.path === '/v1/event');
      let log;
      await control.waitForState('the kit posting an event', async () => {
        log = await control.call('GET', `requests?since=${before}`);
        return firstEventPost(log) !== undefined;
      });
      const failedPost = firstEventPost(log);
      assert.equal(failedPost.status, 503);
      assert.equal(failedPost.reason, 'fault');
      await page.locator('#request-list .request.http-5xx', { hasText: '503' }).first().waitFor();
      await page.locator('#faults-empty').waitFor();  // the fault was for one request only

      // The kit keeps the event and posts it again at its next flush.
      await command('background');
      await control.waitForState('the event delivered after the fault',
        (s) => s.events.some((event) => event.body.eventName === 'after_fault'));
      await page.locator('#event-rows tr', { hasText: 'after_fault' }).waitFor();
    });

  await step('the health counters the host posts appear on its device', async () => {
    kit.send('health');
    const [, snapshot] = await kit.waitForLine(/^health (\{.*\})$/);
    const counters = JSON.parse(snapshot);
    assert.ok(counters.eventsPosted >= 4, snapshot);
    assert.ok(counters.postFailuresServerError >= 1, snapshot);
    await kit.waitForLine(/^done health$/);
    await control.call('POST', `health/${userId}`, counters);
    const health = page.locator('.device .health');
    await health.waitFor();
    assert.match(await health.locator('.param', { hasText: 'events posted' }).textContent(),
      new RegExp(`${counters.eventsPosted}`));
    assert.match(await health.textContent(), /last post/);
    await assert.rejects(control.call('POST', `health/${userId}`, { eventsPosted: -1 }), /400/);
    await assert.rejects(control.call('POST', 'health/nobody', counters), /404/);
  });

  await step('faults are injected and cleared with the keyboard alone', async () => {
    await page.fill('#fault-status', '');
    await page.fill('#fault-count', '');
    await page.focus('#fault-endpoint');
    await page.keyboard.press('Home');  // the first choice: every endpoint ("*")
    assert.equal(await page.inputValue('#fault-endpoint'), '*');
    await page.keyboard.press('Tab');  // answer status
    await page.keyboard.press('Tab');  // delay
    await page.keyboard.type('250');
    await page.keyboard.press('Tab');  // count
    await page.keyboard.press('Tab');  // "close the connection"
    await page.keyboard.press('Space');
    await page.keyboard.press('Tab');  // "add Content-Type"
    await page.keyboard.press('Tab');  // "Inject fault"
    await page.keyboard.press('Enter');
    const fault = page.locator('#fault-list .fault', { hasText: 'close the connection' });
    await fault.waitFor();
    assert.deepEqual((await control.call('GET', 'state')).faults['*'],
      { status: null, count: null, delay_ms: 250, drop: true, content_type: false });
    await page.getByRole('button', { name: 'Clear the fault on *' }).focus();
    await page.keyboard.press('Space');
    await fault.waitFor({ state: 'detached' });
    assert.deepEqual((await control.call('GET', 'state')).faults, {});
    await page.uncheck('#fault-drop');
    await page.fill('#fault-delay', '');
  });

  await step('the screenshot shows the page with the kit\'s traffic', async () => {
    await page.locator('#request-list .request', { hasText: '/v1/devices' }).last()
      .locator('summary').click();
    const screenshot = path.join(options.artifacts, 'console.png');
    await page.screenshot({ path: screenshot, fullPage: true });
    process.stdout.write(`  screenshot: ${screenshot}\n`);
  });

  await step('reset from the page empties the sandbox and the page', async () => {
    await page.click('#reset');
    await control.waitForState('the reset', (s) => s.devices.length === 0 && s.event_count === 0);
    await page.locator('#devices-empty').waitFor();
    await page.locator('#events-empty').waitFor();
    await page.locator('#violations-empty').waitFor();
    assert.equal(await page.locator('#request-list .request').count(), 0);
  });

  assert.deepEqual(pageProblems, []);
} catch (error) {
  failed = true;
  console.error(`FAILED in "${steps[steps.length - 1]}": ${error.stack || error}`);
  try {
    await page.screenshot({ path: failureScreenshot, fullPage: true });
  } catch {
    // the browser may be gone
  }
  console.error(kit.transcript());
  console.error(sandbox.transcript());
  if (pageProblems.length) console.error(pageProblems.join('\n'));
} finally {
  kit.send('quit');
  const kitExit = await Promise.race([kit.exited, new Promise((resolve) => {
    setTimeout(() => resolve(null), PATIENCE_MS);
  })]);
  if (kitExit === null) {
    await kit.stop('SIGKILL');
    failed = true;
    console.error('console_kit_host did not quit');
  }
  await closeBrowser();
  const sandboxExit = await sandbox.stop();
  if (sandboxExit.code !== 0) {
    failed = true;
    console.error(`orvanta-sandbox ended with ${JSON.stringify(sandboxExit)}`);
  }
  rmSync(dataDirectory, { recursive: true, force: true });
}
console.log(failed ? 'console browser test: FAILED' : `console browser test: ${steps.length} steps passed`);
process.exit(failed ? 1 : 0);
