// End to end, in Chromium and in Firefox: the Wren extension (Firefox: the
// variant that extension/build-firefox.sh builds), wren-bridge started by the
// browser through the manifest that `wren-bridge install` wrote, and
// wren-service-sim as the local protection service. Tests that start from
// the same service settings and appearance share one browser, host and
// simulator (a browser start costs seconds, Firefox's most), each in tabs of
// its own; each test ends with the extension's console free of errors and
// warnings.
import assert from 'node:assert/strict';
import { after, afterEach, describe, test as nodeTest } from 'node:test';
import { BROWSERS, hostProcesses, startSession, STEP_TIMEOUT_MS, waitFor } from './harness.mjs';
import { MAIL_ADDRESS, RATED_LINKS } from './pages.mjs';

// A browser start with the first page rated takes up to 10 s on a busy
// machine; a test is a few such steps.
const TEST_TIMEOUT_MS = 90000;
const test = (name, fn) => nodeTest(name, { timeout: TEST_TIMEOUT_MS }, fn);

// The running session, the options it was started with, and where the
// extension's console stood when the current test began.
let session = null;
let sessionOptions = null;
let consoleFrom = 0;

// A session started with `options`: the running one when it was started with
// the same and is still open, with its tabs cleared, else a new one.
async function sessionWith(browser, options) {
  const key = JSON.stringify({ browser, ...options });
  if (session && (sessionOptions !== key || !session.open)) {
    await session.close();
    session = null;
  }
  if (session) {
    await session.clearTabs();
  } else {
    session = await startSession({ browser, ...options });
    sessionOptions = key;
  }
  consoleFrom = session.console.length;
  return session;
}

afterEach(() => {
  const problems = session?.console.slice(consoleFrom).filter((m) => m.level === 'warn' || m.level === 'error');
  assert.deepEqual(problems ?? [], [], 'the extension\'s console has no errors or warnings');
});

after(async () => {
  await session?.close();
  session = null;
});

const attributeOf = (page, selector, name) =>
  page.evaluate((s, n) => document.querySelector(s)?.getAttribute(n) ?? null, selector, name);
const levelOf = (page, selector) => attributeOf(page, selector, 'data-wren-level');
const waitAttached = (page, selector) => page.waitForSelector(selector, { timeout: STEP_TIMEOUT_MS });

// The popup's rows as the user sees them.
function readRows(popup) {
  return popup.$$eval('.row', (rows) =>
    rows.map((row) => {
      const label = row.querySelector('.label');
      const button = row.querySelector('.row-button');
      const check = row.querySelector('.check');
      return {
        outlet: row.dataset.outlet,
        shown: !row.hidden && getComputedStyle(row).display !== 'none',
        title: label.textContent,
        color: label.dataset.color,
        checked: getComputedStyle(check).visibility !== 'hidden',
        enabled: button.getAttribute('aria-disabled') === 'false',
        tooltip: button.title,
        highlighted: row.dataset.highlighted === 'true',
      };
    }));
}

async function rowsWhen(popup, what, predicate) {
  let last = null;
  try {
    return await waitFor(what, async () => {
      last = await readRows(popup);
      return predicate(Object.fromEntries(last.map((r) => [r.outlet, r]))) ? last : null;
    });
  } catch (e) {
    e.message += `; rows: ${JSON.stringify(last)}`;
    throw e;
  }
}

