// The landing pages as a visitor sees them in a real browser: a throw-away
// appliance (scripts/mkroot, plythctl, zant-webapid, nginx with the deploy
// configuration) and Debian's Chromium. Desktop: sharing link, password
// form, expiry, removed item, unknown link, preview-only, downloads. Phone:
// the item page, the sign-in and no-permission pages with the sign-in page
// in between, expired and invalid links. No page may log an error or break
// its security policy.
import assert from 'node:assert/strict';
import fs from 'node:fs';
import path from 'node:path';
import { after, before, describe, test } from 'node:test';

import { findStage, startAppliance } from './appliance.mjs';
import { launchChromium, loadPlaywright, makeTempDir, removeTempDir } from './lib.mjs';

const playwright = await loadPlaywright();
const { stage, missing } = findStage();
if (missing && process.env.PLYTH_STAGE) throw new Error(missing);
const skip = !playwright
  ? 'playwright-core is not installed (npm ci --prefix tests/browser)'
  : missing
    ? `no complete staging tree: ${missing}`
    : false;

const PHONE = {
  userAgent:
    'Mozilla/5.0 (iPhone; CPU iPhone OS 17_0 like Mac OS X) AppleWebKit/605.1.15 (KHTML, like Gecko) Version/17.0 Mobile/15E148 Safari/604.1',
  viewport: { width: 390, height: 760 },
  isMobile: true,
  hasTouch: true,
};
const REPORT = 'quarterly numbers: 1, 2, 3\n';
const PASSWORD = '1.50'; // a JSON number if it were not sent as a JSON string

