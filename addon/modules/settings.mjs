// What the user chose.

export const DEFAULTS = {
  folders: null, // IDs of the folders whose new mail is graded; null: each inbox
  move: false, // spam to the account's Junk folder
  tagUnsure: true,
  learned: false, // whether the first learning was done or declined
};

export async function readSettings(storage) {
  const { settings } = await storage.get("settings");
  return { ...DEFAULTS, ...settings };
}

export async function changeSettings(storage, change) {
  const settings = { ...(await readSettings(storage)), ...change };
  await storage.set({ settings });
  return settings;
}

export function isGraded(settings, folder) {
  return settings.folders === null
    ? (folder.specialUse?.includes("inbox") ?? false)
    : settings.folders.includes(folder.id);
}
