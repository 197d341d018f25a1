// Every road a visitor can take from a link ends somewhere useful, on a
// desktop and on a phone, signed out and signed in: the office editor's
// address, the web application's item view, signing in for members-only
// links, downloads that fail, requests for access, "open in the app"
// without the app, phone layout. axe-core checks every page state; the
// screenshots go to $PLYTH_SCREENSHOTS (else the temporary directory).
import assert from 'node:assert/strict';
import fs from 'node:fs';
import { createRequire } from 'node:module';
import path from 'node:path';
import { after, before, describe, test } from 'node:test';

import { findStage, startAppliance } from './appliance.mjs';
import { launchChromium, loadPlaywright, makeTempDir, removeTempDir } from './lib.mjs';

const playwright = await loadPlaywright();
const { stage, missing } = findStage();
if (missing && process.env.PLYTH_STAGE) throw new Error(missing);
const axeSource = (() => {
  try {
    return fs.readFileSync(createRequire(import.meta.url).resolve('axe-core/axe.min.js'), 'utf8');
  } catch {
    return null;
  }
})();
const skip = !playwright || !axeSource
  ? 'playwright-core or axe-core is not installed (npm ci --prefix tests/browser)'
  : missing
    ? `no complete staging tree: ${missing}`
    : false;

const DESKTOP = { viewport: { width: 1280, height: 800 } };
const PHONE = {
  userAgent:
    'Mozilla/5.0 (iPhone; CPU iPhone OS 17_0 like Mac OS X) AppleWebKit/605.1.15 (KHTML, like Gecko) Version/17.0 Mobile/15E148 Safari/604.1',
  viewport: { width: 390, height: 844 },
  isMobile: true,
  hasTouch: true,
};
const DEVICES = { desktop: DESKTOP, phone: PHONE };
const REPORT = 'Quarterly figures\n';
const NOTES = 'Meeting notes\n';

