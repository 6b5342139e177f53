"""A small client of Marionette, by which Thunderbird is driven and looked into."""
import json
import socket
import time


class Failure(Exception):
    pass


class Marionette:
    """One connection. `run` evaluates a script in Thunderbird itself, `page` in the page that was switched to."""

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

    def _script(self, context, text, arguments):
        self.call("Marionette:SetContext", {"value": context})
        whole = f"""const done = arguments[arguments.length - 1];
            (async (...args) => {{ {text} }})(...[...arguments].slice(0, -1))
                .then(value => done({{ value }}), error => done({{ error: String(error) + error.stack }}));"""
        answer = self.call("WebDriver:ExecuteAsyncScript", {"script": whole, "args": list(arguments),
                                                            "sandbox": None, "newSandbox": True})["value"]
        if "error" in answer:
            raise Failure(answer["error"])
        return answer.get("value")

    def run(self, text, *arguments):
        return self._script("chrome", text, arguments)

    def page(self, text, *arguments):
        return self._script("content", text, arguments)

    def close(self):
        self._socket.close()
