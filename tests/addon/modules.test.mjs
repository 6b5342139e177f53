// The add-on's logic, without Thunderbird: node --test tests/addon

import assert from "node:assert/strict";
import { readFileSync, readdirSync } from "node:fs";
import { mock, test } from "node:test";

import { FolderWork } from "../../addon/modules/folders.mjs";
import { Grader, UNSURE_TAG } from "../../addon/modules/grading.mjs";
import { Host, toBase64 } from "../../addon/modules/host.mjs";
import { findMessage, keyOf, withoutOwnHeaders } from "../../addon/modules/mail.mjs";
import { Memory } from "../../addon/modules/memory.mjs";
import { Trainer } from "../../addon/modules/training.mjs";
import { Worker } from "../../addon/modules/worker.mjs";
import { describeToken, sides } from "../../addon/pages/tokens.mjs";
import { MockClient, MockHost, MockPort } from "./mock.mjs";

// No test waits for what happens after seconds.
const { setTimeout: realSetTimeout } = globalThis;
globalThis.setTimeout = (...all) => realSetTimeout(...all).unref();

const INBOX = { id: "inbox", accountId: "a", specialUse: ["inbox"] };
const JUNK = { id: "junk", accountId: "a", specialUse: ["junk"] };
const TRASH = { id: "trash", accountId: "a", specialUse: ["trash"] };
const bytes = text => new TextEncoder().encode(text);
const list = (...messages) => ({ id: null, messages });

// The whole add-on behind its event page; again() is a restart of Thunderbird.
async function addOn(client = new MockClient(), host = new MockHost()) {
  const memory = new Memory(client.storage.local);
  await memory.load();
  const grader = new Grader(client, host, memory);
  const trainer = new Trainer(client, memory);
  const worker = new Worker(client, host, memory, grader);
  const work = new FolderWork(client, host, memory, grader);
  const queue = async (...messages) =>
    memory.note(
      [],
      messages.map(each => ({ kind: "grade", key: keyOf(each), id: each.id, folderId: each.folder.id, headerMessageId: each.headerMessageId }))
    );
  return { client, host, memory, grader, trainer, worker, work, queue, again: () => addOn(client, host) };
}

test("a small message travels in one request, a large one in pieces, and no more than is looked at", async () => {
  const port = new MockPort(({ op, mail }) => ({ op, got: mail }));
  const host = new Host(() => port);
  await host.mail("grade", bytes("abcdef"));
  await host.mail("train", bytes("0123456789abcdefghij"), { spam: true });
  assert.deepEqual(
    port.sent.map(({ op, mail, put, size, spam }) => [op, mail && atob(mail), put, size, spam]),
    [
      ["hello", undefined, undefined, undefined, undefined],
      ["grade", "abcdef", undefined, 6, undefined],
      ["put", "012345", 3, undefined, undefined],
      ["put", "6789ab", 3, undefined, undefined],
      ["put", "cdef", 3, undefined, undefined],
      ["train", undefined, 3, 20, true],
    ]
  );
  host.close();
  assert.equal(toBase64(new Uint8Array(100000).fill(255)).length, 133336);
});

test("a host that goes takes its requests with it, and is started again for the next one", async () => {
  const ports = [new MockPort(() => null), new MockPort(() => ({ fine: true }))];
  let started = 0;
  const host = new Host(() => ports[started++]);
  const asked = [host.request("status"), host.request("settings")];
  await new Promise(setImmediate);
  ports[0].break();
  await assert.rejects(asked[0], { code: "broke", passes: true });
  await assert.rejects(asked[1], { code: "gone", passes: true });
  assert.equal((await host.request("status")).fine, true);
  host.close();
  const refusing = new Host(() => new MockPort(() => ({ error: { code: "no_base", text: "none" } })));
  await assert.rejects(refusing.request("grade"), { code: "no_base", passes: false, message: "none" });
  refusing.close();
});

test("Thunderbird's own header lines are left out, wherever they stand", () => {
  const rows = [
    ["A: b\r\n\r\nX-UIDL: body\r\n", "A: b\r\n\r\nX-UIDL: body\r\n"],
    ["X-Mozilla-Status: 0001\nX-Mozilla-Status2: 0\nX-Mozilla-Keys:  \nA: b\n\nc", "A: b\n\nc"],
    ["A: b\n c\nX-Account-Key: x\n y\nD: e\n\n", "A: b\n c\nD: e\n\n"],
    ["X-Mozilla-Statuses: 1\n", "X-Mozilla-Statuses: 1\n"],
    ["", ""],
  ];
  for (const [raw, wanted] of rows) {
    assert.equal(new TextDecoder().decode(withoutOwnHeaders(bytes(raw))), wanted);
  }
});

test("a message is known again after a move and a restart, and not taken for another of its name", async () => {
  const client = new MockClient();
  client.add("m", "A: b", INBOX, { author: "other" });
  const message = client.add("m", "A: b", JUNK);
  const job = { key: keyOf(message), folderId: "inbox", headerMessageId: "m" };
  assert.equal(await findMessage(client, { ...job, id: 99 }), message);
  assert.equal(await findMessage(client, { ...job, id: 1 }), message);
  client.all.delete(message.id);
  assert.equal(await findMessage(client, job), null);
});

