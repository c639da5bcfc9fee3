// Elements without markup: whatever a camera or a file calls itself stays text.

export function make(kind, facts = {}, ...children) {
  const element = document.createElement(kind);
  for (const [name, value] of Object.entries(facts)) {
    if (name.startsWith("on")) element.addEventListener(name.slice(2), value);
    else if (name === "class") element.className = value;
    else if (value !== null && value !== undefined && value !== false) element.setAttribute(name, value === true ? "" : value);
  }
  element.append(...children);
  return element;
}

// Sets a text only when it is another: a screen reader and the layout are left in peace.
export function say(element, words) {
  if (element.textContent !== words) element.textContent = words;
}

// For what can't be undone: the first click asks, the second one does it.
export function twice(button, question, act) {
  const words = button.textContent;
  const label = button.getAttribute("aria-label");
  let asked = false;
  const ask = (now) => {
    asked = now;
    say(button, now ? question : words);
    if (label) button.setAttribute("aria-label", now ? question : label);
    button.classList.toggle("asks", now);
  };
  button.addEventListener("click", () => {
    if (asked) act();
    ask(!asked);
  });
  button.addEventListener("blur", () => ask(false));
  return button;
}

export async function post(path, body, options = {}) {
  const reply = await fetch(path, {
    method: "POST", headers: {"Content-Type": "application/json"}, body: JSON.stringify(body), ...options,
  });
  const answer = await reply.json().catch(() => ({}));
  if (!reply.ok) throw new Error(answer.error || "The server said " + reply.status + ".");
  return answer;
}

export const door = (camera, what = "") => "/cameras/" + encodeURIComponent(camera) + (what ? "/" + what : "");

export function span(milliseconds) {
  const seconds = Math.max(0, milliseconds / 1000);
  if (seconds < 10) return seconds.toFixed(1) + " s";
  if (seconds < 100) return Math.round(seconds) + " s";
  const minutes = Math.floor(seconds / 60);
  return minutes < 100 ? minutes + " min " + Math.round(seconds % 60) + " s" : Math.floor(minutes / 60) + " h";
}
