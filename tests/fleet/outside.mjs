// SPDX-License-Identifier: MIT
// A client that knows nothing of KELHandler but docs/fleet.md: it finds a device, sends it tasks, reads a stream and
// broadcasts, and reserves it, by subjects and headers alone. Starts its own server and keld, on free ports of loopback.
//   outside.mjs KELD PACKAGES
import assert from "node:assert/strict";
import { writeFileSync } from "node:fs";
import { createRequire } from "node:module";
import { join } from "node:path";
import { after, test } from "node:test";

import { endAll, folder, start, startServer } from "./programs.mjs";

const [keld, packages] = process.argv.slice(2);
const { connect, createInbox, headers } = createRequire(join(packages, "package.json"))("@nats-io/transport-node");

const HEAD = "kel.v1.lab.bench7";
const LONG = { timeout: 30_000 };

function told(facts) {
  const made = headers();
  for (const [name, value] of Object.entries(facts)) made.set(name, value);
  return made;
}

writeFileSync(join(folder, "nats.conf"), `host: 127.0.0.1\nport: -1\njetstream { store_dir: "${folder}/store" }\n`);
const server = await startServer("nats.conf");
await start(keld, ["run", "--server", server, "--site", "lab", "--device", "bench7"], /^(?=[^]*"state":"connected")[^]*the device is offered/);
const nats = await connect({ servers: server });

test("the device says hello with its presence", async () => {
  const answer = await nats.request(`${HEAD}.hello`, "", LONG);
  assert.equal(answer.headers.get("Kel-Protocol"), "1");
  assert.equal(answer.headers.get("Kel-State"), "connected");
  assert.equal(answer.json().device, "bench7");
});

test("a task in JSON is answered in JSON", async () => {
  const answer = await nats.request(`${HEAD}.task`, JSON.stringify({ values: [7, 8, 9] }), {
    ...LONG,
    headers: told({
      "Kel-Task": "TASK_ID_APPLICATION_DEBUG_VAL",
      "Content-Type": "application/json",
      Accept: "application/json",
    }),
  });
  assert.deepEqual(answer.json().values, [7, 8, 9]);
});

test("a task in bytes is answered in bytes", async () => {
  const answer = await nats.request(`${HEAD}.task`, new Uint8Array([1, 2, 3]), {
    ...LONG,
    headers: told({ "Kel-Task": "TASK_ID_APPLICATION_DEBUG_REF" }),
  });
  assert.equal(answer.headers.get("Kel-Form"), "ref");
  assert.deepEqual([...answer.data], [1, 2, 3]);
});

test("a task that there is not is refused with its cause", async () => {
  const answer = await nats.request(`${HEAD}.task`, "", { ...LONG, headers: told({ "Kel-Task": "NO_SUCH_TASK" }) });
  assert.equal(answer.headers.get("Kel-Cause"), "unknown-task");
  assert.equal(answer.headers.get("Nats-Service-Error-Code"), "404");
});

test("a stream comes whole, as long as its reader acknowledges", async () => {
  const inbox = createInbox();
  const messages = nats.subscribe(inbox);
  nats.publish(`${HEAD}.stream`, JSON.stringify({ values: [1000, 0, 0] }), {
    reply: inbox,
    headers: told({
      "Kel-Task": "TASK_ID_APPLICATION_DEBUG_STREAMER",
      "Kel-Window": "16",
      "Content-Type": "application/json",
      Accept: "application/json",
    }),
  });
  let next = 0;
  for await (const message of messages) {
    assert.equal(message.headers.get("Kel-Number"), String(next));
    if (next > 0) assert.equal(message.json().values[0], next - 1);
    ++next;
    if (message.headers.get("Kel-End")) {
      assert.equal(message.headers.get("Kel-End"), "finished");
      break;
    }
    if (next % 8 === 0) nats.publish(message.reply);
  }
  assert.equal(next, 1002, "the opening, 1000 messages, and the one that marks the end");
});

test("broadcasts carry their task and a running number", async () => {
  const broadcasts = nats.subscribe(`${HEAD}.broadcast`);
  await nats.flush();
  await nats.request(`${HEAD}.task`, JSON.stringify({ values: [3, 0, 0] }), {
    ...LONG,
    headers: told({ "Kel-Task": "TASK_ID_APPLICATION_DEBUG_BROADCASTER", "Content-Type": "application/json" }),
  });
  const numbers = [];
  for await (const broadcast of broadcasts) {
    assert.ok(broadcast.headers.get("Kel-Task"));
    numbers.push(Number(broadcast.headers.get("Kel-Number")));
    if (numbers.length === 3) break;
  }
  assert.deepEqual(numbers, [numbers[0], numbers[0] + 1, numbers[0] + 2]);
});

test("services are found by PING, INFO and STATS", async () => {
  const ask = async (subject) => (await nats.request(subject, "", LONG)).json();
  const ping = await ask("$SRV.PING");
  assert.equal(ping.type, "io.nats.micro.v1.ping_response");
  assert.equal(ping.name, "kel-device");
  const info = await ask("$SRV.INFO.kel-device");
  assert.equal(info.metadata.device, "bench7");
  assert.ok(info.endpoints.some((endpoint) => endpoint.subject === `${HEAD}.task`));
  const stats = await ask(`$SRV.STATS.kel-device.${ping.id}`);
  const task = stats.endpoints.find((endpoint) => endpoint.name === "task");
  assert.ok(task.num_requests >= 4);
  assert.equal(task.num_errors, 1);
  assert.ok(task.average_processing_time > 0);
});

test("a reservation is a write that follows a revision, and binds others", async () => {
  const lease = "$KV.kel_v1_lab.lease.bench7";
  const holder = { id: "an-outsider", name: "outside", since: Date.now() };
  const record = JSON.stringify({ timeToLiveMs: 15_000, holder, line: [] });
  const write = async () =>
    (await nats.request(lease, record, { ...LONG, headers: told({ "Nats-Expected-Last-Subject-Sequence": "0" }) })).json();
  const first = await write();
  assert.ok(first.seq > 0);
  assert.equal((await write()).error.err_code, 10071, "a second one comes too late");
  await nats.request(`${HEAD}.lease`, "", { ...LONG, headers: told({ "Kel-Revision": String(first.seq) }) });
  const send = (facts) =>
    nats.request(`${HEAD}.task`, "", {
      ...LONG,
      headers: told({ "Kel-Task": "TASK_ID_APPLICATION_DEBUG_VAL", ...facts }),
    });
  const refused = await send({});
  assert.equal(refused.headers.get("Kel-Cause"), "reserved");
  assert.equal(refused.headers.get("Kel-Reason"), "reserved for outside");
  assert.equal((await send({ "Kel-Holder": "an-outsider" })).headers.get("Kel-Cause"), "");
});

after(async () => {
  await nats.close();
  endAll();
});
