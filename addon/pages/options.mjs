// The options, which are also the page of the first start: what to learn from, which folders to grade, what to do
// with spam, and how the engine is.

import { ask, element, explainFailure, number, text, time, translate } from "./page.mjs";
import { isGraded, readSettings } from "../modules/settings.mjs";

const POLL = 700; // milliseconds
const LEARN_AS = { inbox: "", junk: "spam" }; // what a folder's use suggests
const LIMIT = "false positives"; // of 100,000 good messages
const get = id => document.getElementById(id);

let wasRunning = false;

async function showStatus() {
  try {
    const status = await ask("status");
    const { base, cache, engine, verdict } = status;
    const faults = [status.base_damaged, cache.held_back, verdict.damaged && text("verdictDamaged")];
    const rows = [
      ["statusEngine", engine.running ? text("engineRuns", engine.stage ?? text("engineIdle")) : text("engineRests")],
      ["statusLearned", text("learnedCounts", number(status.spam.messages), number(status.ham.messages))],
      ["statusWaiting", number(cache.messages)],
      ["statusBase", base ? text("baseFacts", number(base.tokens), time(base.published)) : text("baseNone")],
      ["statusVerdict", text("verdictFacts", number(verdict.messages), verdict.spam_from.toFixed(1))],
      ["statusVersion", text("versions", messenger.runtime.getManifest().version, status.host)],
      ...faults.filter(fault => fault).map(fault => ["statusFault", fault]),
    ];
    get("status").replaceChildren(
      ...rows.flatMap(([name, value]) => [
        element("dt", { textContent: text(name) }),
        element("dd", { textContent: value }),
      ])
    );
    get("failure").hidden = true;
    return true;
  } catch (error) {
    get("failure").textContent = explainFailure(error);
    get("failure").hidden = false;
    return false;
  }
}

function showWork(work) {
  get("progress").hidden = !work;
  if (!work) {
    return;
  }
  const counts = Object.entries(work.counts)
    .filter(([, count]) => count > 0)
    .map(([name, count]) => text(`count_${name}`, number(count)))
    .join(", ");
  const name = work.kind === "learn" ? "workLearn" : "workGrade";
  get("work-title").textContent = text(work.ended ? `${name}Done` : name);
  get("bar").max = Math.max(work.total, 1);
  get("bar").value = work.ended && !work.error && !work.cancelled ? get("bar").max : work.done;
  const notes = [text("workCounts", number(work.done), number(work.total))];
  if (counts) {
    notes.push(counts);
  }
  if (!work.ended) {
    notes.push(work.folder);
  }
  if (work.cancelled) {
    notes.push(text("workCancelled"));
  }
  if (work.error) {
    notes.push(work.error);
  }
  get("work-text").textContent = notes.join(" · ");
  get("cancel").hidden = work.ended;
}

async function poll() {
  const { work, waiting, error } = await ask("progress");
  showWork(work);
  get("waiting").hidden = waiting === 0;
  get("waiting").textContent = text("jobsWait", number(waiting)) + (error ? ` (${error})` : "");
  const running = work !== null && !work.ended;
  if (wasRunning && !running) {
    await showStatus();
  }
  wasRunning = running;
  get("learn").disabled = running;
  setTimeout(poll, running || waiting > 0 ? POLL : 5 * POLL);
}

function folderRow(folder, info, settings) {
  const grade = element("input", { type: "checkbox", checked: isGraded(settings, folder) });
  grade.dataset.folder = folder.id;
  grade.onchange = saveFolders;
  const learn = element(
    "select",
    {},
    ...["", "ham", "spam"].map(value => element("option", { value, textContent: text(`learnAs_${value || "not"}`) }))
  );
  learn.dataset.folder = folder.id;
  learn.value = (folder.specialUse ?? []).map(use => LEARN_AS[use] ?? "").find(value => value) ?? "";
  const name = element("td", { textContent: folder.path.slice(1) });
  const row = element("tr", {}, name, element("td", { className: "number", textContent: number(info) }));
  row.append(element("td", {}, grade), element("td", {}, learn));
  return row;
}

async function showFolders() {
  const chosen = new Map([...get("folders").querySelectorAll("select")].map(({ dataset, value }) => [dataset.folder, value]));
  const settings = await readSettings(messenger.storage.local);
  const rows = [];
  for (const account of await messenger.accounts.list(false)) {
    const folders = await messenger.folders.query({ accountId: account.id, isRoot: false, isVirtual: false });
    if (folders.length > 0) {
      rows.push(element("tr", { className: "account" }, element("td", { colSpan: 4, textContent: account.name })));
    }
    for (const folder of folders) {
      if (!(folder.specialUse ?? []).some(use => ["outbox", "drafts", "templates"].includes(use))) {
        const { totalMessageCount } = await messenger.folders.getFolderInfo(folder.id);
        const row = folderRow(folder, totalMessageCount ?? 0, settings);
        const select = row.querySelector("select");
        select.value = chosen.get(folder.id) ?? select.value;
        rows.push(row);
      }
    }
  }
  get("folders").replaceChildren(...rows);
}

async function saveFolders() {
  const boxes = [...get("folders").querySelectorAll("input[type=checkbox]")];
  const folders = boxes.filter(box => box.checked).map(box => box.dataset.folder);
  await ask("choose", { change: { folders } });
}

async function learn() {
  const chosen = value =>
    [...get("folders").querySelectorAll("select")]
      .filter(select => select.value === value)
      .map(select => select.dataset.folder);
  const work = { kind: "learn", folders: chosen("ham"), spam: chosen("spam") };
  if (work.folders.length === 0 || work.spam.length === 0) {
    get("learn-note").textContent = text("learnNeedsBoth");
    return;
  }
  get("learn-note").textContent = "";
  await ask("start", { work });
  wasRunning = true;
  await ask("progress").then(({ work: state }) => showWork(state));
  scrollTo({ top: 0 });
}

async function showChoices() {
  const settings = await readSettings(messenger.storage.local);
  for (const radio of document.querySelectorAll("input[name=move]")) {
    radio.checked = (radio.value === "yes") === settings.move;
    radio.onchange = async () => {
      // Asked for only by who wants it.
      const allowed =
        radio.value === "no" || (await messenger.permissions.request({ permissions: ["messagesMove"] }));
      await ask("choose", { change: { move: radio.value === "yes" && allowed } });
      await showChoices();
    };
  }
  get("tag").checked = settings.tagUnsure;
  get("tag").onchange = () => ask("choose", { change: { tagUnsure: get("tag").checked } });
}

async function showLimit() {
  const { settings } = await ask("limits");
  const input = get("limit");
  input.value = settings[LIMIT] / 1000;
  input.onchange = async () => {
    try {
      await ask("limits", { set: { [LIMIT]: Math.round(1000 * input.valueAsNumber) } });
      get("failure").hidden = true;
    } catch (error) {
      get("failure").textContent = explainFailure(error);
      get("failure").hidden = false;
    }
    await showLimit();
  };
  get("limits").hidden = false;
}

// Folders come and go, many at once when an account is read for the first time.
let redraw = null;
for (const event of ["onCreated", "onDeleted", "onRenamed", "onMoved", "onUpdated"]) {
  messenger.folders[event].addListener(() => {
    clearTimeout(redraw);
    redraw = setTimeout(showFolders, POLL);
  });
}

translate();
get("learn").onclick = learn;
get("cancel").onclick = () => ask("cancel");
await showFolders();
await showChoices();
if (await showStatus()) {
  await showLimit();
}
await poll();
