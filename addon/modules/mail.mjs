// Messages as Thunderbird has them: lists in pages, raw bytes, and a name that outlasts sessions and moves.

// What Thunderbird itself writes in front of messages in local folders; it says nothing about the mail, but much
// about what was done with it.
const OWN_HEADER = /^(X-Mozilla-(Status2?|Keys|Altered|External-Attachment-URL)|X-Account-Key|X-UIDL):/i;

const LARGE = 2 << 20; // bytes

// All messages of a list that comes in pages.
export async function* allMessages(api, list) {
  for (let page = await list; ; page = await api.messages.continueList(page.id)) {
    yield* page.messages;
    if (!page.id) {
      return;
    }
  }
}

// The key by which a message is remembered: the same in each folder and session, and another one for another
// message that bears the same Message-ID.
export function keyOf(message) {
  const text = `${message.headerMessageId}\n${new Date(message.date).getTime()}\n${message.author}`;
  let high = 0xdeadbeef;
  let low = 0x41c6ce57;
  for (let at = 0; at < text.length; at++) {
    const code = text.charCodeAt(at);
    high = Math.imul(high ^ code, 2654435761);
    low = Math.imul(low ^ code, 1597334677);
  }
  high = Math.imul(high ^ (high >>> 16), 2246822507) ^ Math.imul(low ^ (low >>> 13), 3266489909);
  low = Math.imul(low ^ (low >>> 16), 2246822507) ^ Math.imul(high ^ (high >>> 13), 3266489909);
  return (4294967296 * (2097151 & low) + (high >>> 0)).toString(36);
}

// The bytes without Thunderbird's own header lines, wherever they stand in the header.
export function withoutOwnHeaders(bytes) {
  const parts = [];
  let kept = 0;
  let drops = false;
  for (let at = 0; at < bytes.length; ) {
    let end = bytes.indexOf(10, at);
    end = end < 0 ? bytes.length : end + 1;
    const first = bytes[at];
    if (first === 10 || (first === 13 && bytes[at + 1] === 10)) {
      break;
    }
    const continues = first === 32 || first === 9;
    const line = String.fromCharCode(...bytes.subarray(at, Math.min(end, at + 40)));
    const dropped = continues ? drops : OWN_HEADER.test(line);
    if (dropped) {
      parts.push(bytes.subarray(kept, at));
      kept = end;
    }
    drops = dropped;
    at = end;
  }
  if (parts.length === 0) {
    return bytes;
  }
  parts.push(bytes.subarray(kept));
  const whole = new Uint8Array(parts.reduce((sum, part) => sum + part.length, 0));
  let at = 0;
  for (const part of parts) {
    whole.set(part, at);
    at += part.length;
  }
  return whole;
}

// A message is listed, but can't be read: its server is away, perhaps.
export class ReadError extends Error {}

// Thunderbird notices that a server doesn't answer, but not that the connection breaks in the middle of a message.
const PATIENCE = 60 * 1000; // milliseconds
const SLOWEST = 32; // bytes in a millisecond

function within(patience, promise) {
  let timer;
  const end = new Promise((_resolve, reject) => {
    timer = setTimeout(() => reject(new Error("the server has stopped in the middle")), patience);
  });
  return Promise.race([promise, end]).finally(() => clearTimeout(timer));
}

// The bytes of a message. Throws a ReadError.
export async function rawMail(api, { id, size = 0 }) {
  let bytes;
  try {
    const file = await within(
      PATIENCE + size / SLOWEST,
      api.messages.getRaw(id, { data_format: "File", decrypt: false })
    );
    bytes = new Uint8Array(await file.arrayBuffer());
  } catch (error) {
    throw new ReadError(error.message);
  }
  // So Thunderbird has one that the server has just moved to another folder.
  if (bytes.length === 0) {
    throw new ReadError("the server has sent nothing");
  }
  return withoutOwnHeaders(bytes);
}

// Calls work(message) for some messages at once, but for one large message after the other: each stands in memory whole.
export async function forAll(messages, work) {
  const isLarge = message => message.size > LARGE;
  const done = await Promise.all(messages.map(message => (isLarge(message) ? null : work(message))));
  for (const [at, message] of messages.entries()) {
    if (isLarge(message)) {
      done[at] = await work(message);
    }
  }
  return done;
}

// The copies of the message that a job was made for, though it may have been moved since, or Thunderbird started anew.
// `id` is that of this session, if there is one.
export async function* copiesOf(api, { id, key, folderId, headerMessageId }) {
  const seen = new Set();
  const isNew = message => message && keyOf(message) === key && !seen.has(message.id) && seen.add(message.id);
  if (id !== undefined) {
    const message = await api.messages.get(id).catch(() => null); // it has another number by now
    if (isNew(message)) {
      yield message;
    }
  }
  for (const where of [{ folderId }, {}]) {
    try {
      const list = api.messages.query({ ...where, headerMessageId });
      for await (const message of allMessages(api, list)) {
        if (isNew(message)) {
          yield message;
        }
      }
    } catch {
      // The folder has gone.
    }
  }
}

// The first of them, or null.
export async function findMessage(api, job) {
  for await (const message of copiesOf(api, job)) {
    return message;
  }
  return null;
}

// The bytes of a copy that can be read: Thunderbird lists one that it hasn't moved to the end when it ends in the middle.
// Throws the ReadError of the last one; null if there is no copy.
export async function readAnyCopy(api, job) {
  let failure = null;
  for await (const message of copiesOf(api, job)) {
    try {
      return await rawMail(api, message);
    } catch (error) {
      failure = error;
    }
  }
  if (failure) {
    throw failure;
  }
  return null;
}

export const isJunk = folder => folder?.specialUse?.includes("junk") ?? false;
export const isTrash = folder => folder?.specialUse?.includes("trash") ?? false;
