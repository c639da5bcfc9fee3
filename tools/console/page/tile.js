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
    this.size = make("span", {class: "size"});
    this.fps = make("span");
    this.rate = make("span", {class: "rate"});
    this.age = make("span");
    this.ageBox = make("span", {}, this.age, make("span", {class: "word"}, " old"));
    this.facts.append(this.size, this.fps, this.rate, this.ageBox);
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
  async show(time, bytes, shown) {
    this.next = {time, bytes, shown};
    if (this.busy) return;
    this.busy = true;
    while (this.next) {
      const {time, bytes, shown} = this.next;
      this.next = null;
      try {
        const bitmap = await createImageBitmap(new Blob([bytes], {type: "image/jpeg"}));
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
      shown();
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
    say(this.size, state.width ? state.width + "×" + state.height : "");
    say(this.fps, state.fps.toFixed(1) + " fps");
    say(this.rate, Math.round(state.kBps) + " kB/s");
    say(this.age, age === null ? "" : span(age));
    this.ageBox.hidden = age === null;
    this.why.hidden = !(lost || isOld || age === null);
    if (!this.why.hidden) {
      // The camera sends, but the way to this browser or the browser itself is slower.
      const isLate = !lost && isOld && !state.why && state.fps > 0;
      this.why.classList.toggle("late", isLate);
      const words = lost ? "The server doesn't answer." : isLate ? "Pictures reach this browser late." :
        state.why || (age === null ? "The stream is being set up." : "No new picture comes. The reason isn't known yet.");
      say(this.whyText, words);
      const since = age === null ? now - state.since : age;
      say(this.whyTime, isLate ? span(age) + " old" : (age === null ? "waiting for " : "no new picture for ") + span(since));
    }
    const label = state.name + (this.why.hidden ? ", live, " + Math.round(state.fps) + " frames per second" :
      ", no live picture: " + this.whyText.textContent);
    if (this.button.getAttribute("aria-label") !== label) {
      this.button.setAttribute("aria-label", label);
      this.canvas.setAttribute("aria-label", "Picture of " + state.name);
    }
  }
}
