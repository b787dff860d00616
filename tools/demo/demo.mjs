// The demo that scripts/demo runs (after building): wren-service-sim with its
// sample rules and its simulated mail-scan cloud, then
//   part one, the sample page's requests sent through `wren-bridge send`, each
//     answer printed as the page receives it;
//   part two, Debian's Chromium (or Firefox ESR) with the Wren extension and
//     the host that `wren-bridge install` registered in a fresh profile (or a
//     throwaway HOME), on the same sample page; the marked page and the popup
//     are saved as screenshots.
//
//   node tools/demo/demo.mjs [--browser chromium|firefox] [OUT_DIR]
//                                  (default: Chromium, out/ of the checkout)
//
// WREN_BRIDGE_EXE and WREN_SIM_EXE name the binaries (scripts/demo sets them).
// Everything it starts is stopped and every temp dir removed, also on failure;
// it exits 1 with the reason on stderr when a step fails.
import { execFile } from 'node:child_process';
import fs from 'node:fs';
import http from 'node:http';
import os from 'node:os';
import path from 'node:path';
import { fileURLToPath } from 'node:url';
import { promisify } from 'node:util';
import { BRIDGE, BROWSER_NAMES, BROWSERS, requireBinaries, startSession, startSimulator, waitFor }
  from '../../tests/browser/harness.mjs';

const HERE = path.dirname(fileURLToPath(import.meta.url));
const ROOT = path.resolve(HERE, '../..');

function parseArguments(args) {
  let browser = 'chromium';
  let outDir = null;
  for (let i = 0; i < args.length; i++) {
    if (args[i] === '--browser' && BROWSERS.includes(args[i + 1])) browser = args[++i];
    else if (!args[i].startsWith('-') && outDir === null) outDir = args[i];
    else throw new Error(`usage: demo.mjs [--browser ${BROWSERS.join('|')}] [OUT_DIR]`);
  }
  return { browser, outDir: path.resolve(outDir ?? path.join(ROOT, 'out')) };
}
const PAGE_FILE = path.join(HERE, 'demo-pages', 'index.html');
// The simulator's sample rules, which it also has built in.
const RULES_FILE = path.join(ROOT, 'tools', 'service-sim', 'rules.json');
// The sample page's host: the browser maps *.wren-test.example to this machine.
const PAGE_HOST = 'news.wren-test.example';
// A whole run takes well under a minute; past this something hangs.
const DEMO_TIMEOUT_MS = 180000;
// Width of the page screenshot, and the popup's size as a toolbar shows it.
const PAGE_WIDTH = 800;
const POPUP_SIZE = { width: 240, height: 166 };
// The popup is small: it is drawn at twice the pixel density to stay legible.
const POPUP_SCALE = 2;
// How long the sample page waits for its marks before it is loaded again: a
// page that asks before the host has the service's settings is not answered.
const PAGE_RETRY_MS = 3000;
// How long stopping the browser and the simulator may take at the end.
const CLEANUP_TIMEOUT_MS = 15000;

// The simulator's levels (docs/service-sim.md).
const LEVEL_NAMES = { 0: 'unknown', 1: 'safe', 2: 'caution', 3: 'dangerous' };
const describeLevel = (level) => `level ${level} (${LEVEL_NAMES[level] ?? 'not a level'})`;

// Two mails as a web-mail page script would hand them over: the first one's
// subject matches a scam rule of the sample rules, the second one's nothing.
const MAILS = [
  { subject: 'Please verify your account within 24 hours', from: 'service@accounts-check.example' },
  { subject: 'Minutes of Tuesday\'s meeting', from: 'anna@example.com' },
];
// The page script's token for the cloud; the simulated cloud wants one, any.
const DEMO_JWT = 'demo-token';

const runFile = promisify(execFile);

// The links of the sample page, in page order.
function sampleLinks() {
  const html = fs.readFileSync(PAGE_FILE, 'utf8');
  return [...html.matchAll(/<a href="([^"]+)">([^<]*)<\/a>/g)].map((m) => ({ url: m[1], text: m[2] }));
}

function pad(text, width) {
  return text + ' '.repeat(Math.max(0, width - text.length));
}

