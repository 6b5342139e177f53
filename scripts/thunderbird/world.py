"""A world of its own for Thunderbird: a screen, a mail server on the loopback address, an engine, a profile."""
import contextlib
import os
import pathlib
import pwd
import shutil
import signal
import socket
import subprocess
import time

from marionette import Failure, Marionette

ADDON = "tessivar@orvenix.example"
USER, PASSWORD = "tester", "of-the-test"

DOVECOT = """
protocols = imap
listen = 127.0.0.1
base_dir = {base}/run
state_dir = {base}/state
log_path = {base}/log
ssl = no
disable_plaintext_auth = no
mail_location = maildir:{mail}
mail_uid = {user}
mail_gid = {group}
first_valid_uid = 0
default_internal_user = {user}
default_login_user = {user}
default_internal_group = {group}
passdb {{
  driver = static
  args = password={password}
}}
userdb {{
  driver = static
  args = uid={user} gid={group} home={base}/home
}}
namespace inbox {{
  inbox = yes
  mailbox Junk {{
    auto = subscribe
    special_use = \\Junk
  }}
  mailbox Trash {{
    auto = subscribe
    special_use = \\Trash
  }}
  mailbox Archive {{
    auto = subscribe
  }}
  mailbox "Old junk" {{
    auto = subscribe
  }}
}}
service imap-login {{
  chroot =
  inet_listener imap {{
    port = {port}
  }}
  inet_listener imaps {{
    port = 0
  }}
}}
service anvil {{
  chroot =
}}
"""

PROFILE = """
user_pref("app.donation.eoy.version.viewed", 999);
user_pref("app.update.enabled", false);
user_pref("datareporting.policy.dataSubmissionEnabled", false);
user_pref("extensions.autoDisableScopes", 0);
user_pref("extensions.webextOptionalPermissionPrompts", false);
user_pref("intl.locale.requested", "en-US");
user_pref("mail.account.account1.identities", "id1");
user_pref("mail.account.account1.server", "server1");
user_pref("mail.accountmanager.accounts", "account1");
user_pref("mail.accountmanager.defaultaccount", "account1");
user_pref("mail.biff.show_alert", false);
user_pref("mail.identity.id1.fullName", "Test");
user_pref("mail.identity.id1.useremail", "tester@mail.example");
user_pref("mail.provider.suppress_dialog_on_startup", true);
user_pref("mail.rights.version", 1);
user_pref("mail.server.server1.authMethod", 3);
user_pref("mail.server.server1.check_new_mail", {knows_password});
user_pref("mail.server.server1.hostname", "127.0.0.1");
user_pref("mail.server.server1.login_at_startup", {knows_password});
user_pref("mail.server.server1.name", "tester@mail.example");
user_pref("mail.server.server1.port", {imap});
user_pref("mail.server.server1.socketType", 0);
user_pref("mail.server.server1.spamLevel", 0);
user_pref("mail.server.server1.type", "imap");
user_pref("mail.server.server1.userName", "tester");
user_pref("mail.shell.checkDefaultClient", false);
user_pref("mail.spam.manualMark", true);
user_pref("mail.spam.manualMarkMode", 0);
user_pref("mailnews.start_page.enabled", false);
user_pref("marionette.port", {marionette});
"""


def free_port():
    with contextlib.closing(socket.socket()) as one:
        one.bind(("127.0.0.1", 0))
        return one.getsockname()[1]


def wait_for(what, condition, patience=300, pause=0.5):
    end = time.monotonic() + patience
    while True:
        found = condition()
        if found:
            return found
        if time.monotonic() > end:
            raise Failure(f"waited in vain for {what}")
        time.sleep(pause)


