// Lumaveil's web remote: speaks the remote-control protocol (rpcVersion 1) over the WebSocket
// on the page's own port. Nothing is shown or sent before the server accepts the password.
"use strict";

const PASSWORD_KEY = "lumaveil.remote.password";
const VENDOR = "lumaveil";
const LONG_PRESS_MS = 500;
const THUMBNAIL_INTERVAL_MS = 250;
// Subscriptions: General, Scenes, Transitions, Outputs, Vendors.
const EVENT_SUBSCRIPTIONS = (1 << 0) | (1 << 2) | (1 << 4) | (1 << 6) | (1 << 9);
const CLOSE_AUTHENTICATION_FAILED = 4009;

// SHA-256 of bytes; the browser's own is missing on plain-HTTP pages other than localhost.
function sha256(bytes) {
  const k = new Uint32Array([
    0x428a2f98, 0x71374491, 0xb5c0fbcf, 0xe9b5dba5, 0x3956c25b, 0x59f111f1, 0x923f82a4, 0xab1c5ed5,
    0xd807aa98, 0x12835b01, 0x243185be, 0x550c7dc3, 0x72be5d74, 0x80deb1fe, 0x9bdc06a7, 0xc19bf174,
    0xe49b69c1, 0xefbe4786, 0x0fc19dc6, 0x240ca1cc, 0x2de92c6f, 0x4a7484aa, 0x5cb0a9dc, 0x76f988da,
    0x983e5152, 0xa831c66d, 0xb00327c8, 0xbf597fc7, 0xc6e00bf3, 0xd5a79147, 0x06ca6351, 0x14292967,
    0x27b70a85, 0x2e1b2138, 0x4d2c6dfc, 0x53380d13, 0x650a7354, 0x766a0abb, 0x81c2c92e, 0x92722c85,
    0xa2bfe8a1, 0xa81a664b, 0xc24b8b70, 0xc76c51a3, 0xd192e819, 0xd6990624, 0xf40e3585, 0x106aa070,
    0x19a4c116, 0x1e376c08, 0x2748774c, 0x34b0bcb5, 0x391c0cb3, 0x4ed8aa4a, 0x5b9cca4f, 0x682e6ff3,
    0x748f82ee, 0x78a5636f, 0x84c87814, 0x8cc70208, 0x90befffa, 0xa4506ceb, 0xbef9a3f7, 0xc67178f2]);
  const h = new Uint32Array([0x6a09e667, 0xbb67ae85, 0x3c6ef372, 0xa54ff53a, 0x510e527f, 0x9b05688c, 0x1f83d9ab, 0x5be0cd19]);
  const paddedLength = Math.ceil((bytes.length + 9) / 64) * 64;
  const data = new Uint8Array(paddedLength);
  data.set(bytes);
  data[bytes.length] = 0x80;
  const view = new DataView(data.buffer);
  view.setUint32(paddedLength - 8, Math.floor(bytes.length / 0x20000000));
  view.setUint32(paddedLength - 4, (bytes.length * 8) >>> 0);
  const w = new Uint32Array(64);
  const rotr = (x, n) => (x >>> n) | (x << (32 - n));
  for (let offset = 0; offset < paddedLength; offset += 64) {
    for (let i = 0; i < 16; i++) w[i] = view.getUint32(offset + i * 4);
    for (let i = 16; i < 64; i++) {
      const s0 = rotr(w[i - 15], 7) ^ rotr(w[i - 15], 18) ^ (w[i - 15] >>> 3);
      const s1 = rotr(w[i - 2], 17) ^ rotr(w[i - 2], 19) ^ (w[i - 2] >>> 10);
      w[i] = (w[i - 16] + s0 + w[i - 7] + s1) >>> 0;
    }
    let [a, b, c, d, e, f, g, hh] = h;
    for (let i = 0; i < 64; i++) {
      const t1 = (hh + (rotr(e, 6) ^ rotr(e, 11) ^ rotr(e, 25)) + ((e & f) ^ (~e & g)) + k[i] + w[i]) >>> 0;
      const t2 = ((rotr(a, 2) ^ rotr(a, 13) ^ rotr(a, 22)) + ((a & b) ^ (a & c) ^ (b & c))) >>> 0;
      hh = g; g = f; f = e; e = (d + t1) >>> 0; d = c; c = b; b = a; a = (t1 + t2) >>> 0;
    }
    h[0] += a; h[1] += b; h[2] += c; h[3] += d; h[4] += e; h[5] += f; h[6] += g; h[7] += hh;
  }
  const out = new Uint8Array(32);
  const outView = new DataView(out.buffer);
  h.forEach((word, i) => outView.setUint32(i * 4, word));
  return out;
}

