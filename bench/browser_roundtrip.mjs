// Round trip in a real browser, measured (a benchmark, not a test): a page
// asks for the rating of its 20 links and times until every link is marked,
// that is page -> content script -> background -> native host -> local
// service -> and all the way back to the page. In Chromium and in Firefox,
// each with wren-bridge against wren-service-sim and, in the same run, with
// bench/echo_host.mjs in its place (what the browser itself costs), the two
// taking turns. Prints p50 and p95 of each and the difference.
//
//   node bench/browser_roundtrip.mjs [--rounds N] [--browser chromium|firefox]...
//
// Needs a build (WREN_BRIDGE_EXE and WREN_SIM_EXE, default build/) and the
// browser tests' npm packages (PUPPETEER_SKIP_DOWNLOAD=1 npm ci --prefix
// tests/browser).
import fs from 'node:fs';
import os from 'node:os';
import path from 'node:path';
import { fileURLToPath } from 'node:url';

const HERE = path.dirname(fileURLToPath(import.meta.url));
const BUILD = path.resolve(HERE, '../build');
process.env.WREN_BRIDGE_EXE ??= path.join(BUILD, 'src/host/wren-bridge');
process.env.WREN_SIM_EXE ??= path.join(BUILD, 'tools/wren-service-sim');
// After the defaults above: the harness reads them when it is loaded.
const { BROWSERS, BROWSER_NAMES, startSession, waitFor } = await import('../tests/browser/harness.mjs');

const ECHO_HOST = path.join(HERE, 'echo_host.mjs');
const LINKS = 20;
// Rounds before the measured ones: the first ones pay for compiling the
// scripts and warming the connections.
const WARMUP_ROUNDS = 20;
// Rounds measured in one go before the other host has its turn.
const BATCH_ROUNDS = 25;
// Past this a round is lost, not slow.
const ROUND_TIMEOUT_MS = 10000;

function parseArguments(args) {
  let rounds = 300;
  const browsers = [];
  for (let i = 0; i < args.length; i++) {
    if (args[i] === '--rounds' && Number(args[i + 1]) > 0) rounds = Number(args[++i]);
    else if (args[i] === '--browser' && BROWSERS.includes(args[i + 1])) browsers.push(args[++i]);
    else throw new Error(`usage: browser_roundtrip.mjs [--rounds N] [--browser ${BROWSERS.join('|')}]...`);
  }
  return { rounds, browsers: browsers.length ? browsers : BROWSERS };
}

// Links of every level the simulator's built-in rules know, each address once.
function benchLinks() {
  const hosts = ['safe.wren-test.example', 'caution.wren-test.example', 'phish.wren-test.example',
    'malware.wren-test.example', 'www.example.com'];
  return Array.from({ length: LINKS }, (_, i) => `http://${hosts[i % hosts.length]}/bench/${i}`);
}

// In the page: `rounds` times, clears the links' marks, asks for a manual
// rating (the content script's Alt+Shift+R, which rates every link of the
// page at once) and waits until every link is marked again. Milliseconds.
function measureInPage(rounds, timeoutMs) {
  const links = [...document.querySelectorAll('a.bench')];
  const marked = () => links.every((a) => a.hasAttribute('data-wren-level'));
  const round = () => new Promise((resolve, reject) => {
    for (const a of links) a.removeAttribute('data-wren-level');
    const timer = setTimeout(() => {
      observer.disconnect();
      reject(new Error('a round got no answer'));
    }, timeoutMs);
    const observer = new MutationObserver(() => {
      if (!marked()) return;
      const end = performance.now();
      observer.disconnect();
      clearTimeout(timer);
      resolve(end - start);
    });
    observer.observe(document.body, { subtree: true, attributeFilter: ['data-wren-level'] });
    const start = performance.now();
    document.dispatchEvent(new KeyboardEvent('keydown', { altKey: true, shiftKey: true, code: 'KeyR', key: 'R' }));
  });
  return (async () => {
    const times = [];
    for (let i = 0; i < rounds; i++) times.push(await round());
    return times;
  })();
}

