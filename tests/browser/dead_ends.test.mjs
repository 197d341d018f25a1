// Every road a visitor can take from a link ends somewhere useful, on a
// desktop and on a phone, signed out and signed in: the office editor's
// address, the web application's item view, signing in for members-only
// links, downloads that fail, requests for access.
import assert from 'node:assert/strict';
import fs from 'node:fs';
import path from 'node:path';
import { describe, test } from 'node:test';

import { applianceSuite, skip } from './lib.mjs';

const REPORT = 'Quarterly figures\n';
const NOTES = 'Meeting notes\n';

describe('no road ends in nothing', { skip }, () => {
  const s = applianceSuite('plyth-deadends-', (ctl, { dir }) => {
    const links = {};
    const add = (owner, file, content) => {
      fs.writeFileSync(path.join(dir, 'content'), content);
      return ctl('file', 'add', owner, file, '--from', path.join(dir, 'content')).split('\t');
    };
    for (const account of ['alice', 'bob', 'carol']) ctl('user', 'add', account, '--password', `${account}-pw`);
    [links.notesId, links.notes] = add('alice', '/Reports/notes.kdoc', NOTES);
    [, links.moving] = add('alice', '/Reports/moving.txt', REPORT);
    [, links.binned] = add('alice', '/Old/binned.txt', REPORT);
    ctl('grant', 'alice:/Reports', 'bob', 'viewer');
    links.office = ctl('share', 'make', 'alice:/Reports/notes.kdoc');
    links.moveShare = ctl('share', 'make', 'alice:/Reports/moving.txt');
    links.binShare = ctl('share', 'make', 'alice:/Old/binned.txt');
    ctl('link', 'make', 'alice:/Old/binned.txt', '--visibility', 'anyone');
    ctl('file', 'trash', 'alice:/Old/binned.txt');
    return links;
  });

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

  test('an unknown document on the office address says so, nothing is a 404', async () => {
    const page = await s.open('desktop', '/oo/r/NoSuchLink000000', '#plyth-share-root[data-view="office-missing"]');
    assert.equal(await page.textContent('.plyth-share-error'), 'The document does not exist or is no longer shared.');
    await s.look(page, 'desktop-office-missing');
  });

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

      assert.match(await page.getAttribute('#plyth-switch-account', 'href'), /^\/\?redirect=%2Fd%2Ff%2F/);
      await Promise.all([page.waitForURL(/\/\?redirect=/), page.click('#plyth-switch-account')]);
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

  s.closingChecks();
});
