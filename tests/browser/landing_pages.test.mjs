// The landing pages as a visitor sees them. Desktop: sharing link and its
// download, password form and throttle, expiry, removed item, unknown link,
// the page's formats. Phone: the item page, the sign-in choice and the
// sign-in page, expired and invalid links, icon categories.
import assert from 'node:assert/strict';
import fs from 'node:fs';
import path from 'node:path';
import { describe, test } from 'node:test';

import { applianceSuite, skip } from './lib.mjs';

const REPORT = 'quarterly numbers: 1, 2, 3\n';
const PASSWORD = '1.50'; // a JSON number if it were not sent as a JSON string

describe('landing pages on a running appliance', { skip }, () => {
  const s = applianceSuite('plyth-landing-', (ctl, { dir }) => {
    const from = path.join(dir, 'report.txt');
    fs.writeFileSync(from, REPORT);
    const permanentOf = (line) => line.split('\t')[1];
    ctl('user', 'add', 'alice', '--password', 'alice-pw');
    const links = { report: permanentOf(ctl('file', 'add', 'alice', '/docs/report.txt', '--from', from)) };
    ctl('link', 'make', 'alice:/docs/report.txt', '--visibility', 'anyone');
    links.open = ctl('share', 'make', '/docs/report.txt');
    links.locked = ctl('share', 'make', '/docs/report.txt', '--password', PASSWORD);
    links.throttled = ctl('share', 'make', '/docs/report.txt', '--password', 'other');
    links.expired = ctl('share', 'make', '/docs/report.txt', '--expires', '@1000000000');
    links.gone = permanentOf(ctl('file', 'add', 'alice', '/old/gone.pdf'));
    links.goneShare = ctl('share', 'make', '/old/gone.pdf');
    ctl('file', 'trash', '/old/gone.pdf');
    links.plan = permanentOf(ctl('file', 'add', 'alice', '/private/plan.odt'));
    return links;
  });
  const sharePath = (sharing, permanent = s.links.report) => `/d/s/${sharing}/${permanent}`;

  describe('desktop', () => {
    test('a sharing link without a password shows the file, every resource it names answers, and it downloads', async () => {
      const failed = [];
      const page = await s.open('desktop');
      page.on('response', (response) => {
        if (response.status() !== 200) failed.push(`${response.status()} ${response.url()}`);
      });
      await page.goto(s.origin + sharePath(s.links.open), { waitUntil: 'load' });
      await page.waitForSelector('#plyth-share-root[data-view="file"]');
      assert.equal(await page.textContent('.plyth-share-name'), 'report.txt');
      assert.match(await page.getAttribute('.plyth-share-icon', 'src'), /\/FileType\/64\/txt\.png$/);
      const meta = await page.$$eval('.plyth-share-meta', (rows) => rows.map((row) => row.textContent));
      assert.equal(meta.length, 3);
      assert.deepEqual([meta[0], meta[2]], [`Size: ${REPORT.length} B`, 'Owner: alice']);
      assert.match(meta[1], /^Modified: \d{4}-\d\d-\d\d \d\d:\d\d$/);
      // The viewer's own files, loaded by the page script, and the text preview.
      await page.waitForSelector('#plyth-viewer-text');
      assert.equal(await page.title(), 'report.txt');
      await s.look(page, 'desktop-file');
      assert.deepEqual(await s.download(page, '#plyth-download'), { name: 'report.txt', bytes: REPORT });
      assert.deepEqual(failed, []);
      // The page's formats where no page state shows them.
      const formats = await page.evaluate(() => ({
        sizes: [0, 1023, 1024, 1536, 10 * 1024, 5 * 1024 ** 3, -1, 'x'].map(window.ZANTUI.format.size),
        // 2024-03-05 07:08:09 local time.
        time: window.ZANTUI.format.time(new Date(2024, 2, 5, 7, 8, 9).getTime() / 1000, 'd.m.Y H:i:s|n/j/y g:i A'),
        noTime: window.ZANTUI.format.time(0),
      }));
      assert.deepEqual(formats, {
        sizes: ['0 B', '1023 B', '1.0 KB', '1.5 KB', '10 KB', '5.0 GB', '', ''],
        time: '05.03.2024 07:08:09|3/5/24 7:08 AM',
        noTime: '',
      });
      await page.context().close();
    });

    test('a password link asks and opens with the right password', async () => {
      const page = await s.open('desktop', sharePath(s.links.locked));
      await page.waitForSelector('#plyth-share-root[data-view="password"]');
      assert.equal(await page.textContent('.plyth-share-title'), 'This link is protected by a password');
      assert.equal(await page.isVisible('#plyth-password-error'), false);
      await s.look(page, 'desktop-password');
      await page.fill('#plyth-password', PASSWORD);
      await Promise.all([page.waitForEvent('load'), page.press('#plyth-password', 'Enter')]);
      await page.waitForSelector('#plyth-share-root[data-view="file"]');
      assert.equal(await page.textContent('.plyth-share-name'), 'report.txt');
      // The page keeps the token as the server would have: a session cookie for the whole site.
      const cookie = (await page.context().cookies()).find((c) => c.name === `plyth-sharing-${s.links.locked}`);
      assert.deepEqual([cookie.path, cookie.expires], ['/', -1]);
      assert.deepEqual(await s.download(page, '#plyth-download'), { name: 'report.txt', bytes: REPORT });
      await page.context().close();
    });

    test('wrong passwords are refused, too many give the throttle message', async () => {
      const page = await s.open('desktop', sharePath(s.links.throttled));
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
      await s.look(page, 'desktop-password-throttled');
      await page.context().close();
    });
  });

  describe('phone', () => {
    const buttons = (page) =>
      page.$$eval('#plyth-mobile-actions > *', (nodes) =>
        nodes.map((node) => [node.textContent, node.getAttribute('href')]),
      );

    test('the item page of a public link: open in the app, download, the app missing, the icon rules', async () => {
      const page = await s.open('phone', `/d/f/${s.links.report}`);
      await page.waitForSelector('#plyth-download');
      assert.equal(await page.textContent('.plyth-mobile-title'), 'report.txt');
      assert.equal(await page.isVisible('.plyth-mobile-desc'), false);
      assert.match(await page.getAttribute('#plyth-mobile-icon img', 'src'), /\/FileType\/64\/txt\.png$/);
      const [openInApp, download] = await buttons(page);
      assert.deepEqual([openInApp[0], download[0]], ['Open in the app', 'Download']);
      const app = new URL(openInApp[1]);
      const query = [app.searchParams.get('permanent_link'), app.searchParams.get('host')];
      assert.deepEqual([app.protocol, ...query], ['plyth:', s.links.report, new URL(s.origin).host]);
      await s.look(page, 'phone-item');
      assert.deepEqual(await s.download(page, '#plyth-download'), { name: 'report.txt', bytes: REPORT });
      // Without the app the page stays, says so, and hands the focus to the download.
      await page.click('#plyth-open-app');
      await page.waitForSelector('#plyth-mobile-notice:not([hidden])', { timeout: 10000 });
      assert.equal(
        await page.textContent('#plyth-mobile-notice'),
        'The app did not open' + 'It does not seem to be installed on this device. You can continue in the browser.',
      );
      assert.equal(await page.evaluate(() => document.activeElement.id), 'plyth-download');
      // The icon rules the phone pages keep beside the server's.
      const cases = [
        { name: 'Holiday.JPG', type: 'file', category: 'image' },
        { name: 'song.ac3', type: 'file', category: 'audio' }, // in the audio and the video list: audio comes first
        { name: 'camera.raw', type: 'file', category: 'xxx' }, // deliberately generic
        { name: 'clip.mpeg', type: 'file', category: 'video' },
        { name: 'main.c', type: 'file', category: 'xxx' }, // one-letter extensions never match
        { name: 'main.cc', type: 'file', category: 'code' },
        { name: 'backup.tar.gz', type: 'file', category: 'zip' },
        { name: 'notes', type: 'file', category: 'xxx' },
        { name: 'dot.', type: 'file', category: 'xxx' },
        { name: 'photos.jpg', type: 'dir', category: 'folder' },
        { name: 'talk.dvr-ms', type: 'file', category: 'video' },
        { name: null, type: null, category: 'xxx' },
      ];
      const got = await page.evaluate((rows) => rows.map((r) => window.PlythMobile.category(r.name, r.type)), cases);
      assert.deepEqual(got, cases.map((row) => row.category));
      await page.context().close();
    });

    test('a private link offers the app or the sign-in page; without the app, the sign-in page follows', async () => {
      const page = await s.open('phone', `/d/f/${s.links.plan}`);
      await page.waitForSelector('#plyth-open-link');
      const signInPage = `/?redirect=${encodeURIComponent(`/d/f/${s.links.plan}`)}`;
      assert.deepEqual((await buttons(page)).map(([text]) => text), ['Open in the app', 'Continue in the browser']);
      assert.equal(await page.textContent('.plyth-mobile-desc'), 'How would you like to open this link?');
      await s.look(page, 'phone-sign-in-choice');
      // The app address goes nowhere here.
      await page.click('#plyth-open-app');
      await page.waitForURL(s.origin + signInPage, { timeout: 10000 });
      // The form in a fresh context: in the tab that tried the app address,
      // headless Chromium did not always deliver the click to the form.
      const form = await s.open('phone', signInPage);
      await form.waitForSelector('#zant-signin-form');
      await s.signIn(form, 'alice', 'not-her-password');
      await form.waitForSelector('#zant-signin-error:not([hidden])');
      await s.look(form, 'phone-sign-in-failed');
      await page.context().close();
      await form.context().close();
    });
  });

  // What a dead link shows: a title and nothing to download or open.
  const deadLinks = [
    { state: 'desktop-expired', url: () => sharePath(s.links.expired), ready: '[data-view="expired"]', title: 'Link expired' },
    { state: 'desktop-unavailable', url: () => sharePath(s.links.goneShare, s.links.gone), ready: '[data-view="unavailable"]',
      title: 'This item is no longer available' },
    { state: 'desktop-invalid', url: () => sharePath('NoSuchLink000000'), ready: '[data-view="invalid"]', title: 'Link not available' },
    { state: 'phone-expired', url: () => sharePath(s.links.expired), ready: '.plyth-mobile-status-expired', title: 'Link expired' },
    { state: 'phone-unknown', url: () => sharePath('NoSuchLink000000'), ready: '.plyth-mobile-status-invalid',
      title: 'Link not available' },
  ];
  for (const { state, url, ready, title } of deadLinks) {
    test(`${state}: says so, offers nothing`, async () => {
      const page = await s.open(state.split('-')[0], url());
      await page.waitForSelector(ready);
      assert.equal(await page.textContent('.plyth-share-title, .plyth-mobile-title'), title);
      assert.equal(await page.$('#plyth-download, #plyth-mobile-actions > *'), null);
      await s.look(page, state);
      await page.context().close();
    });
  }

  s.closingChecks();
});
