// Does the jobs that wait: mail to be graded, and what the user taught. While the host can't be had they stay,
// and are tried again.

import { HostError } from "./host.mjs";
import { findMessage, readAnyCopy, ReadError } from "./mail.mjs";

const AT_ONCE = 16;
const FIRST_PAUSE = 0.25; // minutes
const LONGEST_PAUSE = 10;
const MINUTE = 60 * 1000;
const LONGEST_UNREAD = 3 * 24 * 60 * MINUTE; // until a message that can't be read is given up
const LONGEST_MISSING = 10 * MINUTE; // the same for one that isn't found: it may be on its way to another folder
const MOST_BREAKS = 3; // of the host at one message
// A mark that Thunderbird has made goes with it if it is killed before the mail server knows of it. So long the job
// stays, and is done again when it is found by a new start.
const SETTLING = 20; // seconds
export const RETRY_ALARM = "retry";

class MissingError extends Error {}

function mayDoLater(error, tries, age) {
  if (error instanceof HostError) {
    return error.code === "broke" && tries < MOST_BREAKS;
  }
  return (
    (error instanceof MissingError && age < LONGEST_MISSING) || (error instanceof ReadError && age < LONGEST_UNREAD)
  );
}

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

  // Works until no job is left, or none that can be done now. One run at a time.
  run() {
    this.#running ??= this.#work().finally(() => (this.#running = null));
    return this.#running;
  }

  async #work() {
    const later = new Set(); // the numbers of what was tried in vain
    for (;;) {
      const jobs = this.#memory.jobs.filter(job => !later.has(job.n));
      // The user's word first: it may change the verdicts on the rest.
      const first = jobs.find(job => job.kind === "train");
      if (jobs.length === 0) {
        return this.#memory.jobCount > 0 ? this.#tryLater(this.#error) : undefined;
      }
      const error = first ? await this.#train(first, later) : await this.#grade(jobs.slice(0, AT_ONCE), later);
      if (error) {
        return this.#tryLater(error.message);
      }
      if (later.size === 0) {
        this.#error = null;
        this.#pause = FIRST_PAUSE;
      }
    }
  }

  async #tryLater(error) {
    this.#error = error;
    await this.#api.alarms.create(RETRY_ALARM, { delayInMinutes: this.#pause });
    this.#pause = Math.min(2 * this.#pause, LONGEST_PAUSE);
  }

  // Whether the user has said something else of the message since.
  #isOvertaken(job) {
    const overtakes = other => other.kind === "train" && other.key === job.key && other.n > job.n;
    return job.kind === "train" && this.#memory.jobs.some(overtakes);
  }

  // Takes jobs off that came to nothing, but for those that may do later, which go to the end.
  async #putOff(failed, later) {
    const again = [];
    for (const { job, error } of failed) {
      const { tries = 0, since = Date.now() } = job;
      if (!this.#isOvertaken(job) && mayDoLater(error, tries + 1, Date.now() - since)) {
        again.push({ ...job, tries: tries + 1, since });
        this.#error = error.message;
      } else {
        console.warn("Tessivar: a message can't be taken:", error);
      }
    }
    await this.#memory.note([], again);
    again.forEach(job => later.add(job.n));
    await this.#memory.finish(failed.map(({ job }) => job));
  }

  async #train(job, later) {
    try {
      const bytes = await readAnyCopy(this.#api, job);
      if (!bytes) {
        throw new MissingError();
      }
      await this.#host.mail(job.corrects ? "correct" : "train", bytes, { spam: job.spam });
      await this.#memory.finish([job]);
    } catch (error) {
      if (error instanceof HostError && error.passes && error.code !== "broke") {
        return error;
      }
      await this.#putOff([{ job, error }], later);
    }
    return null;
  }

  async #grade(jobs, later) {
    const messages = [];
    const byId = new Map();
    const done = [];
    const failed = [];
    for (const job of jobs) {
      // One with a verdict is graded again: its mark may not have been made before Thunderbird ended.
      const message = await findMessage(this.#api, job);
      if (message) {
        messages.push(message);
        byId.set(message.id, job);
      } else {
        failed.push({ job, error: new MissingError() });
      }
    }
    const settling = [];
    const { error } = await this.#grader.grade(messages, (message, verdict, why, changed) => {
      const job = byId.get(message.id);
      if (verdict) {
        (changed ? settling : done).push(job);
      } else {
        failed.push({ job, error: why });
      }
    });
    this.#memory.settle(settling);
    setTimeout(() => this.#memory.finish(settling), SETTLING * 1000);
    await this.#memory.finish(done);
    await this.#putOff(failed, later);
    return error;
  }
}