function base64(bytes) {
  let text = "";
  bytes.forEach((byte) => { text += String.fromCharCode(byte); });
  return btoa(text);
}

const utf8 = (text) => new TextEncoder().encode(text);

// base64(sha256(base64(sha256(password + salt)) + challenge)), as the protocol asks.
function authenticationAnswer(password, salt, challenge) {
  const secret = base64(sha256(utf8(password + salt)));
  return base64(sha256(utf8(secret + challenge)));
}

const $ = (id) => document.getElementById(id);

class Remote {
  constructor() {
    this.socket = null;
    this.nextId = 1;
    this.pending = new Map();
    this.state = { buttons: [], previewNames: [], programNames: [], swapMode: false };
    this.icons = new Map(); // uid -> {key, url}
    this.thumbnailTimer = null;
    this.identified = false;
    this.refused = false;
  }

  start() {
    $("signin-form").addEventListener("submit", (event) => {
      event.preventDefault();
      localStorage.setItem(PASSWORD_KEY, $("password").value);
      $("password").value = "";
      this.connect();
    });
    $("sign-out").addEventListener("click", () => {
      localStorage.removeItem(PASSWORD_KEY);
      this.disconnect();
      this.showSignIn("");
    });
    $("cut").addEventListener("click", () => this.vendor("Cut"));
    $("transition").addEventListener("click", () => this.call("TriggerStudioModeTransition"));
    $("clear").addEventListener("click", () => this.vendor("Clear"));
    $("swap-mode").addEventListener("change", (event) => this.vendor("SetSwapMode", { swapMode: event.target.checked }));
    $("transition-name").addEventListener("change", (event) =>
      this.call("SetCurrentSceneTransition", { transitionName: event.target.value }));
    $("transition-time").addEventListener("change", (event) => {
      const seconds = Number(event.target.value);
      if (seconds > 0) this.call("SetCurrentSceneTransitionDuration", { transitionDuration: Math.round(seconds * 1000) });
    });
    this.redeemLink().then(() => {
      if (localStorage.getItem(PASSWORD_KEY) !== null) this.connect();
      else this.showSignIn("");
    });
  }

  // A link with ?token= carries the password once; the token leaves the address bar at once.
  async redeemLink() {
    const token = new URLSearchParams(location.search).get("token");
    if (!token) return;
    history.replaceState(null, "", location.pathname);
    try {
      const reply = await fetch("/access?token=" + encodeURIComponent(token), { cache: "no-store" });
      if (!reply.ok) {
        this.linkMessage = "This link has been used or has expired; ask for a new one or type the password.";
        return;
      }
      localStorage.setItem(PASSWORD_KEY, (await reply.json()).password);
    } catch (error) {
      this.linkMessage = "The link could not be checked: " + error.message;
    }
  }

  showSignIn(message) {
    $("studio").hidden = true;
    $("signin").hidden = false;
    $("signin-message").textContent = message || this.linkMessage || "";
    this.linkMessage = "";
  }

  disconnect() {
    this.identified = false;
    clearTimeout(this.thumbnailTimer);
    if (this.socket) {
      this.socket.onclose = null;
      this.socket.close();
      this.socket = null;
    }
  }

  connect() {
    this.disconnect();
    this.refused = false;
    $("signin-message").textContent = "Connecting…";
    const socket = new WebSocket((location.protocol === "https:" ? "wss://" : "ws://") + location.host + "/");
    this.socket = socket;
    socket.onmessage = (event) => this.received(JSON.parse(event.data));
    socket.onclose = (event) => this.closed(event);
  }

  closed(event) {
    const wasIdentified = this.identified;
    this.identified = false;
    this.socket = null;
    clearTimeout(this.thumbnailTimer);
    for (const reject of this.pending.values()) reject.reject(new Error("connection closed"));
    this.pending.clear();
    if (event.code === CLOSE_AUTHENTICATION_FAILED) {
      localStorage.removeItem(PASSWORD_KEY);
      this.showSignIn("Wrong password: Lumaveil refused it.");
      return;
    }
    if (!wasIdentified) {
      this.showSignIn("Lumaveil closed the connection" + (event.reason ? ": " + event.reason : "."));
      return;
    }
    $("connection-message").textContent = "Connection lost; reconnecting…";
    setTimeout(() => { if (!this.socket && localStorage.getItem(PASSWORD_KEY) !== null) this.connect(); }, 2000);
  }

