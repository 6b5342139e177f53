"""A small client of Marionette, by which Thunderbird is driven and looked into."""
import json
import socket
import time


# Told to Marionette as a script that calls its last argument in the end.
WRAPPED = """const done = arguments[arguments.length - 1];
(async (...args) => { %s })(...[...arguments].slice(0, -1))
    .then(value => done({ value }), error => done({ error: `${error} ${error.stack}` }));"""

# By the very actor that Marionette has in each page: it can't be switched to those of extensions.
IN_PAGE = """const [where, script, values] = args;
const window = Services.wm.getMostRecentWindow("mail:3pane");
const browsers = [...window.document.getElementById("tabmail").tabInfo.map(tab => tab.browser),
    ...window.document.querySelectorAll("browser.webextension-popup-browser")];
const browser = browsers.find(each => each?.currentURI?.spec.includes(where));
if (!browser) { throw new Error(`${where} isn't open`); }
const actor = browser.browsingContext.currentWindowGlobal.getActor("MarionetteCommands");
return await actor.executeScript(script, values,
    { timeout: 600000, sandboxName: null, newSandbox: true, file: "", line: 0, async: true });"""


class Failure(Exception):
    pass


class Marionette:
    """One connection."""

    def __init__(self, port, patience=120):
        end = time.monotonic() + patience
        while True:
            try:
                self._socket = socket.create_connection(("127.0.0.1", port), timeout=600)
                break
            except OSError:
                if time.monotonic() > end:
                    raise
                time.sleep(0.5)
        self._number = 0
        self._rest = b""
        self._receive()
        self.call("WebDriver:NewSession", {"capabilities": {"alwaysMatch": {}}})
        self.call("WebDriver:SetTimeouts", {"script": 600000, "pageLoad": 60000, "implicit": 0})

    def _receive(self):
        while b":" not in self._rest:
            self._more()
        length, self._rest = self._rest.split(b":", 1)
        while len(self._rest) < int(length):
            self._more()
        text, self._rest = self._rest[:int(length)], self._rest[int(length):]
        return json.loads(text)

    def _more(self):
        got = self._socket.recv(65536)
        if not got:
            raise Failure("Thunderbird has ended")
        self._rest += got

    def call(self, name, fields):
        self._number += 1
        text = json.dumps([0, self._number, name, fields]).encode()
        self._socket.sendall(str(len(text)).encode() + b":" + text)
        _kind, _number, error, value = self._receive()
        if error:
            raise Failure(f"{error['error']}: {error['message']}\n{error.get('stacktrace', '')}")
        return value

    def run(self, text, *arguments):
        """The value of an asynchronous function's body in Thunderbird's main process."""
        self.call("Marionette:SetContext", {"value": "chrome"})
        fields = {"script": WRAPPED % text, "args": list(arguments), "sandbox": None, "newSandbox": True}
        return self._value(self.call("WebDriver:ExecuteAsyncScript", fields)["value"])

    def page(self, where, text, arguments):
        """The same in the page of a tab, or of a popup, whose address has `where` in it."""
        return self._value(self.run(IN_PAGE, where, WRAPPED % text, list(arguments)))

    @staticmethod
    def _value(answer):
        if "error" in answer:
            raise Failure(answer["error"])
        return answer.get("value")

    def close(self):
        self._socket.close()
