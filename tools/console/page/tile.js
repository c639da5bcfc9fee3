// One live picture with its facts, or with the reason why there is none.
import {make, say, span} from "/make.js";

const old = 2000;  // milliseconds, or four times the camera's pace; older pictures are said to be old

export class Tile {
  constructor(name, onOpen) {
    this.name = name;
    this.state = null;
    this.time = 0;        // of the picture shown, the server's clock
    this.next = null;     // the newest picture while an older one is decoded
    this.busy = false;
    this.canvas = make("canvas", {role: "img", width: 720, height: 576});
    this.nameText = make("span", {class: "name"}, name);
    this.facts = make("span", {class: "facts"});
    this.extra = make("span", {class: "extra"});
    this.age = make("span");
    this.facts.append(this.extra, this.age);
    this.lamps = make("div", {class: "lamps", "aria-hidden": "true"});
    this.whyText = make("span");
    this.whyTime = make("b");
    this.why = make("div", {class: "why"}, this.whyText, this.whyTime);
    this.button = make("button", {class: "open", type: "button", onclick: () => onOpen(this.name)});
    this.element = make("div", {class: "tile", role: "listitem"}, this.canvas, this.why, this.lamps,
      make("div", {class: "bar"}, this.nameText, this.facts), this.button);
    this.element.dataset.camera = name;
  }

  // The newest picture counts; those that come while one is decoded replace each other.
  async show(time, blob) {
    this.next = {time, blob};
    if (this.busy) return;
    this.busy = true;
    while (this.next) {
      const {time, blob} = this.next;
      this.next = null;
      try {
        const bitmap = await createImageBitmap(blob);
        if (this.canvas.width !== bitmap.width || this.canvas.height !== bitmap.height) {
          this.canvas.width = bitmap.width;
          this.canvas.height = bitmap.height;
        }
        this.canvas.getContext("2d").drawImage(bitmap, 0, 0);
        bitmap.close();
        this.time = time;
      } catch {
        // A damaged picture; the one before stays, and its age says so.
      }
    }
    this.busy = false;
  }

  update(state) {
    this.state = state;
    say(this.nameText, state.name);
    const lamps = state.inputs.map((input) => "lamp " + input.state);
    if (this.shownLamps !== lamps.join()) {
      this.shownLamps = lamps.join();
      this.lamps.replaceChildren(...lamps.map((kind) => make("i", {class: kind})));
    }
  }

  // now: the server's clock.
  tick(now, lost) {
    const state = this.state;
    if (!state) return;
    const last = this.time || state.lastFrame || 0;
    const age = last ? now - last : null;
    const isOld = age !== null && age > Math.max(old, 4 * state.interval);
    const size = state.width ? state.width + "×" + state.height + "  " : "";
    say(this.extra, size + state.fps.toFixed(1) + " fps  " + Math.round(state.kBps) + " kB/s  ");
    say(this.age, age === null ? "no picture" : span(age));
    this.why.hidden = !(lost || isOld || age === null);
    if (!this.why.hidden) {
      const words = lost ? "The server doesn't answer." :
        state.why || (age === null ? "The stream is being set up." : "The picture is old.");
      say(this.whyText, words);
      const since = age === null ? now - state.since : age;
      say(this.whyTime, (age === null ? "waiting for " : "no new picture for ") + span(since));
    }
    const label = state.name + (this.why.hidden ? ", live, " + Math.round(state.fps) + " frames per second" :
      ", no live picture: " + this.whyText.textContent);
    if (this.button.getAttribute("aria-label") !== label) {
      this.button.setAttribute("aria-label", label);
      this.canvas.setAttribute("aria-label", "Picture of " + state.name);
    }
  }
}