describe('no road ends in nothing', { skip }, () => {
  let dir;
  let shotsDir;
  let appliance;
  let browser;
  const links = {};
  const problems = [];
  const violations = [];

  async function open(context, url) {
    const page = await context.newPage();
    page.on('console', (message) => {
      if (message.type() === 'error') problems.push(`${page.url()}: ${message.text()}`);
    });
    page.on('pageerror', (error) => problems.push(`${page.url()}: ${error.message}`));
    if (url) await page.goto(appliance.origin + url, { waitUntil: 'load' });
    return page;
  }

  // axe-core on the page as it stands (evaluated by the driver, so the
  // page's security policy does not stop it); serious and critical
  // findings are collected and fail the last test.
  async function checkAccessibility(page, state) {
    await page.evaluate(axeSource);
    const found = await page.evaluate(async () => {
      const result = await window.axe.run(document, { resultTypes: ['violations'] });
      return result.violations
        .filter((v) => v.impact === 'serious' || v.impact === 'critical')
        .map((v) => `${v.id} (${v.nodes.map((n) => n.target.join(' ')).join(', ')})`);
    });
    for (const finding of found) violations.push(`${state}: ${finding}`);
  }

  async function look(page, state) {
    await checkAccessibility(page, state);
    await page.screenshot({ path: path.join(shotsDir, `${state}.png`) });
  }

  async function signIn(page, account) {
    await page.fill('#zant-account', account);
    await page.fill('#zant-password', `${account}-pw`);
    await page.click('#zant-signin-form button');
  }

  async function signedInContext(device, account) {
    const context = await browser.newContext(DEVICES[device]);
    const page = await open(context, '/');
    await signIn(page, account);
    await page.waitForSelector('#zant-sign-out');
    await page.close();
    return context;
  }

  const download = async (page, selector) => {
    const [got] = await Promise.all([page.waitForEvent('download'), page.click(selector)]);
    return { name: got.suggestedFilename(), bytes: fs.readFileSync(await got.path(), 'utf8') };
  };

  before(async () => {
    dir = makeTempDir('plyth-deadends-');
    shotsDir = process.env.PLYTH_SCREENSHOTS || path.join(dir, 'screenshots');
    fs.mkdirSync(shotsDir, { recursive: true });
    appliance = await startAppliance({ dir, stage });
    const ctl = appliance.plythctl;
    const add = (owner, file, content) => {
      fs.writeFileSync(path.join(dir, 'content'), content);
      return ctl('file', 'add', owner, file, '--from', path.join(dir, 'content')).split('\t');
    };
    for (const account of ['alice', 'bob', 'carol']) ctl('user', 'add', account, '--password', `${account}-pw`);
    [, links.report] = add('alice', '/Reports/report.txt', REPORT);
    [links.notesId, links.notes] = add('alice', '/Reports/notes.kdoc', NOTES);
    [, links.moving] = add('alice', '/Reports/moving.txt', REPORT);
    [, links.binned] = add('alice', '/Old/binned.txt', REPORT);
    ctl('grant', 'alice:/Reports', 'bob', 'viewer');
    links.locked = ctl('share', 'make', 'alice:/Reports/report.txt', '--password', 'secret');
    links.office = ctl('share', 'make', 'alice:/Reports/notes.kdoc');
    links.moveShare = ctl('share', 'make', 'alice:/Reports/moving.txt');
    links.binShare = ctl('share', 'make', 'alice:/Old/binned.txt');
    ctl('link', 'make', 'alice:/Old/binned.txt', '--visibility', 'anyone');
    ctl('link', 'make', 'alice:/Reports/report.txt', '--visibility', 'anyone');
    ctl('file', 'trash', 'alice:/Old/binned.txt');
    links.open = ctl('share', 'make', 'alice:/Reports/report.txt');
    links.expired = ctl('share', 'make', 'alice:/Reports/report.txt', '--expires', '@1000000000');
    links.preview = ctl('share', 'make', 'alice:/Reports/report.txt', '--role', 'previewer');
    browser = await launchChromium(playwright);
  });

  after(async () => {
    if (browser) await browser.close();
    if (appliance) {
      if (process.env.PLYTH_KEEP_BROWSER_TMP) console.log(appliance.logs());
      await appliance.stop();
    }
    if (dir && !process.env.PLYTH_KEEP_BROWSER_TMP) removeTempDir(dir);
  });

  describe('office document', () => {
    for (const device of ['desktop', 'phone']) {
      test(`${device}: the office address says the editor is missing and downloads`, async () => {
        const context = await browser.newContext(DEVICES[device]);
        // The landing page sets the sharing cookie, then (desktop) sends the
        // visitor to the office address.
        const page = await open(context, `/d/s/${links.office}/${links.notes}`);
        if (device === 'phone') await page.goto(`${appliance.origin}/oo/r/${links.notes}?sharing_link=${links.office}`);
        await page.waitForSelector('#plyth-share-root[data-view="office"]');
        assert.match(page.url(), new RegExp(`/oo/r/${links.notes}\\?sharing_link=${links.office}$`));
        assert.equal(await page.textContent('.plyth-share-title'), 'The office editor is not installed');
        assert.equal(await page.textContent('.plyth-share-name'), 'notes.kdoc');
        assert.equal(await page.title(), 'notes.kdoc');
        await look(page, `${device}-office`);
        assert.deepEqual(await download(page, '#plyth-download'), { name: 'notes.kdoc', bytes: NOTES });
        await context.close();
      });
    }

    test('an unknown document on the office address says so, nothing is a 404', async () => {
      const context = await browser.newContext(DESKTOP);
      const page = await open(context, '/oo/r/NoSuchLink000000');
      await page.waitForSelector('#plyth-share-root[data-view="office-missing"]');
      assert.equal(await page.textContent('.plyth-share-error'), 'The document does not exist or is no longer shared.');
      await context.close();
    });
  });

  describe('members-only permanent link and the web application', () => {
    test('desktop, signed out: sign in, then the item in the web application', async () => {
      const context = await browser.newContext(DESKTOP);
      const page = await open(context, `/d/f/${links.notes}`);
      await page.waitForSelector('#plyth-share-root[data-view="signin"]');
      assert.equal(await page.textContent('.plyth-share-title'), 'Sign in to open this item');
      await look(page, 'desktop-members-signed-out');
      await Promise.all([page.waitForURL(/\/\?redirect=/), page.click('#plyth-sign-in')]);
      await signIn(page, 'bob');
      // Back at the link, which sends a member on to the web application.
      await page.waitForURL(/launchApp=ZANT\.QRT\.Plyth\.Application/);
      await page.waitForSelector('#plyth-share-root[data-view="item"]');
      assert.equal(await page.textContent('.plyth-share-name'), 'notes.kdoc');
      const meta = await page.$$eval('.plyth-share-meta', (rows) => rows.map((r) => r.textContent));
      assert.deepEqual([meta[0], meta[2]], [`Size: ${NOTES.length} B`, 'Owner: alice']);
      // The viewers run here too; an office document has no rendition, so its icon stays.
      await page.waitForSelector('#plyth-share-content', { state: 'attached' });
      assert.equal(await page.$eval('.plyth-share-icon', (node) => node.hidden), false);
      await look(page, 'desktop-item-view');
      assert.deepEqual(await download(page, '#plyth-download'), { name: 'notes.kdoc', bytes: NOTES });
      await context.close();
    });

    test('the web application address signed out: the sign-in form comes back to it', async () => {
      const context = await browser.newContext(DESKTOP);
      const url = `/?launchApp=ZANT.QRT.Plyth.Application&launchParam=file_id%3D${links.notesId}`;
      const page = await open(context, url);
      await page.waitForSelector('#zant-signin-form');
      await signIn(page, 'alice');
      await page.waitForSelector('#plyth-share-root[data-view="item"]');
      assert.equal(page.url(), appliance.origin + url);
      const meta = await page.$$eval('.plyth-share-meta', (rows) => rows.map((r) => r.textContent));
      assert.equal(meta.at(-1), 'Owner: alice');
      await context.close();
    });

    // Carol asks on the desktop, then again on her phone: one request.
    const denied = [
      { device: 'desktop', notice: '#plyth-request-notice', text: 'Your request has been sent to the owner. You will be notified when access is granted.' },
      { device: 'phone', notice: '#plyth-mobile-notice', text: 'Request sentYour request has been sent to the owner. You will be notified when access is granted.' },
    ];
    for (const { device, notice, text } of denied) {
      test(`${device}, signed in without access: the request reaches the owner once`, async () => {
        const context = await signedInContext(device, 'carol');
        const page = await open(context, `/d/f/${links.notes}`);
        await page.waitForSelector('#plyth-request-access');
        if (device === 'desktop') {
          assert.equal(await page.getAttribute('#plyth-share-root', 'data-view'), 'denied');
          assert.match(await page.getAttribute('#plyth-switch-account', 'href'), /^\/\?redirect=%2Fd%2Ff%2F/);
        }
        await look(page, `${device}-no-permission`);
        await page.click('#plyth-request-access');
        await page.waitForSelector(`${notice}:not([hidden])`);
        assert.equal(await page.textContent(notice), text);
        assert.equal(await page.isDisabled('#plyth-request-access'), true);
        const requests = appliance.plythctl('requests', 'list').split('\n');
        assert.equal(requests.length, 1);
        assert.match(requests[0], /^alice:\/Reports\/notes\.kdoc\tcarol\t\d{4}-\d\d-\d\d \d\d:\d\d:\d\d$/);
        await context.close();
      });
    }

    test('granting the request lets carol in with the link role', async () => {
      appliance.plythctl('requests', 'grant', 'alice:/Reports/notes.kdoc', 'carol');
      assert.equal(appliance.plythctl('requests', 'list'), '');
      const context = await signedInContext('desktop', 'carol');
      const page = await open(context, `/d/f/${links.notes}`);
      await page.waitForSelector('#plyth-share-root[data-view="item"]');
      assert.equal(await page.textContent('.plyth-share-name'), 'notes.kdoc');
      await context.close();
    });
  });

  describe('downloads never save an error', () => {
    test('desktop: an item moved to the recycle bin after the page opened is explained, not saved', async () => {
      const context = await browser.newContext(DESKTOP);
      const page = await open(context, `/d/s/${links.moveShare}/${links.moving}`);
      await page.waitForSelector('#plyth-download');
      assert.equal(await page.title(), 'moving.txt');
      assert.equal(await page.getAttribute('html', 'lang'), 'en');
      appliance.plythctl('file', 'trash', 'alice:/Reports/moving.txt');
      let saved = false;
      page.on('download', () => {
        saved = true;
      });
      await page.click('#plyth-download');
      await page.waitForSelector('#plyth-download-error:not([hidden])');
      assert.equal(
        await page.textContent('#plyth-download-error'),
        'This item was moved to the recycle bin and can no longer be downloaded.',
      );
      await look(page, 'desktop-download-refused');
      assert.equal(saved, false);
      appliance.plythctl('file', 'restore', 'alice:/Reports/moving.txt');
      await context.close();
    });

    test('phone: the item page of an item in the recycle bin explains instead of saving', async () => {
      const context = await browser.newContext(PHONE);
      const page = await open(context, `/d/s/${links.binShare}/${links.binned}`);
      await page.waitForSelector('#plyth-download');
      let saved = false;
      page.on('download', () => {
        saved = true;
      });
      await page.click('#plyth-download');
      await page.waitForSelector('#plyth-mobile-notice:not([hidden])');
      assert.equal(
        await page.textContent('#plyth-mobile-notice'),
        'The download did not start' + 'This item was moved to the recycle bin and can no longer be downloaded.',
      );
      assert.equal(await page.$eval('#plyth-mobile-notice', (n) => n.className), 'plyth-mobile-notice plyth-mobile-notice-problem');
      await look(page, 'phone-download-refused');
      assert.equal(saved, false);
      await context.close();
    });

    // A browser that goes to the download address itself gets a status and a page.
    const refusals = [
      { what: 'item in the recycle bin', path: () => `link:${links.binned}`, status: 410, text: 'This item was moved to the recycle bin and can no longer be downloaded.' },
      { what: 'unknown link', path: () => 'link:NoSuchLink000000', status: 404, text: 'The item does not exist or is no longer shared.' },
      { what: 'members-only item', path: () => `link:${links.notes}`, status: 403, text: 'You may not download this item.' },
    ];
    for (const { what, path: itemPath, status, text } of refusals) {
      test(`navigating to the download of an ${what} answers ${status} with a page`, async () => {
        const context = await browser.newContext(DESKTOP);
        // Not recorded by open(): the browser logs these statuses, as it should.
        const page = await context.newPage();
        const url = `/webapi/entry.cgi?api=ZANT.BrindlexPlyth.Files&version=1&method=download&path=${encodeURIComponent(JSON.stringify(itemPath()))}`;
        const response = await page.goto(appliance.origin + url);
        assert.equal(response.status(), status);
        assert.equal(response.headers()['content-type'], 'text/html; charset=UTF-8');
        assert.equal(await page.textContent('h1'), 'The download did not start');
        assert.equal(await page.textContent('p'), text);
        // A script still gets the JSON answer.
        const api = await page.request.get(appliance.origin + url, { headers: { 'Sec-Fetch-Mode': 'cors' } });
        assert.equal(api.status(), 200);
        assert.equal((await api.json()).success, false);
        await context.close();
      });
    }
  });

  describe('phones', () => {
    test('the password page fits a phone and works with the keyboard alone', async () => {
      const context = await browser.newContext(PHONE);
      const page = await open(context, `/d/s/${links.locked}/${links.report}`);
      await page.waitForSelector('#plyth-password');
      assert.equal(await page.evaluate(() => document.documentElement.clientWidth), 390);
      const field = await page.$eval('#plyth-password', (node) => node.getBoundingClientRect().width);
      assert.ok(field > 300, `password field ${field}px wide`);
      await look(page, 'phone-password');
      await page.keyboard.type('secret');
      await Promise.all([page.waitForNavigation(), page.keyboard.press('Enter')]);
      await page.waitForSelector('#plyth-download');
      // Tab to the download and press Enter: the file arrives.
      await page.focus('#plyth-download');
      const [got] = await Promise.all([page.waitForEvent('download'), page.keyboard.press('Enter')]);
      assert.equal(fs.readFileSync(await got.path(), 'utf8'), REPORT);
      await context.close();
    });

    test('open in the app without the app falls back to the browser and says so', async () => {
      const context = await browser.newContext(PHONE);
      const page = await open(context, `/d/f/${links.notes}`);
      await page.waitForSelector('#plyth-open-app');
      await look(page, 'phone-sign-in-choice');
      // The app address goes nowhere here; the sign-in page follows.
      await page.click('#plyth-open-app');
      await page.waitForSelector('#zant-signin-form', { timeout: 10000 });
      assert.equal(page.url(), `${appliance.origin}/?redirect=${encodeURIComponent(`/d/f/${links.notes}`)}`);
      await look(page, 'phone-sign-in');
      await context.close();
    });

    test('open in the app on the item page says the app did not open and offers the download', async () => {
      const context = await browser.newContext(PHONE);
      const page = await open(context, `/d/f/${links.report}`);
      await page.waitForSelector('#plyth-open-app');
      await look(page, 'phone-item');
      await page.click('#plyth-open-app');
      await page.waitForSelector('#plyth-mobile-notice:not([hidden])', { timeout: 10000 });
      assert.equal(
        await page.textContent('#plyth-mobile-notice'),
        'The app did not open' + 'It does not seem to be installed on this device. You can continue in the browser.',
      );
      assert.equal(await page.evaluate(() => document.activeElement.id), 'plyth-download');
      await context.close();
    });
  });

  // The other states a visitor meets, for axe-core and the screenshots.
  const states = [
    { state: 'desktop-file', device: 'desktop', url: () => `/d/s/${links.open}/${links.report}`, ready: '[data-view="file"]' },
    { state: 'desktop-password', device: 'desktop', url: () => `/d/s/${links.locked}/${links.report}`, ready: '[data-view="password"]' },
    { state: 'desktop-expired', device: 'desktop', url: () => `/d/s/${links.expired}/${links.report}`, ready: '[data-view="expired"]' },
    { state: 'desktop-unknown', device: 'desktop', url: () => '/d/s/NoSuchLink000000/NoSuchLink000000', ready: '[data-view="invalid"]' },
    { state: 'desktop-unavailable', device: 'desktop', url: () => `/d/s/${links.binShare}/${links.binned}`, ready: '[data-view="unavailable"]' },
    { state: 'desktop-preview-only', device: 'desktop', url: () => `/d/s/${links.preview}/${links.report}`, ready: '[data-view="file"]' },
    { state: 'desktop-office-signed-in', device: 'desktop', account: 'bob', url: () => `/d/s/${links.office}/${links.notes}`, ready: '[data-view="office"]' },
    { state: 'desktop-sign-in-page', device: 'desktop', url: () => '/', ready: '#zant-signin-form' },
    { state: 'phone-expired', device: 'phone', url: () => `/d/s/${links.expired}/${links.report}`, ready: '#plyth-mobile-icon span' },
    { state: 'phone-unknown', device: 'phone', url: () => '/d/s/NoSuchLink000000/NoSuchLink000000', ready: '#plyth-mobile-icon span' },
    { state: 'phone-preview-only', device: 'phone', url: () => `/d/s/${links.preview}/${links.report}`, ready: '#plyth-open-app' },
    { state: 'phone-member-item', device: 'phone', account: 'bob', url: () => `/d/f/${links.notes}`, ready: '#plyth-download' },
  ];
  describe('every other page state', () => {
    for (const { state, device, account, url, ready } of states) {
      test(`${state} passes axe-core`, async () => {
        const context = account ? await signedInContext(device, account) : await browser.newContext(DEVICES[device]);
        const page = await open(context, url());
        await page.waitForSelector(ready.startsWith('[') ? `#plyth-share-root${ready}` : ready);
        await look(page, state);
        await context.close();
      });
    }
  });

  test('no page logged an error', () => {
    assert.deepEqual(problems.filter((p) => !/plyth:\/\/open/.test(p)), []);
  });

  test('axe-core found no serious or critical violation on any page state', () => {
    assert.deepEqual(violations, []);
  });
});
