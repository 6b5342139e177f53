// What the user's marks and moves teach.

import { allMessages, isJunk, isTrash, keyOf } from "./mail.mjs";

// What a message counts as, by what is known of it: the user's word, or our own mark.
const believed = record => record.t ?? (record.v === "s" ? "s" : undefined);

export class Trainer {
  #memory;
  #api;

  constructor(api, memory) {
    this.#api = api;
    this.#memory = memory;
  }

  // Each answers whether there is something to learn now; it is among the memory's jobs then.

  async onUpdated(message, changed) {
    return changed.junk === undefined ? false : this.#learn([[message, changed.junk]]);
  }

  async onMoved(originals, moved) {
    const from = new Map();
    for await (const message of allMessages(this.#api, originals)) {
      from.set(keyOf(message), message.folder);
    }
    const verdicts = [];
    for await (const message of allMessages(this.#api, moved)) {
      const was = from.get(keyOf(message));
      if (isJunk(message.folder) && !isJunk(was)) {
        verdicts.push([message, true]);
      } else if (isJunk(was) && !isJunk(message.folder) && !isTrash(message.folder)) {
        verdicts.push([message, false]);
      }
    }
    return this.#learn(verdicts);
  }

  // By a button: also where Thunderbird's own mark stays as it is.
  async say(message, spam) {
    const learned = await this.#learn([[message, spam]]);
    if (message.folder && message.junk !== spam) {
      await this.#api.messages.update(message.id, { junk: spam });
    }
    return learned;
  }

  // A message is learned once: a mark that repeats what it counts as already, as each of our own does, teaches
  // nothing; the opposite one corrects it.
  async #learn(verdicts) {
    const records = [];
    const jobs = [];
    for (const [message, spam] of verdicts) {
      const key = keyOf(message);
      const wanted = spam ? "s" : "h";
      const record = this.#memory.get(key);
      if (record.own === wanted) {
        records.push([key, { own: undefined }]);
        continue;
      }
      if (believed(record) === wanted) {
        continue;
      }
      records.push([key, { t: wanted }]);
      jobs.push({
        kind: "train",
        key,
        spam,
        corrects: record.t !== undefined,
        id: message.id,
        folderId: message.folder?.id,
        headerMessageId: message.headerMessageId,
      });
    }
    if (records.length > 0) {
      await this.#memory.note(records, jobs);
    }
    return jobs.length > 0;
  }
}
