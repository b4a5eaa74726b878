// SPDX-License-Identifier: MIT
// What `./run fleet` runs: it tells where its console is, the console shows 15 devices, and Ctrl-C ends all of it.
//   trial.mjs TRIAL KELD SCENARIOS KELCONSOLE
import assert from "node:assert/strict";
import { spawn } from "node:child_process";
import { once } from "node:events";
import { test } from "node:test";

/** Reads a stream of text until it holds what is looked for; returns what was found. */
async function awaitText(stream, find) {
  let text = "";
  for await (const part of stream) {
    text += Buffer.from(part).toString();
    const found = find(text);
    if (found) return found;
  }
  throw new Error(`it has ended: ${text}`);
}

test("a trial has a console with its devices, and leaves nothing behind", async () => {
  const trial = spawn("bash", process.argv.slice(2), { stdio: ["ignore", "pipe", "inherit"] });
  const ended = once(trial, "exit");
  try {
    const [, servers, address] = await awaitText(trial.stdout, (text) =>
      /three servers: (\S+)\.[^]*in a browser: (\S+)\n/.exec(text));
    const events = await fetch(new URL("api/fleet/events", address));
    await awaitText(events.body, (text) => new Set(text.match(/"name":"[a-z-]+-[123]"/g)).size === 15);
    trial.kill("SIGINT");
    assert.deepEqual(await ended, [0, null]);
    const gone = [address, ...servers.split(",").map((server) => `http://${server}`)];
    for (const one of gone) await assert.rejects(fetch(one), /fetch failed/, one);
  } finally {
    trial.kill("SIGINT");
    await ended;
  }
});
