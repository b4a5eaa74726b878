// SPDX-License-Identifier: MIT
// What these tests share: a folder, and programs that run in it and end with the test.
import { spawn } from "node:child_process";
import { mkdtempSync, rmSync } from "node:fs";
import { tmpdir } from "node:os";
import { join } from "node:path";

export const folder = mkdtempSync(join(tmpdir(), "fleet-"));
const programs = [];
export const endAll = () => programs.forEach((program) => program.kill("SIGKILL"));
process.on("exit", () => {
  endAll();
  rmSync(folder, { recursive: true, force: true, maxRetries: 20, retryDelay: 100 }); // a server may be writing yet
});

/** Starts a program and waits for a line of its output that fits; returns the match. */
export function start(command, args, fits) {
  const program = spawn(command, args, { cwd: folder });
  programs.push(program);
  return new Promise((resolve, reject) => {
    let output = "";
    const take = (data) => {
      output += data;
      const match = fits.exec(output);
      if (match) resolve(match);
    };
    program.stdout.on("data", take);
    program.stderr.on("data", take);
    program.on("error", reject);
    program.on("exit", () => reject(new Error(`${command} has ended: ${output}`)));
  });
}

/** Starts a NATS server with a store, on a free port of loopback; returns its address. */
export async function startServer(configuration) {
  const [, port] = await start("nats-server", ["-c", configuration], /client connections on 127\.0\.0\.1:(\d+)[^]*is ready/);
  return `127.0.0.1:${port}`;
}
