// The head and the lens: a pad to press and hold, buttons, keys and the wheel.
//
// A wish goes to the server at once and again every 300 ms while it is held. The server stops the head when it
// hears nothing for a second, so a closed tab or a cut network stops it, too.
import {door, make, post} from "/make.js";

const repeat = 300;     // milliseconds
const fastest = 16;
const wheelHold = 250;  // milliseconds of zoom for each notch

const keys = {
  ArrowLeft: "left", ArrowRight: "right", ArrowUp: "up", ArrowDown: "down",
  "+": "zoom-in", "=": "zoom-in", "-": "zoom-out", n: "focus-near", f: "focus-far", o: "iris-open", c: "iris-close",
};
const lens = [
  ["Zoom", ["zoom-out", "−", "Zoom out"], ["zoom-in", "+", "Zoom in"]],
  ["Focus", ["focus-near", "near", "Focus near"], ["focus-far", "far", "Focus far"]],
  ["Iris", ["iris-close", "close", "Close the iris"], ["iris-open", "open", "Open the iris"]],
];

export class Head {
  constructor(name, onFailure) {
    this.name = name;
    this.onFailure = onFailure;
    this.wish = null;     // {move, speed}, or null: stopped
    this.pending = false; // a wish that hasn't been sent
    this.sending = false;
    this.pressed = new Set();
    this.knob = make("span", {class: "knob"});
    this.pad = make("div", {
      class: "pad", tabindex: "0", role: "application", "aria-label":
        "Head of the camera: press and hold, or use the arrow keys. Plus and minus zoom, n and f focus, o and c move the iris.",
      onpointerdown: (event) => this.grab(event), onpointermove: (event) => this.drag(event),
      onpointerup: () => this.release(), onpointercancel: () => this.release(), onlostpointercapture: () => this.release(),
      oncontextmenu: (event) => event.preventDefault(),
    }, ...arrows(), this.knob);
    this.element = make("div", {class: "head"}, this.pad, make("div", {class: "lens"}, ...lens.flatMap(
      ([title, less, more]) => [make("span", {}, title), this.button(...less), this.button(...more)])));
    this.timer = setInterval(() => this.wish && this.send(), repeat);
    this.listeners = new AbortController();
    const on = (target, type, act, more = {}) => target.addEventListener(type, act, {signal: this.listeners.signal, ...more});
    on(document, "keydown", (event) => this.keyDown(event));
    on(document, "keyup", (event) => this.keyUp(event));
    on(window, "blur", () => this.release());
    on(document, "visibilitychange", () => this.release());
    on(window, "pagehide", () => this.release());
  }

  end() {
    this.release();
    clearInterval(this.timer);
    this.listeners.abort();
  }

  button(move, label, title) {
    const button = make("button", {
      type: "button", "aria-label": title, title, onpointerdown: (event) => {
        button.setPointerCapture(event.pointerId);
        button.classList.add("held");
        this.want(move, 8);
      },
      onpointerup: () => this.release(), onpointercancel: () => this.release(), onlostpointercapture: () => this.release(),
      oncontextmenu: (event) => event.preventDefault(),
      onkeydown: (event) => {
        if ((event.key === " " || event.key === "Enter") && !event.repeat) {
          event.preventDefault();
          button.classList.add("held");
          this.want(move, 8);
        }
      },
      onkeyup: () => this.release(), onblur: () => this.release(),
    }, label);
    return button;
  }

  grab(event) {
    this.pad.setPointerCapture(event.pointerId);
    this.pad.classList.add("held");
    this.held = true;
    this.drag(event);
  }

  // The direction is the nearest of eight, the speed grows with the distance from the middle.
  drag(event) {
    if (!this.held) return;
    const box = this.pad.getBoundingClientRect();
    const radius = box.width / 2;
    let x = event.clientX - box.left - radius;
    let y = event.clientY - box.top - radius;
    const distance = Math.hypot(x, y);
    if (distance > radius) {
      x *= radius / distance;
      y *= radius / distance;
    }
    this.knob.style.left = radius + x + "px";
    this.knob.style.top = radius + y + "px";
    if (distance < radius * 0.15) {
      this.want(null);
      return;
    }
    const sector = (Math.round(Math.atan2(y, x) / (Math.PI / 4)) + 8) % 8;
    const move = ["right", "right-down", "down", "left-down", "left", "left-up", "up", "right-up"][sector];
    this.want(move, Math.min(fastest, Math.max(1, Math.round(fastest * distance / radius))));
  }

  keyDown(event) {
    const move = keys[event.key];
    const inField = event.target.closest?.("input, select, textarea, dialog");
    if (!move || inField || event.ctrlKey || event.altKey || event.metaKey) return;
    event.preventDefault();
    if (event.repeat) return;
    this.pressed.add(event.key);
    this.want(this.fromKeys(), event.shiftKey ? 4 : 10);
  }

  keyUp(event) {
    if (this.pressed.delete(event.key)) this.want(this.fromKeys(), 10);
  }

  // Two arrows at once are a diagonal.
  fromKeys() {
    const moves = [...this.pressed].map((key) => keys[key]);
    const across = moves.findLast((move) => move === "left" || move === "right");
    const along = moves.findLast((move) => move === "up" || move === "down");
    if (across && along) return across + "-" + along;
    return moves.at(-1) ?? null;
  }

  wheel(event) {
    event.preventDefault();
    this.want(event.deltaY < 0 ? "zoom-in" : "zoom-out", 8);
    clearTimeout(this.wheelEnd);
    this.wheelEnd = setTimeout(() => this.release(), wheelHold);
  }

  release() {
    this.held = false;
    this.pressed.clear();
    this.pad.classList.remove("held");
    this.knob.style.left = this.knob.style.top = "";
    for (const button of this.element.querySelectorAll("button.held")) button.classList.remove("held");
    this.want(null);
  }

  want(move, speed) {
    if (move === (this.wish?.move ?? null) && (move === null || speed === this.wish.speed)) return;
    this.wish = move === null ? null : {move, speed};
    this.send();
  }

  // One request at a time, so that a stop never overtakes what it stops.
  async send() {
    this.pending = true;
    if (this.sending) return;
    this.sending = true;
    while (this.pending) {
      this.pending = false;
      try {
        await post(door(this.name, "move"), this.wish ?? {move: "stop"}, {keepalive: true, signal: AbortSignal.timeout(2000)});
        this.onFailure("");
      } catch (error) {
        this.onFailure(error.message);
      }
    }
    this.sending = false;
  }
}

function arrows() {
  const places = [["←", 9, 50], ["→", 91, 50], ["↑", 50, 9], ["↓", 50, 91]];
  return places.map(([sign, x, y]) => {
    const arrow = make("span", {class: "arrow", "aria-hidden": "true"}, sign);
    arrow.style.left = x + "%";
    arrow.style.top = y + "%";
    return arrow;
  });
}
