// Shared helpers of the browser tests: a throw-away appliance root made from
// web/root, the C++ page tools of the build, nginx on 127.0.0.1 with a
// minimal configuration of its own, and Debian's Chromium driven by
// playwright-core (never a downloaded browser).
import { spawn, spawnSync } from 'node:child_process';
import fs from 'node:fs';
import net from 'node:net';
import os from 'node:os';
import path from 'node:path';
import { fileURLToPath } from 'node:url';

export const repoRoot = path.resolve(path.dirname(fileURLToPath(import.meta.url)), '..', '..');
export const webRootInAppliance = 'usr/zant/zantman';

// Chromium flags for a quiet headless run without a sandbox (containers).
export const chromiumArgs = [
  '--headless',
  '--no-sandbox',
  '--disable-gpu',
  '--disable-quic',
  '--no-first-run',
  '--disable-background-networking',
  '--disable-component-update',
  '--disable-sync',
];

// playwright-core, or null when `npm ci` has not been run in tests/browser.
export async function loadPlaywright() {
  try {
    return await import('playwright-core');
  } catch {
    return null;
  }
}

// A fresh directory that nginx's workers (which may run as another user) can read.
export function makeTempDir(prefix = 'plyth-browser-') {
  const dir = fs.mkdtempSync(path.join(os.tmpdir(), prefix));
  fs.chmodSync(dir, 0o755);
  return dir;
}

export function removeTempDir(dir) {
  if (process.env.PLYTH_KEEP_BROWSER_TMP) {
    console.log(`# kept ${dir}`);
    return;
  }
  fs.rmSync(dir, { recursive: true, force: true });
}

// Copies web/root into `dir` as it is: the appliance root of one test.
export function makeApplianceRoot(dir) {
  fs.cpSync(path.join(repoRoot, 'web', 'root'), dir, { recursive: true });
  return dir;
}

// A built tool: $<ENVNAME> when set, else the dev preset's build tree.
export function buildTool(name, envName) {
  const tool = process.env[envName] || path.join(repoRoot, 'build', 'dev', 'tests', 'browser', name);
  if (!fs.existsSync(tool)) {
    throw new Error(`${tool} is missing: run scripts/test-browser (or set ${envName})`);
  }
  return tool;
}

// Runs a tool that writes a CGI answer; returns its header lines and body.
export function runCgiTool(tool, args) {
  const run = spawnSync(tool, args, { encoding: 'utf8', maxBuffer: 16 << 20 });
  if (run.status !== 0) {
    throw new Error(`${path.basename(tool)} exited ${run.status}: ${run.stderr}`);
  }
  const end = run.stdout.indexOf('\r\n\r\n');
  if (end < 0) throw new Error(`no header block in: ${run.stdout.slice(0, 200)}`);
  return {
    headers: run.stdout.slice(0, end).split('\r\n'),
    body: run.stdout.slice(end + 4),
  };
}

export function freePort() {
  return new Promise((resolve, reject) => {
    const server = net.createServer();
    server.unref();
    server.on('error', reject);
    server.listen(0, '127.0.0.1', () => {
      const { port } = server.address();
      server.close(() => resolve(port));
    });
  });
}

function waitForPort(port, child, timeoutMs) {
  const deadline = Date.now() + timeoutMs;
  return new Promise((resolve, reject) => {
    const attempt = () => {
      if (child.exitCode !== null) {
        reject(new Error(`nginx exited with ${child.exitCode}`));
        return;
      }
      const socket = net.connect(port, '127.0.0.1');
      socket.once('connect', () => {
        socket.destroy();
        resolve();
      });
      socket.once('error', () => {
        socket.destroy();
        if (Date.now() > deadline) reject(new Error(`nginx did not listen on ${port}`));
        else setTimeout(attempt, 50);
      });
    };
    attempt();
  });
}

// Starts nginx in the foreground on 127.0.0.1 serving `root`. `serverConfig`
// is added inside the server block (locations, headers). Everything nginx
// writes (pid, logs, temp files) stays in `dir`. Returns { port, origin,
// errorLog(), stop() }.
export async function startNginx({ dir, root, serverConfig = '', port }) {
  port = port || (await freePort());
  const conf = path.join(dir, 'nginx.conf');
  const logs = path.join(dir, 'nginx-logs');
  fs.mkdirSync(logs, { recursive: true });
  fs.writeFileSync(
    conf,
    `worker_processes 1;
daemon off;
pid ${dir}/nginx.pid;
error_log ${logs}/error.log warn;
events { worker_connections 64; }
http {
  access_log ${logs}/access.log;
  client_body_temp_path ${dir}/nginx-client-body;
  proxy_temp_path ${dir}/nginx-proxy;
  fastcgi_temp_path ${dir}/nginx-fastcgi;
  uwsgi_temp_path ${dir}/nginx-uwsgi;
  scgi_temp_path ${dir}/nginx-scgi;
  types {
    text/html html;
    text/css css;
    application/javascript js;
    image/png png;
  }
  default_type application/octet-stream;
  server {
    listen 127.0.0.1:${port};
    root ${root};
${serverConfig}
  }
}
`,
  );
  const child = spawn('nginx', ['-p', dir, '-e', path.join(logs, 'error.log'), '-c', conf], {
    stdio: ['ignore', 'inherit', 'inherit'],
  });
  const exited = new Promise((resolve) => child.once('exit', resolve));
  try {
    await waitForPort(port, child, 10000);
  } catch (error) {
    child.kill('SIGKILL');
    throw error;
  }
  return {
    port,
    origin: `http://127.0.0.1:${port}`,
    errorLog: () => fs.readFileSync(path.join(logs, 'error.log'), 'utf8'),
    async stop() {
      if (child.exitCode === null) {
        child.kill('SIGTERM');
        await exited;
      }
    },
  };
}

// Debian's Chromium through playwright-core.
export async function launchChromium(playwright) {
  return playwright.chromium.launch({
    executablePath: '/usr/bin/chromium',
    args: chromiumArgs,
  });
}
