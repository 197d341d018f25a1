// What a visitor sees of a shared item, on a desktop (1280x800) and on a
// phone (390x844, iPhone user agent): the picture, the PDF page by page,
// the text, the audio and video players; a folder share browsed with its
// breadcrumbs and downloaded as a ZIP whose entries match the folder; and a
// preview-only link that shows the preview and offers no download.
import assert from 'node:assert/strict';
import fs from 'node:fs';
import path from 'node:path';
import { describe, test } from 'node:test';

import { DEVICES, applianceSuite, repoRoot, run, skip } from './lib.mjs';

// Where each page draws the content: the desktop panel or the phone's main box.
const CONTENT = { desktop: '#plyth-share-content', phone: '#plyth-mobile-content' };
// The folder as shared: path below the shared folder -> sample file (folders end in "/").
const TRIP = {
  'Day 1/': null, 'Day 1/Evening/': null, 'Day 1/Evening/café & "notes".txt': 'notes.txt',
  'Day 1/logo.png': 'logo.png', 'clip.webm': 'clip.webm', 'guide.pdf': 'guide.pdf', 'notes.txt': 'notes.txt',
  'photo.jpg': 'photo.jpg', 'tone.wav': 'tone.wav',
};

// Entry names of a ZIP the page saved, sorted, read with Python's zipfile
// (what each entry holds is the archive's own tests' business).
function zipNames({ bytes }) {
  const script = 'import io, json, sys, zipfile\n' +
    'print(json.dumps(sorted(zipfile.ZipFile(io.BytesIO(sys.stdin.buffer.read())).namelist())))';
  return JSON.parse(run('python3', ['-c', script], { input: bytes }));
}