class World:
    def __init__(self, root, programs, xpi):
        self.root = pathlib.Path(root)
        self.programs = pathlib.Path(programs)
        self.mail = self.root / "mail"
        self.home = self.root / "home"
        self.imap, self.marionette_port = free_port(), free_port()
        self.thunderbird = self.marionette = self.dovecot = None
        for folder in ("home", "profile/extensions", "dovecot/run", "dovecot/state", "dovecot/home", "mail/new", "mail/cur",
                       "mail/tmp", "pictures"):
            (self.root / folder).mkdir(parents=True, exist_ok=True)
        shutil.copy(xpi, self.root / f"profile/extensions/{ADDON}.xpi")
        self.write_preferences("false")
        display = next(n for n in range(90, 200) if not os.path.exists(f"/tmp/.X11-unix/X{n}"))
        self.environment = {**os.environ, "HOME": str(self.home), "TESSIVAR_ROOT": str(self.root), "DISPLAY": f":{display}",
                            "LANG": "C.UTF-8", "NO_AT_BRIDGE": "1"}
        self.screen = subprocess.Popen(["Xvfb", f":{display}", "-screen", "0", "1320x940x24", "-nolisten", "tcp"],
                                       stderr=subprocess.DEVNULL)
        self.delivered = 0

    def write_preferences(self, knows_password):
        (self.root / "profile/user.js").write_text(
            PROFILE.format(imap=self.imap, marionette=self.marionette_port, knows_password=knows_password))

    # --- the mail server

    def start_dovecot(self):
        base = self.root / "dovecot"
        me = pwd.getpwuid(os.getuid()).pw_name
        user, group = ("nobody", "nogroup") if me == "root" else (me, str(os.getgid()))
        if me == "root":
            subprocess.run(["chown", "-R", f"{user}:{group}", self.mail, base / "home"], check=True)
            for folder in [self.root, *self.root.parents]:
                if folder.stat().st_mode & 0o001 == 0:
                    folder.chmod(folder.stat().st_mode | 0o011)
        (base / "conf").write_text(DOVECOT.format(base=base, mail=self.mail, user=user, group=group, port=self.imap,
                                                  password=PASSWORD))
        self.dovecot = subprocess.Popen(["/usr/sbin/dovecot", "-F", "-c", base / "conf"])
        wait_for("Dovecot", self._imap_answers, 30)
        self.owner = (user, group)

    def _imap_answers(self):
        try:
            socket.create_connection(("127.0.0.1", self.imap), 1).close()
            return True
        except OSError:
            return False

    def stop_dovecot(self):
        """With all connections: its processes would serve those to their ends."""
        children = subprocess.run(["pgrep", "-P", str(self.dovecot.pid)], capture_output=True, text=True, check=False)
        for process in [self.dovecot.pid, *children.stdout.split()]:
            with contextlib.suppress(ProcessLookupError):
                self.kill(process)
        self.dovecot.wait(30)

    def deliver(self, content, folder=""):
        """Puts one message into a folder of the account."""
        self.delivered += 1
        base = self.mail / folder if folder else self.mail
        for part in ("tmp", "new", "cur"):
            if not (base / part).exists():
                (base / part).mkdir(parents=True)
                shutil.chown(base / part, *self.owner) if os.getuid() == 0 else None
                shutil.chown(base, *self.owner) if os.getuid() == 0 else None
        name = f"{int(time.time())}.M{self.delivered:06}.host"
        (base / "tmp" / name).write_bytes(content)
        shutil.chown(base / "tmp" / name, *self.owner) if os.getuid() == 0 else None
        (base / "tmp" / name).rename(base / "new" / name)

    def delivered_to(self, folder):
        """How many messages the server has in a folder."""
        return sum(1 for part in ("new", "cur") for _ in (self.mail / f".{folder}" / part).glob("*"))

    # --- Thunderbird

    def start_thunderbird(self):
        command = ["thunderbird", "--profile", self.root / "profile", "--no-remote", "--marionette",
                   "-remote-allow-system-access"]
        with open(self.root / "thunderbird.log", "a") as log:
            self.thunderbird = subprocess.Popen(command, env=self.environment, stdout=log, stderr=log,
                                                start_new_session=True)
        self.marionette = Marionette(self.marionette_port)
        self.run = self.marionette.run
        self.run("""
            const { MailServices } = ChromeUtils.importESModule("resource:///modules/MailServices.sys.mjs");
            const found = await Services.logins.searchLoginsAsync({ origin: "imap://127.0.0.1" });
            if (found.length == 0) {
                const login = Cc["@mozilla.org/login-manager/loginInfo;1"].createInstance(Ci.nsILoginInfo);
                login.init("imap://127.0.0.1", null, "imap://127.0.0.1", args[0], args[1], "", "");
                await Services.logins.addLoginAsync(login);
                const server = MailServices.accounts.defaultAccount.incomingServer;
                server.loginAtStartUp = server.doBiff = true;
                server.rootFolder.getNewMessages(null, null);
            }""", USER, PASSWORD)
        self.write_preferences("true")
        self.run("""const window = Services.wm.getMostRecentWindow("mail:3pane");
            window.moveTo(0, 0);
            window.resizeTo(window.screen.width, window.screen.height);""")

    def processes(self):
        """Thunderbird's own processes and those of the host."""
        group = str(self.thunderbird.pid)
        listed = subprocess.run(["ps", "-eo", "pid,pgid,rss,args"], capture_output=True, text=True, check=True).stdout
        return [line.split(None, 3) for line in listed.splitlines() if line.split(None, 2)[1] == group]

    def get_messages(self):
        """What the button of that name does; IMAP's own notices come too, but late on a laden machine."""
        self.run("""const { MailServices } = ChromeUtils.importESModule("resource:///modules/MailServices.sys.mjs");
            MailServices.accounts.defaultAccount.incomingServer.rootFolder.getNewMessages(null, null);""")

    @staticmethod
    def kill(process):
        os.kill(int(process), signal.SIGKILL)

    def memory(self):
        return sum(int(line[2]) for line in self.processes()) // 1024  # MiB

    def end_thunderbird(self, kill=False):
        self.marionette.close()
        os.killpg(self.thunderbird.pid, signal.SIGKILL if kill else signal.SIGTERM)
        self.thunderbird.wait(120)
        (self.root / "profile/lock").unlink(missing_ok=True)

    # --- the add-on's own page, in which all its interfaces can be called

    def open_options(self):
        self.run("""
            const { extension } = WebExtensionPolicy.getByID(args[0]);
            const [url] = extension.manifest.options_ui.page.split("#");
            Services.wm.getMostRecentWindow("mail:3pane").switchToTabHavingURI(url, true, {
                triggeringPrincipal: extension.principal });
        """, ADDON)
        wait_for("the options page", self.has_options, 60)

    def has_options(self):
        return self.is_true("return document.readyState === 'complete'", "pages/options.html")

    def is_true(self, text, where):
        """The same as page(), but false as long as the page isn't open."""
        with contextlib.suppress(Failure):
            return self.page(text, where=where)
        return False

    def page(self, text, *arguments, where="pages/options.html"):
        """Runs a script in a page of the add-on, where `messenger` has all its interfaces."""
        return self.marionette.page(where, text, arguments)

    def show_tab(self, number):
        self.run("""Services.wm.getMostRecentWindow("mail:3pane").document.getElementById("tabmail")
            .switchToTab(args[0]);""", number)

    def picture(self, name):
        time.sleep(1)
        subprocess.run(["import", "-window", "root", self.root / f"pictures/{name}.png"], env=self.environment, check=True)

    def press(self, key):
        subprocess.run(["xdotool", "key", "--clearmodifiers", key], env=self.environment, check=True)

    def click(self, x, y):
        subprocess.run(["xdotool", "mousemove", str(round(x)), str(round(y)), "click", "1"], env=self.environment, check=True)

    # --- the engine

    def tvrctl(self, *arguments, **more):
        return subprocess.run([self.programs / "tvrctl", *arguments], env=self.environment, capture_output=True, text=True,
                              check=False, **more)

    def close(self):
        if self.thunderbird and self.thunderbird.poll() is None:
            with contextlib.suppress(OSError):
                os.killpg(self.thunderbird.pid, signal.SIGKILL)
            self.thunderbird.wait()
        self.tvrctl("stop")
        if self.dovecot and self.dovecot.poll() is None:
            self.stop_dovecot()
        self.screen.terminate()
        self.screen.wait()
