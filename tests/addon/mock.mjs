// A mail client that exists in memory only, as far as the add-on's modules use one; and a host beside it.

import { HostError } from "../../addon/modules/host.mjs";

export class MockClient {
  stored = {};
  all = new Map(); // messages by their numbers
  changes = [];
  alarmsSet = [];
  #nextId = 1;

  add(headerMessageId, raw, folder, more = {}) {
    const message = {
      id: this.#nextId++,
      headerMessageId,
      date: new Date(0),
      author: "a@b.example",
      junk: false,
      tags: [],
      folder,
      raw,
      ...more,
    };
    this.all.set(message.id, message);
    return message;
  }

  #list = messages => ({ id: null, messages });

  storage = {
    local: {
      get: async name => (name === null ? { ...this.stored } : name in this.stored ? { [name]: this.stored[name] } : {}),
      set: async items => void Object.assign(this.stored, structuredClone(items)),
      remove: async names => [names].flat().forEach(name => delete this.stored[name]),
    },
  };
  messages = {
    get: async id => this.all.get(id) ?? Promise.reject(new Error("gone")),
    getRaw: async id => {
      const { raw } = await this.messages.get(id);
      if (raw === undefined) {
        return new Promise(() => {}); // the connection has broken
      }
      return raw === null ? Promise.reject(new Error("the server is away")) : new Blob([raw]);
    },
    list: async folderId => this.#list([...this.all.values()].filter(({ folder }) => folder.id === folderId)),
    query: async ({ folderId, headerMessageId }) =>
      this.#list(
        [...this.all.values()].filter(
          each => (!folderId || each.folder.id === folderId) && each.headerMessageId === headerMessageId
        )
      ),
    update: async (id, change) => {
      this.changes.push([id, change]);
      Object.assign(this.all.get(id), change);
    },
    move: async (ids, folderId) => void this.changes.push(["move", ids, folderId]),
    tags: { list: async () => [], create: async key => void this.changes.push(["tag", key]) },
  };
  folders = {
    query: async ({ accountId }) => [{ id: "junk", accountId, specialUse: ["junk"] }],
    get: async id => ({ id, name: id }),
    getFolderInfo: async id => ({ totalMessageCount: (await this.messages.list(id)).messages.length }),
  };
  alarms = { create: async (name, when) => void this.alarmsSet.push([name, when.delayInMinutes]) };
  i18n = { getMessage: name => name };
}

// Grades by what a message says: "Subject: spam", "unsure", or anything else.
export class MockHost {
  asked = [];
  away = false;
  waiting = 0; // messages collected and not handed over

  async request(op, fields = {}) {
    if (this.away) {
      throw new HostError("gone", "away");
    }
    this.asked.push([op, fields.spam].filter(each => each !== undefined).join(" "));
    return { id: this.asked.length, learned: 1, known: 0, waiting: this.waiting };
  }

  async mail(op, bytes, fields = {}) {
    const text = new TextDecoder().decode(bytes);
    const fault = /broken|not_mail/.exec(text)?.[0];
    if (op === "grade" && fault) {
      throw new HostError(fault.replace("broken", "broke"), "no verdict");
    }
    const reply = await this.request(op, fields);
    const [, verdict = "ham"] = /Subject: (spam|unsure)/.exec(text) ?? [];
    return { ...reply, verdict, score: 50 };
  }

  during = work => work();
}

// The other end of a port, which answers as `answers` says.
export class MockPort {
  sent = [];
  #listeners = { message: [], disconnect: [] };
  onMessage = { addListener: listener => this.#listeners.message.push(listener) };
  onDisconnect = { addListener: listener => this.#listeners.disconnect.push(listener) };

  constructor(answers) {
    this.answers = answers;
  }

  postMessage(message) {
    this.sent.push(message);
    const reply = message.op === "hello" ? { piece: 6, mail: 16 } : this.answers(message);
    if (reply) {
      queueMicrotask(() => this.#listeners.message.forEach(listener => listener({ ...reply, id: message.id })));
    }
  }

  disconnect() {}

  break() {
    this.#listeners.disconnect.forEach(listener => listener());
  }
}
