// What can be seen and done of one camera beside its picture.
import {door, make, post, say, twice} from "/make.js";
import {Head} from "/head.js";
import {Plots} from "/plots.js";

// Long names of models may break after a slash.
const breakable = (value) => String(value).split(/(?<=\/)/).flatMap((part) => [part, make("wbr")]);

export class Panel {
  // actions: {rename(name), removed()}
  constructor(name, actions) {
    this.name = name;
    this.actions = actions;
    this.said = make("p", {class: "said", role: "alert"});
    this.facts = make("dl", {class: "facts-list"});
    this.head = null;
    this.headBox = make("section", {hidden: true}, make("h2", {}, "Head and lens"));
    this.positionList = make("ul", {class: "positions", "aria-label": "Stored positions"});
    this.freeSlots = make("p", {class: "note"});
    this.positionName = make("input", {"aria-label": "Name of the new position", placeholder: "Name", maxlength: 64, required: true});
    this.positionBox = make("section", {hidden: true}, make("h2", {}, "Stored positions"), this.positionList,
      make("form", {onsubmit: (event) => this.store(event)}, this.positionName, make("button", {type: "submit"}, "Store here")), this.freeSlots);
    this.inputs = make("div");
    this.outputs = make("div", {class: "row"});
    this.pinBox = make("section", {hidden: true}, make("h2", {}, "Inputs and outputs"), this.inputs, this.outputs);
    this.plots = new Plots();
    this.faults = make("div", {class: "row"});
    this.faultBox = make("section", {hidden: true}, make("h2", {}, "Faults of the simulated camera"), this.faults);
    this.log = make("ul", {id: "log", "aria-label": "Messages"});
    this.element = make("div", {}, this.headBox, this.positionBox, this.pinBox, this.faultBox,
      make("section", {}, make("h2", {}, "The last five minutes"), this.plots.element),
      make("section", {}, make("h2", {}, "Camera"), this.facts, this.manage()),
      make("section", {}, make("h2", {}, "Messages"), this.log), this.said);
    this.element.style.display = "contents";
    this.shown = {};
    this.fillPlots();
  }

  end() {
    this.head?.end();
  }

  async fillPlots() {
    const points = await fetch(door(this.name, "history")).then((reply) => reply.json()).catch(() => []);
    this.plots.fill(points);
  }

  manage() {
    const name = make("input", {"aria-label": "New name", value: this.name, maxlength: 64, required: true});
    const remove = twice(make("button", {type: "button"}, "Remove"), "Really remove", () =>
      this.act(() => post(door(this.name), {action: "remove"}).then(() => this.actions.removed())));
    return make("form", {onsubmit: (event) => {
      event.preventDefault();
      const to = name.value.trim();
      this.act(() => post(door(this.name), {action: "rename", name: to}).then(() => this.actions.rename(to)));
    }}, name, make("button", {type: "submit"}, "Rename"), remove);
  }

  async act(what) {
    try {
      await what();
      say(this.said, "");
    } catch (error) {
      say(this.said, error.message);
    }
  }

  // Calls build when that part of the state is another than the one shown.
  part(key, value, build) {
    const words = JSON.stringify(value);
    if (this.shown[key] !== words) {
      this.shown[key] = words;
      build();
    }
  }

  update(state, isNewSecond) {
    this.part("facts", [state.address, state.group, state.codec, state.model, state.width, state.height, state.restarts, state.noData, state.viewers], () =>
      this.facts.replaceChildren(...[
        ["Address", state.address], ["Model", (state.model || "unknown") + ", group " + state.group],
        ["Video", state.codec + (state.width ? ", " + state.width + "×" + state.height : "")],
        ["Viewers", state.viewers], ["Restarts", state.restarts], ["Reports of no data", state.noData],
      ].flatMap(([title, value]) => [make("dt", {}, title), make("dd", {}, ...breakable(value))])));
    this.headBox.hidden = state.head !== "ready";
    if (state.head === "ready" && !this.head) {
      this.head = new Head(this.name, (words) => say(this.said, words));
      this.headBox.append(this.head.element);
    }
    this.positionBox.hidden = !state.positions;
    this.part("positions", [state.positions, state.position], () => this.buildPositions(state));
    this.pinBox.hidden = state.inputs.length + state.outputs.length === 0;
    this.part("inputs", state.inputs, () => this.inputs.replaceChildren(...state.inputs.map((input, i) =>
      make("p", {class: "input", "data-input": i + 1}, make("i", {class: "lamp " + input.state}), " Input " + (i + 1) + " is " + input.state,
        make("span", {class: "note"}, input.changed ? ", changed at " + new Date(input.changed).toLocaleTimeString() : "")))));
    this.part("outputs", state.outputs, () => this.buildOutputs(state));
    this.faultBox.hidden = !state.faults;
    this.part("faults", [state.faults, state.fault], () => this.faults.replaceChildren(...(state.faults || []).map((fault) =>
      make("button", {type: "button", "data-fault": fault.id, "aria-pressed": String(state.fault === fault.id), onclick: () =>
        this.act(() => post(door(this.name, "fault"), {fault: fault.id}))}, fault.title))));
    if (isNewSecond) this.plots.add(state.second);
  }

  buildOutputs(state) {
    const buttons = state.outputs.map((output, i) => {
      const isHigh = output.state === "high";
      return make("button", {type: "button", "data-output": i + 1, role: "switch", "aria-checked": String(isHigh), onclick: () =>
        this.act(() => post(door(this.name, "outputs"), {output: i + 1, state: isHigh ? "low" : "high"}))},
      "Output " + (i + 1) + (output.state === "unknown" ? "" : isHigh ? " high" : " low"));
    });
    const note = state.outputs.some((output) => output.state === "unknown") ?
      [make("p", {class: "note"}, "The first time that you switch one, all others go low.")] : [];
    this.outputs.replaceChildren(...buttons, ...note);
  }

  // A camera with fixed slots lists the empty ones, too, under names of the driver's. They aren't worth a picture.
  buildPositions(state) {
    const isEmpty = (position) => /^empty p\d+ $/.test(position.name);
    const all = state.positions || [];
    const free = all.filter(isEmpty).length;
    say(this.freeSlots, free ? free + " slots are free." : "");
    this.positionList.replaceChildren(...all.filter((position) => !isEmpty(position)).map((position) => {
      const picture = position.picture ?
        make("img", {src: door(this.name, "positions/" + encodeURIComponent(position.name)) + "?" + position.picture, alt: ""}) :
        make("span", {class: "blank"});
      return make("li", {},
        make("button", {type: "button", class: "go" + (state.position === position.name ? " here" : ""), "data-position": position.name, "aria-current": state.position === position.name ? "true" : null, onclick: () =>
          this.act(() => post(door(this.name, "positions"), {action: "go", name: position.name}))},
        picture, make("span", {class: "label"}, position.name)),
        twice(make("button", {type: "button", class: "delete", "aria-label": "Delete the position " + position.name}, "×"), "Really delete", () =>
          this.act(() => post(door(this.name, "positions"), {action: "delete", name: position.name}))));
    }));
  }

  store(event) {
    event.preventDefault();
    const name = this.positionName.value;
    this.positionName.value = "";
    this.act(() => post(door(this.name, "positions"), {action: "store", name}));
  }

  showLog(lines) {
    this.log.replaceChildren(...lines.filter((line) => line.camera === this.name || line.camera === "").slice(-60).reverse().map((line) =>
      make("li", {}, make("time", {}, new Date(line.time).toLocaleTimeString()), line.text)));
  }
}