test("spam is marked and moved, the unsure tagged, and the user's word counts more", async () => {
  const { client, worker, memory, queue, again } = await addOn();
  client.stored.settings = { move: true };
  const spam = client.add("1", "Subject: spam", INBOX);
  const unsure = client.add("2", "Subject: unsure", INBOX, { tags: ["mine"] });
  const ham = client.add("3", "Subject: x", INBOX, { tags: [UNSURE_TAG] });
  const taught = client.add("4", "Subject: spam", INBOX);
  const broken = client.add("5", "not_mail", INBOX);
  await memory.note([[keyOf(taught), { t: "h" }]]);
  await queue(spam, unsure, ham, taught, broken);
  await worker.run();
  assert.deepEqual(
    client.changes.filter(([what]) => typeof what === "number").sort(([a], [b]) => a - b),
    [
      [spam.id, { junk: true }],
      [unsure.id, { tags: ["mine", UNSURE_TAG] }],
      [ham.id, { tags: [] }],
    ]
  );
  assert.deepEqual(client.changes.at(-1), ["move", [spam.id], "junk"]);
  assert.equal(memory.jobCount, 0);

  // Killed before the server knows of the tag.
  unsure.tags = ["mine"];
  const later = await again();
  assert.equal(later.memory.jobCount, 3);
  await later.worker.run();
  assert.deepEqual(unsure.tags, ["mine", UNSURE_TAG]);
  assert.equal(later.memory.jobCount, 0);
});

test("our own mark goes when we know better, and teaches nothing by it", async () => {
  const { client, host, worker, trainer, memory, queue } = await addOn();
  const message = client.add("1", "Subject: x", INBOX, { junk: true });
  await memory.note([[keyOf(message), { v: "s" }]]);
  await queue(message);
  await worker.run();
  assert.deepEqual(client.changes, [[message.id, { junk: false }]]);
  host.asked = [];
  await trainer.onUpdated(message, { junk: false });
  await trainer.onUpdated(message, { junk: true });
  await worker.run();
  assert.deepEqual(host.asked, ["train true"]);
});

test("what the user does is learned once and corrected when taken back; what we did is not", async () => {
  const { client, host, worker, trainer, memory } = await addOn();
  const own = client.add("1", "A: b", INBOX);
  const other = client.add("2", "A: b", INBOX);
  await memory.note([[keyOf(own), { v: "s" }]]);
  const inJunk = { ...other, folder: JUNK };
  const events = [
    [() => trainer.onUpdated(own, { junk: true }), ""], // our own mark
    [() => trainer.onMoved(list(own), list({ ...own, folder: JUNK })), ""], // and our own move
    [() => trainer.onUpdated(own, { junk: false }), "train false"],
    [() => trainer.onUpdated(own, { junk: true }), "correct true"],
    [() => trainer.onUpdated(other, { read: true }), ""],
    [() => trainer.onUpdated(other, { junk: true }), "train true"],
    [() => trainer.onMoved(list(other), list(inJunk)), ""], // by the same key press
    [() => trainer.onMoved(list(inJunk), list({ ...other, folder: TRASH })), ""],
    [() => trainer.onMoved(list(inJunk), list(other)), "correct false"],
    [() => trainer.onUpdated(other, { junk: false }), ""],
    [() => trainer.say(other, true), "correct true"],
  ];
  for (const [event, wanted] of events) {
    host.asked = [];
    await event();
    await worker.run();
    assert.equal(host.asked.join(), wanted, String(event));
  }
});

test("while the host is away everything waits, over a restart, and is done in its order", async () => {
  const first = await addOn();
  const { client, host } = first;
  host.away = true;
  const [a, b] = [client.add("1", "Subject: spam", INBOX), client.add("2", "A: b", INBOX)];
  await first.queue(a);
  await first.trainer.onUpdated(b, { junk: true });
  await first.trainer.onUpdated(b, { junk: false });
  await first.worker.run();
  await first.worker.run();
  assert.deepEqual(client.alarmsSet, [["retry", 0.25], ["retry", 0.5]]);
  assert.equal(first.worker.error, "away");

  const second = await first.again();
  host.away = false;
  client.all.set(77, { ...b, id: 77, folder: JUNK }); // moved meanwhile
  client.all.delete(b.id);
  await second.worker.run();
  assert.deepEqual(host.asked, ["train true", "correct false", "grade"]);
  assert.equal(second.worker.error, null);
  assert.equal((await second.again()).memory.jobCount, 0);
});

