// One chart for each quantity, made once and used as long as the page is open.
import {element, setText} from "/dom.js";
import {axisLabels, exact, number, short, t} from "/language.js";

export const kCharts = ["amps", "volts", "wfs", "gas", "energy"];

function colour(name) {
  return getComputedStyle(document.documentElement).getPropertyValue(name).trim();
}

// Series after the five of the weld itself: the band of former welds, then up to three other welds.
const kOthers = ["--other1", "--other2", "--other3"];
const kSingle = 200; // samples that are few enough to be marked

export class Chart {
  // zoom: called with a range that the reader has chosen
  constructor(parent, name, share, {prefix = "chart", zoom = null, others = 0, ink = `--${name}`} = {}) {
    this.name = name;
    this.share = share; // of the window's height
    this.zoom = zoom;
    this.others = others;
    this.ink = ink;
    this.sync = prefix;
    this.begin = 0;
    this.unit = "";
    this.title = element("h2", {});
    this.readout = element("p", {class: "readout", "aria-live": "polite"});
    this.place = element("div", {class: "plot", tabindex: "0", role: "img"});
    this.box = element("figure", {class: "chart", id: `${prefix}-${name}`}, element("figcaption", {}, this.title, this.readout), this.place);
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
    const stroke = colour(this.ink), ink = colour("--faint"), grid = colour("--grid");
    const axis = {stroke: ink, grid: {stroke: grid, width: 1}, ticks: {stroke: grid, width: 1}, font: "13px system-ui, sans-serif"};
    const options = {
      width: Math.max(this.place.clientWidth, 100), height: this.height,
      legend: {show: false},
      cursor: {sync: {key: this.sync, setSeries: false}, drag: {x: Boolean(this.zoom), y: false, setScale: false}, points: {size: 7}},
      scales: {x: {time: false, range: () => [this.begin, this.end]},
        y: {range: (_, min, max) => this.range(min, max)}},
      series: [{}, {stroke, width: 1.5, points: {show: (plot) => plot.data[0].length <= kSingle && this.single, size: 6}},
        {stroke: "transparent", points: {show: false}}, {stroke: "transparent", points: {show: false}},
        {stroke: ink, width: 1.5, dash: [7, 5], points: {show: false}},
        {stroke: "transparent", points: {show: false}}, {stroke: "transparent", points: {show: false}},
        ...kOthers.slice(0, this.others).map((other) => ({stroke: colour(other), width: 1.5, dash: [9, 3], points: {show: false}}))],
      bands: [{series: [6, 5], fill: ink + "33"}, {series: [3, 2], fill: stroke + "66"}],
      axes: [{...axis, size: 34, values: (_, ticks) => axisLabels(ticks, " s")},
        {...axis, size: 62, values: (_, ticks) => axisLabels(ticks)}],
      hooks: {setCursor: [(plot) => this.read(plot)], setSelect: [(plot) => this.select(plot)]},
    };
    this.plot?.destroy();
    this.plot = new uPlot(options, this.data ?? Array.from({length: 7 + this.others}, () => []), this.place);
  }

  range(min, max) {
    if (min === null || max === null) {
      return [0, 1];
    }
    const low = Math.min(0, min), high = Math.max(max, 0);
    return low === high ? [low, low + 1] : [low, high + 0.06 * (high - low)];
  }

  // data: x, mean, minimum, maximum, set point, band from, band to, other welds
  // begin, end: of the time axis
  draw(data, unit, end, begin = 0, single = false) {
    this.data = data;
    this.begin = begin;
    this.end = end;
    this.single = single;
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

  // A range that was chosen with the mouse or a finger.
  select(plot) {
    const {left, width} = plot.select;
    if (this.zoom && width > 4) {
      this.zoom(plot.posToVal(left, "x"), plot.posToVal(left + width, "x"));
      plot.setSelect({left: 0, width: 0, top: 0, height: 0}, false);
    }
  }

  read(plot) {
    const index = plot?.cursor.idx;
    const mean = index == null ? null : this.data?.[1][index];
    if (mean == null) {
      setText(this.readout, this.name === "amps" ? t("legend") : "");
      return;
    }
    const [x, , min, max] = this.data;
    if (this.single) {
      setText(this.readout, t("readoutSample", {time: number(x[index], 6), unit: this.unit, value: exact(mean)}));
      return;
    }
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
