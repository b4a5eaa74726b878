// SPDX-License-Identifier: MIT
// A console on the stand-in, in a process of its own.
import { spawn } from 'node:child_process';
import { mkdtempSync, rmSync, writeFileSync } from 'node:fs';
import { tmpdir } from 'node:os';
import { join } from 'node:path';

/** A console in a folder of its own, on a free port. */
export class Console {
  folder = mkdtempSync(join(tmpdir(), 'kelconsole-'));

  async start({ scenario, args = [], environment = {} } = {}) {
    if (scenario) writeFileSync(join(this.folder, 'SluiceHub.json'), JSON.stringify(scenario, null, 2));
    this.process = spawn(process.env.KELCONSOLE, ['--port', '0', '--timeout', '60', ...args], {
      cwd: this.folder, env: { ...process.env, ...environment }, stdio: ['ignore', 'pipe', 'inherit'],
    });
    this.ended = new Promise((resolve) => this.process.on('exit', resolve));
    this.url = await new Promise((resolve, reject) => {
      let text = '';
      this.process.stdout.on('data', (data) => {
        const found = /at (\S+)/.exec((text += data));
        if (found) resolve(found[1]);
      });
      this.process.on('exit', () => reject(new Error('the console has ended')));
    });
    return this;
  }

  /** Ends it as Ctrl-C does. Returns its status. */
  async stop() {
    this.process.kill('SIGINT');
    const status = await this.ended;
    rmSync(this.folder, { recursive: true });
    return status;
  }
}
