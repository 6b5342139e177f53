// The popup "Why?" on a message.

import { ask, element, explainFailure, number, text, translate } from "./page.mjs";
import { sides, describeToken } from "./tokens.mjs";

const MOST_SHOWN = 9; // on each side
const get = id => document.getElementById(id);

function list(place, tokens, most) {
  place.replaceChildren(
    ...tokens.slice(0, MOST_SHOWN).map(token => {
      const { word, kind } = describeToken(token.token);
      const bar = element("span", { className: "bar" });
      bar.style.width = `${Math.max(3, (100 * Math.abs(token.share)) / most)}%`;
      return element(
        "li",
        { title: text("tokenTitle", token.token, token.grade.toFixed(3), token.share.toFixed(3)) },
        bar,
        element("span", { className: "word", textContent: word }),
        element("span", { className: "kind", textContent: text(kind) })
      );
    })
  );
}

function show(reply) {
  get("verdict").className = reply.verdict;
  get("verdict").textContent = text(
    { spam: "verdictSpam", ham: "verdictHam", unsure: "verdictUnsure" }[reply.verdict],
    reply.score.toFixed(reply.score > 1 && reply.score < 99 ? 0 : 2)
  );
  get("mark").style.left = `${reply.score}%`;
  get("taught").hidden = reply.taught === null;
  get("taught").textContent = text(reply.taught === "s" ? "taughtSpam" : "taughtHam");
  const { spam, ham, most } = sides(reply.tokens);
  list(get("for"), spam, most);
  list(get("against"), ham, most);
  get("rest").textContent = text("whyRest", number(reply.known));
  get("answer").hidden = false;
}

async function explain(messageId) {
  get("failure").hidden = true;
  try {
    show(await ask("explain", { messageId }));
  } catch (error) {
    get("failure").textContent = explainFailure(error);
    get("failure").hidden = false;
  }
  get("wait").hidden = true;
}

async function start() {
  translate();
  const [tab] = await messenger.tabs.query({ active: true, currentWindow: true });
  const shown = await messenger.messageDisplay.getDisplayedMessages(tab.id);
  const message = shown.messages[0];
  for (const [id, spam] of [
    ["say-spam", true],
    ["say-ham", false],
  ]) {
    get(id).onclick = async () => {
      await ask("say", { messageId: message.id, spam });
      window.close();
    };
  }
  await explain(message.id);
}

await start();
