// The page: a wall of all cameras, or one large with its panel. "#NAME" in the address is that one.
import {post, say} from "/make.js";
import {Panel} from "/panel.js";
import {Stream} from "/stream.js";
import {Tile} from "/tile.js";

const find = (id) => document.getElementById(id);
const wall = find("wall");
const tiles = new Map();    // by name
let names = null;           // in their order; null before the first word of the server
let single = null;          // {name, panel}
let lines = [];
const skews = [];           // the server's clock minus ours at the last ticks, milliseconds
let clock = 0;              // the largest of them: that tick was under way for the shortest time
let link = "connecting";
let laidOut = 0;            // the shape that the wall is laid out for

const now = () => Date.now() + clock;
const wanted = () => decodeURIComponent(location.hash.slice(1)) || null;

function tileOf(name) {
  if (!tiles.has(name)) tiles.set(name, new Tile(name, (name) => single ? leave() : location.hash = encodeURIComponent(name)));
  return tiles.get(name);
}

function leave() {
  const name = single?.name;
  history.replaceState(null, "", location.pathname);
  arrange();
  tiles.get(name)?.button.focus({preventScroll: true});
}

// The server's word of it may come later, or have come already.
function renamed(from, to) {
  names = names.map((each) => each === from ? to : each);
  location.hash = encodeURIComponent(to);
}

const events = {
  cameras({names: list}) {
    names = list;
    for (const name of tiles.keys()) {
      if (!names.includes(name)) tiles.delete(name);
    }
    arrange();
  },
  camera({state}) {
    const tile = tileOf(state.name);
    const isNewSecond = tile.state?.second?.time !== state.second?.time;
    tile.update(state);
    if (shape() !== laidOut) layOut();
    if (single?.name === state.name) single.panel.update(state, isNewSecond);
  },
  log({lines: more}) {
    // A connection that begins anew brings the lines again.
    const last = lines.at(-1)?.number ?? 0;
    lines = more[0].number > last ? [...lines, ...more].slice(-200) : more;
    single?.panel.showLog(lines);
  },
  tick({time}) {
    skews.push(time - Date.now());
    if (skews.length > 60) skews.shift();
    clock = Math.max(...skews);
  },
};

// The wall without what is shown large, or that one alone.
function arrange() {
  const name = wanted();
  const isSingle = name !== null && (names === null || names.includes(name));
  if (name !== null && !isSingle) {
    leave();
    return;
  }
  if (single && single.name !== name) {
    single.panel.end();
    single = null;
  }
  const cameFromWall = wall.contains(document.activeElement);
  stream.show(isSingle ? name : null);
  wall.hidden = isSingle;
  find("single").hidden = !isSingle;
  find("back").hidden = !isSingle;
  find("empty").hidden = isSingle || names === null || names.length !== 0;
  say(find("title"), isSingle ? name : "Cameras");
  document.title = (isSingle ? name + " – " : "") + "Kolvex cameras";
  if (isSingle) {
    const tile = tileOf(name);
    if (!single) {
      single = {name, panel: new Panel(name, {rename: (to) => renamed(name, to), removed: leave})};
      find("panel").replaceChildren(single.panel.element);
      single.panel.showLog(lines);
      if (tile.state) single.panel.update(tile.state, false);
      if (cameFromWall) find("back").focus({preventScroll: true});
    }
    tile.element.onwheel = (event) => single?.panel.head?.wheel(event);
    find("stage").replaceChildren(tile.element);
    return;
  }
  const elements = (names ?? []).map((each) => tileOf(each).element);
  for (const element of elements) element.onwheel = null;
  if (elements.length !== wall.children.length || elements.some((element, i) => wall.children[i] !== element)) {
    wall.replaceChildren(...elements);
  }
  layOut();
}

// Width by height of the widest picture, so that none gets black stripes beside it that needs none.
function shape() {
  return Math.max(0, ...[...tiles.values()].map(({state}) => state?.width ? state.width / state.height : 0)) || 4 / 3;
}

// As many columns as make the pictures as large as the window allows.
function layOut() {
  const ratio = laidOut = shape();
  const count = wall.children.length;
  if (count === 0 || wall.hidden) return;
  const gap = 6;
  const width = wall.clientWidth - gap;
  const height = wall.clientHeight - gap;
  let best = {tile: 0, columns: 1};
  for (let columns = 1; columns <= count; ++columns) {
    const rows = Math.ceil(count / columns);
    const tile = Math.min(width / columns - gap, (height / rows - gap) * ratio);
    if (tile > best.tile) best = {tile, columns};
  }
  // A tile stays large enough to see something, on a phone above all; then the wall scrolls.
  const least = Math.min(width < 760 ? 220 : 130, width - gap);
  if (best.tile < least) best = {tile: 0, columns: Math.max(1, Math.floor(width / (least + gap)))};
  const tile = Math.floor(best.tile || width / best.columns - gap);
  wall.style.alignContent = Math.ceil(count / best.columns) * (tile / ratio + gap) > height ? "start" : "center";
  wall.style.gridTemplateColumns = `repeat(${best.columns}, ${tile}px)`;
  wall.style.gridAutoRows = Math.floor(tile / ratio) + "px";
}

const stream = new Stream({
  event: (event) => events[event.event]?.(event),
  picture: (name, time, bytes, shown) => tiles.has(name) ? tiles.get(name).show(time, bytes, shown) : shown(),
  state: (state) => link = state,
});

addEventListener("hashchange", arrange);
addEventListener("resize", layOut);
find("back").addEventListener("click", leave);
document.addEventListener("keydown", (event) => {
  if (event.key === "Escape" && single && !find("add-dialog").open) leave();
});

setInterval(() => {
  const lost = link === "lost";
  find("link").classList.toggle("lost", lost);
  say(find("link"), lost ? "connection lost, trying again" : link === "live" ? tiles.size + (tiles.size === 1 ? " camera" : " cameras") : link);
  for (const tile of tiles.values()) tile.tick(now(), lost);
}, 200);

const dialog = find("add-dialog");
const form = find("add-form");
function answer(words, kind = "") {
  say(find("add-result"), words);
  find("add-result").className = kind;
}
find("add").addEventListener("click", () => {
  answer("");
  dialog.showModal();
});
find("add-cancel").addEventListener("click", () => dialog.close());
dialog.addEventListener("close", () => form.elements.password.value = "");
form.addEventListener("submit", async (event) => {
  event.preventDefault();
  const button = form.querySelector("[type=submit]");
  const facts = Object.fromEntries(new FormData(form));
  for (const field of ["address", "name", "user"]) facts[field] = facts[field].trim();
  button.disabled = true;
  answer("Asking the camera…");
  try {
    const {state} = await post("/cameras", facts);
    answer("Found: " + (state.model || "a camera") + ", group " + state.group + ". It is on the wall now.", "good");
    form.reset();
  } catch (error) {
    answer(error.message, "bad");
  }
  button.disabled = false;
  // The disabled button has lost it.
  if (dialog.open && !form.contains(document.activeElement)) button.focus();
});
arrange();
