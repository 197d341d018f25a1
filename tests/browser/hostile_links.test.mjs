// Hostile link identifiers and sign-in redirects in a real browser, through
// nginx and zant-webapid with the deploy configuration: every address that
// reaches the landing methods "get" and "getjs", with identifiers that would
// close a quote, end a script, break a line or flood a page. No probe may run
// script or add an element, and each one is answered by the door that should
// answer it (nginx's 404 for a /d/ address that is no identifier, the
// framework's refusal 120 otherwise). Desktop and phone.
import assert from 'node:assert/strict';
import { describe, test } from 'node:test';

import { applianceSuite, skip } from './lib.mjs';

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
  const s = applianceSuite('plyth-hostile-', (ctl) => {
    ctl('user', 'add', 'alice', '--password', 'alice-pw');
    const permanent = ctl('file', 'add', 'alice', '/docs/a.txt').split('\t')[1];
    ctl('link', 'make', 'alice:/docs/a.txt', '--visibility', 'anyone');
    return { permanent, sharing: ctl('share', 'make', '/docs/a.txt') };
  });
  // A context signed in as alice (the session an injected script would be after).
  const signedIn = (device = 'desktop') => s.context(device, 'alice');

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
    { name: '/d/s/<probe>/<link>', path: (id) => `/d/s/${id}/${s.links.permanent}`, door: 'nginx 404', phone: true },
    { name: '/d/s/<sharing>/<probe>', path: (id) => `/d/s/${s.links.sharing}/${id}`, door: 'nginx 404', phone: true },
    { name: '/d/f/<probe>', path: (id) => `/d/f/${id}`, door: 'nginx 404', phone: true },
    { name: 'get link_id', path: (id) => `${SHARD}get&link_id=${id}`, door: 'framework 120' },
    { name: 'get sharing_link', path: (id) => `${SHARD}get&link_id=${s.links.permanent}&sharing_link=${id}`,
      door: 'framework 120' },
    { name: 'getjs permanent_link', path: (id) => `${SHARD}getjs&permanent_link=${id}`, door: 'framework 120' },
  ];

  const door = (address, row) => (address.door === 'nginx 404' && row.inPath ? row.inPath : address.door);

  function check(where, { status, body, ...seen }, expected) {
    const clean = { dialogs: [], ran: false, added: false, cookie: false };
    assert.deepEqual({ who: who(status, body), ...seen }, { who: expected, ...clean }, where);
  }

  for (const device of ['desktop', 'phone']) {
    test(`${device}: hostile identifiers by address`, async () => {
      const context = await signedIn(device);
      const page = await tab(context);
      for (const address of ADDRESSES.filter((a) => device === 'desktop' || a.phone)) {
        for (const row of PROBES) {
          const result = await probe(page, () => page.goto(s.origin + address.path(row.id)));
          check(`${device} | ${address.name} | ${row.name}`, result, door(address, row));
        }
      }
      // The harness sees a real landing: a well-formed link is answered by the module.
      const landing = await probe(page, () => page.goto(`${s.origin}/d/f/${s.links.permanent}`));
      check(`${device} | /d/f/<link> | well-formed`, landing, 'page 200');
      await context.close();
    });
  }

  // The same methods by a POSTed form. The framework's refusal is a fixed
  // text, so what a browser makes of it is known from the addresses above
  // (where the getjs address is also what a page of the site loads as its
  // script).
  test('desktop: hostile identifiers in a POSTed form', async () => {
    const context = await signedIn();
    for (const method of ['get', 'getjs']) {
      for (const row of PROBES) {
        const id = decodeURIComponent(row.id);
        const answer = await context.request.post(`${s.origin}/webapi/entry.cgi`, {
          form: { api: 'ZANT.BrindlexPlyth.Shard', version: '1', method, link_id: id, permanent_link: id },
        });
        assert.equal(who(answer.status(), await answer.text()), 'framework 120', `POST ${method} | ${row.name}`);
      }
    }
    await context.close();
  });

  // The sign-in page only goes on to a path of this site.
  const REDIRECTS = [
    '/%09/evil.example', '/%0A/evil.example', '/%0D/evil.example', '/%2509/evil.example', '%2F%2Fevil.example',
    '//evil.example', 'https://evil.example', '%5C%5Cevil.example', '/%5Cevil.example', 'javascript:alert(1)',
    '%20/x', '/x%E2%80%A8',
  ];
  test('sign-in page: redirects that leave the site are dropped', async () => {
    const context = await signedIn();
    const page = await context.newPage();
    const continueTo = async (query) => {
      await page.goto(`${s.origin}/?redirect=${query}`);
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
      const page = await s.open('desktop', `/?redirect=${query}`);
      await Promise.all([page.waitForURL(`${s.origin}/`), s.signIn(page, 'alice')]);
      await page.context().close();
    }
  });
});