// A session with `hostExe` (null: wren-bridge) and its timing page, the
// links on it rated once.
async function prepare(browser, hostExe) {
  const session = await startSession({ browser, hostExe });
  try {
    // wren-bridge lets pages through once it has the service's settings
    // (the ready page is rated then); the echo host at once.
    if (!hostExe) await session.openReadyPage();
    const page = await session.openPage(session.pages.url('/timing.html'));
    const isolated = await page.evaluate(() => globalThis.crossOriginIsolated);
    if (!isolated) throw new Error('the timing page is not cross-origin isolated');
    await page.evaluate((urls) => {
      for (const url of urls) {
        const a = document.createElement('a');
        a.className = 'bench';
        a.href = url;
        a.textContent = url;
        document.body.append(a);
      }
    }, benchLinks());
    // The content script rates links added later by itself.
    await waitFor('the links to be rated', () =>
      page.evaluate(() => [...document.querySelectorAll('a.bench')].every((a) => a.hasAttribute('data-wren-level'))));
    await page.evaluate(measureInPage, WARMUP_ROUNDS, ROUND_TIMEOUT_MS);
    return { session, page };
  } catch (e) {
    await session.close();
    throw e;
  }
}

// Both hosts in one browser each, measured in alternating batches, so that
// what else the machine does meanwhile weighs on both alike.
async function measure(browser, rounds) {
  const hosts = [];
  try {
    hosts.push(await prepare(browser, null));
    hosts.push(await prepare(browser, ECHO_HOST));
    const times = hosts.map(() => []);
    for (let done = 0; done < rounds; done += BATCH_ROUNDS) {
      const batch = Math.min(BATCH_ROUNDS, rounds - done);
      for (const [i, { page }] of hosts.entries()) {
        times[i].push(...(await page.evaluate(measureInPage, batch, ROUND_TIMEOUT_MS)));
      }
    }
    return { bridge: times[0], echo: times[1] };
  } finally {
    for (const { session } of hosts) await session.close();
  }
}

function percentile(sorted, p) {
  return sorted[Math.min(sorted.length - 1, Math.ceil((p / 100) * sorted.length) - 1)];
}

function summary(times) {
  const sorted = [...times].sort((a, b) => a - b);
  return { p50: percentile(sorted, 50), p95: percentile(sorted, 95) };
}

async function main() {
  const { rounds, browsers } = parseArguments(process.argv.slice(2));
  const cpus = os.cpus();
  console.log(`rateItems of ${LINKS} links, page -> content script -> background -> host -> back to the page;`);
  const load = os.loadavg().map((l) => l.toFixed(2)).join(' ');
  console.log(`${rounds} rounds each after ${WARMUP_ROUNDS} warm-up rounds;` +
    ` ${cpus.length} x ${cpus[0]?.model ?? 'CPU'}, load average ${load}; node ${process.version}\n`);
  const rows = [];
  for (const browser of browsers) {
    const times = await measure(browser, rounds);
    const bridge = summary(times.bridge);
    const echo = summary(times.echo);
    const name = BROWSER_NAMES[browser];
    rows.push([name, 'wren-bridge + simulator', bridge.p50, bridge.p95]);
    rows.push([name, 'echo host', echo.p50, echo.p95]);
    rows.push([name, 'difference', bridge.p50 - echo.p50, bridge.p95 - echo.p95]);
  }
  const line = (name, host, p50, p95) =>
    console.log(`${name.padEnd(8)}  ${host.padEnd(24)}  ${p50.padStart(7)}  ${p95.padStart(7)}`);
  line('browser', 'host', 'p50 ms', 'p95 ms');
  for (const [name, host, p50, p95] of rows) line(name, host, p50.toFixed(2), p95.toFixed(2));
}

if (!fs.existsSync(ECHO_HOST)) throw new Error(`${ECHO_HOST} is missing`);
await main();