  send(op, d) {
    if (this.socket && this.socket.readyState === WebSocket.OPEN) this.socket.send(JSON.stringify({ op, d }));
  }

  received(message) {
    const data = message.d || {};
    switch (message.op) {
      case 0: { // Hello
        const identify = { rpcVersion: 1, eventSubscriptions: EVENT_SUBSCRIPTIONS };
        if (data.authentication) {
          const password = localStorage.getItem(PASSWORD_KEY) || "";
          identify.authentication = authenticationAnswer(password, data.authentication.salt, data.authentication.challenge);
        }
        this.send(1, identify);
        break;
      }
      case 2: // Identified
        this.identified = true;
        this.showStudio();
        break;
      case 5: // Event
        this.event(data.eventType, data.eventData || {});
        break;
      case 7: { // RequestResponse
        const waiting = this.pending.get(data.requestId);
        if (!waiting) break;
        this.pending.delete(data.requestId);
        if (data.requestStatus && data.requestStatus.result) waiting.resolve(data.responseData || {});
        else waiting.reject(new Error((data.requestStatus && data.requestStatus.comment) || "request failed"));
        break;
      }
    }
  }

  // quiet: a failure is the caller's business, not shown.
  call(requestType, requestData, quiet = false) {
    return new Promise((resolve, reject) => {
      const requestId = String(this.nextId++);
      this.pending.set(requestId, { resolve, reject });
      this.send(6, { requestType, requestId, requestData: requestData || {} });
    }).catch((error) => {
      if (!quiet) $("connection-message").textContent = requestType + ": " + error.message;
      throw error;
    });
  }

  async vendor(requestType, requestData) {
    const reply = await this.call("CallVendorRequest", { vendorName: VENDOR, requestType, requestData: requestData || {} });
    return reply.responseData || {};
  }

  async showStudio() {
    $("signin").hidden = true;
    $("studio").hidden = false;
    $("connection-message").textContent = "";
    document.body.dataset.connected = "true";
    try {
      this.applyState(await this.vendor("GetStudioState"));
      const transitions = await this.call("GetSceneTransitionList");
      this.showTransitions(transitions.transitions.map((t) => t.transitionName), transitions.currentSceneTransitionName);
      const current = await this.call("GetCurrentSceneTransition", {}, true).catch(() => null);
      if (current) this.showDuration(current.transitionDuration);
    } catch (error) {
      $("connection-message").textContent = error.message;
    }
    // Recording and streaming appear only where Lumaveil answers for them.
    this.call("GetRecordStatus", {}, true).then((s) => this.showOutput("record-state", s.outputActive), () => {});
    this.call("GetStreamStatus", {}, true).then((s) => this.showOutput("stream-state", s.outputActive), () => {});
    this.refreshThumbnail();
  }

  event(type, data) {
    if (type === "VendorEvent" && data.vendorName === VENDOR && data.eventType === "StudioStateChanged") {
      this.applyState(data.eventData);
    } else if (type === "CurrentSceneTransitionChanged") {
      $("transition-name").value = data.transitionName;
    } else if (type === "CurrentSceneTransitionDurationChanged") {
      this.showDuration(data.transitionDuration);
    } else if (type === "RecordStateChanged") {
      this.showOutput("record-state", data.outputActive);
    } else if (type === "StreamStateChanged") {
      this.showOutput("stream-state", data.outputActive);
    }
  }

  showOutput(id, active) {
    $(id).hidden = false;
    $(id).classList.toggle("active", !!active);
  }

  showTransitions(names, current) {
    const select = $("transition-name");
    select.replaceChildren(...names.map((name) => new Option(name, name)));
    if (current) select.value = current;
  }

  showDuration(ms) {
    if (document.activeElement !== $("transition-time")) $("transition-time").value = (ms / 1000).toString();
  }

  applyState(state) {
    this.state = state;
    $("program-names").textContent = state.programNames.length ? state.programNames.join(", ") : "—";
    $("preview-names").textContent = state.previewNames.length ? state.previewNames.join(", ") : "—";
    $("swap-mode").checked = !!state.swapMode;
    this.drawGrid();
    // Restart the picture at once when Program changes.
    clearTimeout(this.thumbnailTimer);
    this.refreshThumbnail();
  }

