// The live view: the state in words and colour, the values in figures, the charts.
import {ask, bandAt} from "/archive.js";
import {Chart, kCharts} from "/charts.js";
import {$, element, fillTable, setText} from "/dom.js";
import {clock, number, short, t} from "/language.js";
import {kQuantities} from "/model.js";

const kUnits = {amps: "A", volts: "V", wfs: "in/min", gas: "l/min", energy: "kJ"};
const kDigits = {amps: 0, volts: 1, wfs: 0, gas: 1, energy: 1};
const kPerKilojoule = 1000;

// While the arc burns, the axis has room to the right, so that it changes only now and then.
function axisEnd(time, running) {
  if (!running) {
    return Math.max(time, 0.01);
  }
  const power = 10 ** Math.floor(Math.log10(Math.max(time, 1)));
  return power * [1, 1.5, 2, 3, 4, 6, 8, 10].find((step) => step * power >= time);
}

export class LiveView {
  constructor(model, archive) {
    this.model = model;
    this.archive = archive;
    this.complete = false; // whether charts are drawn, too
    this.tiles = {};
    for (const name of kCharts) {
      const label = element("dt"), value = element("span", {class: "figure"}), unit = element("span", {class: "unit"});
      const extra = element("span", {class: "set"});
      const box = element("div", {class: "tile", id: `tile-${name}`}, label, element("dd", {}, value, " ", unit, extra));
      this.tiles[name] = {box, label, value, unit, extra};
      $("tiles").append(box);
    }
    this.charts = Object.fromEntries(kCharts.map((name) =>
      [name, new Chart($("charts"), name, name === "amps" || name === "volts" ? 0.22 : 0.18)]));
  }

  unit(name) {
    const given = this.model.state?.weld?.units?.[name];
    return name === "energy" ? kUnits.energy : given || kUnits[name];
  }

  // The band of former welds with the program of the running one, asked for once per weld.
  async loadBand() {
    const weld = this.model.state?.weld?.number;
    const program = this.model.state?.weld?.program;
    if (!this.archive || this.bandOf === weld) {
      return;
    }
    this.bandOf = weld;
    this.band = null;
    if (weld && program !== undefined) {
      try {
        const band = await ask("/api/band", {program});
        this.band = this.bandOf === weld ? band : this.band;
      } catch {
        this.band = null; // the view of welds says what is wrong with the archive
      }
    }
  }

  // The state that the reader must know first: a lost connection hides all others.
  shownState() {
    const {link, state} = this.model;
    if (link.link === "lost" || !state || this.model.old) {
      return "lost";
    }
    return state.bus.connected ? state.state : "noBus";
  }

  draw() {
    const shown = this.shownState();
    const {state, values} = this.model;
    const weld = state?.weld;
    $("state").dataset.state = shown;
    document.body.classList.toggle("old", shown === "lost" || shown === "noBus");
    setText($("state-word"), shown === "lost" && this.model.link.link === "wait" ? t("link.wait") : t(`state.${shown}`));
    setText($("state-detail"), this.detail(shown));
    const welding = values && weld && (shown === "arc" || shown === "silent" || shown === "ended");
    setText($("elapsed"), welding ? `${number(values.time, 1)} s` : "");
    this.loadBand();
    this.drawNotice();
    this.drawTiles(weld, values);
    if (this.complete) {
      this.drawCharts();
    }
    this.drawSummary(weld);
  }

  detail(shown) {
    const {link, state} = this.model;
    const weld = state?.weld;
    if (shown === "lost") {
      return link.link === "wait" ? t("detail.starting") : t("detail.lost", {time: clock(link.since)});
    }
    if (shown === "noBus") {
      return t("detail.noBus", {time: clock(state.bus.since), reason: state.bus.reason});
    }
    if (shown === "none") {
      return t("detail.none");
    }
    if (shown === "silent") {
      return t("detail.silent", {time: clock(state.since)});
    }
    const parts = [weld?.tag === undefined ? t("weldUnknown") : t("weld", {tag: weld.tag})];
    if (weld?.program) {
      parts.push(t("program", {program: weld.program}));
    }
    if (weld?.side) {
      parts.push(weld.side);
    }
    return parts.join(" · ");
  }

