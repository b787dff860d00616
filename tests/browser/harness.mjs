// What every browser test needs: the service simulator on a free port, a web
// server for the test pages (plain HTTP, and HTTPS for the web-mail host), and
// a browser with the Wren extension and the host manifest that
// `wren-bridge install` wrote: Debian's Chromium (over CDP, the manifest in
// its profile's NativeMessagingHosts/) or Debian's Firefox ESR (over
// WebDriver BiDi, the variant that extension/build-firefox.sh builds, the
// manifest under a throwaway HOME). Both are driven by puppeteer-core; what
// differs between them stays in this file, so a test is written once.
import { spawn, execFileSync } from 'node:child_process';
import crypto from 'node:crypto';
import fs from 'node:fs';
import os from 'node:os';
import path from 'node:path';
import { fileURLToPath } from 'node:url';
import readline from 'node:readline';
import { setTimeout as sleep } from 'node:timers/promises';
import puppeteer from 'puppeteer-core';
import { startPageServers } from './pages.mjs';

export const BROWSERS = ['chromium', 'firefox'];
export const EXECUTABLES = {
  chromium: process.env.WREN_CHROMIUM || '/usr/lib/chromium/chromium',
  firefox: process.env.WREN_FIREFOX || '/usr/bin/firefox-esr',
};
export const BRIDGE = process.env.WREN_BRIDGE_EXE;
export const SIM = process.env.WREN_SIM_EXE;
export const EXTENSION_DIR = path.resolve(path.dirname(fileURLToPath(import.meta.url)), '../../extension');
// Fixed by the public key in extension/manifest.json.
export const EXTENSION_ID = 'kkkadkgcagokddgolmdbmdhkpnbhhahc';
// browser_specific_settings.gecko.id of extension/manifest.firefox.json.
const GECKO_ID = 'wren-bridge@wren.example';
export const BROWSER_NAMES = { chromium: 'Chromium', firefox: 'Firefox' };

// Upper bound for anything the browser, the host and the simulator do in
// answer to one step of a test; generous, since the machine may be busy.
export const STEP_TIMEOUT_MS = 15000;
// Starting Firefox alone takes up to 6 s on a loaded machine.
const LAUNCH_TIMEOUT_MS = 60000;
const POLL_MS = 50;
// How long the ready page waits for its rating before it is loaded again.
const READY_RETRY_MS = 1000;

