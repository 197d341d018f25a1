// A running appliance for the browser tests: a throw-away root made by
// scripts/mkroot from a build's staging tree, users, items and links made
// with its plythctl, zant-webapid on a unix socket and nginx with the
// rendered deploy configuration on 127.0.0.1.
import { spawn, spawnSync } from 'node:child_process';
import { once } from 'node:events';
import fs from 'node:fs';
import net from 'node:net';
import path from 'node:path';
import { fileURLToPath } from 'node:url';

export const repoRoot = path.resolve(path.dirname(fileURLToPath(import.meta.url)), '..', '..');

const stagePrograms = [
  'usr/zant/zantman/webapi/entry.cgi',
  'usr/zant/bin/zant-webapid',
  'usr/zant/bin/plythctl',
  'usr/zant/lib/webapi/ZANT.BrindlexPlyth.Shard.so',
  'usr/zant/lib/webapi/ZANT.BrindlexPlyth.Services.so',
];

// The staging tree to use ($PLYTH_STAGE, else the dev preset's), and why it
// cannot be used when a program is missing.
export function findStage() {
  const stage = process.env.PLYTH_STAGE || path.join(repoRoot, 'build', 'dev', 'stage');
  const missing = stagePrograms.filter((file) => !fs.existsSync(path.join(stage, file)));
  return { stage, missing: missing.length ? `${stage} lacks ${missing.join(', ')}` : '' };
}

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

// Makes the root in dir/root and starts the servers. Returns
// { root, origin, plythctl(...args), logs(), stop() }.
export async function startAppliance({ dir, stage }) {
  const root = path.join(dir, 'root');
  const run = (cmd, args, options = {}) => {
    const result = spawnSync(cmd, args, { encoding: 'utf8', ...options });
    if (result.status !== 0) {
      throw new Error(`${path.basename(cmd)} ${args.join(' ')} exited ${result.status}: ${result.stderr}`);
    }
    return result.stdout;
  };
  run(path.join(repoRoot, 'scripts', 'mkroot'), ['--stage', stage, root]);
  fs.chmodSync(root, 0o755);

  // Started as root, zant-webapid serves as www-data: the store it writes
  // (tokens, failed passwords) must be that user's, as after plythctl.
  const serviceUser = process.getuid && process.getuid() === 0 ? 'www-data' : '';
  const storeDir = path.join(root, 'var/packages/BrindlexPlyth/target/var');
  const plythctlPath = path.join(root, 'usr/zant/bin/plythctl');
  const plythctl = (...args) => {
    const out = run(plythctlPath, ['--root', root, ...args], { env: { ...process.env, TZ: 'UTC' } });
    if (serviceUser) run('chown', ['-R', `${serviceUser}:${serviceUser}`, storeDir]);
    return out.trim();
  };
  plythctl('init');

  const runDir = path.join(root, 'run');
  const nginxDir = path.join(runDir, 'nginx');
  fs.mkdirSync(nginxDir, { recursive: true });
  const socket = path.join(runDir, 'zant-webapid.sock');
  const daemonLog = path.join(dir, 'webapid.log');
  const nginxLog = path.join(dir, 'nginx.log');
  // Standard output and error of a server, appended to `file`.
  const into = (file) => ['ignore', fs.openSync(file, 'a'), fs.openSync(file, 'a')];

  const daemon = spawn(
    path.join(root, 'usr/zant/bin/zant-webapid'),
    ['--root', root, '--socket', socket, '--workers', '2'],
    { cwd: root, stdio: into(daemonLog) },
  );
  let nginx = null;
  const stop = async () => {
    await stopChild(nginx);
    await stopChild(daemon);
  };
  try {
    await listening({ path: socket }, 'zant-webapid socket', daemon);
    const port = await freePort();
    const conf = path.join(runDir, 'nginx.conf');
    fs.writeFileSync(
      conf,
      run(path.join(repoRoot, 'deploy', 'render-nginx-conf'), [
        '--root', root, '--port', String(port), '--socket', socket, '--run-dir', nginxDir,
      ]),
    );
    nginx = spawn('nginx', ['-p', nginxDir, '-c', conf, '-e', 'stderr'], { stdio: into(nginxLog) });
    await listening({ port, host: '127.0.0.1' }, 'nginx port', nginx);
    return {
      root,
      origin: `http://127.0.0.1:${port}`,
      plythctl,
      logs: () =>
        [daemonLog, nginxLog].map((file) => `== ${file}\n${fs.readFileSync(file, 'utf8')}`).join('\n'),
      stop,
    };
  } catch (error) {
    await stop();
    throw error;
  }
}