// `wren-bridge send NAME JSON`: the page's answers, one JSON line each.
async function send(env, name, userInfo) {
  let result;
  try {
    result = await runFile(BRIDGE, ['send', name, JSON.stringify(userInfo)], { env, encoding: 'utf8' });
  } catch (e) {
    throw new Error(`wren-bridge send ${name} failed (${e.code}): ${e.stderr || e.message}`);
  }
  const answers = result.stdout.split('\n').filter(Boolean).map((line) => JSON.parse(line));
  const answer = answers.find((a) => a.name === name);
  if (!answer) {
    throw new Error(`wren-bridge send ${name}: the page got no "${name}" answer\n` +
      `stdout: ${result.stdout || '(empty)'}\nstderr: ${result.stderr || '(empty)'}`);
  }
  return answer.userInfo;
}

// Where the simulator's sample rules resolve a short link to (the service
// answers that as "resolved", which the bridge does not pass to pages).
function shortLinkTarget(url) {
  const rules = JSON.parse(fs.readFileSync(RULES_FILE, 'utf8')).shortLinks ?? {};
  const host = new URL(url).hostname;
  const match = Object.keys(rules).filter((h) => host === h || host.endsWith(`.${h}`))
    .sort((a, b) => b.length - a.length)[0];
  return match ? rules[match] : null;
}

function header(request, name) {
  const key = Object.keys(request.headers).find((k) => k.toLowerCase() === name.toLowerCase());
  return key === undefined ? undefined : request.headers[key];
}

async function partOne(sim, tmp, links) {
  const env = {
    ...process.env,
    WREN_SERVICE_ORIGIN: sim.origin,
    XDG_CONFIG_HOME: path.join(tmp, 'config'),
    WREN_CA_FILE: sim.cloud.caFile,
    WREN_VELDRIN_API: sim.cloud.origin,
  };
  console.log('\n== Part one: the sample page\'s requests through `wren-bridge send`');
  console.log(`   local service ${sim.origin}, mail-scan cloud ${sim.cloud.origin} (wren-service-sim)`);

  const width = Math.max(...links.map((l) => l.url.length));
  const urls = links.map((l, i) => ({ url: l.url, id: i + 1 }));
  const ratingsBefore = sim.requestsTo('/BrowserExt/rating').length;
  const rated = await send(env, 'rateItems', { type: 'AutomaticScan', urls });
  // Whether the bridge flagged an item as a short link shows in the request
  // the service got: the page itself only receives the level.
  const request = await waitFor('the rating request at the simulator', () =>
    sim.requestsTo('/BrowserExt/rating').slice(ratingsBefore).find((r) => header(r, 'KVExtURLs_Length')));
  console.log(`\nrateItems, type AutomaticScan, the ${links.length} links of the page -> what the page receives:`);
  const levels = new Map();
  for (const [i, item] of (rated.results ?? []).entries()) {
    const shortLink = header(request, `KVEExtURLs_${i}_needResolving`) === 'true';
    levels.set(item.url, item.level);
    const target = shortLink ? shortLinkTarget(item.url) : null;
    console.log(`  ${pad(item.url, width)} -> ${describeLevel(item.level)}` +
      (shortLink ? `, short link resolved${target ? ` to ${target}` : ' by the service'}` : ''));
  }
  if (levels.size !== links.length) throw new Error(`rateItems answered ${levels.size} of ${links.length} links`);

  console.log('\nwtp_rating, the page the user is on -> what the page receives:');
  for (const url of [`http://${PAGE_HOST}/`, 'http://phish.wren-test.example/login']) {
    const page = await send(env, 'wtp_rating', { urls: [{ url, id: 0 }] });
    const r = page.results ?? {};
    console.log(`  ${pad(url, width)} -> ${describeLevel(page.wtp_level)}, ${r.category} / ${r.categoryGroup}` +
      `, product ${page.productVersion}`);
  }

  console.log('\nvd_scan_email, a mail sent to the Veldrin cloud with the page\'s token -> what the page receives:');
  const logsBefore = sim.logs.length;
  for (const mail of MAILS) {
    const verdict = await send(env, 'vd_scan_email', { jwt: DEMO_JWT, json: JSON.stringify({ mail }) });
    const said = verdict.verdict === 'scam' ? `scam (${verdict.reason})` : (verdict.verdict ?? JSON.stringify(verdict));
    console.log(`  "${mail.subject}" from ${mail.from}\n      -> ${said}  ${JSON.stringify(verdict)}`);
    if (verdict.code !== 0) throw new Error(`the mail scan failed: ${JSON.stringify(verdict)}`);
  }
  await waitFor('the mail scan\'s log lines at the service', () => sim.logs.length >= logsBefore + 2 * MAILS.length);
  console.log('  with each verdict the bridge also wrote two lines to the local service\'s log, for the first mail\n' +
    '  (the hash is the MD5 of the user\'s mail address, which only a web-mail tab gives it; here of ""):');
  for (const line of sim.logs.slice(logsBefore, logsBefore + 2)) console.log(`      ${line}`);
  return levels;
}

