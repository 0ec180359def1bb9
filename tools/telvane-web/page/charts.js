// One chart for each quantity, made once and used as long as the page is open.
import {element, setText} from "/dom.js";
import {axisLabels, number, short, t} from "/language.js";

export const kCharts = ["amps", "volts", "wfs", "gas", "energy"];
const kSync = "telvane";

function colour(name) {
  return getComputedStyle(document.documentElement).getPropertyValue(name).trim();
}

export class Chart {
  constructor(parent, name, share) {
    this.name = name;
    this.share = share; // of the window's height
    this.unit = "";
    this.title = element("h2", {});
    this.readout = element("p", {class: "readout", "aria-live": "polite"});
    this.place = element("div", {class: "plot", tabindex: "0", role: "img"});
    this.box = element("figure", {class: "chart", id: `chart-${name}`}, element("figcaption", {}, this.title, this.readout), this.place);
    parent.append(this.box);
    this.place.addEventListener("keydown", (event) => this.move(event));
    this.plot = null;
    this.end = 1;
    new ResizeObserver(() => this.resize()).observe(this.place);
  }

  get height() {
    return Math.round(Math.min(Math.max(innerHeight * this.share, 150), 520));
  }

  make() {
    const stroke = colour(`--${this.name}`), ink = colour("--faint"), grid = colour("--grid");
    const axis = {stroke: ink, grid: {stroke: grid, width: 1}, ticks: {stroke: grid, width: 1}, font: "13px system-ui, sans-serif"};
    const options = {
      width: Math.max(this.place.clientWidth, 100), height: this.height,
      legend: {show: false},
      cursor: {sync: {key: kSync, setSeries: false}, drag: {x: false, y: false}, points: {size: 7}},
      scales: {x: {time: false, range: () => [0, this.end]},
        y: {range: (_, min, max) => this.range(min, max)}},
      series: [{}, {stroke, width: 1.5, points: {show: false}},
        {stroke: "transparent", points: {show: false}}, {stroke: "transparent", points: {show: false}},
        {stroke: ink, width: 1.5, dash: [7, 5], points: {show: false}}],
      bands: [{series: [3, 2], fill: stroke + "66"}],
      axes: [{...axis, size: 34, values: (_, ticks) => axisLabels(ticks, " s")},
        {...axis, size: 62, values: (_, ticks) => axisLabels(ticks)}],
      hooks: {setCursor: [(plot) => this.read(plot)]},
    };
    this.plot?.destroy();
    this.plot = new uPlot(options, this.data ?? [[], [], [], [], []], this.place);
  }

  range(min, max) {
    if (min === null || max === null) {
      return [0, 1];
    }
    const low = Math.min(0, min), high = Math.max(max, 0);
    return low === high ? [low, low + 1] : [low, high + 0.06 * (high - low)];
  }

  // data: x, mean, minimum, maximum, set point
  // end: of the time axis
  draw(data, unit, end) {
    this.data = data;
    this.end = end;
    this.unit = unit;
    setText(this.title, unit ? `${t(this.name)}, ${unit}` : t(this.name));
    if (!this.plot && this.place.clientWidth > 0) {
      this.make();
    }
    this.plot?.setData(data);
    this.read(this.plot);
    // Not more than once a second: a screen reader would never finish.
    this.labelling ??= setTimeout(() => this.describe(), this.labelled ? 1000 : 0);
  }

  describe() {
    this.labelling = undefined;
    this.labelled = true;
    const [, mean, min, max] = this.data;
    let low = Infinity, high = -Infinity, sum = 0, count = 0;
    for (let i = 0; i < mean.length; ++i) {
      if (mean[i] !== null) {
        low = Math.min(low, min[i]);
        high = Math.max(high, max[i]);
        sum += mean[i];
        ++count;
      }
    }
    const label = count
      ? t("chartLabel", {name: t(this.name), unit: this.unit, mean: short(sum / count), min: short(low), max: short(high)})
      : t("chartEmpty", {name: t(this.name)});
    this.place.setAttribute("aria-label", label);
  }

  read(plot) {
    const index = plot?.cursor.idx;
    const mean = index == null ? null : this.data?.[1][index];
    if (mean == null) {
      setText(this.readout, this.name === "amps" ? t("legend") : "");
      return;
    }
    const [x, , min, max] = this.data;
    setText(this.readout, t("readout", {time: number(x[index], 3), unit: this.unit, mean: short(mean), min: short(min[index]), max: short(max[index])}));
  }

  // Left and right move by one column, with Shift by twenty.
  move(event) {
    const size = this.data?.[0].length ?? 0;
    const step = event.shiftKey ? 20 : 1;
    const from = this.plot?.cursor.idx ?? -1;
    const to = {ArrowLeft: from - step, ArrowRight: from + step, Home: 0, End: size - 1}[event.key];
    if (to === undefined || size === 0 || !this.plot) {
      return;
    }
    event.preventDefault();
    const index = Math.min(Math.max(to, 0), size - 1);
    this.plot.setCursor({left: this.plot.valToPos(this.data[0][index], "x"), top: this.plot.bbox.height / (2 * devicePixelRatio)});
  }

  resize() {
    if (this.plot && this.place.clientWidth > 0 && (this.place.clientWidth !== this.plot.width || this.height !== this.plot.height)) {
      this.plot.setSize({width: this.place.clientWidth, height: this.height});
    } else if (!this.plot && this.data && this.place.clientWidth > 0) {
      this.make();
    }
  }

  show(visible) {
    this.box.hidden = !visible;
  }
}
