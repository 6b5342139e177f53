// Verdicts, and what follows from them in the mail client.

import { HostError } from "./host.mjs";
import { isJunk, isTrash, keyOf, rawMail } from "./mail.mjs";
import { readSettings } from "./settings.mjs";

export const UNSURE_TAG = "tessivar-unsure";
const LETTER = { spam: "s", ham: "h", unsure: "u" };

export class Grader {
  #api;
  #host;
  #memory;

  constructor(api, host, memory) {
    this.#api = api;
    this.#host = host;
    this.#memory = memory;
  }

  // Grades messages and marks them. `settled` are told of one by one: the message, and its verdict, or null if it
  // can't have one. What may succeed later is answered, with the error: { left, error }.
  async grade(messages, settled = () => {}) {
    const left = [];
    let failure = null;
    const spam = [];
    const take = async message => {
      try {
        const verdict = failure ? null : await this.#gradeOne(message);
        if (failure) {
          left.push(message);
          return;
        }
        if (verdict === "spam") {
          spam.push(message);
        }
        settled(message, verdict);
      } catch (error) {
        if (error instanceof HostError && error.passes) {
          failure ??= error;
          left.push(message);
        } else {
          // Gone meanwhile, no mail at all, or there is no base yet.
          settled(message, null, error);
        }
      }
    };
    await Promise.all(messages.map(take));
    await this.#move(spam);
    return { left, error: failure };
  }

  async #gradeOne(message) {
    const key = keyOf(message);
    const bytes = await rawMail(this.#api, message.id);
    const { verdict } = await this.#host.mail("grade", bytes);
    const before = this.#memory.get(key);
    // Our own mark goes when we know better. The user's word counts more than ours.
    const unmarks = verdict !== "spam" && message.junk && before.v === "s" && !before.t;
    // Noted first: the events that the changes below raise are then known to be ours.
    await this.#memory.note([[key, { v: LETTER[verdict], ...(unmarks && { own: "h" }) }]]);
    if (!before.t) {
      await this.#mark(message, verdict, unmarks);
    }
    return verdict;
  }

  async #mark(message, verdict, unmarks) {
    const { tagUnsure } = await readSettings(this.#api.storage.local);
    const tagged = message.tags.includes(UNSURE_TAG);
    const wanted = verdict === "unsure" && tagUnsure;
    const change = {};
    if (wanted !== tagged) {
      if (wanted) {
        await this.#makeTag();
      }
      change.tags = message.tags.filter(tag => tag !== UNSURE_TAG);
      if (wanted) {
        change.tags.push(UNSURE_TAG);
      }
    }
    if (unmarks || (verdict === "spam" && !message.junk)) {
      change.junk = !unmarks;
    }
    if (Object.keys(change).length > 0) {
      await this.#api.messages.update(message.id, change);
    }
  }

  async #makeTag() {
    const tags = await this.#api.messages.tags.list();
    if (!tags.some(tag => tag.key === UNSURE_TAG)) {
      const name = this.#api.i18n.getMessage("unsureTag");
      await this.#api.messages.tags.create(UNSURE_TAG, name, "#C47A00");
    }
  }

  async #move(messages) {
    const { move } = await readSettings(this.#api.storage.local);
    if (!move || messages.length === 0) {
      return;
    }
    const byAccount = new Map();
    for (const message of messages) {
      const { folder } = message;
      if (folder && !isJunk(folder) && !isTrash(folder) && !this.#memory.get(keyOf(message)).t) {
        byAccount.set(folder.accountId, [...(byAccount.get(folder.accountId) ?? []), message.id]);
      }
    }
    for (const [accountId, ids] of byAccount) {
      try {
        const [junk] = await this.#api.folders.query({ accountId, specialUse: ["junk"] });
        if (junk) {
          await this.#api.messages.move(ids, junk.id);
        }
      } catch (error) {
        console.warn("Tessivar: spam can't be moved:", error);
      }
    }
  }
}
