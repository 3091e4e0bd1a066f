#!/usr/bin/python3
"""Drives headless Chromium browsers through the DevTools protocol, one command per line.

usage: browser_driver.py CHROMIUM WORKDIR
Commands on standard input (one JSON array per line), one JSON reply per line on standard output:
  ["open", name, url]                 start a browser of its own (own storage) on url
  ["eval", name, js]                  the value of an expression (promises are awaited)
  ["wait", name, seconds, js]         until the expression is truthy in the page
  ["press", name, selector, ms]       a mouse press held ms milliseconds on the element's centre
  ["screenshot", name, w, h, mobile, path]  a PNG of the page at that size
  ["quit"]
A reply is {"ok": true, "value": ...} or {"ok": false, "error": "..."}.
"""
import asyncio
import json
import os
import shutil
import subprocess
import sys
import urllib.request

import websockets


class Browser:
    def __init__(self, chromium, folder):
        self.folder = folder
        os.makedirs(folder, exist_ok=True)
        self.process = subprocess.Popen(
            [chromium, "--headless=new", "--no-sandbox", "--disable-gpu", "--no-first-run",
             "--no-default-browser-check", "--disable-extensions", "--mute-audio",
             "--remote-debugging-port=0", f"--user-data-dir={folder}", "about:blank"],
            stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        self.socket = None
        self.next_id = 0
        self.seen_events = set()

    async def attach(self):
        # Chromium writes its DevTools port into this file once it listens; nothing to wait on.
        port_file = os.path.join(self.folder, "DevToolsActivePort")
        for _ in range(600):
            if os.path.exists(port_file):
                lines = open(port_file).read().split("\n")
                if lines[0].strip():
                    break
            if self.process.poll() is not None:
                raise RuntimeError("chromium ended at start")
            await asyncio.sleep(0.05)
        port = int(open(port_file).read().split("\n")[0])
        targets = json.load(urllib.request.urlopen(f"http://127.0.0.1:{port}/json/list", timeout=10))
        page = next(t for t in targets if t["type"] == "page")
        self.socket = await websockets.connect(page["webSocketDebuggerUrl"], max_size=None)
        await self.send("Page.enable")
        await self.send("Runtime.enable")

    async def send(self, method, params=None):
        self.next_id += 1
        ident = self.next_id
        await self.socket.send(json.dumps({"id": ident, "method": method, "params": params or {}}))
        while True:
            message = json.loads(await self.socket.recv())
            if message.get("id") == ident:
                if "error" in message:
                    raise RuntimeError(f"{method}: {message['error'].get('message')}")
                return message.get("result", {})
            if "method" in message:
                self.seen_events.add(message["method"])
            if message.get("method") == "Runtime.exceptionThrown":
                details = message["params"]["exceptionDetails"]
                print(json.dumps({"pageError": details.get("exception", {}).get("description", details.get("text"))}),
                      file=sys.stderr, flush=True)

    async def navigate(self, url):
        self.seen_events.discard("Page.loadEventFired")
        await self.send("Page.navigate", {"url": url})
        while "Page.loadEventFired" not in self.seen_events:
            message = json.loads(await self.socket.recv())
            if "method" in message:
                self.seen_events.add(message["method"])

    async def evaluate(self, expression):
        result = await self.send("Runtime.evaluate", {"expression": expression, "awaitPromise": True,
                                                      "returnByValue": True})
        if "exceptionDetails" in result:
            raise RuntimeError(result["exceptionDetails"].get("exception", {}).get("description", "exception"))
        return result["result"].get("value")

    async def close(self):
        if self.socket:
            await self.socket.close()
        self.process.terminate()
        try:
            self.process.wait(timeout=20)
        except subprocess.TimeoutExpired:
            self.process.kill()
            self.process.wait()
        shutil.rmtree(self.folder, ignore_errors=True)


async def run(chromium, workdir):
    browsers = {}
    loop = asyncio.get_running_loop()
    try:
        while True:
            line = await loop.run_in_executor(None, sys.stdin.readline)
            if not line:
                break
            command = json.loads(line)
            try:
                value = None
                kind = command[0]
                if kind == "quit":
                    print(json.dumps({"ok": True}), flush=True)
                    break
                if kind == "open":
                    browser = Browser(chromium, os.path.join(workdir, command[1]))
                    browsers[command[1]] = browser
                    await browser.attach()
                    await browser.navigate(command[2])
                elif kind == "eval":
                    value = await browsers[command[1]].evaluate(command[2])
                elif kind == "wait":
                    # The page checks the condition each turn of its own loop until the deadline.
                    value = await browsers[command[1]].evaluate(
                        "new Promise((resolve, reject) => { const deadline = Date.now() + %d;"
                        " const check = () => { let v; try { v = (%s); } catch (e) { v = false; }"
                        " if (v) resolve(v); else if (Date.now() > deadline) reject(new Error('timed out'));"
                        " else setTimeout(check, 10); }; check(); })" % (int(command[2] * 1000), command[3]))
                elif kind == "press":
                    browser = browsers[command[1]]
                    box = await browser.evaluate(
                        "(() => { const r = document.querySelector(%s).getBoundingClientRect();"
                        " return [r.left + r.width / 2, r.top + r.height / 2]; })()" % json.dumps(command[2]))
                    mouse = {"x": box[0], "y": box[1], "button": "left", "clickCount": 1}
                    await browser.send("Input.dispatchMouseEvent", dict(mouse, type="mouseMoved", button="none"))
                    await browser.send("Input.dispatchMouseEvent", dict(mouse, type="mousePressed"))
                    # The hold is the gesture itself (a tap or a long press), not a wait for something.
                    await asyncio.sleep(command[3] / 1000.0)
                    await browser.send("Input.dispatchMouseEvent", dict(mouse, type="mouseReleased"))
                elif kind == "screenshot":
                    browser = browsers[command[1]]
                    width, height, mobile, path = command[2], command[3], command[4], command[5]
                    await browser.send("Emulation.setDeviceMetricsOverride",
                                       {"width": width, "height": height, "deviceScaleFactor": 1, "mobile": mobile})
                    await browser.evaluate("new Promise(r => requestAnimationFrame(() => requestAnimationFrame(r)))")
                    shot = await browser.send("Page.captureScreenshot", {"format": "png"})
                    import base64
                    with open(path, "wb") as out:
                        out.write(base64.b64decode(shot["data"]))
                    await browser.send("Emulation.clearDeviceMetricsOverride")
                else:
                    raise RuntimeError(f"unknown command {kind}")
                print(json.dumps({"ok": True, "value": value}), flush=True)
            except Exception as error:  # every failure is the test's to report
                print(json.dumps({"ok": False, "error": f"{type(error).__name__}: {error}"}), flush=True)
    finally:
        for browser in browsers.values():
            await browser.close()


if __name__ == "__main__":
    asyncio.run(run(sys.argv[1], sys.argv[2]))
