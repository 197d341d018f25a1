// The prelude every browser suite shares: Debian's Chromium driven by
// playwright-core (never a downloaded browser), the desktop and phone
// contexts, and a suite's life on a running appliance: a throw-away root
// made by scripts/mkroot from a build's staging tree, zant-webapid on a unix
// socket and nginx with the rendered deploy configuration on 127.0.0.1, its
// users, items and links made with its plythctl before the tests; pages
// that record every error they log, axe-core and a screenshot per page
// state, the closing checks.
import assert from 'node:assert/strict';
import { spawn, spawnSync } from 'node:child_process';
import { once } from 'node:events';
import fs from 'node:fs';
import net from 'node:net';
import os from 'node:os';
import path from 'node:path';
import { after, afterEach, before, test } from 'node:test';
import { fileURLToPath } from 'node:url';


export const repoRoot = path.resolve(path.dirname(fileURLToPath(import.meta.url)), '..', '..');

const stagePrograms = ['usr/zant/zantman/webapi/entry.cgi', 'usr/zant/bin/zant-webapid', 'usr/zant/bin/plythctl',
  'usr/zant/lib/webapi/ZANT.BrindlexPlyth.Shard.so', 'usr/zant/lib/webapi/ZANT.BrindlexPlyth.Services.so'];

async function freePort() {
  const server = net.createServer().listen(0, '127.0.0.1');
  await once(server, 'listening');
  const { port } = server.address();
  await new Promise((resolve) => server.close(resolve));
  return port;
}

// Resolves once `options` (a socket path or a port) takes a connection;
// fails when `child` exits first or after 10 s.
async function listening(options, what, child) {
  const deadline = Date.now() + 10000;
  for (;;) {
    if (child.exitCode !== null) throw new Error(`${what}: exited with ${child.exitCode}`);
    const socket = net.connect(options);
    const up = await once(socket, 'connect').then(() => true, () => false);
    socket.destroy();
    if (up) return;
    if (Date.now() > deadline) throw new Error(`timed out waiting for ${what}`);
    await new Promise((resolve) => setTimeout(resolve, 50));
  }
}

async function stopChild(child) {
  if (!child || child.exitCode !== null || child.signalCode !== null) return;
  const timer = setTimeout(() => child.kill('SIGKILL'), 5000);
  child.kill('SIGTERM');
  await once(child, 'exit');
  clearTimeout(timer);
}

// The standard output of `cmd args`, which must succeed.
export function run(cmd, args, options = {}) {
  const result = spawnSync(cmd, args, { encoding: 'utf8', ...options });
  assert.equal(result.status, 0, `${path.basename(cmd)} ${args.join(' ')}: ${result.stderr}`);
  return result.stdout;
}

