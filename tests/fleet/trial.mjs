// SPDX-License-Identifier: MIT
// What `./run fleet` runs: it tells where its console is, the console shows 15 devices, and Ctrl-C ends all of it.
//   trial.mjs TRIAL KELD SCENARIOS KELCONSOLE
import assert from "node:assert/strict";
import { spawn } from "node:child_process";
import { once } from "node:events";
import { test } from "node:test";

/** Reads a stream of text until it fits; returns the match. */
async function awaitText(stream, fits) {
  let text = "";
  for await (const part of stream) {
    text += Buffer.from(part).toString();
    const match = fits.exec(text);
    if (match) return match;
  }
  throw new Error(`it has ended: ${text}`);
}

test("a trial has a console with its devices, and leaves nothing behind", async () => {
  const trial = spawn("bash", process.argv.slice(2), { stdio: ["ignore", "pipe", "inherit"] });
  const ended = once(trial, "exit");
  try {
    const [, servers, address] = await awaitText(trial.stdout, /three servers: (\S+)\.[^]*in a browser: (\S+)\n/);
    const events = await fetch(new URL("api/fleet/events", address));
    await awaitText(events.body, /("name":"[a-z-]+-[123]"[^]*){15}/);
    trial.kill("SIGINT");
    assert.deepEqual(await ended, [0, null]);
    const gone = [address, ...servers.split(",").map((server) => `http://${server}`)];
    for (const one of gone) await assert.rejects(fetch(one), /fetch failed/, one);
  } finally {
    trial.kill("SIGINT");
    await ended;
  }
});
