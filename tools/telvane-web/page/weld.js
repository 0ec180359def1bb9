// One weld in full, or up to four over each other. The server sends as many columns as are drawn, or single samples once
// they are few: the address of the part that is shown decides.
import {ask, bandAt, fileAddress, kChannels, unpackCurve, valuesAt} from "/archive.js";
import {Chart} from "/charts.js";
import {$, element, fillTable, setText} from "/dom.js";
import {exact, moment, number, short, t} from "/language.js";

const kCharts = ["amps", "volts", "wfs", "gas"];
const kOthers = 3;
const kColumns = 1000;
const kUnits = {amps: "A", volts: "V", wfs: "in/min", gas: "l/min"};

export class WeldView {
  constructor() {
    this.ids = [];
    this.charts = Object.fromEntries(kCharts.map((name) =>
      [name, new Chart($("weld-charts"), name, name === "amps" || name === "volts" ? 0.26 : 0.18,
        {prefix: "weld", others: kOthers, ink: "--amps", zoom: (from, to) => this.zoom(from, to)})]));
    const move = (factor, shift) => () => {
      const {from, to} = this.range();
      const middle = (from + to) / 2 + shift * (to - from), half = (to - from) / 2 * factor;
      this.zoom(middle - half, middle + half);
    };
    $("zoom-in").addEventListener("click", move(0.5, 0));
    $("zoom-out").addEventListener("click", move(2, 0));
    $("zoom-earlier").addEventListener("click", move(1, -0.5));
    $("zoom-later").addEventListener("click", move(1, 0.5));
    $("zoom-all").addEventListener("click", () => this.zoom(0, Infinity));
  }

  // address: the ids of the welds, separated by commas; the first one comes in full
  async show(visible, address = "") {
    const ids = visible ? address.split(",").map(Number).filter((id) => Number.isInteger(id) && id > 0).slice(0, kOthers + 1) : [];
    const key = ids.join();
    if (!visible || key === this.key) {
      return;
    }
    Object.assign(this, {key, ids, welds: [], curves: null, band: null, error: "", from: 0, to: Infinity});
    this.draw();
    try {
      const [welds, band] = await Promise.all([Promise.all(ids.map((id) => ask("/api/weld", {id}))), ask("/api/band", {id: ids[0] ?? 0})]);
      if (key !== this.key) {
        return;
      }
      Object.assign(this, {welds, band});
      await this.load();
    } catch (error) {
      this.fail(key, error);
    }
  }

  fail(key, error) {
    if (key === this.key) {
      this.error = error.message;
      this.draw();
    }
  }

  // What is shown now, in seconds.
  range() {
    const length = this.curves?.[0].length ?? 1;
    return {from: this.from, to: Math.min(this.to, length), length};
  }

  zoom(from, to) {
    const {length} = this.range();
    const width = Math.min(Math.max(to - from, length / 1e7), length);
    const begin = Math.min(Math.max(from, 0), length - width);
    this.from = begin;
    this.to = begin + width >= length ? Infinity : begin + width;
    return this.load().catch((error) => this.fail(this.key, error));
  }

  async load() {
    const key = this.key, turn = this.turn = (this.turn ?? 0) + 1;
    const query = {from: this.from, to: Number.isFinite(this.to) ? this.to : "", columns: kColumns};
    const curves = await Promise.all(this.ids.map((id) => ask("/api/curve", {id, ...query})));
    if (key === this.key && turn === this.turn) {
      this.curves = curves;
      this.error = "";
      this.draw();
    }
  }

  column(weld, name) {
    return weld.columns.find((column) => column.name === name)?.value;
  }

  draw() {
    $("weld-message").hidden = !this.error;
    setText($("weld-message"), this.error ?? "");
    const [weld] = this.welds ?? [];
    setText($("weld-title"), this.ids.length > 1 ? t("comparison", {ids: this.ids.join(", ")}) : t("weldOf", {id: this.ids[0] ?? ""}));
    if (!weld || !this.curves) {
      return;
    }
    const verdict = this.column(weld, "verdict") ?? "none";
    const damaged = this.curves.reduce((sum, curve) => sum + (curve.damaged ?? 0), 0);
    $("weld-verdict").className = `verdict mark ${verdict}`;
    setText($("weld-verdict"), [moment(weld.start), t(`verdict.${verdict}`), ...(damaged ? [t("damaged", {count: damaged})] : [])].join(" · "));
    this.drawCharts();
    this.drawTables(weld);
    $("weld-csv").href = fileAddress("/api/weld.csv", {id: weld.id});
    $("weld-json").href = fileAddress("/api/weld.jsonl", {id: weld.id});
  }

