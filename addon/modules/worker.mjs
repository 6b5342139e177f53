// Does the jobs that wait: mail to be graded, and what the user taught. While the host can't be had they stay,
// and are tried again.

import { HostError } from "./host.mjs";
import { findMessage, rawMail } from "./mail.mjs";

const AT_ONCE = 16;
const FIRST_PAUSE = 0.25; // minutes
const LONGEST_PAUSE = 10;
export const RETRY_ALARM = "retry";

export class Worker {
  #api;
  #host;
  #memory;
  #grader;
  #running = null;
  #pause = FIRST_PAUSE;
  #error = null;

  constructor(api, host, memory, grader) {
    this.#api = api;
    this.#host = host;
    this.#memory = memory;
    this.#grader = grader;
  }

  // The failure that holds the jobs up, or null.
  get error() {
    return this.#error;
  }

  // Works until no job is left or the host is away. One run at a time.
  run() {
    this.#running ??= this.#work().finally(() => (this.#running = null));
    return this.#running;
  }

  async #work() {
    while (this.#memory.jobCount > 0) {
      const { jobs } = this.#memory;
      // The user's word first: it may change the verdicts on the rest.
      const first = jobs.find(job => job.kind === "train");
      const error = first
        ? await this.#train(first)
        : await this.#grade(jobs.filter(job => job.kind === "grade").slice(0, AT_ONCE));
      if (error) {
        this.#error = error.message;
        await this.#api.alarms.create(RETRY_ALARM, { delayInMinutes: this.#pause });
        this.#pause = Math.min(2 * this.#pause, LONGEST_PAUSE);
        return;
      }
      this.#error = null;
      this.#pause = FIRST_PAUSE;
    }
  }

  async #train(job) {
    try {
      const message = await findMessage(this.#api, job);
      if (message) {
        const bytes = await rawMail(this.#api, message.id);
        await this.#host.mail(job.corrects ? "correct" : "train", bytes, { spam: job.spam });
      }
    } catch (error) {
      if (error instanceof HostError && error.passes) {
        return error;
      }
      console.warn("Tessivar: a message can't be learned:", error);
    }
    await this.#memory.finish([job]);
    return null;
  }

  async #grade(jobs) {
    const messages = [];
    const byId = new Map();
    const done = [];
    for (const job of jobs) {
      const message = this.#memory.get(job.key).v && !job.again ? null : await findMessage(this.#api, job);
      if (message) {
        messages.push(message);
        byId.set(message.id, job);
      } else {
        done.push(job);
      }
    }
    const { error } = await this.#grader.grade(messages, message => done.push(byId.get(message.id)));
    if (done.length > 0) {
      await this.#memory.finish(done);
    }
    return error;
  }
}
