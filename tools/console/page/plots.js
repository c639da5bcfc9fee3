// Frames per second, data rate and gaps over the last minutes.
import {make, say} from "/make.js";

const seconds = 300;
const kinds = [["fps", "Frames per second", "--accent"], ["kBps", "kB/s", "--cool"], ["gaps", "Gaps", "--warn"]];

export class Plots {
  constructor() {
    this.points = [];
    this.rows = kinds.map(([key, title, color]) => {
      const canvas = make("canvas", {class: "plot", role: "img"});
      const figure = make("span");
      return {key, title, color, canvas, figure, element: make("div", {}, make("div", {class: "plot-title"}, make("span", {}, title), figure), canvas)};
    });
    this.element = make("div", {}, ...this.rows.map((row) => row.element));
  }

  fill(points) {
    this.points = points;
    this.draw();
  }

  add(point) {
    this.points.push(point);
    if (this.points.length > seconds) this.points.shift();
    this.draw();
  }

  draw() {
    for (const {key, title, color, canvas, figure} of this.rows) {
      const scale = devicePixelRatio;
      const width = canvas.width = canvas.clientWidth * scale;
      const height = canvas.height = canvas.clientHeight * scale;
      const values = this.points.map((point) => point[key]);
      const top = Math.max(1, ...values) * 1.15;
      const pen = canvas.getContext("2d");
      const colors = getComputedStyle(canvas);
      pen.strokeStyle = colors.getPropertyValue("--line");
      pen.strokeRect(0, 0, width, height);
      pen.beginPath();
      const first = seconds - values.length;
      values.forEach((value, i) => {
        const x = (first + i) / (seconds - 1) * width;
        const y = height - 2 - value / top * (height - 4);
        i === 0 ? pen.moveTo(x, y) : pen.lineTo(x, y);
      });
      pen.strokeStyle = colors.getPropertyValue(color);
      pen.lineWidth = 1.5 * scale;
      pen.stroke();
      const digits = key === "fps" ? 1 : 0;
      const words = key === "gaps" ? values.reduce((sum, value) => sum + value, 0) + " in all" :
        (values.at(-1) ?? 0).toFixed(digits) + " now, " + Math.max(0, ...values).toFixed(digits) + " at most";
      say(figure, words);
      canvas.setAttribute("aria-label", title + " over the last five minutes: " + words);
    }
  }
}