// The sample page on a free loopback port.
async function startPageServer() {
  const body = fs.readFileSync(PAGE_FILE);
  const server = http.createServer((req, res) => {
    if (new URL(req.url, 'http://x').pathname !== '/') {
      res.writeHead(404, { 'content-type': 'text/plain' }).end('not found');
      return;
    }
    res.writeHead(200, { 'content-type': 'text/html; charset=utf-8', 'cache-control': 'no-store' }).end(body);
  });
  await new Promise((resolve, reject) => {
    server.once('error', reject);
    server.listen(0, '127.0.0.1', resolve);
  });
  return {
    url: `http://${PAGE_HOST}:${server.address().port}/`,
    close: () => {
      server.closeAllConnections();
      return new Promise((resolve) => server.close(resolve));
    },
  };
}

// The links and the page once the extension has marked them all.
async function markedPage(session, page, url) {
  await session.setViewport(page, { width: PAGE_WIDTH, height: 600 });
  return waitFor('the extension to mark the sample page\'s links', async () => {
    if (page.url() !== url) await page.goto(url);
    const done = await page.waitForFunction(() =>
      document.documentElement.hasAttribute('data-wren-page-level') &&
      [...document.querySelectorAll('a[href]')].every((a) => a.hasAttribute('data-wren-level')),
    { timeout: PAGE_RETRY_MS }).then(() => true, () => false);
    if (!done) {
      await page.reload();
      return null;
    }
    return page.evaluate(() => ({
      links: [...document.querySelectorAll('a[href]')].map((a) => ({ url: a.href, level: Number(a.dataset.wrenLevel) })),
      level: Number(document.documentElement.dataset.wrenPageLevel),
      category: document.documentElement.dataset.wrenPageCategory,
    }));
  }, 4 * PAGE_RETRY_MS);
}

// The popup's rows as the user sees them, once the host's state is drawn.
async function popupRows(popup) {
  return waitFor('the popup to show the host\'s state', () => popup.evaluate(() => {
    if (document.body.dataset.ready !== 'true') return null;
    const rows = [...document.querySelectorAll('.row')].filter((r) => getComputedStyle(r).display !== 'none')
      .map((row) => ({
        title: row.querySelector('.label').textContent,
        checked: getComputedStyle(row.querySelector('.check')).visibility !== 'hidden',
        enabled: row.querySelector('.row-button').getAttribute('aria-disabled') === 'false',
        tooltip: row.querySelector('.row-button').title,
      }));
    // The tooltip of the mail-scan row is the last thing the host fills in.
    return rows.length === 5 && rows[0].enabled && rows[2].tooltip ? rows : null;
  }));
}

// What must be undone before the demo exits, latest first; run on success,
// failure, time-out and Ctrl-C alike.
const cleanups = [];
const defer = (fn) => cleanups.push(fn);
async function cleanUp() {
  while (cleanups.length) {
    try {
      await cleanups.pop()();
    } catch (e) {
      console.error(`demo: cleaning up: ${e.message}`);
    }
  }
}

