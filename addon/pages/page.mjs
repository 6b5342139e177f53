// What the pages have in common: texts, and the way to the background.

export const text = (name, ...values) => messenger.i18n.getMessage(name, values.map(String));

// Puts the texts in place: data-text names the content of an element.
export function translate() {
  document.documentElement.lang = messenger.i18n.getUILanguage();
  for (const element of document.querySelectorAll("[data-text]")) {
    element.textContent = text(element.dataset.text);
  }
}

// Answers what the background does; throws its failure, with `code`.
export async function ask(op, fields = {}) {
  const reply = await messenger.runtime.sendMessage({ ...fields, op });
  if (reply?.failed) {
    throw Object.assign(new Error(reply.failed.text), { code: reply.failed.code });
  }
  return reply;
}

export function element(name, properties = {}, ...children) {
  const made = Object.assign(document.createElement(name), properties);
  made.append(...children);
  return made;
}

export const number = value => new Intl.NumberFormat(messenger.i18n.getUILanguage()).format(value);

// Of a time as JSON has it, or null.
export const time = value =>
  value === null
    ? "–"
    : new Intl.DateTimeFormat(messenger.i18n.getUILanguage(), { dateStyle: "medium", timeStyle: "short" }).format(
        new Date(value)
      );

// What a failure means to the user.
export function explainFailure(error) {
  const known = { gone: "failureGone", broke: "failureGone", no_base: "failureNoBase" };
  return error.code in known ? text(known[error.code]) : text("failureOther", error.message);
}
