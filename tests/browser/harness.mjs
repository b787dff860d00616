// What every browser test needs: the service simulator on a free port, a web
// server for the test pages (plain HTTP, and HTTPS for the web-mail host), and
// Debian's Chromium with the Wren extension and a profile whose
// NativeMessagingHosts/ holds the manifest that `wren-bridge install` wrote.
import { spawn, execFileSync } from 'node:child_process';
import crypto from 'node:crypto';
import fs from 'node:fs';
import os from 'node:os';
import path from 'node:path';
import { fileURLToPath } from 'node:url';
import readline from 'node:readline';
import { setTimeout as sleep } from 'node:timers/promises';
import { chromium } from 'playwright-core';
import { startPageServers } from './pages.mjs';

export const CHROMIUM = process.env.WREN_CHROMIUM || '/usr/lib/chromium/chromium';
export const BRIDGE = process.env.WREN_BRIDGE_EXE;
export const SIM = process.env.WREN_SIM_EXE;
export const EXTENSION_DIR = path.resolve(path.dirname(fileURLToPath(import.meta.url)), '../../extension');
// Fixed by the public key in extension/manifest.json.
export const EXTENSION_ID = 'kkkadkgcagokddgolmdbmdhkpnbhhahc';

// Upper bound for anything the browser, the host and the simulator do in
// answer to one step of a test; generous, since the machine may be busy.
export const STEP_TIMEOUT_MS = 15000;
const POLL_MS = 50;
// How long the ready page waits for its rating before it is loaded again.
const READY_RETRY_MS = 1000;

export function requireBinaries() {
  for (const [name, file] of [['WREN_BRIDGE_EXE', BRIDGE], ['WREN_SIM_EXE', SIM], ['chromium', CHROMIUM]]) {
    if (!file || !fs.existsSync(file)) throw new Error(`${name} not found (${file ?? 'unset'}); see tests/browser/run.sh`);
  }
}

// Polls `probe` until it returns a truthy value, which is returned.
export async function waitFor(what, probe, timeoutMs = STEP_TIMEOUT_MS) {
  const deadline = Date.now() + timeoutMs;
  for (;;) {
    const value = await probe();
    if (value) return value;
    if (Date.now() > deadline) throw new Error(`timed out waiting for ${what}`);
    await sleep(POLL_MS);
  }
}

// wren-service-sim on a free port; every request it serves is kept. With
// `--cloud-port` among `args` it also waits for the simulated cloud, whose
// address and certificate file come back as `cloud`.
export async function startSimulator(args = []) {
  const child = spawn(SIM, ['--port', '0', ...args], { stdio: ['ignore', 'pipe', 'inherit'] });
  const withCloud = args.some((a) => a === '--cloud-port' || a.startsWith('--cloud-port='));
  const requests = [];
  const logs = [];
  let port = null;
  let cloud = null;
  const lines = readline.createInterface({ input: child.stdout });
  await new Promise((resolve, reject) => {
    child.once('error', reject);
    child.once('exit', (code) => reject(new Error(`wren-service-sim exited with ${code} before listening`)));
    lines.on('line', (line) => {
      let event;
      try {
        event = JSON.parse(line);
      } catch {
        return;
      }
      if (event.event === 'listening' && event.port) port = event.port;
      else if (event.event === 'listening' && event.cloudPort) {
        cloud = { port: event.cloudPort, origin: `https://127.0.0.1:${event.cloudPort}`, caFile: event.caFile };
      } else if (event.event === 'log') logs.push(event.info);
      else if (event.server) requests.push(event);
      if (port && (cloud || !withCloud)) resolve();
    });
  });
  const exited = new Promise((resolve) => child.once('exit', resolve));
  return {
    port,
    origin: `http://127.0.0.1:${port}`,
    cloud,
    requests,
    // The "info" texts of the log commands the service was sent.
    logs,
    // The requests whose target (path and query) contains every one of `parts`.
    requestsTo: (...parts) => requests.filter((r) => parts.every((p) => r.target.includes(p))),
    async stop() {
      if (child.exitCode === null) child.kill('SIGTERM');
      await exited;
    },
  };
}

function tempDir(prefix) {
  return fs.mkdtempSync(path.join(os.tmpdir(), prefix));
}