export function requireBinaries(browser = 'chromium') {
  for (const [name, file] of [['WREN_BRIDGE_EXE', BRIDGE], ['WREN_SIM_EXE', SIM], [browser, EXECUTABLES[browser]]]) {
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
    origin: `http://127.0.0.1:${port}`,
    cloud,
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

// Chromium: the console calls and uncaught exceptions of the extension's
// code (its background, popup and content scripts), as the DevTools protocol
// reports them for every page and worker.
async function watchChromiumConsole(browser, messages) {
  const origin = `chrome-extension://${EXTENSION_ID}/`;
  const fromExtension = (stack, url) =>
    [url, ...(stack?.callFrames ?? []).map((f) => f.url)].some((u) => u?.startsWith(origin));
  const watch = async (target) => {
    if (!['page', 'service_worker', 'other'].includes(target.type())) return;
    const cdp = await target.createCDPSession().catch(() => null);
    if (!cdp) return;
    cdp.on('Runtime.consoleAPICalled', (e) => {
      if (!fromExtension(e.stackTrace)) return;
      messages.push({ level: e.type === 'warning' ? 'warn' : e.type,
        text: e.args.map((a) => a.value ?? a.description ?? '').join(' ') });
    });
    cdp.on('Runtime.exceptionThrown', ({ exceptionDetails: d }) => {
      if (!fromExtension(d.stackTrace, d.url)) return;
      messages.push({ level: 'error', text: d.exception?.description ?? d.text });
    });
    await cdp.send('Runtime.enable').catch(() => {});
  };
  browser.on('targetcreated', watch);
  await Promise.all(browser.targets().map(watch));
}

// Firefox prints the console calls of extension pages and content scripts
// on stdout with devtools.console.stdout.content, as
//   console.warn: "[wren] text" ...
// and script errors on stderr, as "JavaScript error: URL, line N: text".
function watchFirefoxConsole(process, messages) {
  const read = (stream, parse) => {
    if (stream) readline.createInterface({ input: stream }).on('line', (line) => {
      const message = parse(line);
      if (message) messages.push(message);
    });
  };
  read(process.stdout, (line) => {
    const m = /^console\.(\w+): (.*)$/.exec(line);
    return m && m[2].includes('[wren]') ? { level: m[1], text: m[2] } : null;
  });
  read(process.stderr, (line) => {
    const m = /^JavaScript (error|warning): (moz-extension:.*)$/.exec(line);
    return m ? { level: m[1] === 'error' ? 'error' : 'warn', text: m[2] } : null;
  });
}

// What puppeteer is given for either browser.
function launch(name, { profile, env, launchOptions }, options) {
  return puppeteer.launch({
    browser: name === 'chromium' ? 'chrome' : 'firefox',
    executablePath: EXECUTABLES[name],
    headless: true,
    userDataDir: profile,
    acceptInsecureCerts: true,
    defaultViewport: null,
    timeout: LAUNCH_TIMEOUT_MS,
    env,
    ...options,
    ...launchOptions,
  });
}

// What differs between the browsers: registering the host, starting with the
// extension, reading its console, loading extension pages, and where the
// popup opens.
const drivers = {
  chromium: {
    install: (profile, env) => ({
      installCommand: 'wren-bridge install --user-data-dir PROFILE',
      install: execFileSync(BRIDGE, ['install', '--user-data-dir', profile], { encoding: 'utf8', env }),
      manifest: path.join(profile, 'NativeMessagingHosts', 'com.wren.bridge.json'),
    }),
    async launch(session) {
      const { colorScheme, extensionDir = EXTENSION_DIR } = session;
      const browser = await launch('chromium', session, {
        // puppeteer turns extensions off unless asked.
        ignoreDefaultArgs: ['--disable-extensions'],
        args: [
          `--disable-extensions-except=${extensionDir}`,
          `--load-extension=${extensionDir}`,
          // Root may not use Chromium's sandbox.
          ...(process.getuid?.() === 0 ? ['--no-sandbox'] : []),
          // Test hosts on this machine's page servers.
          '--host-resolver-rules=MAP *.wren-test.example 127.0.0.1, MAP mail.google.com 127.0.0.1',
          '--disable-features=HttpsUpgrades',
          '--no-first-run',
          ...(colorScheme === 'dark' ? ['--force-dark-mode'] : []),
        ],
      });
      const target = await browser.waitForTarget((t) =>
        t.type() === 'service_worker' && t.url().startsWith(`chrome-extension://${EXTENSION_ID}/`),
      { timeout: STEP_TIMEOUT_MS });
      return { browser, extensionOrigin: `chrome-extension://${EXTENSION_ID}`, worker: await target.worker() };
    },
    watchConsole: ({ browser }, messages) => watchChromiumConsole(browser, messages),
    navigate: (page, url) => page.goto(url),
    setViewport: (page, viewport) => page.setViewport(viewport),
    // A popup window of its own over the focused normal window, as the
    // toolbar shows it: Chromium draws no background tab, so input sent
    // there would never arrive.
    async openPopup({ browser, worker }, url) {
      const [target] = await Promise.all([
        browser.waitForTarget((t) => t.url() === url, { timeout: STEP_TIMEOUT_MS }),
        worker.evaluate((u) => chrome.windows.create({ url: u, type: 'popup', width: 280, height: 240 }), url),
      ]);
      return target.page();
    },
  },
  firefox: {
    install: (profile, env) => ({
      installCommand: 'HOME=HOME wren-bridge install --browser firefox',
      install: execFileSync(BRIDGE, ['install', '--browser', 'firefox'], { encoding: 'utf8', env }),
      manifest: path.join(env.HOME, '.mozilla', 'native-messaging-hosts', 'com.wren.bridge.json'),
    }),
    async launch(session) {
      const { root, profile, colorScheme } = session;
      // The Firefox variant: as given (an installed one), or built here.
      let extension = session.extensionDir;
      if (!extension) {
        extension = path.join(root, 'extension-firefox');
        execFileSync(path.join(EXTENSION_DIR, 'build-firefox.sh'), [extension], { stdio: 'ignore' });
      }
      // The moz-extension host is random unless preset.
      const uuid = crypto.randomUUID();
      fs.mkdirSync(profile);
      const browser = await launch('firefox', session, {
        // Extension pages can be opened in a tab only with system access.
        args: ['--remote-allow-system-access'],
        extraPrefsFirefox: {
          'extensions.webextensions.uuids': JSON.stringify({ [GECKO_ID]: uuid }),
          // The extension's console on stdout.
          'devtools.console.stdout.content': true,
          // Every host name is this machine's (the test pages).
          'network.dns.forceResolve': '127.0.0.1',
          'dom.security.https_first': false,
          // Timings in pages to the microsecond, as in Chromium.
          'privacy.reduceTimerPrecision': false,
          'ui.systemUsesDarkTheme': colorScheme === 'dark' ? 1 : 0,
        },
      });
      try {
        await browser.installExtension(extension);
      } catch (e) {
        await browser.close().catch(() => {});
        throw e;
      }
      return { browser, extensionOrigin: `moz-extension://${uuid}` };
    },
    watchConsole: ({ browser }, messages) => watchFirefoxConsole(browser.process(), messages),
    // Firefox sends no load events for extension pages over BiDi, so a plain
    // goto never resolves there: navigate the frame's BiDi browsing context
    // itself, waiting for the document to complete.
    navigate: (page, url) => (url.startsWith('moz-extension:')
      ? page.mainFrame().browsingContext.navigate(url, 'complete')
      : page.goto(url)),
    // Only the size and the density: puppeteer's setViewport also sets a
    // screen orientation, which Firefox ESR 140 (Debian 12's first) lacks.
    setViewport: (page, { width, height, deviceScaleFactor = null }) =>
      page.mainFrame().browsingContext.setViewport({ viewport: { width, height },
        devicePixelRatio: deviceScaleFactor }),
    // A background tab: the page the user is on stays the active tab of the
    // focused window, as under a real popup.
    async openPopup({ browser }, url) {
      const popup = await browser.newPage({ background: true });
      await drivers.firefox.navigate(popup, url);
      return popup;
    },
  },
};

// One browser session: simulator, page servers, the host registered, the
// browser with the extension. `browser` is 'chromium' or 'firefox'. A running
// simulator may be handed in as `sim` (it is then left running at close),
// `env` adds to the environment of the browser and so of the host it starts,
// and `launchOptions` to puppeteer's (a program that stops the session
// itself on Ctrl-C turns puppeteer's own signal handlers off there).
// `hostExe` registers another program in wren-bridge's place (a benchmark's
// stand-in), in the manifest that wren-bridge wrote. `installed` uses what an
// installation put in place instead ({ extensionDir }): nothing is registered
// for the session, so the browser finds the host through its system-wide
// manifest, and the extension is loaded from `extensionDir`.
export async function startSession({ browser: browserName = 'chromium', simArgs = [], colorScheme = 'light',
  sim: givenSim = null, env = {}, launchOptions = {}, hostExe = null, installed = null } = {}) {
  requireBinaries(browserName);
  const driver = drivers[browserName];
  if (!driver) throw new Error(`unknown browser ${browserName}`);
  const sim = givenSim ?? (await startSimulator(simArgs));
  const pages = await startPageServers();
  const root = fs.mkdtempSync(path.join(os.tmpdir(), 'wren-browser-test-'));
  const profile = path.join(root, 'profile');
  const home = path.join(root, 'home');
  fs.mkdirSync(home);
  const runTag = crypto.randomUUID();
  const browserEnv = {
    ...process.env,
    HOME: home,
    XDG_CONFIG_HOME: path.join(home, '.config'),
    WREN_SERVICE_ORIGIN: sim.origin,
    WREN_TEST_RUN: runTag,
    ...env,
  };

  let install;
  let launched;
  const consoleMessages = [];
  // Nothing of a session may outlive it, nor of one that never started.
  const cleanUp = async () => {
    await launched?.browser.close().catch(() => {});
    if (!givenSim) await sim.stop();
    await pages.close();
    fs.rmSync(root, { recursive: true, force: true });
  };
  try {
    install = installed
      ? { installCommand: 'none (the system-wide manifest)', install: '', manifest: null }
      : driver.install(profile, browserEnv);
    if (hostExe) {
      const manifest = JSON.parse(fs.readFileSync(install.manifest, 'utf8'));
      fs.writeFileSync(install.manifest, JSON.stringify({ ...manifest, path: path.resolve(hostExe) }));
    }
    launched = await driver.launch({ root, profile, colorScheme, env: browserEnv, launchOptions,
      extensionDir: installed?.extensionDir });
    await driver.watchConsole(launched, consoleMessages);
  } catch (e) {
    await cleanUp();
    throw e;
  }

  const { browser, extensionOrigin } = launched;
  let closed = false;
  const session = {
    sim,
    pages,
    browser,
    runTag,
    // What `wren-bridge install` printed (install), how it was called (the
    // temp dir named by its role) and the manifest it wrote; the profile folder.
    ...install,
    profile,
    // The extension's console messages so far, each { level, text }.
    console: consoleMessages,
    popupUrl: `${extensionOrigin}/popup.html`,
    // Sizes `page`'s viewport: { width, height, deviceScaleFactor }.
    setViewport: (page, viewport) => driver.setViewport(page, viewport),
    // A tab on `url`; the first one reuses the browser's blank tab.
    async openPage(url) {
      const blank = (await browser.pages()).find((p) => p.url() === 'about:blank');
      const page = blank ?? (await browser.newPage());
      await driver.navigate(page, url);
      return page;
    },
    // A tab on the ready page once it has been rated, so the host has loaded
    // the service's settings and the toolbar gate is open.
    //
    // The extension has the host load the settings as soon as it connects,
    // but a page that asks before the answer is in is dropped by the gate
    // (pages never wait), so the ready page is loaded again until it is rated.
    async openReadyPage() {
      await waitFor('the host to ask for the settings', () => sim.requestsTo('/BrowserExt/setting').length > 0);
      const page = await session.openPage(pages.url('/ready.html'));
      await waitFor('the ready page to be rated', async () => {
        const rated = await page.waitForSelector('html[data-wren-page-level]', { timeout: READY_RETRY_MS })
          .then(() => true, () => false);
        if (!rated) await page.reload();
        return rated;
      });
      return page;
    },
    // The toolbar popup, where it can be driven like a page while the page
    // the user is on stays the active tab of the focused window.
    async openPopup() {
      const popup = await driver.openPopup(launched, session.popupUrl);
      await popup.waitForSelector('.row', { timeout: STEP_TIMEOUT_MS });
      return popup;
    },
    // Resolves once `page` has gone (the popup closes itself); Firefox does
    // not tell puppeteer, but the page then answers no more.
    async waitForClose(page) {
      await waitFor('the page to close',
        () => page.isClosed() || page.evaluate(() => false).then(() => false, () => true));
    },
    // Leaves one blank tab, as at the start, for the next test.
    async clearTabs() {
      const [first, ...rest] = await browser.pages();
      // A tab that closed itself may still be listed (Firefox does not say).
      await Promise.all(rest.map((p) => p.close().catch(() => {})));
      await first.goto('about:blank');
    },
    get open() {
      return !closed;
    },
    async closeBrowser() {
      if (closed) return;
      closed = true;
      await browser.close().catch(() => {});
    },
    async close() {
      closed = true;
      await cleanUp();
    },
  };
  return session;
}
