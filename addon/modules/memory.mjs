// What has to outlast a session, in storage.local: one record for each message that was seen, and the jobs that
// are not done yet.

const MESSAGE = "m:";
const JOB = "j:";
const MOST_MESSAGES = 40000;
const DROPPED_AT_ONCE = 4000;

// A record: `v` our verdict ("s", "h", "u"), `t` what the message was trained as ("s", "h"), `own` the change of its
// mark that we are about to make, `n` its place in the order of the last changes.
export class Memory {
  #storage;
  #records = new Map();
  #jobs = new Map(); // in their order
  #next = 1;

  constructor(storage) {
    this.#storage = storage;
  }

  async load() {
    const all = await this.#storage.get(null);
    const jobs = [];
    for (const [name, value] of Object.entries(all)) {
      if (name.startsWith(MESSAGE)) {
        this.#records.set(name.slice(MESSAGE.length), value);
        this.#next = Math.max(this.#next, value.n + 1);
      } else if (name.startsWith(JOB)) {
        jobs.push(value);
        this.#next = Math.max(this.#next, value.n + 1);
      }
    }
    jobs.sort((a, b) => a.n - b.n);
    for (const job of jobs) {
      this.#jobs.set(job.n, job);
    }
  }

  get(key) {
    return this.#records.get(key) ?? {};
  }

  knows(key) {
    return this.#records.has(key);
  }

  // What there is to do.
  get jobs() {
    return [...this.#jobs.values()].filter(job => !job.settled);
  }

  get jobCount() {
    return this.jobs.length;
  }

  // These are done, if this session goes on.
  settle(jobs) {
    for (const job of jobs) {
      job.settled = true;
    }
  }

  // Changes records and adds jobs, all of it or nothing.
  // `records`: [key, change]...; `jobs` get the number by which they are taken off.
  async note(records, jobs = []) {
    if (records.length + jobs.length === 0) {
      return;
    }
    const items = {};
    for (const [key, change] of records) {
      const record = { ...this.get(key), ...change, n: this.#next++ };
      this.#records.delete(key); // to the end of the order
      this.#records.set(key, record);
      items[MESSAGE + key] = record;
    }
    for (const job of jobs) {
      job.n = this.#next++;
      this.#jobs.set(job.n, job);
      const { id: _ofThisSession, ...lasting } = job;
      items[JOB + job.n] = lasting;
    }
    await this.#storage.set(items);
    await this.#prune();
  }

  async finish(jobs) {
    if (jobs.length === 0) {
      return;
    }
    for (const job of jobs) {
      this.#jobs.delete(job.n);
    }
    await this.#storage.remove(jobs.map(job => JOB + job.n));
  }

  async #prune() {
    if (this.#records.size <= MOST_MESSAGES) {
      return;
    }
    const oldest = [...this.#records]
      .sort(([, a], [, b]) => a.n - b.n)
      .slice(0, this.#records.size - MOST_MESSAGES + DROPPED_AT_ONCE)
      .map(([key]) => key);
    for (const key of oldest) {
      this.#records.delete(key);
    }
    await this.#storage.remove(oldest.map(key => MESSAGE + key));
  }
}
