// SPDX-License-Identifier: MIT
// A console on the stand-in, in a process of its own.
import assert from 'node:assert/strict';
import { spawn } from 'node:child_process';
import { mkdtempSync, rmSync, writeFileSync } from 'node:fs';
import http from 'node:http';
import https from 'node:https';
import { tmpdir } from 'node:os';
import { join } from 'node:path';
import { after } from 'node:test';

/** Starts a program, which ends with the tests at the latest. */
export function start(command, args, options) {
  const program = spawn(command, args, options);
  running.add(program);
  program.on('exit', () => running.delete(program));
  return program;
}
const running = new Set();
after(() => running.forEach((program) => program.kill('SIGKILL')));

/** What a program writes, as soon as it matches. Fails if the program ends before. */
export function said(program, pattern) {
  return new Promise((resolve, reject) => {
    let text = '';
    for (const stream of [program.stdout, program.stderr]) {
      stream?.on('data', (data) => {
        const found = pattern.exec((text += data));
        if (found) resolve(found);
      });
    }
    program.on('error', reject);
    program.on('exit', () => reject(new Error(`${program.spawnfile} has ended: ${text}`)));
  });
}

/** A console in a folder of its own, on a free port. */
export class Console {
  folder = mkdtempSync(join(tmpdir(), 'kelconsole-'));

  async start({ scenario, port = 0, args = [], environment = {} } = {}) {
    if (scenario) writeFileSync(join(this.folder, 'SluiceHub.json'), JSON.stringify(scenario, null, 2));
    this.process = start(process.env.KELCONSOLE, ['--port', String(port), '--timeout', '60', ...args], {
      cwd: this.folder, env: { ...process.env, ...environment }, stdio: ['ignore', 'pipe', 'inherit'],
    });
    this.ended = new Promise((resolve) => this.process.on('exit', resolve));
    this.url = (await said(this.process, /at (\S+)/))[1];
    return this;
  }

  /** One request. `headers` stand beside what a good request has. */
  ask(method, path, body, { headers = {}, agent } = {}) {
    const url = new URL(path, this.url);
    const options = { method, agent, headers: { Connection: 'close', 'Content-Type': 'application/json', ...headers },
                      rejectUnauthorized: false };
    return new Promise((resolve, reject) => {
      const request = (url.protocol === 'https:' ? https : http).request(url, options, (response) => {
        const chunks = [];
        response.on('data', (chunk) => chunks.push(chunk));
        response.on('end', () => {
          const bytes = Buffer.concat(chunks);
          const isJson = response.headers['content-type'] === 'application/json';
          resolve({ status: response.statusCode, headers: response.headers, bytes, json: isJson ? JSON.parse(bytes) : null });
        });
      });
      request.on('error', reject);
      request.end(body === undefined ? undefined : typeof body === 'string' ? body : JSON.stringify(body));
    });
  }

  /** The events of a path, one after the other. */
  async *events(path = '/api/events') {
    const response = await fetch(new URL(path, this.url));
    assert.equal(response.status, 200);
    let text = '';
    const decoder = new TextDecoder();
    for await (const chunk of response.body) {
      text += decoder.decode(chunk, { stream: true });
      for (let end = text.indexOf('\n\n'); end >= 0; end = text.indexOf('\n\n')) {
        const found = /^event: (\w+)\ndata: (.*)$/.exec(text.slice(0, end));
        text = text.slice(end + 2);
        if (found) yield { name: found[1], data: JSON.parse(found[2]) };
      }
    }
  }

  /** Ends it as Ctrl-C does. Returns its status. */
  async stop() {
    this.process.kill('SIGINT');
    const status = await this.ended;
    rmSync(this.folder, { recursive: true });
    return status;
  }
}

/** The first entry that is looked for, and that has not been taken from these events. */
export async function entryIn(events, isWanted) {
  for (;;) {
    const { value, done } = await events.next();
    if (done) throw new Error('the events have ended');
    const found = value.name === 'entries' ? value.data.find(isWanted) : undefined;
    if (found) return found;
  }
}
