// The prelude every browser suite shares: Debian's Chromium driven by
// playwright-core (never a downloaded browser), the desktop and phone
// contexts, and a suite's life on a running appliance (appliance.mjs):
// its items and links made before the tests, pages that record every error
// they log, axe-core and a screenshot per page state, the closing checks.
import assert from 'node:assert/strict';
import fs from 'node:fs';
import os from 'node:os';
import path from 'node:path';
import { after, before, test } from 'node:test';

import { findStage, startAppliance } from './appliance.mjs';

const playwright = await import('playwright-core').catch(() => null);
const axeSource = (await import('axe-core').catch(() => null))?.default.source;
const { stage, missing } = findStage();
if (missing && process.env.PLYTH_STAGE) throw new Error(missing);

// Why the suites cannot run here, else false (for describe's `skip`).
export const skip = !playwright || !axeSource
  ? 'playwright-core or axe-core is not installed (npm ci --prefix tests/browser)'
  : missing
    ? `no complete staging tree: ${missing}`
    : false;

export const DEVICES = {
  desktop: { viewport: { width: 1280, height: 800 } },
  phone: {
    userAgent:
      'Mozilla/5.0 (iPhone; CPU iPhone OS 17_0 like Mac OS X) AppleWebKit/605.1.15 (KHTML, like Gecko) Version/17.0 Mobile/15E148 Safari/604.1',
    viewport: { width: 390, height: 844 },
    isMobile: true,
    hasTouch: true,
  },
};

// Chromium flags for a quiet headless run without a sandbox (containers).
const chromiumArgs = [
  '--headless', '--no-sandbox', '--disable-gpu', '--disable-quic', '--no-first-run',
  '--disable-background-networking', '--disable-component-update', '--disable-sync',
];

// Registers the hooks of a suite (call it inside describe) and answers the
// suite, filled in by `before`: { dir, origin, ctl (plythctl), links (what
// `setup(ctl, suite)` answered), browser } and the page helpers below.
// Screenshots go to $PLYTH_SCREENSHOTS, else the temporary directory, which
// PLYTH_KEEP_BROWSER_TMP keeps with the servers' logs.
export function applianceSuite(prefix, setup) {
  const suite = { problems: [], violations: [] };
  let appliance;
  before(async () => {
    suite.dir = fs.mkdtempSync(path.join(os.tmpdir(), prefix));
    fs.chmodSync(suite.dir, 0o755);
    suite.shots = process.env.PLYTH_SCREENSHOTS || path.join(suite.dir, 'screenshots');
    fs.mkdirSync(suite.shots, { recursive: true });
    appliance = await startAppliance({ dir: suite.dir, stage });
    suite.origin = appliance.origin;
    suite.root = appliance.root;
    suite.ctl = appliance.plythctl;
    suite.links = await setup(suite.ctl, suite);
    suite.browser = await playwright.chromium.launch({ executablePath: '/usr/bin/chromium', args: chromiumArgs });
  });
  after(async () => {
    const keep = process.env.PLYTH_KEEP_BROWSER_TMP;
    if (suite.browser) await suite.browser.close();
    if (appliance) {
      if (keep) console.log(appliance.logs());
      await appliance.stop();
    }
    if (keep) console.log(`# kept ${suite.dir}`);
    else if (suite.dir) fs.rmSync(suite.dir, { recursive: true, force: true });
  });
  return Object.assign(suite, pageHelpers(suite));
}

function pageHelpers(suite) {
  return {
    // A context of `device`, signed in as `account` (password
    // "<account>-pw") through the sign-in API when one is named.
    async context(device, account) {
      const context = await suite.browser.newContext(DEVICES[device]);
      // Renditions are made on first sight: a busy machine needs more than 30 s.
      context.setDefaultTimeout(60000);
      if (account) {
        const answer = await context.request.post(`${suite.origin}/webapi/entry.cgi`, {
          form: { api: 'ZANT.Core.Auth', version: '1', method: 'login', account, passwd: `${account}-pw` },
        });
        assert.equal((await answer.json()).success, true);
      }
      return context;
    },

    // A new page in `where` (a context, or a device name for a context of
    // its own) that records its console errors and page errors; at `url`
    // when one is given. Tests close page.context() when done.
    async open(where, url) {
      const context = typeof where === 'string' ? await suite.context(where) : where;
      const page = await context.newPage();
      page.on('console', (message) => {
        if (message.type() === 'error') suite.problems.push(`${page.url()}: ${message.text()}`);
      });
      page.on('pageerror', (error) => suite.problems.push(`${page.url()}: ${error.message}`));
      if (url) await page.goto(suite.origin + url, { waitUntil: 'load' });
      return page;
    },

    // A screenshot of the page state, named `state`, without axe-core.
    shoot: (page, state) => page.screenshot({ path: path.join(suite.shots, `${state}.png`), fullPage: true }),

    // axe-core on the page as it stands (evaluated by the driver, so the
    // page's security policy does not stop it): serious and critical
    // findings fail the closing check. Then the screenshot.
    async look(page, state) {
      await page.evaluate(axeSource);
      const found = await page.evaluate(async () => {
        const result = await window.axe.run(document, { resultTypes: ['violations'] });
        return result.violations
          .filter((v) => v.impact === 'serious' || v.impact === 'critical')
          .map((v) => `${v.id} (${v.nodes.map((n) => n.target.join(' ')).join(', ')})`);
      });
      for (const finding of found) suite.violations.push(`${state}: ${finding}`);
      await suite.shoot(page, state);
    },

    // What clicking `selector` saves: the suggested name and the text.
    async download(page, selector) {
      const [got] = await Promise.all([page.waitForEvent('download'), page.click(selector)]);
      return { name: got.suggestedFilename(), bytes: fs.readFileSync(await got.path(), 'utf8') };
    },

    // The sign-in form of the page, filled and sent.
    async signIn(page, account, password = `${account}-pw`) {
      await page.fill('#zant-account', account);
      await page.fill('#zant-password', password);
      await page.click('#zant-signin-form button');
    },

    // The last tests of a suite. The app address (plyth://) goes nowhere
    // here: the browser's complaint about it is expected.
    closingChecks() {
      test('no page logged an error or broke its security policy', () => {
        assert.deepEqual(suite.problems.filter((p) => !/plyth:\/\/open/.test(p)), []);
      });
      test('axe-core found no serious or critical violation on any page state', () => {
        assert.deepEqual(suite.violations, []);
      });
    },
  };
}
