// What a token says to a person.

const KINDS = {
  "B ": "kindText",
  "U ": "kindLink",
  "M ": "kindShape",
  "F from": "kindSender",
  "F link": "kindLink",
  "F rcvd": "kindRoute",
  "H subject": "kindSubject",
  "H received": "kindRoute",
};

// The word of a token, and the name of the text that says where it stood.
export function describeToken(token) {
  const mark = token.slice(0, 2);
  const rest = token.slice(2);
  if (mark === "H " || mark === "F ") {
    const colon = rest.indexOf(":");
    const name = rest.slice(0, colon).toLowerCase();
    const kind = KINDS[mark + name] ?? (mark === "H " ? "kindHeader" : "kindAddress");
    const named = kind === "kindHeader" && colon > 0;
    return { word: named ? `${name}: ${rest.slice(colon + 1)}` : rest.slice(colon + 1), kind };
  }
  return { word: rest, kind: KINDS[mark] ?? "kindOther" };
}

// The tokens that spoke for spam and against it, the weightiest first, and the largest share of all.
export function sides(tokens) {
  const byWeight = [...tokens].sort((a, b) => Math.abs(b.share) - Math.abs(a.share));
  return {
    spam: byWeight.filter(token => token.share > 0),
    ham: byWeight.filter(token => token.share < 0),
    most: Math.max(...byWeight.slice(0, 1).map(token => Math.abs(token.share)), 1e-9),
  };
}
