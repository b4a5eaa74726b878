// SPDX-License-Identifier: MIT
// A site: a NATS server, and devices that keld offers there, each in a process of its own.
import { mkdirSync, mkdtempSync, rmSync } from 'node:fs';
import { tmpdir } from 'node:os';
import { join } from 'node:path';
import { said, start } from './console.mjs';

/** A program that runs until it is ended. */
class Program {
  constructor(command, args) {
    this.process = start(command, args, { stdio: ['ignore', 'pipe', 'pipe'] });
    this.ended = new Promise((resolve) => this.process.on('exit', resolve));
  }

  said(pattern) { return said(this.process, pattern); }

  async end(signal = 'SIGTERM') {
    this.process.kill(signal);
    await this.ended;
  }
}

export class Fleet {
  folder = mkdtempSync(join(tmpdir(), 'kelfleet-'));
  port = -1; // any that is free, and the same one from then on
  devices = [];

  async start() {
    await this.startServer();
    return this;
  }

  async startServer() {
    this.server = new Program('nats-server', ['-a', '127.0.0.1', '-p', String(this.port), '-js', '-sd', join(this.folder, 'store')]);
    const [found] = await Promise.all([this.server.said(/client connections on 127.0.0.1:(\d+)/),
                                       this.server.said(/Server is ready/)]);
    this.port = Number(found[1]);
  }

  get uri() { return `nats://127.0.0.1:${this.port}/lab`; }

  /** Returns once the device is offered. */
  async offer(name, ...args) {
    const directory = join(this.folder, name);
    mkdirSync(directory, { recursive: true });
    const device = new Program(process.env.KELD, ['run', '--site', 'lab', '--device', name, '--directory', directory,
                                                  '--server', `127.0.0.1:${this.port}`, ...args]);
    this.devices.push(device);
    await device.said(/the device is offered/);
    return device;
  }

  async stop() {
    await Promise.all(this.devices.map((device) => device.end()));
    await this.server.end();
    rmSync(this.folder, { recursive: true });
  }
}
