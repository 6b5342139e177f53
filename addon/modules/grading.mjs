// Verdicts, and what follows from them in the mail client.

import { HostError } from "./host.mjs";
import { forAll, isJunk, isTrash, keyOf, rawMail } from "./mail.mjs";
import { readSettings } from "./settings.mjs";

export const UNSURE_TAG = "tessivar-unsure";
const LETTER = { spam: "s", ham: "h", unsure: "u" };

export class Grader {
  #api;
  #host;
  #memory;
  #makesTag = null;

  constructor(api, host, memory) {
    this.#api = api;
    this.#host = host;
    this.#memory = memory;
  }

  // Grades messages and marks them. Tells settled(message, verdict, error, changed) of each that has a verdict, or
  // can't have one by its own fault; `changed`: a mark was made or taken away. The others wait for the host; `error`
  // is what is wrong with it: { left, error }.
  async grade(messages, settled = () => {}) {
    const left = [];
    let failure = null;
    const spam = [];
    const take = async message => {
      try {
        const { verdict, changed } = await this.#gradeOne(message);
        if (verdict === "spam") {
          spam.push(message);
        }
        settled(message, verdict, null, changed);
      } catch (error) {
        if (error instanceof HostError && error.passes && error.code !== "broke") {
          failure ??= error;
          left.push(message);
        } else {
          settled(message, null, error);
        }
      }
    };
    await forAll(messages, take);
    await this.#move(spam);
    return { left, error: failure };
  }

  async #gradeOne(message) {
    const key = keyOf(message);
    const bytes = await rawMail(this.#api, message);
    const { verdict } = await this.#host.mail("grade", bytes);
    const before = this.#memory.get(key);
    // Our own mark goes when we know better. The user's word counts more than ours.
    const unmarks = verdict !== "spam" && message.junk && before.v === "s" && !before.t;
    await this.#memory.note([[key, { v: LETTER[verdict] }]]);
    const mayChange = unmarks || verdict !== "ham" || message.tags.includes(UNSURE_TAG);
    const changed = mayChange && (await this.#mark(await this.#api.messages.get(message.id), verdict, unmarks));
    return { verdict, changed };
  }

  // `message` as it is now: the user may have been at it meanwhile. Answers whether there was something to do.
  async #mark(message, verdict, unmarks) {
    const key = keyOf(message);
    const { tagUnsure } = await readSettings(this.#api.storage.local);
    const tagged = message.tags.includes(UNSURE_TAG);
    const wanted = verdict === "unsure" && tagUnsure;
    const change = {};
    if (wanted !== tagged) {
      if (wanted) {
        await this.#needTag();
      }
      change.tags = message.tags.filter(tag => tag !== UNSURE_TAG);
      if (wanted) {
        change.tags.push(UNSURE_TAG);
      }
    }
    if (unmarks ? message.junk : verdict === "spam" && !message.junk) {
      change.junk = !unmarks;
    }
    if (Object.keys(change).length === 0 || this.#memory.get(key).t) {
      return false;
    }
    // Noted first: the event is then known to be ours. That of a mark of spam is by the verdict.
    const own = mark => this.#memory.note(change.junk === false ? [[key, { own: mark }]] : []);
    await own("h");
    try {
      await this.#api.messages.update(message.id, change);
    } catch (error) {
      await own(undefined);
      throw error;
    }
    return true;
  }

  // Once for all messages that are graded at the same time.
  #needTag() {
    this.#makesTag ??= this.#makeTag().finally(() => (this.#makesTag = null));
    return this.#makesTag;
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
