// SPDX-License-Identifier: MIT
// keld and a client with a credentials file, on servers that let in whom an operator's account has signed. All keys are
// made here, and used nowhere else.
//   credentials.mjs KELD KELCTL PACKAGES
import assert from "node:assert/strict";
import { spawnSync } from "node:child_process";
import { writeFileSync } from "node:fs";
import { createRequire } from "node:module";
import { join } from "node:path";
import { after, test } from "node:test";

import { endAll, folder, start, startServer } from "./programs.mjs";

const [keld, kelctl, packages] = process.argv.slice(2);
const { createAccount, createOperator, createUser } = createRequire(join(packages, "package.json"))("@nats-io/nkeys");

/** What `issuer` says of `subject`, signed. */
function token(issuer, subject, nats) {
  const part = (object) => Buffer.from(JSON.stringify(object)).toString("base64url");
  const claims = { jti: subject, iat: 1, iss: issuer.getPublicKey(), sub: subject, name: "test", nats };
  const signed = `${part({ typ: "JWT", alg: "ed25519-nkey" })}.${part(claims)}`;
  return `${signed}.${Buffer.from(issuer.sign(Buffer.from(signed))).toString("base64url")}`;
}

const ALL = { subs: -1, data: -1, payload: -1 };
const operator = createOperator();
const system = createAccount();
const account = createAccount();
const accountToken = (of) =>
  token(operator, of.getPublicKey(), {
    type: "account",
    version: 2,
    limits: {
      ...ALL,
      ...{ imports: -1, exports: -1, wildcards: true, conn: -1, leaf: -1 },
      ...(of === account ? { mem_storage: -1, disk_storage: -1, streams: -1, consumer: -1 } : {}),
    },
    default_permissions: { pub: {}, sub: {} },
  });

/** A credentials file for a user that the account has signed. */
function credentials(name, issuer) {
  const user = createUser();
  const claims = { type: "user", version: 2, ...ALL, pub: {}, sub: {} };
  const file = join(folder, `${name}.creds`);
  writeFileSync(
    file,
    `-----BEGIN NATS USER JWT-----\n${token(issuer, user.getPublicKey(), claims)}\n------END NATS USER JWT------\n\n` +
      `-----BEGIN USER NKEY SEED-----\n${Buffer.from(user.getSeed())}\n------END USER NKEY SEED------\n`,
    { mode: 0o600 },
  );
  return file;
}

writeFileSync(
  join(folder, "nats.conf"),
  `host: 127.0.0.1\nport: -1\njetstream { store_dir: "${folder}/store" }\n` +
    `operator: ${token(operator, operator.getPublicKey(), { type: "operator", version: 2 })}\n` +
    `system_account: ${system.getPublicKey()}\nresolver: MEMORY\nresolver_preload: {\n` +
    `  ${system.getPublicKey()}: ${accountToken(system)}\n  ${account.getPublicKey()}: ${accountToken(account)}\n}\n`,
);
const server = await startServer("nats.conf");

/** A task's way to the device and back, with what kelctl may show to be let in. */
function send(access) {
  writeFileSync(join(folder, "fleet.json"), JSON.stringify({ access }));
  const task = ["send", "TASK_ID_APPLICATION_DEBUG_VAL", "--val", "1", "2", "3"];
  return spawnSync(kelctl, [...task, "--device", `nats://${server}/lab/bench`], {
    encoding: "utf8",
    env: { ...process.env, KELHANDLER_FLEET: join(folder, "fleet.json") },
  });
}

test("keld and a client are let in by their credentials", async () => {
  const device = ["--site", "lab", "--device", "bench", "--credentials", credentials("keld", account)];
  await start(keld, ["run", "--server", server, ...device], /^(?=[^]*"state":"connected")[^]*the device is offered/);
  const answer = send({ credentialsFile: credentials("client", account) });
  assert.equal(answer.status, 0, answer.stderr);
});

test("without credentials, or with a stranger's, nobody is let in", () => {
  for (const access of [{}, { credentialsFile: credentials("stranger", createAccount()) }]) {
    const answer = send(access);
    assert.equal(answer.status, 4);
    assert.match(answer.stderr, /Authori[sz]ation|Authentication/i);
  }
});

after(endAll);
