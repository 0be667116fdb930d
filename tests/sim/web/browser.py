"""A headless Chromium, driven over the WebDriver protocol."""
import base64
import json
import subprocess
import time
import urllib.request

DRIVER = "/usr/bin/chromedriver"
ELEMENT = "element-6066-11e4-a52e-4f735466cecf"  # the protocol's name for a reference


class Browser:
    def __init__(self, width=1400, height=1100):
        self.driver = subprocess.Popen([DRIVER, "--port=0"], stdout=subprocess.PIPE, text=True)
        port = None
        for line in self.driver.stdout:
            if "started successfully on port" in line:
                port = line.rsplit(" ", 1)[1].strip(".\n")
                break
        self.base = f"http://127.0.0.1:{port}/session"
        arguments = ["--headless=new", "--no-sandbox", "--disable-gpu", "--disable-dev-shm-usage", "--hide-scrollbars"]
        options = {"alwaysMatch": {"goog:chromeOptions": {"args": arguments}, "goog:loggingPrefs": {"browser": "ALL"}}}
        self.base += "/" + self.call("", {"capabilities": options})["sessionId"]
        self.size(width, height)

    def call(self, path, body=None, method=None):
        data = None if body is None else json.dumps(body).encode()
        request = urllib.request.Request(self.base + path, data, {"Content-Type": "application/json"}, method=method)
        with urllib.request.urlopen(request, timeout=300) as answer:
            return json.load(answer)["value"]

    def cdp(self, command, **parameters):
        return self.call("/goog/cdp/execute", {"cmd": command, "params": parameters})

    def open(self, address):
        self.call("/url", {"url": address})

    def run(self, script, *arguments):
        return self.call("/execute/sync", {"script": script, "args": list(arguments)})

    def wait(self, script, what, seconds=240):
        """Waits until the expression is true, and returns it."""
        end = time.monotonic() + seconds
        while time.monotonic() < end:
            value = self.run("return " + script)
            if value:
                return value
            time.sleep(0.1)
        raise AssertionError(f"never came: {what}\n" + self.run("return document.body.innerText"))

    def find(self, selector):
        return self.call("/element", {"using": "css selector", "value": selector})[ELEMENT]

    def click(self, selector):
        self.call(f"/element/{self.find(selector)}/click", {})

    def type(self, selector, text):
        node = self.find(selector)
        self.call(f"/element/{node}/clear", {})
        self.call(f"/element/{node}/value", {"text": text})

    def press(self, label):
        """Clicks the button of that text in the first camera."""
        button = self.run("return [...document.querySelectorAll('button')].find(b => b.textContent === arguments[0])", label)
        self.call(f"/element/{button[ELEMENT]}/click", {})

    def size(self, width, height=1100):
        """An emulated screen is exact; a window has a least width."""
        self.cdp("Emulation.setDeviceMetricsOverride", width=width, height=height, deviceScaleFactor=1, mobile=False)

    def picture(self, path, selector="html"):
        """Of an element as a whole, however long it is."""
        self.size(self.run("return innerWidth"), self.run("return document.documentElement.scrollHeight"))
        time.sleep(0.5)  # to draw it
        box = self.run("return document.querySelector(arguments[0]).getBoundingClientRect().toJSON()", selector)
        clip = {name: box[name] for name in ("x", "y", "width", "height")} | {"scale": 1}
        with open(path, "wb") as file:
            file.write(base64.b64decode(self.cdp("Page.captureScreenshot", clip=clip)["data"]))

    def complaints(self):
        return [e["message"] for e in self.call("/se/log", {"type": "browser"}) if e["level"] == "SEVERE"]

    def close(self):
        try:
            self.call("", method="DELETE")
        finally:
            self.driver.terminate()
            self.driver.wait()
            self.driver.stdout.close()
