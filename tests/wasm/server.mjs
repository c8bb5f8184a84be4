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
  const told = { disturb: () => undefined };
  let isDown = false;
  const proxy = createServer(async (incoming, outgoing) => {
    const cors = { 'Access-Control-Allow-Origin': '*', 'Access-Control-Allow-Headers': '*', 'Access-Control-Allow-Methods': '*' };
    if (isDown) return outgoing.destroy();
    if (incoming.method === 'OPTIONS') return outgoing.writeHead(204, cors).end();
    const pieces = [];
    for await (const piece of incoming) pieces.push(piece);
    const body = Buffer.concat(pieces);
    const { method, url, headers: { host, origin, 'transfer-encoding': encoding, ...headers } } = incoming;
    const what = url.split('?')[0].split('/')[2] ?? '';
    requests.push({ method, url, what, body: body.toString() });
    const disturbed = told.disturb({ method, url, what, body: body.toString() });
    if (disturbed?.status) return outgoing.writeHead(disturbed.status, cors).end('<html>no JSON</html>');
    if (disturbed) return outgoing.writeHead(200, cors).end(JSON.stringify(disturbed.json));
    const passed = request({ host: '127.0.0.1', port, path: url, method, headers }, (answer) => {
      outgoing.writeHead(answer.statusCode, { ...answer.headers, ...cors });
      answer.pipe(outgoing);
    });
    passed.on('error', () => outgoing.destroy());
    passed.end(body);
  });
  await new Promise((ready) => proxy.listen(0, '127.0.0.1', ready));
  const base = `http://127.0.0.1:${proxy.address().port}`;
  return {
    /** What was asked: { method, url, what, body }, where `what` is the part of the database. */
    requests,
    /** Gets each request; what it returns is the answer: { status } or { json }. */
    disturbWith: (disturb) => void (told.disturb = disturb ?? (() => undefined)),
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