// The wren-bridge processes started for this run: the browser hands the host
// its own environment, which carries the run's tag.
export function hostProcesses(runTag) {
  const exe = fs.realpathSync(BRIDGE);
  const found = [];
  for (const entry of fs.readdirSync('/proc')) {
    if (!/^\d+$/.test(entry)) continue;
    try {
      if (fs.readlinkSync(`/proc/${entry}/exe`) !== exe) continue;
      const environ = fs.readFileSync(`/proc/${entry}/environ`, 'utf8').split('\0');
      const state = fs.readFileSync(`/proc/${entry}/stat`, 'utf8').split(') ')[1]?.[0];
      if (environ.includes(`WREN_TEST_RUN=${runTag}`) && state !== 'Z') found.push(Number(entry));
    } catch {
      // gone meanwhile, or not ours to read
    }
  }
  return found;
}

// One browser session: simulator, page servers, profile, Chromium. A running
// simulator may be handed in as `sim` (it is then left running at close),
// `env` adds to the environment of the browser and so of the host it starts,
// and `launchOptions` to Playwright's (a program that stops the session
// itself on Ctrl-C turns Playwright's own signal handlers off there).
export async function startSession({ simArgs = [], colorScheme = 'light', sim: givenSim = null, env = {},
  launchOptions = {} } = {}) {
  requireBinaries();
  const sim = givenSim ?? (await startSimulator(simArgs));
  const pages = await startPageServers();
  const root = tempDir('wren-browser-test-');
  const profile = path.join(root, 'profile');
  const home = path.join(root, 'home');
  fs.mkdirSync(home);
  const runTag = crypto.randomUUID();

  let install;
  let context;
  let worker;
  try {
    install = execFileSync(BRIDGE, ['install', '--user-data-dir', profile], { encoding: 'utf8' });
    context = await chromium.launchPersistentContext(profile, {
      executablePath: CHROMIUM,
      headless: true,
      colorScheme,
      ignoreHTTPSErrors: true,
      args: [
        `--disable-extensions-except=${EXTENSION_DIR}`,
        `--load-extension=${EXTENSION_DIR}`,
        // Test hosts on this machine's page servers; the web-mail host on HTTPS.
        `--host-resolver-rules=MAP *.wren-test.example 127.0.0.1, MAP mail.google.com 127.0.0.1:${pages.httpsPort}`,
        '--disable-features=HttpsUpgrades',
        '--no-first-run',
        // Emulation reaches a popup window only after its script has run, so
        // the popup could report the light appearance: make the whole
        // browser dark instead.
        ...(colorScheme === 'dark' ? ['--force-dark-mode'] : []),
      ],
      env: {
        ...process.env,
        HOME: home,
        XDG_CONFIG_HOME: path.join(home, '.config'),
        WREN_SERVICE_ORIGIN: sim.origin,
        WREN_TEST_RUN: runTag,
        ...env,
      },
      ...launchOptions,
    });
    worker = context.serviceWorkers()[0] ?? (await context.waitForEvent('serviceworker'));
  } catch (e) {
    // Nothing of a session that never started may outlive it.
    await context?.close().catch(() => {});
    if (!givenSim) await sim.stop();
    await pages.close();
    fs.rmSync(root, { recursive: true, force: true });
    throw e;
  }

  const session = {
    sim,
    pages,
    context,
    worker,
    runTag,
    install,
    // A tab on `url` that has been rated, so the host has loaded the
    // service's settings and the toolbar gate is open.
    async openPage(url) {
      const page = context.pages().find((p) => p.url() === 'about:blank') ?? (await context.newPage());
      await page.goto(url);
      return page;
    },
    //
    // The extension has the host load the settings as soon as it connects,
    // but a page that asks before the answer is in is dropped by the gate
    // (pages never wait), so the ready page is loaded again until it is rated.
    async openReadyPage() {
      await waitFor('the host to ask for the settings', () => sim.requestsTo('/BrowserExt/setting').length > 0);
      const page = await session.openPage(pages.url('/ready.html'));
      await waitFor('the ready page to be rated', async () => {
        const rated = await page.waitForSelector('html[data-wren-page-level]', { state: 'attached', timeout: READY_RETRY_MS })
          .then(() => true, () => false);
        if (!rated) await page.reload();
        return rated;
      });
      return page;
    },
    // The popup in a window of its own, as the toolbar button would show it
    // over the last focused normal window.
    async openPopup() {
      const url = `chrome-extension://${EXTENSION_ID}/popup.html`;
      const [popup] = await Promise.all([
        context.waitForEvent('page', { predicate: (p) => p.url() === url, timeout: STEP_TIMEOUT_MS }),
        worker.evaluate((u) => chrome.windows.create({ url: u, type: 'popup', width: 280, height: 240 }), url),
      ]);
      return popup;
    },
    async close() {
      await context.close().catch(() => {});
      if (!givenSim) await sim.stop();
      await pages.close();
      fs.rmSync(root, { recursive: true, force: true });
    },
  };
  return session;
}
