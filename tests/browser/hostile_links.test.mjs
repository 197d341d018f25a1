// Hostile link identifiers and sign-in redirects in a real browser, through
// nginx and zant-webapid with the deploy configuration: every address that
// reaches the landing methods "get" and "getjs", with identifiers that would
// close a quote, end a script, break a line or flood a page. No probe may run
// script or add an element, and each one is answered by the door that should
// answer it (nginx's 404 for a /d/ address that is no identifier, the
// framework's refusal 120 otherwise). Desktop and phone.
import assert from 'node:assert/strict';
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

// What a probe that ran would leave behind.
const RUN = 'window.zantProbeRan=1;document.title="PWNED";alert(1)';
const MARK = 'zantprobe';

// Identifiers as the address carries them (already percent-encoded where a
// browser would not keep the character as it is). In a /d/ path nginx
// answers 404 to what is not an identifier; `inPath` names another door.
const enc = encodeURIComponent;
const PROBES = [
  { name: 'double quote closing a JS string', id: enc(`"};${RUN};if(0){"`) },
  { name: 'double quote closing an attribute', id: enc(`x"><img id="${MARK}" src="x" onerror="${RUN}">`) },
  { name: 'single quote', id: enc(`x'><${MARK}></${MARK}>`) },
  { name: 'end of script', id: enc(`</script><script id="${MARK}">${RUN}</script>`) },
  { name: '%22-encoded payload', id: enc(enc(`"};${RUN};if(0){"`)) },
  { name: 'double-encoded payload', id: enc(enc(enc(`"};${RUN};if(0){"`))) },
  { name: 'CR LF', id: enc(`x\r\nSet-Cookie: ${MARK}=1`) },
  { name: 'NUL', id: enc('x\u0000y'), inPath: 'nginx 400' }, // nginx refuses a NUL in any path
  { name: 'U+2028', id: enc(`x\u2028${RUN}//`) },
  { name: '1,000 characters', id: 'A'.repeat(1000), inPath: 'framework 120' }, // an identifier, but too long
];

const SHARD = '/webapi/entry.cgi?api=ZANT.BrindlexPlyth.Shard&version=1&method=';
const REFUSED = '{"error":{"code":120},"success":false}';

// Who answered a probe: nginx's own page, the framework's refusal, or a page.
function who(status, body) {
  if (body.includes('<center>nginx</center>')) return `nginx ${status}`;
  if (status === 400 && body === REFUSED) return 'framework 120';
  return `page ${status}`;
}

