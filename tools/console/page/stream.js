// The one connection of the page: pictures of all cameras, and every change, in one stream.
//
// Each message is 4 bytes of length, then "E" and JSON, or "P", 8 bytes of time (milliseconds since 1970), 4 bytes of
// the picture's number, 2 bytes of length, the camera's name and a JPEG file. All numbers are big-endian.
//
// The page says which pictures it has shown, and the server sends no more than a few of a camera that it hasn't: what
// piles up on the way is old when it is seen.
import {post} from "/make.js";

const pause = 40;      // milliseconds between answers; each costs about as much as a small picture
const silence = 3000;  // milliseconds; the server says something each second
const text = new TextDecoder();

export class Stream {
  // on: {event(object), picture(name, time, bytes, shown), state("connecting" | "live" | "lost")}
  constructor(on) {
    this.on = on;
    this.camera = null;  // null: all
    this.heard = 0;
    this.run = null;     // the running connection: {control, viewer, shown, answering}
    setInterval(() => this.watch(), 500);
    // A tab that nobody sees needs no pictures, and must not come back to old ones.
    document.addEventListener("visibilitychange", () => document.hidden ? this.stop() : this.open());
    addEventListener("pagehide", () => this.stop());
    addEventListener("pageshow", () => this.open());
    this.open();
  }

  // Only this camera's pictures; null for all.
  show(camera) {
    if (camera !== this.camera) {
      this.camera = camera;
      this.stop();
      this.open();
    }
  }

  stop() {
    this.run?.control.abort();
    this.run = null;
  }

  async open() {
    if (this.run || document.hidden) return;
    const run = this.run = {
      control: new AbortController(),
      viewer: [...crypto.getRandomValues(new Uint32Array(4))].map((part) => part.toString(36)).join("-"),
      shown: [],         // numbers that the server hasn't been told
      answering: false,
    };
    this.heard = Date.now();
    try {
      const query = this.camera === null ? "" : "&camera=" + encodeURIComponent(this.camera);
      const reply = await fetch("/wall?viewer=" + run.viewer + query, {signal: run.control.signal});
      if (!reply.ok) throw new Error("status " + reply.status);
      await this.read(reply.body.getReader(), run);
    } catch {
      // Said by the state below.
    }
    if (this.run === run) {
      this.run = null;
      this.on.state("lost");
      setTimeout(() => this.open(), 700);
    }
  }

  async read(reader, run) {
    let parts = [];   // what has come and isn't a whole message yet
    let size = 0;
    for (;;) {
      const {value, done} = await reader.read();
      if (done) return;
      this.heard = Date.now();
      this.on.state("live");
      parts.push(value);
      size += value.length;
      while (size >= 4) {
        if (parts[0].length < 4) parts = [join(parts, size)];
        const length = new DataView(parts[0].buffer, parts[0].byteOffset).getUint32(0);
        if (size < 4 + length) break;
        const all = parts.length === 1 ? parts[0] : join(parts, size);
        this.take(all.subarray(4, 4 + length), run);
        parts = all.length > 4 + length ? [all.subarray(4 + length)] : [];
        size -= 4 + length;
      }
    }
  }

  take(message, run) {
    if (message[0] === 0x45) {
      this.on.event(JSON.parse(text.decode(message.subarray(1))));
      return;
    }
    const view = new DataView(message.buffer, message.byteOffset);
    const time = Number(view.getBigUint64(1));
    const number = view.getUint32(9);
    const end = 15 + view.getUint16(13);
    const name = text.decode(message.subarray(15, end));
    this.on.picture(name, time, message.subarray(end), () => {
      run.shown.push(number);
      this.answer(run);
    });
  }

  // One answer at a time, with all that has been shown meanwhile. One that is lost is said again.
  async answer(run) {
    if (run.answering) return;
    run.answering = true;
    while (run.shown.length && this.run === run) {
      const shown = run.shown;
      run.shown = [];
      await post("/wall", {viewer: run.viewer, shown}, {signal: run.control.signal}).catch(() => run.shown.unshift(...shown));
      await new Promise((resolve) => setTimeout(resolve, pause));
    }
    run.answering = false;
  }

  watch() {
    if (this.run && Date.now() - this.heard > silence) {
      this.stop();
      this.on.state("lost");
      this.open();
    }
  }
}

function join(parts, size) {
  const all = new Uint8Array(size);
  let at = 0;
  for (const part of parts) {
    all.set(part, at);
    at += part.length;
  }
  return all;
}