async function partTwo(sim, cliLevels, links, browser, outDir) {
  const name = BROWSER_NAMES[browser];
  console.log(`\n== Part two: ${name} with the extension; the browser starts the host`);
  const server = await startPageServer();
  defer(() => server.close());
  const starting = startSession({
    browser,
    sim,
    env: { WREN_CA_FILE: sim.cloud.caFile, WREN_VELDRIN_API: sim.cloud.origin },
    // finish() closes the browser on a signal, before it exits.
    launchOptions: { handleSIGINT: false, handleSIGTERM: false, handleSIGHUP: false },
  });
  // A session still starting when the demo is stopped is closed once it is
  // up (one that fails to start removes itself).
  defer(async () => (await starting.catch(() => null))?.close());
  const session = await starting;
  console.log(`   ${session.installCommand} said: ${session.install.trim()}`);
  // The host loads the service's settings when it connects; until then the
  // toolbar gate drops what pages ask.
  await waitFor('the host to ask the service for its settings', () => sim.requestsTo('/BrowserExt/setting').length > 0);
  const page = await session.openPage('about:blank');
  const marked = await markedPage(session, page, server.url);

  console.log(`\n${server.url} in ${name}, links as the extension marked them:`);
  const width = Math.max(...links.map((l) => l.url.length));
  for (const link of marked.links) {
    const cli = cliLevels.get(link.url);
    console.log(`  ${pad(link.url, width)} -> ${describeLevel(link.level)}` +
      (cli === link.level ? '' : `   DIFFERS from part one (${cli})`));
  }
  console.log(`  the page itself -> ${describeLevel(marked.level)}, ${marked.category}`);
  const differing = marked.links.filter((l) => cliLevels.get(l.url) !== l.level);
  if (marked.links.length !== links.length || differing.length) {
    throw new Error('the browser rated the links differently from `wren-bridge send`');
  }

  fs.mkdirSync(outDir, { recursive: true });
  const pageShot = path.join(outDir, 'rated-page.png');
  await page.screenshot({ path: pageShot, fullPage: true });

  // Over the sample page, as the toolbar shows it, at the size a toolbar
  // popover has, drawn at twice the density.
  const popup = await session.openPopup();
  await session.setViewport(popup, { ...POPUP_SIZE, deviceScaleFactor: POPUP_SCALE });
  const rows = await popupRows(popup);
  console.log(`\nThe popup (${session.popupUrl}), drawn from the host's state:`);
  for (const r of rows) {
    console.log(`  [${r.checked ? 'x' : ' '}] ${pad(r.title, 22)} ${r.enabled ? 'usable' : 'greyed'}` +
      (r.tooltip && r.tooltip !== r.title ? `, tooltip "${r.tooltip}"` : ''));
  }
  const popupShot = path.join(outDir, 'popup.png');
  await popup.screenshot({ path: popupShot, clip: { x: 0, y: 0, ...POPUP_SIZE } });

  const shown = (file) => {
    const relative = path.relative(process.cwd(), file);
    return relative.startsWith('..') ? file : relative;
  };
  console.log(`\nScreenshots:\n  ${shown(pageShot)}\n  ${shown(popupShot)}`);
}

async function main() {
  const { browser, outDir } = parseArguments(process.argv.slice(2));
  requireBinaries(browser);
  const links = sampleLinks();
  if (links.length === 0) throw new Error(`no links found in ${PAGE_FILE}`);
  const tmp = fs.mkdtempSync(path.join(os.tmpdir(), 'wren-demo-'));
  defer(() => fs.rmSync(tmp, { recursive: true, force: true }));
  const sim = await startSimulator(['--cloud-port', '0']);
  defer(() => sim.stop());
  const levels = await partOne(sim, tmp, links);
  await partTwo(sim, levels, links, browser, outDir);
}

let finishing = false;
async function finish(status, message) {
  // Only the first reason counts: what fails while stopping is a consequence.
  if (finishing) return;
  finishing = true;
  if (message) console.error(`\ndemo: FAILED: ${message}`);
  // A browser that hangs at close must not keep the demo from exiting.
  setTimeout(() => process.exit(status), CLEANUP_TIMEOUT_MS).unref();
  await cleanUp();
  process.exit(status);
}

setTimeout(() => finish(1, `still not done after ${DEMO_TIMEOUT_MS / 1000} s`), DEMO_TIMEOUT_MS).unref();
// Not `once`: a second signal (Ctrl-C reaches the whole process group, and
// may be pressed twice) must not kill the demo halfway through cleaning up.
for (const signal of ['SIGINT', 'SIGTERM', 'SIGHUP']) process.on(signal, () => finish(1, `stopped by ${signal}`));
// Say, a closed stdout (`scripts/demo | head`): the simulator must not be left behind.
process.once('uncaughtException', (e) => finish(1, e.message));
main().then(() => finish(0), (e) => finish(1, e.message));