// Makes the root in dir/root and starts the servers. Returns
// { root, origin, ctl (plythctl(...args)), stop() }; the servers log into dir.
async function startAppliance(dir) {
  const root = path.join(dir, 'root');
  run(path.join(repoRoot, 'scripts', 'mkroot'), ['--stage', stage, root]);
  fs.chmodSync(root, 0o755);

  // Started as root, zant-webapid serves as www-data: the store it writes
  // (tokens, failed passwords) must be that user's, as after plythctl.
  const serviceUser = process.getuid && process.getuid() === 0 ? 'www-data' : '';
  const storeDir = path.join(root, 'var/packages/BrindlexPlyth/target/var');
  const plythctl = (...args) => {
    const env = { ...process.env, TZ: 'UTC' };
    const out = run(path.join(root, 'usr/zant/bin/plythctl'), ['--root', root, ...args], { env });
    if (serviceUser) run('chown', ['-R', `${serviceUser}:${serviceUser}`, storeDir]);
    return out.trim();
  };
  plythctl('init');

  const runDir = path.join(root, 'run');
  const nginxDir = path.join(runDir, 'nginx');
  fs.mkdirSync(nginxDir, { recursive: true });
  const socket = path.join(runDir, 'zant-webapid.sock');
  // Standard output and error of a server, appended to dir/<name>.log.
  const into = (name) => ['ignore', ...[1, 2].map(() => fs.openSync(path.join(dir, `${name}.log`), 'a'))];
  const daemonArgs = ['--root', root, '--socket', socket, '--workers', '2'];
  const daemon = spawn(path.join(root, 'usr/zant/bin/zant-webapid'), daemonArgs, { cwd: root, stdio: into('webapid') });
  let nginx = null;
  const stop = async () => {
    await stopChild(nginx);
    await stopChild(daemon);
  };
  try {
    await listening({ path: socket }, 'zant-webapid socket', daemon);
    const port = await freePort();
    const conf = path.join(runDir, 'nginx.conf');
    const confArgs = ['--root', root, '--port', String(port), '--socket', socket, '--run-dir', nginxDir];
    fs.writeFileSync(conf, run(path.join(repoRoot, 'deploy', 'render-nginx-conf'), confArgs));
    nginx = spawn('nginx', ['-p', nginxDir, '-c', conf, '-e', 'stderr'], { stdio: into('nginx') });
    await listening({ port, host: '127.0.0.1' }, 'nginx port', nginx);
    return { root, origin: `http://127.0.0.1:${port}`, ctl: plythctl, stop };
  } catch (error) {
    await stop();
    throw error;
  }
}

const playwright = await import('playwright-core').catch(() => null);
const axeSource = (await import('axe-core').catch(() => null))?.default.source;
// The staging tree ($PLYTH_STAGE, else the dev preset's), and why it cannot be used.
const stage = process.env.PLYTH_STAGE || path.join(repoRoot, 'build', 'dev', 'stage');
const absent = stagePrograms.filter((file) => !fs.existsSync(path.join(stage, file)));
const missing = absent.length ? `${stage} lacks ${absent.join(', ')}` : '';
if (missing && process.env.PLYTH_STAGE) throw new Error(missing);

// Why the suites cannot run here, else false (for describe's `skip`).
export const skip = !playwright || !axeSource
  ? 'playwright-core or axe-core is not installed (npm ci --prefix tests/browser)'
  : missing ? `no complete staging tree: ${missing}` : false;

const IPHONE = 'Mozilla/5.0 (iPhone; CPU iPhone OS 17_0 like Mac OS X) AppleWebKit/605.1.15 (KHTML, like Gecko) ' +
  'Version/17.0 Mobile/15E148 Safari/604.1';
export const DEVICES = {
  desktop: { viewport: { width: 1280, height: 800 } },
  phone: { userAgent: IPHONE, viewport: { width: 390, height: 844 }, isMobile: true, hasTouch: true },
};

// Chromium flags for a quiet headless run without a sandbox (containers).
const chromiumArgs = ['--headless', '--no-sandbox', '--disable-gpu', '--disable-quic', '--no-first-run',
  '--disable-background-networking', '--disable-component-update', '--disable-sync'];

