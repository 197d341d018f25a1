// The landing pages as a visitor sees them. Both: the password form typed
// into. Desktop: sharing link and its download, password throttle, expiry,
// removed item, unknown link, the page's formats. Phone: the item page, its
// width, "open in the app" without the app, the sign-in choice and the
// sign-in page, expired and invalid links, icon categories. Then the roads
// that used to end in nothing, and hostile link identifiers and sign-in
// redirects, through nginx and zant-webapid with the deploy configuration.
import assert from 'node:assert/strict';
import fs from 'node:fs';
import path from 'node:path';
import { describe, test } from 'node:test';

import { applianceSuite, skip } from './lib.mjs';

const REPORT = 'quarterly numbers: 1, 2, 3\n';
const NOTES = 'Meeting notes\n';
const PASSWORD = '1.50'; // a JSON number if it were not sent as a JSON string

describe('landing pages on a running appliance', { skip }, () => {
  const s = applianceSuite('plyth-landing-', (ctl, { dir }) => {
    const links = {};
    // Adds alice's `file` holding `content`; answers [file id, permanent link].
    const add = (file, content = '') => {
      fs.writeFileSync(path.join(dir, 'content'), content);
      return ctl('file', 'add', 'alice', file, '--from', path.join(dir, 'content')).split('\t');
    };
    for (const account of ['alice', 'bob', 'carol']) ctl('user', 'add', account, '--password', `${account}-pw`);
    [, links.report] = add('/docs/report.txt', REPORT);
    ctl('link', 'make', 'alice:/docs/report.txt', '--visibility', 'anyone');
    links.open = ctl('share', 'make', '/docs/report.txt');
    links.locked = ctl('share', 'make', '/docs/report.txt', '--password', PASSWORD);
    links.throttled = ctl('share', 'make', '/docs/report.txt', '--password', 'other');
    links.expired = ctl('share', 'make', '/docs/report.txt', '--expires', '@1000000000');
    [, links.gone] = add('/old/gone.pdf');
    links.goneShare = ctl('share', 'make', '/old/gone.pdf');
    ctl('file', 'trash', '/old/gone.pdf');
    [, links.plan] = add('/private/plan.odt');
    // Bob may read /Reports, carol may not.
    [links.notesId, links.notes] = add('/Reports/notes.kdoc', NOTES);
    [, links.moving] = add('/Reports/moving.txt', REPORT);
    [, links.binned] = add('/Old/binned.txt', REPORT);
    ctl('grant', 'alice:/Reports', 'bob', 'viewer');
    links.office = ctl('share', 'make', 'alice:/Reports/notes.kdoc');
    links.moveShare = ctl('share', 'make', 'alice:/Reports/moving.txt');
    links.binShare = ctl('share', 'make', 'alice:/Old/binned.txt');
    ctl('link', 'make', 'alice:/Old/binned.txt', '--visibility', 'anyone');
    ctl('file', 'trash', 'alice:/Old/binned.txt');
    return links;
  });
  const sharePath = (sharing, permanent = s.links.report) => `/d/s/${sharing}/${permanent}`;

  test('desktop: a sharing link without a password shows the file, loads every resource, and downloads', async () => {
    const failed = [];
    const page = await s.open('desktop');
    page.on('response', (r) => { if (r.status() !== 200) failed.push(`${r.status()} ${r.url()}`); });
    await page.goto(s.origin + sharePath(s.links.open), { waitUntil: 'load' });
    await page.waitForSelector('#plyth-share-root[data-view="file"]');
    assert.equal(await page.textContent('.plyth-share-name'), 'report.txt');
    assert.match(await page.getAttribute('.plyth-share-icon', 'src'), /\/FileType\/64\/txt\.png$/);
    const [size, modified, owner, ...more] = await s.texts(page, '.plyth-share-meta');
    assert.deepEqual([size, owner, more], [`Size: ${REPORT.length} B`, 'Owner: alice', []]);
    assert.match(modified, /^Modified: \d{4}-\d\d-\d\d \d\d:\d\d$/);
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
    const sizes = ['0 B', '1023 B', '1.0 KB', '1.5 KB', '10 KB', '5.0 GB', '', ''];
    assert.deepEqual(formats, { sizes, time: '05.03.2024 07:08:09|3/5/24 7:08 AM', noTime: '' });
  });

  test('desktop: wrong passwords are refused, too many give the throttle message', async () => {
    const page = await s.open('desktop', sharePath(s.links.throttled), '#plyth-password-form');
    const messages = [];
    for (let i = 0; i < 6; i++) {
      await page.fill('#plyth-password', `wrong-${i}`);
      await page.click('#plyth-password-form button');
      await page.waitForSelector('#plyth-password-error:not([hidden])');
      await page.waitForSelector('#plyth-password-form button:not([disabled])');
      messages.push(await page.textContent('#plyth-password-error'));
    }
    const throttled = 'Too many wrong passwords. Try again in a few minutes.';
    assert.deepEqual(messages, [...Array(5).fill('The password is wrong.'), throttled]);
    await s.look(page, 'desktop-password-throttled');
  });

  // Typed on either device (the field has the focus); the phone's page fits its width.
  for (const device of ['desktop', 'phone']) {
    test(`${device}: a password link asks and opens with the right password, from the keyboard alone`, async () => {
      const page = await s.open(device, sharePath(s.links.locked), '#plyth-password');
      if (device === 'desktop') {
        assert.equal(await page.textContent('.plyth-share-title'), 'This link is protected by a password');
        assert.equal(await page.isVisible('#plyth-password-error'), false);
      } else {
        assert.equal(await page.evaluate(() => document.documentElement.clientWidth), 390);
        const field = await page.$eval('#plyth-password', (node) => node.getBoundingClientRect().width);
        assert.ok(field > 300, `password field ${field}px wide`);
      }
      await s.look(page, `${device}-password`);
      await page.keyboard.type(PASSWORD);
      await Promise.all([page.waitForEvent('load'), page.keyboard.press('Enter')]);
      await page.waitForSelector('#plyth-download');
      // The page keeps the token as the server would have: a session cookie for the whole site.
      const cookie = (await page.context().cookies()).find((c) => c.name === `plyth-sharing-${s.links.locked}`);
      assert.deepEqual([cookie.path, cookie.expires], ['/', -1]);
      await page.focus('#plyth-download');
      const [got] = await Promise.all([page.waitForEvent('download'), page.keyboard.press('Enter')]);
      assert.deepEqual([got.suggestedFilename(), fs.readFileSync(await got.path(), 'utf8')], ['report.txt', REPORT]);
    });
  }

  const buttons = (page) =>
    page.$$eval('#plyth-mobile-actions > *', (nodes) => nodes.map((n) => [n.textContent, n.getAttribute('href')]));

  test('phone: the item page of a public link: app link, download, the app missing, icon rules', async () => {
    const page = await s.open('phone', `/d/f/${s.links.report}`, '#plyth-download');
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
    const notice = 'It does not seem to be installed on this device. You can continue in the browser.';
    assert.equal(await page.textContent('#plyth-mobile-notice'), `The app did not open${notice}`);
    assert.equal(await page.evaluate(() => document.activeElement.id), 'plyth-download');
    // The icon rules the phone pages keep beside the server's.
    // Files unless a type is given.
    const cases = [
      { name: 'Holiday.JPG', category: 'image' }, { name: 'clip.mpeg', category: 'video' },
      { name: 'song.ac3', category: 'audio' }, // in the audio and the video list: audio comes first
      { name: 'camera.raw', category: 'xxx' }, // deliberately generic
      { name: 'main.c', category: 'xxx' }, // one-letter extensions never match
      { name: 'main.cc', category: 'code' }, { name: 'backup.tar.gz', category: 'zip' },
      { name: 'notes', category: 'xxx' }, // no extension
      { name: 'photos.jpg', type: 'dir', category: 'folder' }, { name: null, type: null, category: 'xxx' },
    ];
    const got = await page.evaluate(
      (rows) => rows.map(({ name, type = 'file' }) => window.PlythMobile.category(name, type)), cases);
    assert.deepEqual(got, cases.map((row) => row.category));
  });

  test('phone: a private link offers the app or the sign-in page; without the app, sign-in follows', async () => {
    const page = await s.open('phone', `/d/f/${s.links.plan}`, '#plyth-open-link');
    const signInPage = `/?redirect=${encodeURIComponent(`/d/f/${s.links.plan}`)}`;
    assert.deepEqual((await buttons(page)).map(([text]) => text), ['Open in the app', 'Continue in the browser']);
    assert.equal(await page.textContent('.plyth-mobile-desc'), 'How would you like to open this link?');
    await s.look(page, 'phone-sign-in-choice');
    // The app address goes nowhere here.
    await page.click('#plyth-open-app');
    await page.waitForURL(s.origin + signInPage, { timeout: 10000 });
    // The form in a fresh context: in the tab that tried the app address,
    // headless Chromium did not always deliver the click to the form.
    const form = await s.open('phone', signInPage, '#zant-signin-form');
    await s.signIn(form, 'alice', 'not-her-password');
    await form.waitForSelector('#zant-signin-error:not([hidden])');
    await s.look(form, 'phone-sign-in-failed');
  });

  // What a dead link shows: a title and nothing to download or open.
  const expired = { url: () => sharePath(s.links.expired), title: 'Link expired' };
  const unknown = { url: () => sharePath('NoSuchLink000000'), title: 'Link not available' };
  const deadLinks = [
    { ...expired, state: 'desktop-expired', ready: '[data-view="expired"]' },
    { state: 'desktop-unavailable', url: () => sharePath(s.links.goneShare, s.links.gone),
      ready: '[data-view="unavailable"]', title: 'This item is no longer available' },
    { ...unknown, state: 'desktop-invalid', ready: '[data-view="invalid"]' },
    { ...expired, state: 'phone-expired', ready: '.plyth-mobile-status-expired' },
    { ...unknown, state: 'phone-unknown', ready: '.plyth-mobile-status-invalid' },
    // An unknown document on the office address: nothing there is a 404 either.
    { state: 'desktop-office-missing', url: () => '/oo/r/NoSuchLink000000', ready: '[data-view="office-missing"]',
      title: 'The office editor is not installed', error: 'The document does not exist or is no longer shared.' },
  ];
  for (const { state, url, ready, title, error } of deadLinks) {
    test(`${state}: says so, offers nothing`, async () => {
      const page = await s.open(state.split('-')[0], url(), ready);
      assert.equal(await page.textContent('.plyth-share-title, .plyth-mobile-title'), title);
      if (error) assert.equal(await page.textContent('.plyth-share-error'), error);
      assert.equal(await page.$('#plyth-download, #plyth-mobile-actions > *'), null);
      await s.look(page, state);
    });
  }

  // Every road a visitor can take from a link ends somewhere useful,
  // signed out and signed in: the office editor's address, the web
  // application's item view, signing in for members-only links, downloads
  // that fail, requests for access.
  for (const device of ['desktop', 'phone']) {
    test(`${device}: the office address says the editor is missing`, async () => {
      // The landing page sets the sharing cookie, then (desktop) sends the
      // visitor to the office address.
      const page = await s.open(device, `/d/s/${s.links.office}/${s.links.notes}`);
      if (device === 'phone') await page.goto(`${s.origin}/oo/r/${s.links.notes}?sharing_link=${s.links.office}`);
      await page.waitForSelector('#plyth-share-root[data-view="office"]');
      assert.match(page.url(), new RegExp(`/oo/r/${s.links.notes}\\?sharing_link=${s.links.office}$`));
      assert.equal(await page.textContent('.plyth-share-title'), 'The office editor is not installed');
      assert.equal(await page.textContent('.plyth-share-name'), 'notes.kdoc');
      assert.equal(await page.title(), 'notes.kdoc');
      await s.look(page, `${device}-office`);
    });
  }

  test('desktop, signed out: sign in, then the item in the web application', async () => {
    const page = await s.open('desktop', `/d/f/${s.links.notes}`, '#plyth-share-root[data-view="signin"]');
    assert.equal(await page.textContent('.plyth-share-title'), 'Sign in to open this item');
    await s.look(page, 'desktop-members-signed-out');
    await Promise.all([page.waitForURL(/\/\?redirect=/), page.click('#plyth-sign-in')]);
    await page.waitForSelector('#zant-signin-form');
    await s.look(page, 'desktop-sign-in-page');
    await s.signIn(page, 'bob');
    // Back at the link, which sends a member on to the web application.
    await page.waitForURL(/launchApp=ZANT\.QRT\.Plyth\.Application/);
    await page.waitForSelector('#plyth-share-root[data-view="item"]');
    assert.equal(await page.textContent('.plyth-share-name'), 'notes.kdoc');
    // The viewers run here too; an office document has no rendition, so its icon stays.
    await page.waitForSelector('#plyth-share-content', { state: 'attached' });
    assert.equal(await page.$eval('.plyth-share-icon', (node) => node.hidden), false);
    await s.look(page, 'desktop-item-view');
    assert.deepEqual(await s.download(page, '#plyth-download'), { name: 'notes.kdoc', bytes: NOTES });
  });

  test('the web application address signed out: the sign-in form comes back to it', async () => {
    const url = `/?launchApp=ZANT.QRT.Plyth.Application&launchParam=file_id%3D${s.links.notesId}`;
    const page = await s.open('desktop', url, '#zant-signin-form');
    await s.signIn(page, 'alice');
    await page.waitForSelector('#plyth-share-root[data-view="item"]');
    assert.equal(page.url(), s.origin + url);
    assert.equal((await s.texts(page, '.plyth-share-meta')).at(-1), 'Owner: alice');
  });

  // Carol asks on the desktop, then again on her phone: one request.
  const SENT = 'Your request has been sent to the owner. You will be notified when access is granted.';
  const denied = [
    { device: 'desktop', title: '.plyth-share-title', notice: '#plyth-request-notice', text: SENT },
    { device: 'phone', title: '.plyth-mobile-title', notice: '#plyth-mobile-notice', text: `Request sent${SENT}` },
  ];
  for (const { device, title, notice, text } of denied) {
    test(`${device}, signed in without access: the request reaches the owner once, another account may sign in`, async () => {
      const carol = await s.context(device, 'carol');
      const page = await s.open(carol, `/d/f/${s.links.notes}`, '#plyth-request-access');
      assert.equal(await page.textContent(title), 'You do not have permission');
      assert.equal(await page.isVisible(notice), false);
      await s.look(page, `${device}-no-permission`);
      await page.click('#plyth-request-access');
      // The request goes to the link service; the notice shows once it answered.
      await page.waitForSelector(`${notice}:not([hidden])`);
      assert.equal(await page.textContent(notice), text);
      assert.equal(await page.isDisabled('#plyth-request-access'), true);
      assert.match(s.ctl('requests', 'list'), /^alice:\/Reports\/notes\.kdoc\tcarol\t[^\n]+$/);

      await Promise.all([page.waitForURL(/\/\?redirect=%2Fd%2Ff%2F/), page.click('#plyth-switch-account')]);
      await page.click('#zant-sign-out');
      await page.waitForSelector('#zant-signin-form');
      assert.equal((await page.context().cookies()).find((c) => c.name === 'id' && c.value), undefined);
    });
  }

  // The desktop page was opened before the item went to the recycle bin;
  // the phone's item page shows one already there.
  const BINNED = 'This item was moved to the recycle bin and can no longer be downloaded.';
  const binned = [
    { device: 'desktop', url: () => `/d/s/${s.links.moveShare}/${s.links.moving}`, trash: 'alice:/Reports/moving.txt',
      notice: '#plyth-download-error', text: BINNED, className: 'plyth-share-error' },
    { device: 'phone', url: () => `/d/s/${s.links.binShare}/${s.links.binned}`, notice: '#plyth-mobile-notice',
      text: 'The download did not start' + BINNED, className: 'plyth-mobile-notice plyth-mobile-notice-problem' },
  ];
  for (const { device, url, trash, notice, text, className } of binned) {
    test(`${device}: the download of an item in the recycle bin is explained, not saved`, async () => {
      const page = await s.open(device, url(), '#plyth-download');
      if (trash) s.ctl('file', 'trash', trash);
      let saved = false;
      page.on('download', () => (saved = true));
      await page.click('#plyth-download');
      await page.waitForSelector(`${notice}:not([hidden])`);
      assert.deepEqual([await page.textContent(notice), await page.$eval(notice, (n) => n.className)], [text, className]);
      await s.look(page, `${device}-download-refused`);
      assert.equal(saved, false);
    });
  }

  // A browser that goes to the download address itself says it navigates
  // (nginx passes that on), and gets a status and a page; which refusal
  // reads how is the link service's own tests' business.
  test('navigating to the download of an item in the recycle bin answers 410 with a page', async () => {
    // Not recorded by open(): the browser logs the status, as it should.
    const page = await (await s.context('desktop')).newPage();
    const item = encodeURIComponent(JSON.stringify(`link:${s.links.binned}`));
    const response = await page.goto(`${s.origin}/webapi/entry.cgi?api=ZANT.BrindlexPlyth.Files&version=1&method=download&path=${item}`);
    assert.deepEqual([response.status(), await page.textContent('h1')], [410, 'The download did not start']);
  });

  // Identifiers that would close an attribute or a string, break a line or
  // flood a page, on the /d/ addresses and the page-script address of
  // "getjs". No probe may run script or add an element or a cookie, and each
  // one is answered by the door that should answer it (nginx's 404 for a /d/
  // address that is no identifier, the framework's refusal 120 otherwise).
  // Which entry.cgi parameters are refused is the guard's own tests'
  // business, and a phone is told apart only behind nginx and the guard:
  // one address of entry.cgi, on a desktop.
  describe('hostile identifiers and redirects', () => {
    // What a probe that ran would leave behind.
    const RUN = 'window.zantProbeRan=1;document.title="PWNED";alert(1)';
    const MARK = 'zantprobe';
    // As the address carries them (percent-encoded where a browser would
    // not keep the character). `inPath` names another door in a /d/ path.
    const enc = encodeURIComponent;
    const PROBES = [
      { name: 'quote closing an attribute', id: enc(`x"><img id="${MARK}" src="x" onerror="${RUN}">`) },
      { name: '%22-encoded payload', id: enc(enc(`"};${RUN};if(0){"`)) },
      { name: 'CR LF', id: enc(`x\r\nSet-Cookie: ${MARK}=1`) },
      { name: 'NUL', id: enc('x\u0000y'), inPath: 'nginx 400' }, // nginx refuses a NUL in any path
      { name: '1,000 characters', id: 'A'.repeat(1000), inPath: 'framework 120' }, // an identifier, but too long
    ];
    const SHARD = '/webapi/entry.cgi?api=ZANT.BrindlexPlyth.Shard&version=1&method=';
    const REFUSED = '{"error":{"code":120},"success":false}';
    const ADDRESSES = [
      { name: '/d/s/<probe>/<link>', path: (id) => `/d/s/${id}/${s.links.report}`, door: 'nginx 404', landing: true },
      { name: '/d/s/<sharing>/<probe>', path: (id) => `/d/s/${s.links.open}/${id}`, door: 'nginx 404', landing: true },
      { name: '/d/f/<probe>', path: (id) => `/d/f/${id}`, door: 'nginx 404', landing: true },
      { name: 'getjs permanent_link', path: (id) => `${SHARD}getjs&permanent_link=${id}`, door: 'framework 120' },
    ];

    // Opens `url` and checks who answered it (nginx's own page, the
    // framework's refusal, or a page), and that nothing ran, was added or
    // set a cookie (a probe that ran sets the flag before its alert, which
    // the driver dismisses).
    async function expectDoor(page, where, url, expected) {
      const response = await page.goto(s.origin + url);
      const seen = await page.evaluate((mark) => ({
        ran: window.zantProbeRan === 1 || document.title === 'PWNED',
        added: document.getElementById(mark) !== null || document.getElementsByTagName(mark).length > 0,
        cookie: document.cookie.includes(mark),
      }), MARK);
      const [status, body] = [response.status(), await response.text()];
      const nginx = body.includes('<center>nginx</center>');
      const who = nginx ? `nginx ${status}` : status === 400 && body === REFUSED ? 'framework 120' : `page ${status}`;
      assert.deepEqual({ who, ...seen }, { who: expected, ran: false, added: false, cookie: false }, where);
    }

    // Signed in as alice: the session an injected script would be after.
    // Not recorded by open(): refused probes make the browser log errors.
    test('hostile identifiers by address', async () => {
      const page = await (await s.context('desktop', 'alice')).newPage();
      for (const address of ADDRESSES) {
        for (const row of PROBES) {
          const door = address.landing && row.inPath ? row.inPath : address.door;
          await expectDoor(page, `${address.name} | ${row.name}`, address.path(row.id), door);
        }
      }
      // The harness sees a real landing: a well-formed link is answered by the module.
      await expectDoor(page, '/d/f/<link> | well-formed', `/d/f/${s.links.report}`, 'page 200');
    });

    // The sign-in page only goes on to a path of this site: one target per
    // way out (another host by "//" or a scheme, a blank or control character
    // as sent or percent-encoded, a backslash, U+2028).
    const REDIRECTS = ['//evil.example', 'https://evil.example', '%20/x', '/%09/evil.example', '/%2509/evil.example',
      '/%5Cevil.example', '/x%E2%80%A8'];
    // Signed in: the link to go on; signed out: where signing in leads.
    test('sign-in page: redirects that leave the site are dropped, after signing in too', async () => {
      const page = await (await s.context('desktop', 'alice')).newPage();
      const continueTo = async (query) => {
        await page.goto(`${s.origin}/?redirect=${query}`);
        await page.waitForSelector('#zant-sign-out');
        const link = await page.$('#zant-continue');
        return link ? link.getAttribute('href') : null;
      };
      for (const query of REDIRECTS) assert.equal(await continueTo(query), null, query);
      assert.equal(await continueTo(enc('/d/f/abc?x=1#top')), '/d/f/abc?x=1#top');
      assert.equal(await continueTo(enc('/a/../b')), '/b', 'resolved against the site');
      const signedOut = await s.open('desktop', '/?redirect=/%09/evil.example');
      await Promise.all([signedOut.waitForURL(`${s.origin}/`), s.signIn(signedOut, 'alice')]);
    });
  });

  s.closingChecks();
});