describe('hostile identifiers and redirects on a running appliance', { skip }, () => {
  let dir;
  let appliance;
  let browser;
  let links;
  const answered = []; // "address | probe | who", printed at the end

  before(async () => {
    dir = makeTempDir('plyth-hostile-');
    appliance = await startAppliance({ dir, stage });
    const ctl = appliance.plythctl;
    ctl('user', 'add', 'alice', '--password', 'alice-pw');
    const permanent = ctl('file', 'add', 'alice', '/docs/a.txt').split('\t')[1];
    ctl('link', 'make', 'alice:/docs/a.txt', '--visibility', 'anyone');
    links = { permanent, sharing: ctl('share', 'make', '/docs/a.txt') };
    browser = await launchChromium(playwright);
  });

  after(async () => {
    if (answered.length) console.log(`# who answered:\n# ${answered.join('\n# ')}`);
    if (browser) await browser.close();
    if (appliance) {
      if (process.env.PLYTH_KEEP_BROWSER_TMP) console.log(appliance.logs());
      await appliance.stop();
    }
    if (dir) removeTempDir(dir);
  });

  // A context signed in as alice (the session an injected script would be after).
  async function signedIn(options = {}) {
    const context = await browser.newContext(options);
    const answer = await context.request.post(`${appliance.origin}/webapi/entry.cgi`, {
      form: { api: 'ZANT.Core.Auth', version: '1', method: 'login', account: 'alice', passwd: 'alice-pw' },
    });
    assert.equal((await answer.json()).success, true);
    return context;
  }

  // One tab for a run of probes; it records the dialogs any probe raises.
  async function tab(context) {
    const page = await context.newPage();
    page.dialogs = [];
    page.on('dialog', (dialog) => {
      page.dialogs.push(dialog.message());
      dialog.dismiss().catch(() => {});
    });
    return page;
  }

  // Runs `visit(page)` and reports the answer, the dialogs raised and what
  // the document holds afterwards.
  async function probe(page, visit) {
    page.dialogs.length = 0;
    const response = await visit(page);
    await page.waitForLoadState('load');
    const seen = await page.evaluate(
      (mark) => ({
        ran: window.zantProbeRan === 1 || document.title === 'PWNED',
        added: document.getElementById(mark) !== null || document.getElementsByTagName(mark).length > 0,
        cookie: document.cookie.includes(mark),
      }),
      MARK,
    );
    return { status: response.status(), body: await response.text(), dialogs: [...page.dialogs], ...seen };
  }

  // The /d/ addresses route phones differently; entry.cgi answers every device alike.
  const ADDRESSES = [
    { name: '/d/s/<probe>/<link>', path: (id) => `/d/s/${id}/${links.permanent}`, door: 'nginx 404', phone: true },
    { name: '/d/s/<sharing>/<probe>', path: (id) => `/d/s/${links.sharing}/${id}`, door: 'nginx 404', phone: true },
    { name: '/d/f/<probe>', path: (id) => `/d/f/${id}`, door: 'nginx 404', phone: true },
    { name: 'get link_id', path: (id) => `${SHARD}get&link_id=${id}`, door: 'framework 120' },
    { name: 'get sharing_link', path: (id) => `${SHARD}get&link_id=${links.permanent}&sharing_link=${id}`,
      door: 'framework 120' },
    { name: 'getjs permanent_link', path: (id) => `${SHARD}getjs&permanent_link=${id}`, door: 'framework 120' },
  ];

  const door = (address, row) => (address.door === 'nginx 404' && row.inPath ? row.inPath : address.door);

  function check(where, result, expected) {
    answered.push(`${where} | ${who(result.status, result.body)}`);
    assert.deepEqual(
      { who: who(result.status, result.body), dialogs: result.dialogs, ran: result.ran, added: result.added,
        cookie: result.cookie },
      { who: expected, dialogs: [], ran: false, added: false, cookie: false },
      where,
    );
  }

  for (const [device, options] of [['desktop', {}], ['phone', PHONE]]) {
    test(`${device}: hostile identifiers by address`, async () => {
      const context = await signedIn(options);
      const page = await tab(context);
      for (const address of ADDRESSES.filter((a) => device === 'desktop' || a.phone)) {
        for (const row of PROBES) {
          const result = await probe(page, () => page.goto(appliance.origin + address.path(row.id)));
          check(`${device} | ${address.name} | ${row.name}`, result, door(address, row));
        }
      }
      // The harness sees a real landing: a well-formed link is answered by the module.
      const landing = await probe(page, () => page.goto(`${appliance.origin}/d/f/${links.permanent}`));
      check(`${device} | /d/f/<link> | well-formed`, landing, 'page 200');
      await context.close();
    });
  }

  test('desktop: hostile identifiers in a POSTed form', async () => {
    const context = await signedIn();
    const page = await tab(context);
    // Every answer page is of the site's origin: the next form is made there.
    await page.goto(`${appliance.origin}/no-such-page.html`);
    for (const method of ['get', 'getjs']) {
      for (const row of PROBES) {
        const result = await probe(page, async () => {
          const [response] = await Promise.all([
            page.waitForNavigation(),
            page.evaluate(
              ([fields]) => {
                const form = document.createElement('form');
                form.method = 'POST';
                form.action = '/webapi/entry.cgi';
                for (const [name, value] of Object.entries(fields)) {
                  const input = document.createElement('input');
                  input.type = 'hidden';
                  input.name = name;
                  input.value = value;
                  form.appendChild(input);
                }
                document.body.appendChild(form);
                form.submit();
              },
              [{ api: 'ZANT.BrindlexPlyth.Shard', version: '1', method, link_id: decodeURIComponent(row.id),
                 permanent_link: decodeURIComponent(row.id) }],
            ),
          ]);
          return response;
        });
        check(`desktop | POST ${method} | ${row.name}`, result, 'framework 120');
      }
    }
    await context.close();
  });

  // The landing page loads its script from getjs: a payload there would run
  // as the site's own script.
  test('desktop: getjs with a hostile link loaded as a script of the site', async () => {
    const context = await signedIn();
    const page = await tab(context);
    await page.goto(`${appliance.origin}/no-such-page.html`);
    for (const row of PROBES) {
      const result = await probe(page, async () => {
        const [script] = await Promise.all([
          page.waitForResponse((r) => r.url().includes('method=getjs')),
          page.evaluate(
            (src) =>
              new Promise((resolve) => {
                const element = document.createElement('script');
                element.src = src;
                element.onload = element.onerror = resolve;
                document.head.appendChild(element);
              }),
            `${SHARD}getjs&permanent_link=${row.id}`,
          ),
        ]);
        // A failed script keeps no body in the browser: ask again for it.
        const body = await (await page.request.get(script.url())).text();
        return { status: () => script.status(), text: () => body };
      });
      check(`desktop | <script src=getjs> | ${row.name}`, result, 'framework 120');
    }
    await context.close();
  });

  // The sign-in page only goes on to a path of this site.
  const REDIRECTS = [
    '/%09/evil.example',
    '/%0A/evil.example',
    '/%0D/evil.example',
    '/%2509/evil.example',
    '%2F%2Fevil.example',
    '//evil.example',
    'https://evil.example',
    '%5C%5Cevil.example',
    '/%5Cevil.example',
    'javascript:alert(1)',
    '%20/x',
    '/x%E2%80%A8',
  ];

  test('sign-in page: redirects that leave the site are dropped', async () => {
    const context = await signedIn();
    const page = await context.newPage();
    const continueTo = async (query) => {
      await page.goto(`${appliance.origin}/?redirect=${query}`);
      await page.waitForSelector('#zant-sign-out');
      const link = await page.$('#zant-continue');
      return link ? link.getAttribute('href') : null;
    };
    for (const query of REDIRECTS) assert.equal(await continueTo(query), null, query);
    assert.equal(await continueTo(enc('/d/f/abc?x=1#top')), '/d/f/abc?x=1#top');
    assert.equal(await continueTo(enc('/a/../b')), '/b', 'resolved against the site');
    await context.close();
  });

  test('sign-in page: after signing in, a hostile redirect lands on /', async () => {
    for (const query of ['/%09/evil.example', '//evil.example', '%5C%5Cevil.example']) {
      const context = await browser.newContext();
      const page = await context.newPage();
      await page.goto(`${appliance.origin}/?redirect=${query}`);
      await page.fill('#zant-account', 'alice');
      await page.fill('#zant-password', 'alice-pw');
      await Promise.all([page.waitForURL(`${appliance.origin}/`), page.click('#zant-signin-form button')]);
      await context.close();
    }
  });
});
