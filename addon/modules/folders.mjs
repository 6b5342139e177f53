// Work on whole folders, with progress and cancel: grading on request, and learning what lies in them.

import { HostError } from "./host.mjs";
import { allMessages, forAll, keyOf, rawMail } from "./mail.mjs";
import { RETRY_ALARM } from "./worker.mjs";

const AT_ONCE = 16;
const RETRY_PAUSE = 1; // minutes

// One piece of work at a time. What was begun and not finished goes on after a restart of Thunderbird.
export class FolderWork {
  #api;
  #host;
  #memory;
  #grader;
  #state = null;

  constructor(api, host, memory, grader) {
    this.#api = api;
    this.#host = host;
    this.#memory = memory;
    this.#grader = grader;
  }

  // What is under way or was done last, for the pages; null if there was nothing.
  get state() {
    return this.#state;
  }

  get isRunning() {
    return this.#state !== null && !this.#state.ended;
  }

  cancel() {
    if (this.isRunning) {
      this.#state.cancelled = true;
    }
  }

  // Goes on with what was begun and not finished.
  async resume() {
    const { work } = await this.#api.storage.local.get("work");
    if (work) {
      await this.start(work, true);
    }
  }

  // `work`: { kind: "grade", folders: [ID] }, or { kind: "learn", folders: [ID], spam: [ID] } of which the first
  // hold good mail. False if something is under way already.
  async start(work, resumes = false) {
    if (this.isRunning) {
      return false;
    }
    const state = {
      kind: work.kind,
      done: 0,
      total: 0,
      counts: {},
      folder: "",
      cancelled: false,
      ended: false,
      error: null,
      resumes,
      work,
    };
    this.#state = state;
    let goesOn = false;
    await this.#api.storage.local.set({ work });
    try {
      const folders = [
        ...work.folders.map(id => ({ id, spam: false })),
        ...(work.spam ?? []).map(id => ({ id, spam: true })),
      ];
      for (const folder of folders) {
        const { totalMessageCount } = await this.#api.folders.getFolderInfo(folder.id);
        state.total += totalMessageCount ?? 0;
      }
      for (const folder of folders) {
        state.folder = (await this.#api.folders.get(folder.id)).name;
        await (work.kind === "learn" ? this.#learn(folder, state) : this.#grade(folder, state));
      }
    } catch (error) {
      state.error = error.message;
      goesOn = error instanceof HostError && error.passes && !state.cancelled;
    }
    state.ended = true;
    if (goesOn) {
      await this.#api.alarms.create(RETRY_ALARM, { delayInMinutes: RETRY_PAUSE });
    } else {
      await this.#api.storage.local.remove("work");
    }
    return true;
  }

  // What the host broke at is passed over when the work is begun again.
  async #blame(message, state) {
    state.work.broken = [...(state.work.broken ?? []), keyOf(message)];
    await this.#api.storage.local.set({ work: state.work });
  }

  // Calls work(messages) for the folder's messages, some at a time, until it is cancelled.
  async #each(folder, state, work) {
    let some = [];
    const flush = async () => {
      await work(some);
      state.done += some.length;
      some = [];
    };
    for await (const message of allMessages(this.#api, this.#api.messages.list(folder.id))) {
      if (state.cancelled) {
        return;
      }
      if (state.work.broken?.includes(keyOf(message))) {
        state.counts.skipped = (state.counts.skipped ?? 0) + 1;
        continue;
      }
      some.push(message);
      if (some.length === AT_ONCE) {
        await flush();
      }
    }
    await flush();
  }

  async #grade(folder, state) {
    await this.#each(folder, state, async messages => {
      let fault = null;
      let broken = null;
      const { error } = await this.#grader.grade(messages, (message, verdict, why) => {
        if (why instanceof HostError && (why.passes || why.code === "no_base")) {
          fault = why;
          broken = why.passes ? message : broken;
          return;
        }
        const name = verdict ?? "skipped";
        state.counts[name] = (state.counts[name] ?? 0) + 1;
      });
      if (broken) {
        await this.#blame(broken, state);
      }
      if (error || fault) {
        throw error ?? fault;
      }
    });
  }

  #learn({ id, spam }, state) {
    return this.#host.during(async () => {
      await this.#host.request("learn-folder", { spam });
      const earlier = { ...state.counts };
      // What the host has collected and not handed over would go with it, and so isn't noted yet.
      let taken = [];
      const settle = async ({ learned, known }) => {
        const settled = taken;
        taken = [];
        state.counts.learned = (earlier.learned ?? 0) + learned;
        state.counts.knownToEngine = (earlier.knownToEngine ?? 0) + known;
        await this.#memory.note(settled.map(key => [key, { t: spam ? "s" : "h" }]));
      };
      await this.#each({ id }, state, async messages => {
        const replies = await forAll(messages, message => this.#learnOne(message, spam, state, taken));
        const last = replies.filter(reply => reply).sort((a, b) => a.id - b.id).at(-1);
        if (last?.waiting === 0) {
          await settle(last);
        }
      });
      await settle(await this.#host.request("learn-end"));
    });
  }

  async #learnOne(message, spam, state, taken) {
    const key = keyOf(message);
    const add = name => (state.counts[name] = (state.counts[name] ?? 0) + 1);
    // The engine knows best what it has learned, and may have been told to forget; this is only for speed.
    if (state.resumes && this.#memory.get(key).t === (spam ? "s" : "h")) {
      add("known");
      return null;
    }
    try {
      const reply = await this.#host.mail("learn", await rawMail(this.#api, message));
      taken.push(key);
      return reply;
    } catch (error) {
      if (error instanceof HostError && error.passes) {
        if (error.code === "broke") {
          await this.#blame(message, state);
        }
        throw error;
      }
      add("skipped");
      return null;
    }
  }
}
