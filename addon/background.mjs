// The add-on's event page: hears what happens to mail, and keeps the work going. All listeners are added while
// the page loads, so that an event can wake it.

import { FolderWork } from "./modules/folders.mjs";
import { Grader } from "./modules/grading.mjs";
import { Host } from "./modules/host.mjs";
import { allMessages, keyOf, rawMail } from "./modules/mail.mjs";
import { Memory } from "./modules/memory.mjs";
import { changeSettings, isGraded, readSettings } from "./modules/settings.mjs";
import { Trainer } from "./modules/training.mjs";
import { RETRY_ALARM, Worker } from "./modules/worker.mjs";

const HOST = "tessivar";
const MOST_CAUGHT_UP = 5000; // unread messages of a folder

const storage = messenger.storage.local;
const host = new Host(() => messenger.runtime.connectNative(HOST));
const memory = new Memory(storage);
const grader = new Grader(messenger, host, memory);
const trainer = new Trainer(messenger, memory);
const worker = new Worker(messenger, host, memory, grader);
const folderWork = new FolderWork(messenger, host, memory, grader);
const ready = memory.load();

// `again`: those too that have a verdict.
async function queue(messages, again = false) {
  const jobs = messages
    .filter(message => again || !memory.get(keyOf(message)).v)
    .map(message => ({
      kind: "grade",
      key: keyOf(message),
      id: message.id,
      folderId: message.folder.id,
      headerMessageId: message.headerMessageId,
    }));
  if (jobs.length > 0) {
    await memory.note(
      jobs.map(job => [job.key, {}]),
      jobs
    );
  }
  await worker.run();
}

async function gradedFolders() {
  const settings = await readSettings(storage);
  const folders = await messenger.folders.query({});
  return folders.filter(folder => isGraded(settings, folder));
}

async function unreadOf(folder) {
  const unread = [];
  const list = messenger.messages.query({ folderId: folder.id, read: false });
  for await (const message of allMessages(messenger, list)) {
    if (unread.length === MOST_CAUGHT_UP) {
      return [];
    }
    unread.push(message);
  }
  return unread;
}

// What lies in the folders at the first start, or when they are chosen, isn't graded unless it is asked for.
async function passOver(folders) {
  for (const folder of folders) {
    const unknown = (await unreadOf(folder)).filter(message => !memory.knows(keyOf(message)));
    await memory.note(unknown.map(message => [keyOf(message), {}]));
  }
}

// Mail that came while nobody listened.
async function catchUp() {
  for (const folder of await gradedFolders()) {
    await queue((await unreadOf(folder)).filter(message => !memory.knows(keyOf(message))));
  }
}

async function makeMenus() {
  await messenger.menus.removeAll();
  const title = name => messenger.i18n.getMessage(name);
  messenger.menus.create({ id: "grade-folder", contexts: ["folder_pane"], title: title("menuGradeFolder") });
  messenger.menus.create({ id: "grade-selected", contexts: ["message_list"], title: title("menuGradeSelected") });
  messenger.menus.create({ id: "options", contexts: ["tools_menu"], title: title("menuOptions") });
}

messenger.runtime.onInstalled.addListener(async ({ reason }) => {
  await ready;
  await makeMenus();
  if (reason === "install") {
    // As a tab of its own: this waits for the window, where the add-on comes with Thunderbird's start.
    await messenger.tabs.create({ url: messenger.runtime.getURL("pages/options.html") });
    await passOver(await gradedFolders());
  }
});

messenger.runtime.onStartup.addListener(async () => {
  await ready;
  await makeMenus();
  await worker.run();
  await catchUp();
  await folderWork.resume();
});

messenger.messages.onNewMailReceived.addListener(async (folder, list) => {
  await ready;
  const settings = await readSettings(storage);
  if (!isGraded(settings, folder)) {
    return;
  }
  for (let page = list; ; page = await messenger.messages.continueList(page.id)) {
    await queue(page.messages);
    if (!page.id) {
      return;
    }
  }
}, true);

messenger.messages.onUpdated.addListener(async (message, changed) => {
  if (changed.junk === undefined) {
    return;
  }
  await ready;
  if (await trainer.onUpdated(message, changed)) {
    await worker.run();
  }
});

messenger.messages.onMoved.addListener(async (originals, moved) => {
  await ready;
  if (await trainer.onMoved(originals, moved)) {
    await worker.run();
  }
});

messenger.alarms.onAlarm.addListener(async ({ name }) => {
  await ready;
  if (name === RETRY_ALARM) {
    await worker.run();
    await folderWork.resume();
  }
});

messenger.menus.onClicked.addListener(async info => {
  await ready;
  if (info.menuItemId === "options") {
    await messenger.runtime.openOptionsPage();
  } else if (info.menuItemId === "grade-folder") {
    await messenger.runtime.openOptionsPage();
    await folderWork.start({ kind: "grade", folders: info.selectedFolders.map(folder => folder.id) });
  } else if (info.menuItemId === "grade-selected") {
    for await (const message of allMessages(messenger, info.selectedMessages)) {
      await queue([message], true);
    }
  }
});

// What the pages ask for. Each answers an object.
const requests = {
  async explain({ messageId }) {
    const message = await messenger.messages.get(messageId);
    const record = memory.get(keyOf(message));
    return { ...(await host.mail("explain", await rawMail(messenger, message))), taught: record.t ?? null };
  },

  async say({ messageId, spam }) {
    await trainer.say(await messenger.messages.get(messageId), spam);
    await worker.run();
    return { error: worker.error };
  },

  async status() {
    return { ...(await host.request("status")), host: (await host.request("hello")).version };
  },

  async progress() {
    return { work: folderWork.state, waiting: memory.jobCount, error: worker.error };
  },

  async limits({ set }) {
    return host.request("settings", set ? { set } : {});
  },

  async start({ work }) {
    await changeSettings(storage, { learned: true });
    folderWork.start(work);
    return {};
  },

  async cancel() {
    folderWork.cancel();
    return {};
  },

  async choose({ change }) {
    const before = new Set((await gradedFolders()).map(folder => folder.id));
    await changeSettings(storage, change);
    await passOver((await gradedFolders()).filter(folder => !before.has(folder.id)));
    return {};
  },
};

messenger.runtime.onMessage.addListener(async request => {
  await ready;
  try {
    return await requests[request.op](request);
  } catch (error) {
    return { failed: { code: error.code ?? "failed", text: error.message } };
  }
});