  drawGrid() {
    const grid = $("grid");
    const columns = Math.max(1, ...this.state.buttons.map((b) => b.col + 1));
    grid.style.setProperty("--columns", columns);
    const existing = new Map([...grid.children].map((tile) => [tile.dataset.uid, tile]));
    const kept = new Set();
    for (const button of this.state.buttons) {
      let tile = existing.get(button.uid);
      if (!tile) tile = this.makeTile(button.uid);
      kept.add(button.uid);
      tile.style.gridRow = String(button.row + 1);
      tile.style.gridColumn = String(button.col + 1);
      tile.dataset.name = button.name;
      tile.dataset.state = String(button.state);
      tile.dataset.color = button.color;
      tile.title = button.name;
      tile.querySelector(".band").textContent = button.name;
      // As the studio window paints it: a quarter-strength wash when not idle, and a band
      // under the name at full strength (half when idle).
      const active = button.state !== 0;
      tile.querySelector(".wash").style.background = active ? rgba(button.color, 0.25) : "transparent";
      tile.querySelector(".band").style.background = rgba(button.color, active ? 1 : 0.5);
      this.showIcon(tile, button);
      grid.appendChild(tile);
    }
    for (const [uid, tile] of existing) if (!kept.has(uid)) tile.remove();
  }

  makeTile(uid) {
    const tile = document.createElement("button");
    tile.className = "tile";
    tile.dataset.uid = uid;
    tile.innerHTML = '<span class="wash"></span><img class="icon" alt=""><span class="band"></span>';
    let timer = null;
    let punched = false;
    const cancel = () => { clearTimeout(timer); timer = null; tile.classList.remove("pressing"); };
    tile.addEventListener("pointerdown", (event) => {
      if (event.button !== 0) return;
      punched = false;
      tile.classList.add("pressing");
      timer = setTimeout(() => {
        timer = null;
        punched = true;
        tile.classList.remove("pressing");
        if (navigator.vibrate) navigator.vibrate(30);
        this.vendor("ButtonAction", { sceneUuid: uid, action: "punch" });
      }, LONG_PRESS_MS);
    });
    tile.addEventListener("pointerup", () => {
      if (timer === null) return;
      cancel();
      if (!punched) this.vendor("ButtonAction", { sceneUuid: uid, action: "toggle" });
    });
    tile.addEventListener("pointerleave", cancel);
    tile.addEventListener("pointercancel", cancel);
    tile.addEventListener("contextmenu", (event) => event.preventDefault());
    // Keyboards: Enter toggles, Shift+Enter punches.
    tile.addEventListener("keydown", (event) => {
      if (event.key !== "Enter" && event.key !== " ") return;
      event.preventDefault();
      this.vendor("ButtonAction", { sceneUuid: uid, action: event.shiftKey ? "punch" : "toggle" });
    });
    return tile;
  }

  async showIcon(tile, button) {
    const img = tile.querySelector(".icon");
    const known = this.icons.get(button.uid);
    if (!button.icon) {
      img.removeAttribute("src");
      return;
    }
    if (known && known.key === button.icon) {
      if (img.src !== known.url) img.src = known.url;
      return;
    }
    this.icons.set(button.uid, { key: button.icon, url: "" });
    try {
      const reply = await this.vendor("GetButtonIcon", { sceneUuid: button.uid });
      this.icons.set(button.uid, { key: button.icon, url: reply.imageData });
      img.src = reply.imageData;
    } catch (error) {
      this.icons.delete(button.uid);
    }
  }

  // A few Program pictures a second while something is on Program; the next is asked for
  // only once the last has come, so a slow link never piles requests up.
  refreshThumbnail() {
    if (!this.identified) return;
    const program = this.state.buttons.find((b) => this.state.programNames.includes(b.name));
    const image = $("thumbnail");
    if (!program) {
      image.removeAttribute("src");
      this.thumbnailTimer = setTimeout(() => this.refreshThumbnail(), THUMBNAIL_INTERVAL_MS);
      return;
    }
    this.call("GetSourceScreenshot", { sourceUuid: program.uid, imageFormat: "jpeg" }, true)
      .then((reply) => { image.src = reply.imageData; }, () => {})
      .finally(() => {
        clearTimeout(this.thumbnailTimer);
        if (this.identified) this.thumbnailTimer = setTimeout(() => this.refreshThumbnail(), THUMBNAIL_INTERVAL_MS);
      });
  }
}

function rgba(hex, alpha) {
  const value = parseInt(hex.slice(1), 16);
  return `rgba(${(value >> 16) & 255}, ${(value >> 8) & 255}, ${value & 255}, ${alpha})`;
}

window.lumaveilRemote = new Remote();
window.lumaveilRemote.start();
