// One end-to-end case against the installed Debian package: Chromium loads
// the installed extension and starts the installed host through the
// system-wide manifest alone (the session registers nothing), and the links
// of a page come back rated by wren-service-sim.
//   WREN_BRIDGE_EXE=/usr/bin/wren-bridge WREN_SIM_EXE=... node --test tests/package/browser.test.mjs
import assert from 'node:assert/strict';
import fs from 'node:fs';
import path from 'node:path';
import { test } from 'node:test';
import { hostProcesses, startSession, STEP_TIMEOUT_MS, waitFor } from '../browser/harness.mjs';
import { RATED_LINKS } from '../browser/pages.mjs';

const INSTALLED_EXTENSION = '/usr/share/wren-bridge/extension';
const SYSTEM_MANIFEST = '/etc/chromium/native-messaging-hosts/com.wren.bridge.json';
// A browser start with the first page rated takes up to 10 s on a busy machine.
const TEST_TIMEOUT_MS = 90000;

test('Chromium rates a page through the installed host, found by the system-wide manifest', { timeout: TEST_TIMEOUT_MS },
  async () => {
    assert.equal(JSON.parse(fs.readFileSync(SYSTEM_MANIFEST, 'utf8')).path, '/usr/bin/wren-bridge');
    const session = await startSession({ browser: 'chromium', installed: { extensionDir: INSTALLED_EXTENSION } });
    try {
      assert.equal(session.manifest, null, 'the session registered nothing');
      await session.openReadyPage();
      const page = await session.openPage(session.pages.url('/links.html'));
      for (const link of RATED_LINKS) {
        await page.waitForSelector(`#${link.id}[data-wren-level]`, { timeout: STEP_TIMEOUT_MS });
        const level = await page.evaluate((id) => document.getElementById(id).getAttribute('data-wren-level'), link.id);
        assert.equal(level, String(link.level), link.href);
      }
      assert.ok(!fs.existsSync(path.join(session.profile, 'NativeMessagingHosts', 'com.wren.bridge.json')),
        'no manifest in the profile');
      const hosts = await waitFor('the installed host to run', () => {
        const found = hostProcesses(session.runTag);
        return found.length ? found : null;
      });
      assert.ok(hosts.length >= 1);
      const problems = session.console.filter((m) => m.level === 'warn' || m.level === 'error');
      assert.deepEqual(problems, [], 'the extension\'s console has no errors or warnings');
    } finally {
      await session.close();
    }
  });
