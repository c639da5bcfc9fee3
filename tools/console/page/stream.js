// The one connection of the page: pictures of all cameras, and every change, in one stream.
//
// Each message is 4 bytes of length, then "E" and JSON, or "P", 8 bytes of time (milliseconds since 1970), 2 bytes
// of length, the camera's name and a JPEG file. All numbers are big-endian.

const silence = 3000;  // milliseconds; the server says something each second
const text = new TextDecoder();

export class Stream {
  // on: {event(object), picture(name, time, bytes), state("connecting" | "live" | "lost")}
  constructor(on) {
    this.on = on;
    this.camera = null;  // null: all
    this.heard = 0;
    this.run = null;     // AbortController of the running connection
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
    this.run?.abort();
    this.run = null;
  }

  async open() {
    if (this.run || document.hidden) return;
    const run = this.run = new AbortController();
    this.heard = Date.now();
    try {
      const query = this.camera === null ? "" : "?camera=" + encodeURIComponent(this.camera);
      const reply = await fetch("/wall" + query, {signal: run.signal});
      if (!reply.ok) throw new Error("status " + reply.status);
      await this.read(reply.body.getReader());
    } catch {
      // Said by the state below.
    }
    if (this.run === run) {
      this.run = null;
      this.on.state("lost");
      setTimeout(() => this.open(), 700);
    }
  }

  async read(reader) {
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
        this.take(all.subarray(4, 4 + length));
        parts = all.length > 4 + length ? [all.subarray(4 + length)] : [];
        size -= 4 + length;
      }
    }
  }

  take(message) {
    if (message[0] === 0x45) {
      this.on.event(JSON.parse(text.decode(message.subarray(1))));
      return;
    }
    const view = new DataView(message.buffer, message.byteOffset);
    const time = Number(view.getBigUint64(1));
    const end = 11 + view.getUint16(9);
    const name = text.decode(message.subarray(11, end));
    this.on.picture(name, time, message.subarray(end));
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