for (const browser of BROWSERS) {
  describe(browser, () => {
    const open = (options = {}) => sessionWith(browser, options);

    test('links are rated and marked, short links flagged for resolving, links in frames and added later too',
      async () => {
        const s = await open();
        await s.openReadyPage();
        const page = await s.openPage(s.pages.url('/links.html'));
        for (const link of RATED_LINKS) {
          await waitAttached(page, `#${link.id}[data-wren-level]`);
          assert.equal(await levelOf(page, `#${link.id}`), String(link.level), link.href);
        }
        assert.match(await attributeOf(page, '#phish', 'title'), /^Wren: dangerous/);
        assert.equal(await page.$eval('#phish', (a) => getComputedStyle(a).outlineColor), 'rgb(217, 48, 37)');

        const frame = await waitFor('the inner frame',
          () => page.frames().find((f) => f.url().endsWith('/inner.html')));
        await waitAttached(frame, '#framed[data-wren-level="3"]');
        await waitAttached(page, '#added[data-wren-level="3"]');

        // The host flagged the short link, and only it, for resolving.
        const rating = s.sim.requestsTo('/BrowserExt/rating').find((r) =>
          Object.values(r.headers).includes('http://bit.ly/wren-test'));
        assert.ok(rating, 'a rating request carried the short link');
        const headers = Object.fromEntries(Object.entries(rating.headers).map(([h, v]) => [h.toLowerCase(), v]));
        const flagged = Object.keys(headers).filter((h) => h.endsWith('_needresolving') && headers[h] === 'true');
        assert.deepEqual(flagged.map((h) => headers[h.replace(/needresolving$/, 'url')]), ['http://bit.ly/wren-test'],
          JSON.stringify(rating.headers));
      });

    test('the page itself is rated', async () => {
      const s = await open();
      await s.openReadyPage();
      const page = await s.openPage(s.pages.url('/page.html', 'caution.wren-test.example'));
      await waitAttached(page, 'html[data-wren-page-level]');
      assert.equal(await attributeOf(page, 'html', 'data-wren-page-level'), '2');
      assert.equal(await attributeOf(page, 'html', 'data-wren-page-category'), 'Spam');
      assert.ok(s.sim.requestsTo('/BrowserExt/rating', 'type=wtp').length >= 1);
    });

    test('a block page of the service is reloaded to the address remembered from the previous one; an impostor is refused', async () => {
      const s = await open();
      await s.openReadyPage();
      const blockPage = `${s.sim.origin}/BrowserExt/blockPage`;
      const blocked = `${blockPage}?code=B123`;
      const first = await s.openPage(blocked);
      await waitAttached(first, 'html[data-wren-page-level]');
      // A web page with the block-page marker, with a code and without one:
      // were it believed, the first would replace the remembered address and
      // the second would take it.
      for (const impostor of ['/block.html?code=EVIL', '/block.html']) {
        const page = await s.openPage(s.pages.url(impostor));
        await waitAttached(page, 'html[data-wren-page-level]');
        assert.equal(page.url(), s.pages.url(impostor), 'the impostor was not sent anywhere');
      }
      // The two refusals are the warnings this test expects; no others.
      // (Firefox prints the text quoted.)
      const isRefusal = (m) => m.text.includes('[wren] refused block_page from a page outside the local service');
      await waitFor('both impostors to be refused', () => s.console.filter(isRefusal).length === 2);
      s.console.splice(0, s.console.length, ...s.console.filter((m) => !isRefusal(m)));
      const second = await s.browser.newPage();
      await second.goto(blockPage);
      await waitFor(`the second block page to load ${blocked}`, () => second.url() === blocked);
    });

    test('on a signed-in web-mail page the mail-scan row is usable and checked', async () => {
      const s = await open();
      await s.openReadyPage();
      const mail = await s.openPage(s.pages.mailUrl);
      assert.equal(await mail.title(), `Inbox (3) - ${MAIL_ADDRESS} - Gmail`);
      const popup = await s.openPopup();
      const rows = await rowsWhen(popup, 'the mail-scan row usable', (r) => r.viewVeldrin?.enabled);
      const veldrin = rows.find((r) => r.outlet === 'viewVeldrin');
      assert.equal(veldrin.checked, true);
      assert.equal(veldrin.tooltip, 'Veldrin Scam Scanner');
      assert.notEqual(veldrin.color, 'grey');
      const encoded = Buffer.from(MAIL_ADDRESS).toString('base64');
      assert.ok(s.sim.requestsTo('type=vds').some((r) => decodeURIComponent(r.target).includes(encoded)),
        JSON.stringify(s.sim.requestsTo('type=vds').map((r) => r.target)));
    });

    test('a click on the automatic-scan row switches it off in the service and closes the popup', async () => {
      const s = await open();
      await s.openReadyPage();
      const popup = await s.openPopup();
      await rowsWhen(popup, 'the automatic-scan row usable and checked',
        (r) => r.viewAutoRating?.enabled && r.viewAutoRating.checked);
      // The click closes the popup, which may happen before the browser has
      // returned from the click itself: the driver then reports the popup gone.
      await popup.click('[data-outlet="btnAutoRating"]').catch((e) => {
        if (!/Target closed|no such frame|BrowsingContext does no longer exist/.test(e.message)) throw e;
      });
      await s.waitForClose(popup);
      await waitFor('the updateSetting command', () =>
        s.sim.requestsTo('type=updateSetting', 'name=EnableAutomaticScan', 'value=false').length === 1);

      // The next popup shows the row unchecked.
      const again = await s.openPopup();
      await rowsWhen(again, 'the automatic-scan row unchecked',
        (r) => r.viewAutoRating?.enabled && !r.viewAutoRating.checked);
    });

    test('the manifest that wren-bridge install wrote starts the host, which ends when the browser closes',
      async () => {
        const s = await open();
        assert.ok(s.install.includes(`wrote ${s.manifest}`), s.install);
        await s.openReadyPage();
        assert.equal(hostProcesses(s.runTag).length, 1);
        await s.closeBrowser();
        await waitFor('the host to exit', () => hostProcesses(s.runTag).length === 0);
      });

    test('manual rating runs on Alt+Shift+R while automatic scanning is off', async () => {
      const s = await open({ simArgs: ['--auto', 'off'] });
      await s.openReadyPage();
      const page = await s.openPage(s.pages.url('/links.html'));
      await waitAttached(page, 'html[data-wren-page-level]');
      assert.equal(await levelOf(page, '#phish'), null, 'no automatic rating');
      await page.keyboard.down('Alt');
      await page.keyboard.down('Shift');
      await page.keyboard.press('KeyR');
      await page.keyboard.up('Shift');
      await page.keyboard.up('Alt');
      await waitAttached(page, '#phish[data-wren-level="3"]');
      assert.equal(await levelOf(page, '#safe'), '1');
    });

    test('the popup shows the rows for the simulator\'s settings, with the hover highlight', async () => {
      const s = await open({ simArgs: ['--manual', 'off'] });
      await s.openReadyPage();
      const popup = await s.openPopup();
      const rows = await rowsWhen(popup, 'the popover state', (r) =>
        r.viewAutoRating?.enabled && r.viewVeldrin?.tooltip);
      // [outlet, title, checked, enabled]; not a web-mail page, so the mail-scan row is greyed with its tooltip.
      assert.deepEqual(rows.map((r) => [r.outlet, r.title, r.checked, r.enabled]), [
        ['viewAutoRating', 'Automatic scan', true, true], ['viewManualRating', 'Manual rating', false, true],
        ['viewVeldrin', 'Veldrin Scam Scanner', false, false], ['viewSettings', 'Settings', false, true],
        ['viewHelp', 'Help', false, true]]);
      assert.deepEqual([rows[2].color, rows[2].tooltip],
        ['grey', 'Works for Gmail and Yahoo Mail when you are signed in.']);
      // The popup's own type, which Chromium's style for extension pages must not shrink.
      const sizes = await popup.$$eval('.label', (labels) => labels.map((l) => getComputedStyle(l).fontSize));
      assert.deepEqual([...new Set(sizes)], ['13px']);

      await popup.hover('[data-outlet="btnSettings"]');
      await rowsWhen(popup, 'the settings row highlighted', (r) => r.viewSettings.highlighted);
      const look = await popup.$eval('[data-outlet="viewSettings"] .highlight', (e) => {
        const style = getComputedStyle(e);
        return { image: style.backgroundImage, border: style.borderTopColor, width: style.borderTopWidth,
          radius: style.borderTopLeftRadius };
      });
      assert.equal(look.image, 'linear-gradient(rgb(240, 245, 252), rgb(224, 233, 244))');
      assert.deepEqual([look.border, look.width, look.radius], ['rgb(187, 204, 221)', '1px', '3px']);
      await popup.hover('[data-outlet="btnHelp"]');
      await rowsWhen(popup, 'the highlight moved to help',
        (r) => r.viewHelp.highlighted && !r.viewSettings.highlighted);
    });

    test('in the dark appearance the highlight is drawn in the system highlight colour', async () => {
      const s = await open({ colorScheme: 'dark' });
      await s.openReadyPage();
      const popup = await s.openPopup();
      await rowsWhen(popup, 'the popover state', (r) => r.viewHelp?.enabled);
      await popup.hover('[data-outlet="btnHelp"]');
      await rowsWhen(popup, 'the help row highlighted', (r) => r.viewHelp.highlighted);
      const [image, highlight] = await popup.$eval('[data-outlet="viewHelp"] .highlight', (e) => {
        const probe = document.createElement('div');
        probe.style.color = 'Highlight';
        document.body.append(probe);
        return [getComputedStyle(e).backgroundImage, getComputedStyle(probe).color];
      });
      assert.equal(image, `linear-gradient(${highlight}, ${highlight})`);
    });
  });
}