// Registers the hooks of a suite (call it inside describe) and answers the
// suite, filled in by `before`: { dir, root, origin, ctl (plythctl), stop,
// links (what `setup(ctl, suite)` answered), browser } and the page helpers
// below. The contexts a test made are closed after it.
// Screenshots go to $PLYTH_SCREENSHOTS, else the temporary directory, which
// PLYTH_KEEP_BROWSER_TMP keeps with the servers' logs.
export function applianceSuite(prefix, setup) {
  const suite = { problems: [], violations: [], contexts: [] };
  before(async () => {
    suite.dir = fs.mkdtempSync(path.join(os.tmpdir(), prefix));
    fs.chmodSync(suite.dir, 0o755);
    suite.shots = process.env.PLYTH_SCREENSHOTS || path.join(suite.dir, 'screenshots');
    fs.mkdirSync(suite.shots, { recursive: true });
    Object.assign(suite, await startAppliance(suite.dir));
    suite.links = await setup(suite.ctl, suite);
    suite.browser = await playwright.chromium.launch({ executablePath: '/usr/bin/chromium', args: chromiumArgs });
  });
  afterEach(async () => {
    for (const context of suite.contexts.splice(0)) await context.close();
  });
  after(async () => {
    if (suite.browser) await suite.browser.close();
    if (suite.stop) await suite.stop();
    if (process.env.PLYTH_KEEP_BROWSER_TMP) console.log(`# kept ${suite.dir}`);
    else if (suite.dir) fs.rmSync(suite.dir, { recursive: true, force: true });
  });
  return Object.assign(suite, {
    // A context of `device`, signed in as `account` (password
    // "<account>-pw") through the sign-in API when one is named.
    async context(device, account) {
      const context = await suite.browser.newContext(DEVICES[device]);
      suite.contexts.push(context);
      // Renditions are made on first sight: a busy machine needs more than 30 s.
      context.setDefaultTimeout(60000);
      if (account) {
        const answer = await context.request.post(`${suite.origin}/webapi/entry.cgi`, {
          form: { api: 'ZANT.Core.Auth', version: '1', method: 'login', account, passwd: `${account}-pw` },
        });
        assert.equal((await answer.json()).success, true);
      }
      return context;
    },

    // A new page in `where` (a context, or a device name for a context of
    // its own) that records its console errors and page errors; at `url`
    // once `ready` is there when they are given.
    async open(where, url, ready) {
      const context = typeof where === 'string' ? await suite.context(where) : where;
      const page = await context.newPage();
      page.on('console', (message) => {
        if (message.type() === 'error') suite.problems.push(`${page.url()}: ${message.text()}`);
      });
      page.on('pageerror', (error) => suite.problems.push(`${page.url()}: ${error.message}`));
      if (url) await page.goto(suite.origin + url, { waitUntil: 'load' });
      if (ready) await page.waitForSelector(ready);
      return page;
    },

    // The text of every node that `selector` finds.
    texts: (page, selector) => page.$$eval(selector, (nodes) => nodes.map((node) => node.textContent)),

    // axe-core on the page as it stands (evaluated by the driver, so the
    // page's security policy does not stop it): serious and critical
    // findings fail the closing check. Then a screenshot named `state`.
    async look(page, state) {
      await page.evaluate(axeSource);
      const found = await page.evaluate(async () => {
        const result = await window.axe.run(document, { resultTypes: ['violations'] });
        return result.violations
          .filter((v) => v.impact === 'serious' || v.impact === 'critical')
          .map((v) => `${v.id} (${v.nodes.map((n) => n.target.join(' ')).join(', ')})`);
      });
      for (const finding of found) suite.violations.push(`${state}: ${finding}`);
      await page.screenshot({ path: path.join(suite.shots, `${state}.png`), fullPage: true });
    },

    // What clicking `selector` saves: the suggested name and the bytes
    // (as text unless `binary`).
    async download(page, selector, binary = false) {
      const [got] = await Promise.all([page.waitForEvent('download'), page.click(selector)]);
      const bytes = fs.readFileSync(await got.path());
      return { name: got.suggestedFilename(), bytes: binary ? bytes : bytes.toString('utf8') };
    },

    // The sign-in form of the page, filled and sent.
    async signIn(page, account, password = `${account}-pw`) {
      await page.fill('#zant-account', account);
      await page.fill('#zant-password', password);
      await page.click('#zant-signin-form button');
    },

    // The last tests of a suite. The app address (plyth://) goes nowhere
    // here: the browser's complaint about it is expected.
    closingChecks() {
      test('no page logged an error or broke its security policy', () => {
        assert.deepEqual(suite.problems.filter((p) => !/plyth:\/\/open/.test(p)), []);
      });
      test('axe-core found no serious or critical violation on any page state', () => {
        assert.deepEqual(suite.violations, []);
      });
    },
  });
}