test("what can't be read now, or breaks the host, holds up nothing else", async () => {
  const { client, memory, queue, trainer, worker } = await addOn();
  const [away, breaks, other, fine] = [null, "broken", "not_mail", "A: b"].map((raw, at) => client.add(`${at}`, raw, INBOX));
  for (const message of [away, breaks, other, fine]) {
    await queue(message);
  }
  await worker.run();
  assert.deepEqual([memory.get(keyOf(fine)).v, memory.jobCount, client.alarmsSet.length], ["h", 2, 1]);
  away.raw = ""; // as of one that the server has moved
  await worker.run();
  assert.deepEqual([memory.get(keyOf(away)).v, memory.jobCount], [undefined, 2]);
  away.raw = undefined;
  mock.timers.enable({ apis: ["setTimeout"] });
  const run = worker.run();
  await new Promise(setImmediate);
  mock.timers.tick(60000);
  await run;
  mock.timers.reset();
  assert.match(worker.error, /stopped in the middle/);
  away.raw = "A: b";
  await worker.run();
  assert.deepEqual([memory.get(keyOf(away)).v, memory.jobCount], ["h", 0]);
  assert.equal(worker.error, null);

  away.raw = null;
  await trainer.onUpdated(away, { junk: true });
  await trainer.onUpdated(away, { junk: false });
  await worker.run();
  assert.deepEqual(memory.jobs.map(({ spam }) => spam), [false]); // the user's last word
  client.add(away.headerMessageId, "A: b", JUNK); // the copy to which it was moved
  await worker.run();
  assert.equal(memory.jobCount, 0);
});

test("a folder is learned with progress; what was handed over is known after a failure", async () => {
  const { client, host, work, memory, again } = await addOn();
  const messages = Array.from({ length: 40 }, (_, at) => client.add(`m${at}`, "A: b", INBOX));
  const wanted = { kind: "learn", folders: ["inbox"], spam: [] };
  let asked = 0;
  const request = host.request;
  host.request = async (op, fields) => {
    host.away = ++asked > 30; // the first sixteen are settled, then it goes
    return request.call(host, op, fields);
  };
  await work.start(wanted);
  assert.equal(work.state.error, "away");
  assert.deepEqual(client.stored.work, wanted);
  assert.equal(messages.filter(each => memory.get(keyOf(each)).t === "h").length, 16);

  host.request = request;
  host.away = false;
  host.asked = [];
  const later = await again();
  await later.work.resume();
  assert.equal(host.asked.filter(op => op === "learn").length, 24);
  assert.equal(later.work.state.done, 40);
  assert.equal(client.stored.work, undefined);
});

test("grading a folder counts, and can be cancelled", async () => {
  const { client, work } = await addOn();
  for (let at = 0; at < 50; at++) {
    client.add(`m${at}`, at % 2 ? "Subject: spam" : "A: b", INBOX);
  }
  const running = work.start({ kind: "grade", folders: ["inbox"] });
  assert.equal(await work.start({ kind: "grade", folders: ["inbox"] }), false);
  await running;
  assert.deepEqual(work.state.counts, { ham: 25, spam: 25 });
  const again = work.start({ kind: "grade", folders: ["inbox"] });
  work.cancel();
  await again;
  assert.ok(work.state.done < 50 && work.state.ended);
});

test("tokens are told to a person by where they stood", () => {
  const rows = [
    ["B Approved", "Approved", "kindText"],
    ["H subject:free", "free", "kindSubject"],
    ["H x-mailer:bat", "x-mailer: bat", "kindHeader"],
    ["F from:a@b", "a@b", "kindSender"],
    ["F to:a@b", "a@b", "kindAddress"],
    ["F link:b.example", "b.example", "kindLink"],
    ["M type:text/html", "type:text/html", "kindShape"],
    ["?", "", "kindOther"],
  ];
  for (const [token, word, kind] of rows) {
    assert.deepEqual(describeToken(token), { word, kind });
  }
  const { spam, ham, most } = sides([{ share: 1 }, { share: -3 }, { share: 2 }, { share: 0 }]);
  assert.deepEqual([spam.map(each => each.share), ham.length, most], [[2, 1], 1, 3]);
});

test("both languages have the same texts, and the sources use no others", () => {
  const root = new URL("../../addon/", import.meta.url);
  const read = name => readFileSync(new URL(name, root), "utf8");
  const [en, de] = ["en", "de"].map(each => JSON.parse(read(`_locales/${each}/messages.json`)));
  assert.deepEqual(Object.keys(en), Object.keys(de));
  for (const [name, { message }] of Object.entries(en)) {
    assert.deepEqual(message.match(/\$\d/g), de[name].message.match(/\$\d/g), name);
  }
  const files = ["", "pages/", "modules/"].flatMap(folder =>
    readdirSync(new URL(folder || ".", root)).filter(name => /\.(mjs|html|json)$/.test(name)).map(name => folder + name)
  );
  const used = files.flatMap(name =>
    [...read(name).matchAll(/(?:text\(\s*|data-text=|getMessage\(|title\()"(\w+)"|__MSG_(\w+)__/g)].map(found => found[1] ?? found[2])
  );
  assert.ok(used.length > 40);
  assert.deepEqual(used.filter(name => !(name in en)), []);
});
