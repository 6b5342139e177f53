"""Shows the add-on at work in a real Thunderbird. See scripts/try-thunderbird.sh."""
import argparse
import collections
import contextlib
import email
import email.policy
import json
import pathlib
import shutil
import signal
import sys
import tempfile
import time
import traceback

from marionette import Failure
from world import World, wait_for

INBOX, JUNK = "account1://INBOX", "account1://Junk"


class Trial:
    def __init__(self, world, corpus):
        self.world = world
        self.page = world.page
        self.faults = []
        self.sources = {}  # what was delivered to the inbox: the message's ID and its file
        seen = set()
        self.mails = collections.defaultdict(list)
        for group in ("spam-1", "spam-2", "easy-ham-1", "easy-ham-2", "hard-ham-1"):
            for file in sorted((corpus / group).iterdir()):
                name = self.message_id(file.read_bytes())
                if name and name not in seen:
                    seen.add(name)
                    self.mails["spam" if group.startswith("spam") else "ham"].append(file)

    @staticmethod
    def message_id(content):
        head = content.split(b"\n\n", 1)[0].decode("latin-1")
        if head.startswith("From "):
            head = head.split("\n", 1)[1]
        found = email.message_from_string(head, policy=email.policy.compat32).get_all("Message-ID", [])
        name = found[0].strip() if len(found) == 1 else ""
        return name[1:-1] if name.startswith("<") and name.endswith(">") and " " not in name else ""

    def check(self, holds, what):
        print(f"  {'ok' if holds else 'WRONG'}: {what}", flush=True)
        if not holds:
            self.faults.append(what)

    def take(self, kind, number):
        taken, self.mails[kind] = self.mails[kind][:number], self.mails[kind][number:]
        return taken

    def deliver(self, files):
        for file in files:
            content = file.read_bytes()
            self.sources[self.message_id(content)] = file
            self.world.deliver(content)
        self.world.get_messages()

    def ask(self, op, **fields):
        return json.loads(self.page("return JSON.stringify(await messenger.runtime.sendMessage(args[0]))", {"op": op, **fields}))

    def marks(self):
        """What Thunderbird shows of each message: its ID, its verdict by mark or tag, and its folder."""
        return json.loads(self.page("""
            const found = [];
            for (const folder of args) {
                for (let page = await messenger.messages.list(folder); ; page = await messenger.messages.continueList(page.id)) {
                    found.push(...page.messages.map(message => [message.headerMessageId, message.junk ? "spam"
                        : message.tags.includes("tessivar-unsure") ? "unsure" : "ham", folder]));
                    if (!page.id) { break; }
                }
            }
            return JSON.stringify(found);""", INBOX, JUNK))

    def graded(self):
        """How many messages the add-on has a verdict on."""
        return self.page("""return Object.entries(await messenger.storage.local.get(null))
            .filter(([name, value]) => name.startsWith("m:") && value.v).length""")

    def wait_until_graded(self, number, patience=900):
        wait_for(f"{number} verdicts", lambda: self.graded() >= number and self.ask("progress")["waiting"] == 0, patience, 1)

    def compare(self, what, names=None):
        """Each message's verdict in Thunderbird against that of the command."""
        wanted = {}
        files = {str(file): name for name, file in self.sources.items() if names is None or name in names}
        listed = list(files)
        for at in range(0, len(listed), 500):
            told = self.world.tvrctl("score", "--json", "-e", *listed[at:at + 500])
            for line in told.stdout.splitlines():
                one = json.loads(line)
                wanted[files[one["file"]]] = one["verdict"]
        found = {name: verdict for name, verdict, _folder in self.marks() if name in wanted}
        differ = [(name, verdict, found.get(name)) for name, verdict in wanted.items() if found.get(name) != verdict]
        counts = collections.Counter(wanted.values())
        self.check(not differ, f"{what}: {len(wanted)} messages ({dict(counts)}), {len(differ)} differ from tvrctl score {differ[:3]}")

    # --- the parts of the trial

    def learn(self):
        print("First start: learning from two folders", flush=True)
        world = self.world
        for kind, folder in (("ham", ".Archive"), ("spam", ".Old junk")):
            for file in self.take(kind, 400):
                world.deliver(file.read_bytes(), folder)
        world.start_thunderbird()
        wait_for("the page of the first start", world.has_options, 120)
        # The page may load once more meanwhile.
        all_folders = "return document.querySelectorAll('#folders select').length >= 5", "pages/options.html"
        wait_for("the folders", lambda: world.is_true(*all_folders), 120)
        # Messages are known to Thunderbird once a folder was looked into.
        for folder in ("account1://Archive", "account1://Old junk"):
            self.update_folder(folder)
            wait_for(folder, lambda f=folder: self.page(
                "return (await messenger.folders.getFolderInfo(args[0])).totalMessageCount", f) == 400, 180)
        self.page("location.reload(); return 0")
        wait_for("the page", lambda: world.has_options() and world.is_true(*all_folders), 60)
        self.page("""
            const choose = (folder, value) => { for (const select of document.querySelectorAll("#folders select"))
                if (select.dataset.folder === folder) select.value = value; };
            choose("account1://Archive", "ham"); choose("account1://Old junk", "spam"); choose("account1://INBOX", "");
            choose("account1://Junk", "");
            return 0;""")
        world.picture("first-start")
        start = time.monotonic()
        self.page("document.getElementById('learn').click(); return 0")
        wait_for("some progress", lambda: (self.ask("progress")["work"] or {}).get("done", 0) > 100, 300, 0.1)
        world.picture("learning")
        wait_for("the end of the learning", lambda: self.ask("progress")["work"]["ended"], 600)
        seconds = time.monotonic() - start
        work = self.ask("progress")["work"]
        wait_for("the base", lambda: (self.ask("status").get("base") or {}).get("spam_messages") == 400, 120)
        status = self.ask("status")
        self.check(work["counts"].get("learned") == 800 and not work["error"], f"800 messages learned in {seconds:.0f} s: {work['counts']}")
        self.check(status["ham"]["messages"] == 400, f"the engine has {status['spam']['messages']} spam and {status['ham']['messages']} ham")
        time.sleep(4)
        world.picture("learned")

    def update_folder(self, folder):
        self.world.run("""
            const { MailServices } = ChromeUtils.importESModule("resource:///modules/MailServices.sys.mjs");
            const root = MailServices.accounts.defaultAccount.incomingServer.rootFolder;
            const name = args[0].replace("account1://", "");
            root.subFolders.find(folder => folder.name === name || folder.URI.endsWith(encodeURI(name))).updateFolder(null);
        """, folder)

    def fetch_ahead(self, wanted):
        self.world.run("""
            const { MailServices } = ChromeUtils.importESModule("resource:///modules/MailServices.sys.mjs");
            const server = MailServices.accounts.defaultAccount.incomingServer.QueryInterface(Ci.nsIImapIncomingServer);
            server.offlineDownload = server.autoSyncOfflineStores = args[0];
            const inbox = server.rootFolder.getFolderWithFlags(Ci.nsMsgFolderFlags.Inbox);
            args[0] ? inbox.setFlag(Ci.nsMsgFolderFlags.Offline) : inbox.clearFlag(Ci.nsMsgFolderFlags.Offline);
        """, wanted)

    def sort(self):
        print("New mail: sorted as the command says", flush=True)
        files = self.take("spam", 100) + self.take("ham", 100)
        before = self.graded()
        self.deliver(files)
        self.wait_until_graded(before + 200)
        self.compare("delivered while it runs")

    def show_message(self, names, folder=INBOX):
        self.page("""
            const [tab] = await messenger.tabs.query({ type: "mail" });
            await messenger.tabs.update(tab.id, { active: true });
            await messenger.mailTabs.update(tab.id, { displayedFolderId: args[0] });""", folder)
        ids = wait_for("the messages", lambda: self.page("""
            const ids = [];
            for (const headerMessageId of args[1]) {
                const { messages } = await messenger.messages.query({ folderId: args[0], headerMessageId });
                ids.push(...messages.map(message => message.id));
            }
            return ids.length === args[1].length ? ids : null;""", folder, names), 120)
        self.page("""
            const [tab] = await messenger.tabs.query({ type: "mail" });
            await messenger.mailTabs.setSelectedMessages(tab.id, args[0]);""", ids)
        wait_for("the selection", lambda: self.page("""
            const [tab] = await messenger.tabs.query({ type: "mail" });
            return (await messenger.mailTabs.getSelectedMessages(tab.id)).messages.length""") == len(names), 60)
        self.world.run("""
            const { currentAbout3Pane } = Services.wm.getMostRecentWindow("mail:3pane").document.getElementById("tabmail");
            currentAbout3Pane.focus();
            currentAbout3Pane.document.getElementById("threadTree").table.body.focus();""")

    def explain(self):
        print("Why?", flush=True)
        # One that can be shown to anybody.
        names = [name for name, verdict, folder in self.marks() if verdict == "spam" and folder == INBOX]
        names.sort(key=lambda name: not any(word in self.sources[name].read_bytes().lower()
                                            for word in (b"subject: re: mortgage", b"mortgage", b"insurance")))
        self.show_message(names[:1])
        time.sleep(3)
        self.world.picture("marked")
        self.world.click(*self.world.run("""
            const { currentAboutMessage } = Services.wm.getMostRecentWindow("mail:3pane").document.getElementById("tabmail");
            const box = currentAboutMessage.document.querySelector("#tessivar_orvenix_example-messageDisplayAction-toolbarbutton")
                .getBoundingClientRect();
            return [currentAboutMessage.mozInnerScreenX + box.x + box.width / 2,
                currentAboutMessage.mozInnerScreenY + box.y + box.height / 2];"""))
        wait_for("the answer", lambda: self.world.is_true("return !document.getElementById('answer').hidden", "why.html"), 60)
        self.world.picture("why")
        told = json.loads(self.page("""
            const { messages } = await messenger.messages.query({ folderId: args[0], headerMessageId: args[1] });
            return JSON.stringify(await messenger.runtime.sendMessage({ op: "explain", messageId: messages[0].id }))""",
                                    INBOX, names[0]))
        wanted = json.loads(self.world.tvrctl("score", "--json", "-e", "--explain", str(self.sources[names[0]])).stdout)
        same = [each["token"] for each in told["tokens"]] == [each["token"] for each in wanted["tokens"]][:len(told["tokens"])]
        self.check(same and abs(told["score"] - wanted["score"]) < 1e-9,
                   f"the popup's {len(told['tokens'])} tokens and {told['score']:.2f} % are those of tvrctl score --explain")
        self.world.press("Escape")

    LIKE = """From: "Greenhouse offers" <offers{n}@glasshouse.example>
To: tester@mail.example
Subject: Your quibblewort seedlings number {n}
Message-ID: <quibble{n}@glasshouse.example>
Date: Wed, 25 Nov 2026 10:{n:02}:00 +0000

The quibblewort is back, friend. Our greenhouse brings you frondelia, marrowcress and
zinnock in pots of seven. Reply for a pamphlet on pruning quibblewort, frondelia number {n},
and ask the gardener about marrowcress trellises, sundial moss and zinnock compost.
"""

    def deliver_like(self, numbers):
        names = []
        for n in numbers:
            content = self.LIKE.format(n=n).encode()
            file = self.world.root / f"like-{n}"
            file.write_bytes(content)
            self.sources[f"quibble{n}@glasshouse.example"] = file
            names.append(f"quibble{n}@glasshouse.example")
        before = self.graded()
        self.deliver([self.sources[name] for name in names])
        self.wait_until_graded(before + len(names))
        return names

    def verdict_of(self, name):
        return next((verdict for each, verdict, _folder in self.marks() if each == name), None)

    def wait_for_training(self, spam, ham):
        wait_for(f"a base of {spam} spam and {ham} ham", lambda: (lambda base: base and base["spam_messages"] >= spam
                 and base["ham_messages"] >= ham)(self.ask("status").get("base")), 300, 1)

    def keys(self):
        print("Key presses: learned, and taken back", flush=True)
        base = self.ask("status")["base"]
        spam, ham = base["spam_messages"], base["ham_messages"]
        names = self.deliver_like(range(1, 6))
        self.check(all(self.verdict_of(name) != "spam" for name in names), "five messages of a new kind aren't called spam")
        self.show_message(names)
        self.world.press("j")
        wait_for("the junk marks", lambda: all(self.verdict_of(name) == "spam" for name in names), 60)
        self.wait_for_training(spam + 5, ham)
        [like] = self.deliver_like([6])
        self.check(self.verdict_of(like) == "spam", "after J on them and the training their like is called spam")
        self.world.picture("key-press")
        folder = next(folder for name, _verdict, folder in self.marks() if name == names[0])
        self.check(folder == JUNK, "Thunderbird has moved them to Junk by its own setting, and they were learned once: "
                   f"{self.ask('status')['spam']['messages']} spam")
        self.show_message(names, JUNK)
        self.world.press("shift+j")
        wait_for("the marks taken back", lambda: all(self.verdict_of(name) == "ham" for name in names), 60)
        self.wait_for_training(spam, ham + 5)
        [later] = self.deliver_like([7])
        verdict = self.verdict_of(later)
        self.check(verdict != "spam", f"after Shift+J on them and the training their like is called {verdict}")

    def restarts(self):
        print("Restarts in the middle", flush=True)
        world = self.world
        # Thunderbird fetches messages ahead of anybody who asks for them, and so needs no server then.
        self.fetch_ahead(False)
        before = self.graded()
        files = self.take("spam", 60) + self.take("ham", 60)
        self.deliver(files)
        wait_for("jobs that wait", lambda: self.ask("progress")["waiting"] >= 32, 300, 0.02)
        world.stop_dovecot()
        so_far = self.graded() - before
        time.sleep(20)
        kept = self.ask("progress")
        self.check(kept["waiting"] > 0, f"{kept['waiting']} messages wait while Dovecot is away")
        world.start_dovecot()
        world.get_messages()
        # Thunderbird itself can't read those again before its next start whose transfer was cut in the middle.
        def through():
            now = self.ask("progress")
            return self.graded() >= before + 120 - 16 and (now["error"] or now["waiting"] == 0)
        wait_for("all but those", through, 300, 1)
        late = self.ask("progress")["waiting"]
        world.end_thunderbird()
        world.start_thunderbird()
        world.open_options()
        self.wait_until_graded(before + 120)
        self.compare(f"Dovecot away after {so_far} of 120 verdicts, {late} of them after another start of Thunderbird",
                     {self.message_id(file.read_bytes()) for file in files})
        self.fetch_ahead(True)

        before = self.graded()
        status = self.ask("status")
        files = self.take("spam", 150) + self.take("ham", 150)
        self.deliver(files)
        wait_for("some verdicts", lambda: self.graded() > before + 30, 300, 0.2)
        so_far = self.graded() - before
        world.end_thunderbird(kill=True)
        world.tvrctl("stop")
        world.stop_dovecot()
        world.start_dovecot()
        world.start_thunderbird()
        world.open_options()
        self.wait_until_graded(before + 300)
        names = {self.message_id(file.read_bytes()) for file in files}
        self.compare(f"Thunderbird killed, engine and Dovecot restarted after {so_far} of 300 verdicts", names)
        after = self.ask("status")
        same = all(after[half]["messages"] == status[half]["messages"] for half in ("spam", "ham"))
        self.check(same, "and nothing was trained by it")

        names = self.deliver_like(range(10, 13))
        world.tvrctl("host", "--uninstall")
        for process in world.processes():
            if "tvrctl" in process[3]:
                world.kill(process[0])
        self.show_message(names)
        there = world.delivered_to("Junk")
        world.press("j")
        wait_for("jobs that wait", lambda: self.ask("progress")["waiting"] >= 3, 60)
        # One that ends in the middle of its own move is left with messages in Junk that nobody can read.
        wait_for("Thunderbird's move to Junk", lambda: world.delivered_to("Junk") == there + 3, 60)
        world.end_thunderbird()
        world.tvrctl("host", "--install")
        world.start_thunderbird()
        world.open_options()
        wait_for("the jobs", lambda: self.ask("progress")["waiting"] == 0, 300)
        self.wait_for_training(after["base"]["spam_messages"] + 3, after["base"]["ham_messages"])
        self.check(True, "three key presses while the host was away were learned after a restart")

    def many(self):
        print("Two thousand at once", flush=True)
        world = self.world
        before = self.graded()
        files = self.take("spam", 600) + self.take("ham", 1400)
        idle = world.memory()
        start = time.monotonic()
        self.deliver(files)
        longest, peak, total, rounds = 0.0, 0, 0.0, 0
        next_look = 0.0
        while True:
            asked = time.monotonic()
            world.run("return 1")
            pause = time.monotonic() - asked
            longest, total, rounds = max(longest, pause), total + pause, rounds + 1
            peak = max(peak, world.memory())
            if asked > next_look:
                if self.graded() >= before + len(files) and self.ask("progress")["waiting"] == 0:
                    break
                next_look = time.monotonic() + 2
            if asked - start > 1500:
                raise Failure("2,000 messages take too long")
            time.sleep(0.2)
        seconds = time.monotonic() - start
        print(f"  {len(files)} messages in {seconds:.0f} s; Thunderbird's answers after {1000 * total / rounds:.0f} ms in the mean, "
              f"{1000 * longest:.0f} ms at most; memory of all processes {idle} MiB before, {peak} MiB at most")
        self.compare("2,000 at once", {self.message_id(file.read_bytes()) for file in files})

    def run(self, parts):
        for part in parts:
            try:
                getattr(self, part)()
            except Exception:  # the other parts may still tell something
                traceback.print_exc()
                self.faults.append(part)
                with contextlib.suppress(Exception):
                    self.world.picture(f"fault-{part}")
                if part == "learn":
                    break


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--programs", required=True)
    parser.add_argument("--xpi", required=True)
    parser.add_argument("--corpus", required=True, type=pathlib.Path)
    parser.add_argument("--pictures", type=pathlib.Path)
    parser.add_argument("--keep")
    parser.add_argument("parts", nargs="*", default=["learn", "sort", "explain", "keys", "restarts", "many"])
    options = parser.parse_args()
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(1))
    root = options.keep or tempfile.mkdtemp(prefix="tessivar-thunderbird-")
    world = World(root, options.programs, options.xpi)
    trial = Trial(world, options.corpus)
    try:
        print(world.tvrctl("host", "--install").stdout.strip())
        world.start_dovecot()
        trial.run(options.parts)
        if options.pictures:
            options.pictures.mkdir(parents=True, exist_ok=True)
            for picture in (world.root / "pictures").iterdir():
                shutil.copy(picture, options.pictures)
    finally:
        world.close()
        if not options.keep:
            shutil.rmtree(root, ignore_errors=True)
    print(f"{len(trial.faults)} faults" if trial.faults else "All of it holds.")
    sys.exit(1 if trial.faults else 0)


if __name__ == "__main__":
    main()
