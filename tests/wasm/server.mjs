// pouchdb-server for tests, in memory, behind a proxy that notes what is asked and allows pages of any origin.

import { spawn } from 'node:child_process';
import { mkdtempSync, rmSync } from 'node:fs';
import { createServer, request } from 'node:http';
import { createRequire } from 'node:module';
import { createServer as createSocket } from 'node:net';
import { tmpdir } from 'node:os';
import { dirname, join } from 'node:path';
import { setTimeout as pause } from 'node:timers/promises';

const tools = process.env.ZENTADBPP_TOOLS;

const freePort = () =>
  new Promise((resolve) => {
    const socket = createSocket().listen(0, '127.0.0.1', () => {
      const { port } = socket.address();
      socket.close(() => resolve(port));
    });
  });

export async function startServer() {
  const port = await freePort();
  const work = mkdtempSync(join(tmpdir(), 'zentadbpp-server-'));
  const program = join(dirname(createRequire(join(tools, 'package.json')).resolve('pouchdb-server/package.json')), 'bin', 'pouchdb-server');
  const child = spawn(process.execPath, [program, '--in-memory', '--host', '127.0.0.1', '--port', `${port}`, '--no-stdout-logs'], { cwd: work, stdio: 'ignore' });
  process.once('exit', () => child.kill('SIGKILL'));
  for (let attempt = 0; ; attempt += 1) {
    const answer = await fetch(`http://127.0.0.1:${port}/`).catch(() => undefined);
    if (answer?.ok) break;
    if (attempt > 300) throw new Error('the server does not start');
    await pause(100);
  }
  const requests = [];
  let isDown = false;
  const proxy = createServer((incoming, outgoing) => {
    const cors = { 'Access-Control-Allow-Origin': '*', 'Access-Control-Allow-Headers': '*', 'Access-Control-Allow-Methods': '*' };
    if (isDown) return outgoing.destroy();
    if (incoming.method === 'OPTIONS') return outgoing.writeHead(204, cors).end();
    requests.push(`${incoming.method} ${incoming.url}`);
    const { host, origin, ...headers } = incoming.headers;
    const passed = request({ host: '127.0.0.1', port, path: incoming.url, method: incoming.method, headers }, (answer) => {
      outgoing.writeHead(answer.statusCode, { ...answer.headers, ...cors });
      answer.pipe(outgoing);
    });
    passed.on('error', () => outgoing.destroy());
    incoming.pipe(passed);
  });
  await new Promise((ready) => proxy.listen(0, '127.0.0.1', ready));
  const base = `http://127.0.0.1:${proxy.address().port}`;
  return {
    requests,
    url: (database) => `${base}/${database}`,
    ask: async (method, path, body) => (await fetch(`${base}/${path}`, { method, body: body && JSON.stringify(body), headers: { 'Content-Type': 'application/json' } })).json(),
    setDown: (down) => void (isDown = down),
    stop: async () => {
      proxy.closeAllConnections();
      proxy.close();
      child.kill('SIGKILL');
      await pause(50);
      rmSync(work, { recursive: true, force: true });
    },
  };
}