describe('landing pages on a running appliance', { skip }, () => {
  let dir;
  let appliance;
  let browser;
  const links = {};
  const problems = []; // console errors, page errors and policy violations, per page
  let shots = 0;

  // A new page in `context` that records its problems.
  async function open(context, url) {
    const page = await context.newPage();
    page.on('console', (message) => {
      if (message.type() === 'error') problems.push(`${page.url()}: ${message.text()}`);
    });
    page.on('pageerror', (error) => problems.push(`${page.url()}: ${error.message}`));
    if (url) await page.goto(appliance.origin + url, { waitUntil: 'load' });
    return page;
  }

  async function shoot(page, name) {
    await page.screenshot({ path: path.join(dir, `${String(++shots).padStart(2, '0')}-${name}.png`), fullPage: true });
  }

  async function downloadBytes(page, selector) {
    const [download] = await Promise.all([page.waitForEvent('download'), page.click(selector)]);
    return { name: download.suggestedFilename(), bytes: fs.readFileSync(await download.path(), 'utf8') };
  }

  const sharePath = (sharing, permanent = links.report) => `/d/s/${sharing}/${permanent}`;

  before(async () => {
    dir = makeTempDir('plyth-landing-');
    appliance = await startAppliance({ dir, stage });
    const ctl = appliance.plythctl;
    const permanentOf = (line) => line.split('\t')[1];
    fs.writeFileSync(path.join(dir, 'report.txt'), REPORT);

    ctl('user', 'add', 'alice', '--password', 'alice-pw');
    ctl('user', 'add', 'bob', '--password', 'bob-pw');
    links.report = permanentOf(ctl('file', 'add', 'alice', '/docs/report.txt', '--from', path.join(dir, 'report.txt')));
    ctl('link', 'make', 'alice:/docs/report.txt', '--visibility', 'anyone');
    links.open = ctl('share', 'make', '/docs/report.txt');
    links.locked = ctl('share', 'make', '/docs/report.txt', '--password', PASSWORD);
    links.throttled = ctl('share', 'make', '/docs/report.txt', '--password', 'other');
    links.expired = ctl('share', 'make', '/docs/report.txt', '--expires', '@1000000000');
    // Its own item: the report's public link would lend every visitor "viewer".
    links.notes = permanentOf(ctl('file', 'add', 'alice', '/docs/notes.txt', '--from', path.join(dir, 'report.txt')));
    links.preview = ctl('share', 'make', '/docs/notes.txt', '--role', 'previewer');
    links.gone = permanentOf(ctl('file', 'add', 'alice', '/old/gone.pdf'));
    links.goneShare = ctl('share', 'make', '/old/gone.pdf');
    ctl('link', 'make', 'alice:/old/gone.pdf', '--visibility', 'anyone');
    ctl('file', 'trash', '/old/gone.pdf');
    links.plan = permanentOf(ctl('file', 'add', 'alice', '/private/plan.odt'));

    browser = await launchChromium(playwright);
  });

  after(async () => {
    if (browser) await browser.close();
    if (appliance) {
      if (process.env.PLYTH_KEEP_BROWSER_TMP) console.log(appliance.logs());
      await appliance.stop();
    }
    if (dir) removeTempDir(dir);
  });

  describe('desktop', () => {
    test('a sharing link without a password shows the file and downloads it', async () => {
      const context = await browser.newContext();
      const page = await open(context, sharePath(links.open));
      await page.waitForSelector('#plyth-share-root[data-view="file"]');
      assert.equal(await page.textContent('.plyth-share-name'), 'report.txt');
      assert.match(await page.getAttribute('.plyth-share-icon', 'src'), /\/FileType\/64\/txt\.png$/);
      const meta = await page.$$eval('.plyth-share-meta', (rows) => rows.map((row) => row.textContent));
      assert.equal(meta.length, 3);
      assert.equal(meta[0], `Size: ${REPORT.length} B`);
      assert.match(meta[1], /^Modified: \d{4}-\d\d-\d\d \d\d:\d\d$/);
      assert.equal(meta[2], 'Owner: alice');
      const icon = await page.request.get(await page.$eval('.plyth-share-icon', (img) => img.src));
      assert.equal(icon.status(), 200);
      await shoot(page, 'desktop-file');

      const got = await downloadBytes(page, '#plyth-download');
      assert.deepEqual(got, { name: 'report.txt', bytes: REPORT });
      await context.close();
    });

    test('every resource the desktop page names answers 200', async () => {
      const context = await browser.newContext();
      const failed = [];
      const page = await open(context);
      page.on('response', (response) => {
        if (response.status() !== 200) failed.push(`${response.status()} ${response.url()}`);
      });
      await page.goto(appliance.origin + sharePath(links.open), { waitUntil: 'load' });
      const named = await page.$$eval(
        'script[src]:not([data-plyth-viewers]), link[rel="stylesheet"]:not([data-plyth-viewers])',
        (nodes) => nodes.length,
      );
      assert.equal(named, 16);
      // The viewer's own files, loaded by the page script, and the text preview.
      await page.waitForSelector('#plyth-viewer-text');
      assert.equal(await page.$$eval('[data-plyth-viewers]', (nodes) => nodes.length), 3);
      assert.deepEqual(failed, []);
      assert.equal(await page.evaluate(() => typeof window.ZANTUI.callAPI), 'function');
      await context.close();
    });

    test('a password link asks, refuses a wrong password and opens with the right one', async () => {
      const context = await browser.newContext();
      const page = await open(context, sharePath(links.locked));
      await page.waitForSelector('#plyth-share-root[data-view="password"]');
      assert.equal(await page.textContent('.plyth-share-title'), 'This link is protected by a password');
      assert.equal(await page.isVisible('#plyth-password-error'), false);
      await shoot(page, 'desktop-password');

      await page.fill('#plyth-password', 'wrong');
      await page.click('#plyth-password-form button');
      await page.waitForSelector('#plyth-password-error:not([hidden])');
      assert.equal(await page.textContent('#plyth-password-error'), 'The password is wrong.');
      await shoot(page, 'desktop-password-wrong');

      await page.fill('#plyth-password', PASSWORD);
      await Promise.all([page.waitForEvent('load'), page.press('#plyth-password', 'Enter')]);
      await page.waitForSelector('#plyth-share-root[data-view="file"]');
      assert.equal(await page.textContent('.plyth-share-name'), 'report.txt');
      const cookies = await context.cookies();
      const cookie = cookies.find((c) => c.name === `plyth-sharing-${links.locked}`);
      assert.match(cookie.value, /^[A-Za-z0-9]{16}\.[0-9]+\.[0-9a-f]{64}$/);
      assert.equal(cookie.path, '/');
      assert.deepEqual(await downloadBytes(page, '#plyth-download'), { name: 'report.txt', bytes: REPORT });
      await context.close();
    });

    test('too many wrong passwords give the throttle message', async () => {
      const context = await browser.newContext();
      const page = await open(context, sharePath(links.throttled));
      await page.waitForSelector('#plyth-password-form');
      const messages = [];
      for (let i = 0; i < 6; i++) {
        await page.fill('#plyth-password', `wrong-${i}`);
        await page.click('#plyth-password-form button');
        await page.waitForSelector('#plyth-password-error:not([hidden])');
        await page.waitForSelector('#plyth-password-form button:not([disabled])');
        messages.push(await page.textContent('#plyth-password-error'));
      }
      assert.deepEqual(messages, [
        ...Array(5).fill('The password is wrong.'),
        'Too many wrong passwords. Try again in a few minutes.',
      ]);
      await context.close();
    });

    const messageCases = [
      ['an expired link', () => sharePath(links.expired), 'expired', 'Link expired'],
      ['a removed item', () => sharePath(links.goneShare, links.gone), 'unavailable', 'This item is no longer available'],
      ['an unknown sharing link', () => sharePath('NoSuchLink000000'), 'invalid', 'Link not available'],
      ['a permanent link of a private item', () => `/d/f/${links.plan}`, 'signin', 'Sign in to open this item'],
    ];
    for (const [what, url, view, title] of messageCases) {
      test(`${what} says so`, async () => {
        const context = await browser.newContext();
        const page = await open(context, url());
        await page.waitForSelector(`#plyth-share-root[data-view="${view}"]`);
        assert.equal(await page.textContent('.plyth-share-title'), title);
        assert.equal(await page.$('#plyth-download'), null);
        if (view === 'expired') await shoot(page, 'desktop-expired');
        await context.close();
      });
    }

    test('the page helpers: views by code, sizes, times, download address', async () => {
      const context = await browser.newContext();
      const page = await open(context, sharePath(links.open));
      await page.waitForSelector('#plyth-share-root[data-view="file"]');
      const got = await page.evaluate(() => {
        const { PlythShare, ZANTUI } = window;
        const record = { name: 'a' };
        return {
          views: [[0, record], [0, null], [0, undefined], [1037, null], [1038, null], [1036, null],
            [1002, null], [1040, null], [408, record], [-1, null]].map(([code, file]) => PlythShare.viewOf(code, file)),
          // No access: signing in may help a visitor who is not signed in.
          noAccess: [false, true].map((signedIn) => PlythShare.viewOf(1002, null, signedIn)),
          sizes: [0, 1023, 1024, 1536, 10 * 1024, 5 * 1024 ** 3, -1, 'x'].map(ZANTUI.format.size),
          // 2024-03-05 07:08:09 local time.
          time: ZANTUI.format.time(new Date(2024, 2, 5, 7, 8, 9).getTime() / 1000, 'd.m.Y H:i:s|n/j/y g:i A'),
          noTime: ZANTUI.format.time(0),
          download: PlythShare.downloadURL('P1', 'S1'),
        };
      });
      assert.deepEqual(got.views, ['file', 'unavailable', 'unavailable', 'password', 'expired', 'invalid',
        'signin', 'invalid', 'invalid', 'invalid']);
      assert.deepEqual(got.noAccess, ['signin', 'denied']);
      assert.deepEqual(got.sizes, ['0 B', '1023 B', '1.0 KB', '1.5 KB', '10 KB', '5.0 GB', '', '']);
      assert.equal(got.time, '05.03.2024 07:08:09|3/5/24 7:08 AM');
      assert.equal(got.noTime, '');
      assert.equal(got.download, 'webapi/entry.cgi?api=ZANT.BrindlexPlyth.Files&version=1&method=download' +
        '&path=%22link%3AP1%22&sharing_link=%22S1%22');
      await context.close();
    });

    test('a previewer sees the file without a download button', async () => {
      const context = await browser.newContext();
      const page = await open(context, sharePath(links.preview, links.notes));
      await page.waitForSelector('#plyth-share-root[data-view="file"]');
      assert.equal(await page.textContent('.plyth-share-name'), 'notes.txt');
      assert.equal(await page.$('#plyth-download'), null);
      assert.equal(await page.textContent('.plyth-share-notice'), 'You may preview this item but not download it.');
      await context.close();
    });
  });

  describe('phone', () => {
    const buttons = (page) =>
      page.$$eval('#plyth-mobile-actions > *', (nodes) =>
        nodes.map((node) => [node.textContent, node.getAttribute('href')]),
      );

    test('a public permanent link shows the item page with open and download', async () => {
      const context = await browser.newContext(PHONE);
      const page = await open(context, `/d/f/${links.report}`);
      await page.waitForSelector('#plyth-download');
      assert.equal(await page.textContent('.plyth-mobile-title'), 'report.txt');
      assert.equal(await page.isVisible('.plyth-mobile-desc'), false);
      assert.match(await page.getAttribute('#plyth-mobile-icon img', 'src'), /\/FileType\/64\/txt\.png$/);
      const [openInApp, download] = await buttons(page);
      assert.equal(openInApp[0], 'Open in the app');
      const app = new URL(openInApp[1]);
      assert.equal(app.protocol, 'plyth:');
      assert.equal(app.searchParams.get('permanent_link'), links.report);
      assert.equal(app.searchParams.get('host'), new URL(appliance.origin).host);
      assert.equal(download[0], 'Download');
      await shoot(page, 'phone-info');
      assert.deepEqual(await downloadBytes(page, '#plyth-download'), { name: 'report.txt', bytes: REPORT });
      await context.close();
    });

    test('a sharing link on a phone downloads with its cookie', async () => {
      const context = await browser.newContext(PHONE);
      const page = await open(context, sharePath(links.open));
      await page.waitForSelector('#plyth-download');
      assert.deepEqual(await downloadBytes(page, '#plyth-download'), { name: 'report.txt', bytes: REPORT });
      await context.close();
    });

    test('a private link asks an anonymous visitor to sign in, then opens for the owner', async () => {
      const context = await browser.newContext(PHONE);
      const page = await open(context, `/d/f/${links.plan}`);
      await page.waitForSelector('#plyth-open-link');
      assert.deepEqual((await buttons(page)).map(([text]) => text), ['Open in the app', 'Continue in the browser']);
      assert.equal(await page.textContent('.plyth-mobile-desc'), 'How would you like to open this link?');
      await shoot(page, 'phone-signin-choice');

      await Promise.all([page.waitForURL(/\/\?redirect=/), page.click('#plyth-open-link')]);
      await page.waitForSelector('#zant-signin-form');
      await page.fill('#zant-account', 'alice');
      await page.fill('#zant-password', 'not-her-password');
      await page.click('#zant-signin-form button');
      await page.waitForSelector('#zant-signin-error:not([hidden])');
      await shoot(page, 'phone-signin-failed');
      await page.fill('#zant-password', 'alice-pw');
      await Promise.all([page.waitForURL(`${appliance.origin}/d/f/${links.plan}`), page.click('#zant-signin-form button')]);
      await page.waitForSelector('#plyth-download');
      assert.equal(await page.textContent('.plyth-mobile-title'), 'plan.odt');
      assert.match(await page.getAttribute('#plyth-mobile-icon img', 'src'), /\/doc\.png$/);
      await context.close();
    });

    test('a signed-in user without access may request it or switch account', async () => {
      const context = await browser.newContext(PHONE);
      const page = await open(context, `/?redirect=${encodeURIComponent(`/d/f/${links.plan}`)}`);
      await page.fill('#zant-account', 'bob');
      await page.fill('#zant-password', 'bob-pw');
      await Promise.all([page.waitForURL(`${appliance.origin}/d/f/${links.plan}`), page.click('#zant-signin-form button')]);
      await page.waitForSelector('#plyth-request-access');
      assert.equal(await page.textContent('.plyth-mobile-title'), 'You do not have permission');
      assert.equal(await page.isVisible('#plyth-mobile-notice'), false);
      await page.click('#plyth-request-access');
      // The request goes to the link service; the notice shows once it answered.
      await page.waitForSelector('#plyth-mobile-notice', { state: 'visible' });
      assert.equal(await page.isDisabled('#plyth-request-access'), true);
      assert.equal(
        await page.textContent('#plyth-mobile-notice'),
        'Request sent' + 'Your request has been sent to the owner. You will be notified when access is granted.',
      );
      await shoot(page, 'phone-no-permission');

      await Promise.all([page.waitForURL(/\/\?redirect=/), page.click('#plyth-switch-account')]);
      await page.waitForSelector('#zant-sign-out');
      await page.click('#zant-sign-out');
      await page.waitForSelector('#zant-signin-form');
      assert.equal((await context.cookies()).find((c) => c.name === 'id' && c.value), undefined);
      await context.close();
    });

    test('icon categories follow the server rules', async () => {
      const context = await browser.newContext(PHONE);
      const page = await open(context, `/d/f/${links.report}`);
      await page.waitForSelector('#plyth-open-app');
      const cases = [
        ['Holiday.JPG', 'file', 'image'],
        ['song.ac3', 'file', 'audio'], // in the audio and the video list: audio comes first
        ['camera.raw', 'file', 'xxx'], // deliberately generic
        ['clip.mpg', 'file', 'xxx'], // deliberately generic
        ['clip.mpeg', 'file', 'video'],
        ['main.c', 'file', 'xxx'], // one-letter extensions never match
        ['main.cc', 'file', 'code'],
        ['backup.tar.gz', 'file', 'zip'],
        ['notes', 'file', 'xxx'],
        ['dot.', 'file', 'xxx'],
        ['photos.jpg', 'dir', 'folder'],
        ['talk.dvr-ms', 'file', 'video'],
        [null, null, 'xxx'],
      ];
      const got = await page.evaluate(
        (rows) => rows.map(([name, type]) => window.PlythMobile.category(name, type)),
        cases,
      );
      assert.deepEqual(got, cases.map((row) => row[2]));
      await context.close();
    });

    const statusCases = [
      ['an expired sharing link', () => sharePath(links.expired), 'expired', 'Link expired'],
      ['an unknown sharing link', () => sharePath('NoSuchLink000000'), 'invalid', 'Link not available'],
      // Behind a sharing link without a password the server still shows a
      // removed item's page; its permanent link is answered as invalid.
      ['a removed item', () => `/d/f/${links.gone}`, 'invalid', 'Link not available'],
    ];
    for (const [what, url, status, title] of statusCases) {
      test(`${what} gets the ${status} page`, async () => {
        const context = await browser.newContext(PHONE);
        const page = await open(context, url());
        await page.waitForSelector(`.plyth-mobile-status-${status}`);
        assert.equal(await page.textContent('.plyth-mobile-title'), title);
        assert.deepEqual(await buttons(page), []);
        if (status === 'expired') await shoot(page, 'phone-expired');
        await context.close();
      });
    }
  });

  test('no page logged an error or broke its security policy', () => {
    assert.deepEqual(problems, []);
  });
});