  drawNotice() {
    const texts = [];
    if (this.model.pace === "thinned") {
      texts.push(t("thinned"));
    }
    if (this.model.values?.missed) {
      texts.push(t("missed", {count: number(this.model.values.missed, 0)}));
    }
    $("notice").hidden = texts.length === 0;
    setText($("notice"), texts.join(" "));
  }

  measured(name) {
    const weld = this.model.state?.weld;
    return name === "energy" || name === "amps" || name === "volts" || !weld?.units || Boolean(weld.units[name]);
  }

  drawTiles(weld, values) {
    for (const name of kCharts) {
      const {box, label, value, unit, extra} = this.tiles[name];
      const shown = name === "energy" ? values?.energy / kPerKilojoule : values?.[name];
      box.hidden = !this.measured(name);
      setText(label, t(name));
      setText(value, values ? number(shown, kDigits[name]) : "–");
      setText(unit, this.unit(name));
      const set = weld?.set?.[name];
      setText(extra, set?.value ? t("set", {value: `${short(set.value)} ${set.unit}`}) : "");
    }
  }

  series(name, times) {
    const {model} = this;
    const q = kQuantities.indexOf(name === "energy" ? "power" : name);
    const size = model.size;
    const data = [times, new Array(size), new Array(size), new Array(size), new Array(size).fill(null), ...bandAt(this.band, name, times)];
    let energy = 0;
    for (let i = 0; i < size; ++i) {
      if (model.count[i] === 0) {
        data[1][i] = data[2][i] = data[3][i] = null;
      } else if (name === "energy") {
        energy += model.mean[q][i] * model.count[i] * model.period / kPerKilojoule;
        data[1][i] = data[2][i] = data[3][i] = energy;
      } else {
        data[1][i] = model.mean[q][i];
        data[2][i] = model.min[q][i];
        data[3][i] = model.max[q][i];
      }
    }
    const set = model.state?.weld?.set?.[name];
    if (set?.value && size > 0) { // 0: the set point is unknown
      data[4].fill(set.value);
    }
    return data;
  }

  drawCharts() {
    const {model} = this;
    const width = 2 ** model.level * model.period;
    const times = Array.from({length: model.size}, (_, i) => i * width);
    const end = axisEnd(model.size * width, this.shownState() !== "ended");
    for (const name of kCharts) {
      this.charts[name].show(this.measured(name));
      this.charts[name].draw(this.series(name, times), this.unit(name), end);
    }
    if ($("numbers").open) {
      this.drawNumbers(times);
    }
  }

  // At most forty rows: each covers several columns.
  drawNumbers(times) {
    const {model} = this;
    const step = Math.max(1, Math.ceil(model.size / 40));
    const rows = [];
    for (let begin = 0; begin < model.size; begin += step) {
      const row = [number(times[begin], 3)];
      for (const q of [0, 1]) {
        let low = Infinity, high = -Infinity, sum = 0, count = 0;
        for (let i = begin; i < Math.min(begin + step, model.size); ++i) {
          if (model.count[i]) {
            low = Math.min(low, model.min[q][i]);
            high = Math.max(high, model.max[q][i]);
            sum += model.mean[q][i] * model.count[i];
            count += model.count[i];
          }
        }
        row.push(...(count ? [short(low), short(sum / count), short(high)] : ["–", "–", "–"]));
      }
      rows.push(row);
    }
    const head = (name) => ["min", "mean", "max"].map((kind) => `${t(name)} ${t(kind)}, ${this.unit(name)}`);
    fillTable($("numbers-table"), [`${t("time")}, s`, ...head("amps"), ...head("volts")], rows);
  }

  drawSummary(weld) {
    $("summary").hidden = !weld?.metrics;
    if (!weld?.metrics) {
      return;
    }
    const items = Object.entries(weld.metrics).flatMap(([key, pair]) =>
      [element("div", {}, element("dt", {}, t(`metric.${key}`)), element("dd", {}, `${short(pair.value)} ${pair.unit}`))]);
    const text = items.map((item) => item.textContent).join();
    if ($("metrics").dataset.text !== text) {
      $("metrics").dataset.text = text;
      $("metrics").replaceChildren(...items);
    }
  }

  restyle() {
    for (const chart of Object.values(this.charts)) {
      if (chart.plot) {
        chart.make();
      }
    }
  }
}
