// Shared by the console's browser test and its measurement script: child processes read line by
// line, the sandbox's change stream, Debian's Chromium, and the "skip" exit status.

import { spawn } from 'node:child_process';
import { existsSync, mkdtempSync, rmSync } from 'node:fs';
import { tmpdir } from 'node:os';
import path from 'node:path';

export const SKIP = 77;  // CTest's SKIP_RETURN_CODE for this test
export const PATIENCE_MS = 30_000;

export function skip(reason) {
  console.log(`browser test skipped: ${reason}`);
  process.exit(SKIP);
}

// "--name value" pairs.
export function parseArguments(argv) {
  const options = {};
  for (let i = 0; i < argv.length; i += 2) {
    if (!argv[i].startsWith('--') || i + 1 >= argv.length) {
      throw new Error(`bad argument ${argv[i]}`);
    }
    options[argv[i].slice(2)] = argv[i + 1];
  }
  return options;
}

// Resolves with `promise`, or rejects with `what` once `ms` have passed.
export function within(ms, what, promise) {
  let timer;
  const timeout = new Promise((_, reject) => {
    timer = setTimeout(() => reject(new Error(`timed out: ${what}`)), ms);
  });
  return Promise.race([promise, timeout]).finally(() => clearTimeout(timer));
}

// A child process whose standard output is read line by line; `waitForLine` resolves when a
// line matches (lines already read count too).
export class Child {
  constructor(name, command, args, options = {}) {
    this.name = name;
    this.lines = [];
    this.waiters = [];
    this.process = spawn(command, args, { stdio: ['pipe', 'pipe', 'pipe'], ...options });
    this.process.stdin.on('error', () => {});  // a child that is gone reads nothing more
    this.exited = new Promise((resolve) => {
      this.process.on('exit', (code, signal) => resolve({ code, signal }));
    });
    let pending = '';
    this.process.stdout.setEncoding('utf8');
    this.process.stdout.on('data', (chunk) => {
      pending += chunk;
      let newline;
      while ((newline = pending.indexOf('\n')) >= 0) {
        this.onLine(pending.slice(0, newline));
        pending = pending.slice(newline + 1);
      }
    });
    this.stderr = '';
    this.process.stderr.setEncoding('utf8');
    this.process.stderr.on('data', (chunk) => {
      this.stderr += chunk;
    });
  }

  onLine(line) {
    this.lines.push(line);
    this.waiters = this.waiters.filter(({ pattern, resolve }) => {
      const match = line.match(pattern);
      if (match) resolve(match);
      return !match;
    });
  }

  waitForLine(pattern, ms = PATIENCE_MS) {
    for (const line of this.lines) {
      const match = line.match(pattern);
      if (match) return Promise.resolve(match);
    }
    return within(ms, `${this.name} printing ${pattern}`, new Promise((resolve) => {
      this.waiters.push({ pattern, resolve });
    }));
  }

  send(line) {
    this.process.stdin.write(`${line}\n`);
  }

  // The output so far, for a failure's explanation.
  transcript() {
    return `--- ${this.name} stdout\n${this.lines.join('\n')}\n--- ${this.name} stderr\n${this.stderr}`;
  }

  async stop(signal = 'SIGTERM') {
    if (this.process.exitCode === null && this.process.signalCode === null) {
      this.process.kill(signal);
    }
    return this.exited;
  }
}

// Starts orvanta-sandbox on an ephemeral port with the credentials of `configPath`.
export async function startSandbox(executable, configPath) {
  const sandbox = new Child('orvanta-sandbox', executable, ['--port', '0', '--config', configPath]);
  const [, baseUrl] = await sandbox.waitForLine(/^orvanta-sandbox listening on (\S+)$/);
  const [, consoleUrl] = await sandbox.waitForLine(/^orvanta-sandbox console at (\S+)$/);
  sandbox.baseUrl = baseUrl;
  sandbox.consoleUrl = consoleUrl;
  return sandbox;
}

// The control API of the sandbox whose console is at `consoleUrl`.
export function controlApi(consoleUrl) {
  const call = async (method, relative, body) => {
    const response = await fetch(new URL(relative, consoleUrl), {
      method,
      headers: body === undefined ? {} : { 'Content-Type': 'application/json' },
      body: body === undefined ? undefined : JSON.stringify(body),
    });
    const text = await response.text();
    if (!response.ok) throw new Error(`${method} ${relative}: ${response.status} ${text}`);
    return text ? JSON.parse(text) : null;
  };

  // Resolves with the state once `predicate(state)` holds, reading the state at start and after
  // each notice of the change stream: no polling.
  const waitForState = async (what, predicate, ms = PATIENCE_MS) => {
    const abort = new AbortController();
    const waiting = (async () => {
      const response = await fetch(new URL('changes', consoleUrl), { signal: abort.signal });
      const decoder = new TextDecoder();
      let buffered = '';
      for await (const chunk of response.body) {
        buffered += decoder.decode(chunk, { stream: true });
        let end;
        while ((end = buffered.indexOf('\n\n')) >= 0) {
          const message = buffered.slice(0, end);
          buffered = buffered.slice(end + 2);
          if (!message.includes('event: change')) continue;
          const state = await call('GET', 'state');
          if (await predicate(state)) return state;
        }
      }
      throw new Error('the change stream ended');
    })();
    try {
      return await within(ms, what, waiting);
    } finally {
      abort.abort();
      waiting.catch(() => {});
    }
  };

  return { call, waitForState };
}

// Debian's Chromium, headless, with a fresh profile and nothing that reaches for the network
// (on a closed network Chromium otherwise waits on connections it will never get).
export async function launchChromium(chromiumPath) {
  if (!existsSync(chromiumPath)) skip(`${chromiumPath} not found (Debian package "chromium")`);
  let playwright;
  try {
    playwright = await import('playwright-core');
  } catch {
    skip('playwright-core is not installed: run scripts/bootstrap.sh ' +
      '(npm ci in tests/sandbox/browser)');
  }
  const profile = mkdtempSync(path.join(tmpdir(), 'orvanta-console-chromium-'));
  const context = await playwright.chromium.launchPersistentContext(profile, {
    executablePath: chromiumPath,
    headless: true,
    viewport: { width: 1366, height: 768 },  // a common laptop screen
    args: ['--headless', '--no-sandbox', '--disable-gpu', '--disable-quic', '--no-first-run',
      '--disable-background-networking', '--disable-component-update', '--disable-sync'],
  });
  const close = async () => {
    await context.close();
    rmSync(profile, { recursive: true, force: true });
  };
  return { context, close };
}
