// The conversation with "tvrctl host".

const SECONDS_IDLE = 20;

// Why the host didn't do what it was asked for. `code` is its word for it. "gone" is ours, for a host that isn't
// there or went in the middle, and so is "broke", for the request that it had in hand when it went.
export class HostError extends Error {
  constructor(code, text) {
    super(text);
    this.code = code;
  }

  // Whether the same request may succeed later.
  get passes() {
    return ["gone", "broke", "busy", "failed", "cache_full"].includes(this.code);
  }
}

export function toBase64(bytes) {
  let text = "";
  for (let at = 0; at < bytes.length; at += 32768) {
    text += String.fromCharCode(...bytes.subarray(at, at + 32768));
  }
  return btoa(text);
}

// One process of the host, started when it is needed and left alone when it isn't. Replies come in the order of
// the requests.
export class Host {
  #connect;
  #port = null;
  #facts = null;
  #waiting = new Map();
  #nextId = 1;
  #idle = null;
  #held = 0;

  // `connect` answers a port, as runtime.connectNative() does.
  constructor(connect) {
    this.#connect = connect;
  }

  // Answers the reply to one request; throws a HostError.
  async request(op, fields = {}) {
    await this.#open();
    return this.#send(op, fields);
  }

  // The same for one that carries a message (Uint8Array). Of a large one only what the host looks at is sent, in
  // pieces.
  async mail(op, bytes, fields = {}) {
    const { piece, mail } = await this.#open();
    const seen = bytes.subarray(0, mail);
    const all = { ...fields, size: bytes.length };
    if (seen.length <= piece) {
      return this.#send(op, { ...all, mail: toBase64(seen) });
    }
    // Nothing else gets between: there is no wait before the last piece is sent.
    const put = this.#nextId;
    const replies = [];
    for (let at = 0; at < seen.length; at += piece) {
      replies.push(this.#send("put", { put, mail: toBase64(seen.subarray(at, at + piece)) }));
    }
    replies.push(this.#send(op, { ...all, put }));
    return (await Promise.all(replies)).at(-1);
  }

  // Keeps the process while work(…) goes on, however long it pauses.
  async during(work) {
    this.#held++;
    try {
      return await work();
    } finally {
      this.#held--;
      this.#rest();
    }
  }

  close() {
    const port = this.#port;
    this.#forget(new HostError("gone", "closed"));
    port?.disconnect();
  }

  async #open() {
    if (!this.#port) {
      const port = this.#connect();
      this.#port = port;
      port.onMessage.addListener(reply => this.#take(port, reply));
      port.onDisconnect.addListener(() => {
        if (this.#port === port) {
          this.#forget(new HostError("gone", port.error?.message ?? "the host has ended"));
        }
      });
      this.#facts = this.#send("hello", {});
    }
    return this.#facts;
  }

  #send(op, fields) {
    const port = this.#port;
    if (!port) {
      throw new HostError("gone", "the host has ended");
    }
    clearTimeout(this.#idle);
    const id = this.#nextId++;
    return new Promise((resolve, reject) => {
      this.#waiting.set(id, { op, resolve, reject });
      try {
        port.postMessage({ ...fields, id, op });
      } catch (error) {
        this.#waiting.delete(id);
        reject(new HostError("gone", error.message));
      }
    });
  }

  #take(port, reply) {
    const waiting = this.#waiting.get(reply.id);
    if (port !== this.#port || !waiting) {
      return;
    }
    this.#waiting.delete(reply.id);
    if (reply.error) {
      waiting.reject(new HostError(reply.error.code, reply.error.text));
    } else {
      waiting.resolve(reply);
    }
    this.#rest();
  }

  #rest() {
    clearTimeout(this.#idle);
    if (this.#port && this.#waiting.size === 0 && this.#held === 0) {
      this.#idle = setTimeout(() => this.close(), SECONDS_IDLE * 1000);
    }
  }

  #forget(error) {
    clearTimeout(this.#idle);
    this.#port = null;
    this.#facts = null;
    const waiting = [...this.#waiting.values()];
    this.#waiting.clear();
    for (const [at, { op, reject }] of waiting.entries()) {
      reject(at === 0 && op !== "hello" ? new HostError("broke", error.message) : error);
    }
  }
}