describe('previews and folder shares', { skip }, () => {
  let samples;
  const s = applianceSuite('plyth-previews-', (ctl, { dir, root }) => {
    const links = {};
    samples = path.join(dir, 'samples');
    run(path.join(repoRoot, 'scripts', 'make-sample-files'), [samples]);
    ctl('user', 'add', 'alice', '--password', 'alice-pw');
    for (const [name, from] of Object.entries(TRIP)) {
      if (from) ctl('file', 'add', 'alice', `/Trip/${name}`, '--from', path.join(samples, from));
    }
    ctl('file', 'add', 'alice', '/Trip/broken.jpg', '--from', path.join(samples, 'broken.jpg'));
    ctl('file', 'add', 'alice', '/Many', '--dir');
    // One listing for every identifier: each plythctl run costs a process.
    const rows = new Map(ctl('file', 'list').split('\n').map((line) => line.split('\t')).map((r) => [r[0], r]));
    const linkOf = (p) => rows.get(`alice:${p}`)[5];
    const idOf = (p) => rows.get(`alice:${p}`)[4];

    // 205 empty files in one statement (205 runs of plythctl take a minute);
    // the plythctl runs after it hand the store back to the service user.
    const store = path.join(root, 'var/packages/BrindlexPlyth/target/var/plyth.db');
    run('sqlite3', [store,
      'WITH RECURSIVE n(i) AS (SELECT 0 UNION ALL SELECT i + 1 FROM n WHERE i < 204) ' +
      'INSERT INTO items (file_id, parent_id, owner_uid, owner_name, path, display_path, name, kind, created_time, ' +
      'modified_time, access_time, change_time, permanent_link) SELECT printf(\'M%015d\', i), ' +
      `'${idOf('/Many')}', 1026, 'alice', printf('/Many/f%03d.txt', i), printf('/Many/f%03d.txt', i), ` +
      "printf('f%03d.txt', i), 0, 0, 0, 0, 0, printf('L%015d', i) FROM n"]);

    for (const [key, p] of Object.entries({
      photo: '/Trip/photo.jpg', pdf: '/Trip/guide.pdf', text: '/Trip/notes.txt', audio: '/Trip/tone.wav',
      video: '/Trip/clip.webm', broken: '/Trip/broken.jpg', trip: '/Trip', many: '/Many',
    })) {
      links[key] = { permanent: linkOf(p), sharing: ctl('share', 'make', `alice:${p}`) };
    }
    const preview = (p) => ctl('share', 'make', p, '--role', 'previewer');
    links.photoPreview = { ...links.photo, sharing: preview('alice:/Trip/photo.jpg') };
    links.tripPreview = { ...links.trip, sharing: preview('alice:/Trip') };
    return links;
  });
  const share = ({ sharing, permanent }) => `/d/s/${sharing}/${permanent}`;
  const sample = (name) => fs.readFileSync(path.join(samples, name));

  for (const device of Object.keys(DEVICES)) {
    describe(device, () => {
      test('a picture is shown fitted, from a rendition no larger than asked', async () => {
        const page = await s.open(device, share(s.links.photo));
        const img = await page.waitForSelector(`${CONTENT[device]} #plyth-viewer-image`);
        await page.waitForFunction((node) => node.complete && node.naturalWidth > 0, img);
        const size = await img.evaluate((node) => ({ natural: node.naturalWidth, shown: node.getBoundingClientRect().width,
          view: document.documentElement.clientWidth, src: node.getAttribute('src') }));
        const asked = Number(/size=(\d+)/.exec(size.src)[1]);
        assert.ok(size.natural <= asked && size.natural <= 800, JSON.stringify(size));
        assert.ok(size.shown <= size.view, 'fits the view');
        await s.look(page, `${device}-image`);
        await img.click();
        await page.waitForSelector('.plyth-viewer-zoomed');
        await page.waitForFunction((node) => node.complete && /size=2048/.test(node.src), img);
        await img.press('Enter');
        await page.waitForSelector('.plyth-viewer-kind-image:not(.plyth-viewer-zoomed)');
      });

      test('a PDF is paged through', async () => {
        const page = await s.open(device, share(s.links.pdf), '#plyth-viewer-page');
        assert.equal(await page.textContent('#plyth-viewer-counter'), 'Page 1 of 3');
        assert.equal(await page.isDisabled('#plyth-viewer-prev'), true);
        await page.click('#plyth-viewer-next');
        await page.click('#plyth-viewer-next');
        assert.equal(await page.textContent('#plyth-viewer-counter'), 'Page 3 of 3');
        assert.equal(await page.isDisabled('#plyth-viewer-next'), true);
        await page.waitForFunction(() => {
          const img = document.getElementById('plyth-viewer-page');
          return img.complete && img.naturalWidth > 0 && /page=3/.test(img.src);
        });
        await s.look(page, `${device}-pdf`);
      });

      test('text, audio and video are shown or played', async () => {
        for (const what of ['text', 'audio', 'video']) {
          const selector = `#plyth-viewer-${what}`;
          const page = await s.open(device, share(s.links[what]), selector);
          if (what === 'text') {
            assert.equal(await page.textContent(selector), sample('notes.txt').toString('utf8'));
          } else {
            // Metadata read through byte ranges of the download address.
            await page.waitForFunction((sel) => document.querySelector(sel).readyState >= 1, selector);
          }
          await s.look(page, `${device}-${what}`);
        }
      });

      test('a damaged picture keeps its type icon', async () => {
        const icon = device === 'desktop' ? '.plyth-share-icon' : '#plyth-mobile-icon img';
        const page = await s.open(device, share(s.links.broken), icon);
        await page.waitForTimeout(300);
        assert.equal(await page.$('.plyth-viewer'), null);
        assert.equal(await page.isVisible(icon), true);
      });

      test('a folder is browsed with breadcrumbs and downloaded as a ZIP of its entries', async () => {
        const page = await s.open(device, share(s.links.trip), '#plyth-browser-list li');
        const names = () => page.$$eval('#plyth-browser-list li', (rows) => rows.map((r) => r.getAttribute('data-name')));
        assert.deepEqual(await names(), ['Day 1', 'broken.jpg', 'clip.webm', 'guide.pdf', 'notes.txt', 'photo.jpg', 'tone.wav']);
        const thumb = await page.$eval('li[data-name="photo.jpg"] img', (img) => img.getAttribute('src'));
        assert.match(thumb, /method=preview&.*size=128/);
        await s.look(page, `${device}-folder`);

        await page.click('li[data-name="Day 1"] .plyth-browser-name');
        await page.waitForSelector('li[data-name="Evening"]');
        await page.click('li[data-name="Evening"] .plyth-browser-name');
        await page.waitForSelector('li[data-name="café & \\"notes\\".txt"]');
        assert.deepEqual(await s.texts(page, '.plyth-browser-crumb'), ['Trip', 'Day 1', 'Evening']);
        await s.look(page, `${device}-folder-nested`);

        // A file of the folder: its preview and its own download.
        await page.click('.plyth-browser-name');
        await page.waitForSelector('#plyth-browser-file #plyth-viewer-text');
        const single = await s.download(page, '#plyth-browser-download', true);
        assert.deepEqual(single, { name: 'café & _notes_.txt', bytes: sample('notes.txt') });
        await page.click('#plyth-browser-back');

        // Up to the shared folder, which is as high as the trail goes.
        await page.click('.plyth-browser-crumb >> text=Trip');
        await page.waitForSelector('li[data-name="photo.jpg"]');
        assert.deepEqual(await s.texts(page, '.plyth-browser-crumb'), ['Trip']);

        const zip = await s.download(page, '#plyth-browser-zip', true);
        assert.equal(zip.name, 'Trip.zip');
        assert.deepEqual(zipNames(zip), [...Object.keys(TRIP), 'broken.jpg'].sort());

        // A selection: two rows ticked.
        await page.check('li[data-name="guide.pdf"] .plyth-browser-check');
        await page.check('li[data-name="Day 1"] .plyth-browser-check');
        assert.deepEqual(zipNames(await s.download(page, '#plyth-browser-zip-selected', true)), [
          'Day 1/', 'Day 1/Evening/', 'Day 1/Evening/café & "notes".txt', 'Day 1/logo.png', 'guide.pdf',
        ]);
      });

      test('a preview-only link shows the preview and offers no download', async () => {
        const page = await s.open(device, share(s.links.photoPreview), '#plyth-viewer-image');
        await page.waitForFunction(() => document.getElementById('plyth-viewer-image').naturalWidth > 0);
        assert.equal(await page.$('#plyth-download'), null);
        if (device === 'desktop') {
          assert.equal(await page.textContent('.plyth-share-notice'), 'You may preview this item but not download it.');
        }
        await s.look(page, `${device}-preview-only`);

        const folder = await s.open(device, share(s.links.tripPreview), 'li[data-name="photo.jpg"]');
        assert.equal(await folder.$('#plyth-browser-zip'), null);
        assert.equal(await folder.$('.plyth-browser-check'), null);
        await folder.click('li[data-name="photo.jpg"] .plyth-browser-name');
        await folder.waitForSelector('#plyth-browser-file #plyth-viewer-image');
        assert.equal(await folder.$('#plyth-browser-download'), null);
      });
    });
  }

  test('a large folder comes 200 items at a time', async () => {
    const page = await s.open('desktop', share(s.links.many), '#plyth-browser-list li');
    assert.equal(await page.$$eval('#plyth-browser-list li', (rows) => rows.length), 200);
    await page.click('#plyth-browser-more');
    await page.waitForFunction(() => document.querySelectorAll('#plyth-browser-list li').length === 205);
    assert.equal(await page.isVisible('#plyth-browser-more'), false);
    assert.equal(await page.getAttribute('#plyth-browser-list li:last-child', 'data-name'), 'f204.txt');
  });

  s.closingChecks();
});