  drawCharts() {
    const {from, to, length} = this.range();
    const first = unpackCurve(this.curves[0]);
    const others = this.curves.slice(1).map(unpackCurve);
    this.single = first.single;
    for (const name of kCharts) {
      const {mean, min, max} = first.channels[name];
      const measured = this.curves.some((_, i) => (i ? others[i - 1] : first).channels[name].mean.some((value) => value));
      const set = Number(this.column(this.welds[0], `set_${name}`) ?? 0);
      const data = [first.times, mean, min, max, new Array(mean.length).fill(set || null), ...bandAt(this.band, name, first.times)];
      for (let i = 0; i < kOthers; ++i) {
        data.push(others[i] ? this.other(first.times, others[i], this.curves[i + 1], name) : new Array(mean.length).fill(null));
      }
      this.charts[name].show(measured);
      this.charts[name].draw(data, kUnits[name], to, from, first.single);
    }
    setText($("zoom-range"), t(first.single ? "rangeSamples" : "rangeColumns",
      {from: number(from, 3), to: number(to, 3), length: number(length, 3), count: number(first.times.length, 0)}));
    const mark = (className, text) => element("span", {class: `key ${className}`}, text);
    $("weld-legend").replaceChildren(mark("key0", t("weldOf", {id: this.ids[0]})),
      ...this.ids.slice(1).map((id, i) => mark(`key${i + 1}`, t("weldOf", {id}))),
      ...(this.band?.welds >= 2 ? [mark("keyBand", t("band", {count: this.band.welds}))] : []));
  }

  // Another weld at the times of the first one. Single samples are nearest neighbours: two welds share no moment.
  other(times, unpacked, curve, name) {
    const {mean} = unpacked.channels[name];
    if (!unpacked.single) {
      return valuesAt(times, curve.from, curve.width, mean);
    }
    let at = 0;
    return times.map((time) => {
      while (at + 1 < unpacked.times.length && unpacked.times[at + 1] <= time) {
        ++at;
      }
      return time <= (unpacked.times.at(-1) ?? -1) ? mean[at] : null;
    });
  }

  drawTables(weld) {
    const text = (column) => (column === undefined ? "–" : typeof column.value === "number" ? short(column.value) : column.value);
    const names = weld.columns.filter((column) => !["start_ns", "end_ns", "monotonic_ns", "boot"].includes(column.name));
    const heads = [t("value"), ...this.ids.map((id) => t("weldOf", {id})), t("unit"), t("meaning")];
    fillTable($("columns-table"), heads, names.map((column) => [column.name,
      ...this.welds.map((each) => text(each.columns.find((other) => other.name === column.name))), column.unit, column.meaning]));
    $("weld-findings").hidden = weld.findings.length === 0;
    fillTable($("findings-table"), ["verdict", "metric", "value", "limits", "where.time", "reference"].map((key) => t(key)),
      weld.findings.map((finding) => [t(`verdict.${finding.level}`), finding.metric, short(finding.value), `${short(finding.low)} – ${short(finding.high)}`,
        finding.to > 0 ? `${number(finding.from, 2)} – ${number(finding.to, 2)} s` : t("all"), finding.reference]));
    $("weld-events").hidden = weld.events.length === 0;
    fillTable($("events-table"), [t("time"), t("channel"), t("lastRecord")], weld.events.map((event) => [moment(event.time), event.channel, event.record]));
  }

  // The exact value of a sample, for tests and for copying.
  sample(name, index) {
    const curve = this.curves[0];
    return curve.kind === "samples" ? exact(curve.samples[index][2 + kChannels.indexOf(name)]) : null;
  }

  restyle() {
    for (const chart of Object.values(this.charts)) {
      if (chart.plot) {
        chart.make();
      }
    }
  }
}
