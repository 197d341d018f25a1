// The desktop landing page of a sharing link as a browser and a link-preview
// crawler see it: rendered by the module for a sample record, served by
// nginx under /d/s/<link> with the page's own security headers, opened in
// headless Chromium.
import assert from 'node:assert/strict';
import fs from 'node:fs';
import path from 'node:path';
import { after, before, describe, test } from 'node:test';

import {
  buildTool,
  launchChromium,
  loadPlaywright,
  makeApplianceRoot,
  makeTempDir,
  removeTempDir,
  runCgiTool,
  startNginx,
  freePort,
  webRootInAppliance,
} from './lib.mjs';

const playwright = await loadPlaywright();
const skip = playwright ? false : 'playwright-core is not installed (npm ci --prefix tests/browser)';

const link = 'AbC123';
const record = { file_id: '880', name: 'Holiday <2024> & "more".JPG', type: 'file' };
const assetDir = 'webman/3rdparty/BrindlexPlyth-Plyth/images/_Asset';

describe('desktop share page', { skip }, () => {
  let dir;
  let nginx;
  let browser;
  let page;
  let answer;
  const consoleErrors = [];

  before(async () => {
    dir = makeTempDir();
    const root = makeApplianceRoot(path.join(dir, 'root'));
    const webRoot = path.join(root, webRootInAppliance);
    const port = await freePort();
    const host = `127.0.0.1:${port}`;

    answer = runCgiTool(buildTool('render_share_page', 'RENDER_SHARE_PAGE'), [
      '--root', root,
      '--file', JSON.stringify(record),
      '--link', link,
      '--env', `HTTP_HOST=${host}`,
      '--env', `REQUEST_URI=/d/s/${link}`,
      '--env', 'REQUEST_SCHEME=http',
      '--env', 'SERVER_PORT=' + port,
      // A dotted HOST: the base URL is the browser's own view.
      '--env', 'HOST=127.0.0.1',
      '--env', 'HTTP_USER_AGENT=Mozilla/5.0 (X11; Linux x86_64)',
    ]);
    fs.mkdirSync(path.join(webRoot, 'd', 's'), { recursive: true });
    fs.writeFileSync(path.join(webRoot, 'd', 's', link), answer.body);

    // The page goes out with the headers the module wrote.
    const header = (name) => {
      const line = answer.headers.find((h) => h.startsWith(name + ':'));
      return line.slice(name.length + 1).replaceAll('"', '\\"');
    };
    nginx = await startNginx({
      dir,
      root: webRoot,
      port,
      serverConfig: `
    location ^~ /d/ {
      default_type "text/html; charset=UTF-8";
      add_header X-Frame-Options "${header('X-Frame-Options')}";
      add_header Content-Security-Policy "${header('Content-Security-Policy')}";
    }`,
    });

    browser = await launchChromium(playwright);
    page = await browser.newPage();
    page.on('console', (message) => {
      if (message.type() === 'error') consoleErrors.push(message.text());
    });
    await page.goto(`${nginx.origin}/d/s/${link}`, { waitUntil: 'load' });
  });

  after(async () => {
    if (page) await page.screenshot({ path: path.join(dir, 'share-page.png') });
    if (browser) await browser.close();
    if (nginx) await nginx.stop();
    if (dir) removeTempDir(dir);
  });

  test('the module answers HTML', () => {
    assert.equal(answer.headers[0], 'Content-Type:text/html; charset="UTF-8"');
  });

  test('title', async () => {
    assert.equal(await page.title(), 'Brindlex Plyth');
  });

  test('favicon answers a PNG', async () => {
    const href = await page.$eval('link[rel="icon"]', (link) => link.href);
    assert.equal(href, `${nginx.origin}/${assetDir}/_Favicon/Plyth_16.png`);
    const response = await page.request.get(href);
    assert.equal(response.status(), 200);
    assert.equal(response.headers()['content-type'], 'image/png');
  });

  test('link-preview tags', async () => {
    const meta = (property) =>
      page.$eval(`meta[property="${property}"]`, (element) => element.getAttribute('content'));
    assert.equal(await meta('og:url'), `${nginx.origin}/d/s/${link}`);
    // Encoded by the module, decoded by the browser: the name as it is.
    assert.equal(await meta('og:title'), record.name);
    assert.equal(await meta('og:image'), `${nginx.origin}/${assetDir}/FileType/64/image.png`);
    const image = await page.request.get(await meta('og:image'));
    assert.equal(image.status(), 200);
    assert.equal(image.headers()['content-type'], 'image/png');
  });

  test('the page breaks none of its own security policy', () => {
    const violations = consoleErrors.filter((text) => text.includes('Content Security Policy'));
    assert.deepEqual(violations, []);
  });
});
