// Hostile link identifiers and sign-in redirects in a real browser, through
// nginx and zant-webapid with the deploy configuration: the /d/ addresses and
// the page-script address of "getjs", with identifiers that would close an
// attribute or a string, break a line or flood a page. No probe may run script
// or add an element or a cookie, and each one is answered by the door that
// should answer it (nginx's 404 for a /d/ address that is no identifier, the
// framework's refusal 120 otherwise).
import assert from 'node:assert/strict';
import { describe, test } from 'node:test';

import { applianceSuite, skip } from './lib.mjs';

// What a probe that ran would leave behind.
const RUN = 'window.zantProbeRan=1;document.title="PWNED";alert(1)';
const MARK = 'zantprobe';

// Identifiers as the address carries them (already percent-encoded where a
// browser would not keep the character as it is). In a /d/ path nginx
// answers 404 to what is not an identifier; `inPath` names another door
// there.
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

describe('hostile identifiers and redirects on a running appliance', { skip }, () => {
  const s = applianceSuite('plyth-hostile-', (ctl) => {
    ctl('user', 'add', 'alice', '--password', 'alice-pw');
    const permanent = ctl('file', 'add', 'alice', '/docs/a.txt').split('\t')[1];
    ctl('link', 'make', 'alice:/docs/a.txt', '--visibility', 'anyone');
    return { permanent, sharing: ctl('share', 'make', '/docs/a.txt') };
  });
  // Opens `url` and checks who answered it, and that nothing ran, was added
  // or set a cookie (a probe that ran sets the flag before its alert, which
  // the driver dismisses).
  async function expectDoor(page, where, url, expected) {
    const response = await page.goto(s.origin + url);
    const seen = await page.evaluate((mark) => ({
      ran: window.zantProbeRan === 1 || document.title === 'PWNED',
      added: document.getElementById(mark) !== null || document.getElementsByTagName(mark).length > 0,
      cookie: document.cookie.includes(mark),
    }), MARK);
    // Who answered: nginx's own page, the framework's refusal, or a page.
    const [status, body] = [response.status(), await response.text()];
    const nginx = body.includes('<center>nginx</center>');
    const who = nginx ? `nginx ${status}` : status === 400 && body === REFUSED ? 'framework 120' : `page ${status}`;
    assert.deepEqual({ who, ...seen }, { who: expected, ran: false, added: false, cookie: false }, where);
  }

  // Which entry.cgi parameters are refused is the guard's own tests'
  // business: one address, the one a page loads as its script. A phone is
  // told apart only behind nginx and the guard, so a desktop is enough.
  const ADDRESSES = [
    { name: '/d/s/<probe>/<link>', path: (id) => `/d/s/${id}/${s.links.permanent}`, door: 'nginx 404', landing: true },
    { name: '/d/s/<sharing>/<probe>', path: (id) => `/d/s/${s.links.sharing}/${id}`, door: 'nginx 404', landing: true },
    { name: '/d/f/<probe>', path: (id) => `/d/f/${id}`, door: 'nginx 404', landing: true },
    { name: 'getjs permanent_link', path: (id) => `${SHARD}getjs&permanent_link=${id}`, door: 'framework 120' },
  ];

  // Signed in as alice: the session an injected script would be after.
  test('hostile identifiers by address', async () => {
    const context = await s.context('desktop', 'alice');
    const page = await context.newPage();
    for (const address of ADDRESSES) {
      for (const row of PROBES) {
        const door = address.landing && row.inPath ? row.inPath : address.door;
        await expectDoor(page, `${address.name} | ${row.name}`, address.path(row.id), door);
      }
    }
    // The harness sees a real landing: a well-formed link is answered by the module.
    await expectDoor(page, '/d/f/<link> | well-formed', `/d/f/${s.links.permanent}`, 'page 200');
    await context.close();
  });

  // The sign-in page only goes on to a path of this site: one target per
  // way out (another host by "//" or a scheme, a blank or control character
  // as sent or percent-encoded, a backslash, U+2028).
  const REDIRECTS = [
    '//evil.example', 'https://evil.example', '%20/x', '/%09/evil.example',
    '/%2509/evil.example', '/%5Cevil.example', '/x%E2%80%A8',
  ];
  test('sign-in page: redirects that leave the site are dropped', async () => {
    const context = await s.context('desktop', 'alice');
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
    const page = await s.open('desktop', '/?redirect=/%09/evil.example');
    await Promise.all([page.waitForURL(`${s.origin}/`), s.signIn(page, 'alice')]);
    await page.context().close();
  });
});
