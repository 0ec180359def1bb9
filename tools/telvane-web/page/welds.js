// The list of welds: filters, pages, a choice of some to compare. The filter is in the address, so that going back and
// reloading keep it.
import {ask, fileAddress} from "/archive.js";
import {$, element, setText} from "/dom.js";
import {moment, number, short, t} from "/language.js";

const kFields = ["part", "program", "verdict", "from", "to", "where", "order"];
const kMaxCompared = 4;
const kPerKilojoule = 1000;

export class WeldList {
  constructor() {
    this.welds = [];
    this.chosen = new Set();
    $("weld-filter").addEventListener("submit", (event) => {
      event.preventDefault();
      const query = new URLSearchParams(kFields.map((name) => [name, this.field(name).value]).filter(([, value]) => value));
      const hash = `#welds${query.size ? `?${query}` : ""}`;
      hash === location.hash ? this.load() : (location.hash = hash);
    });
    $("welds-more").addEventListener("click", () => this.load(this.next));
    $("compare").addEventListener("click", () => {
      location.hash = `#weld/${[...this.chosen].join(",")}`;
    });
  }

  field(name) {
    return $("weld-filter").elements.namedItem(name);
  }

  show(visible, query = "") {
    if (!visible || (query === this.shown && this.welds.length > 0)) {
      return;
    }
    this.shown = query;
    const values = new URLSearchParams(query);
    for (const name of kFields) {
      this.field(name).value = values.get(name) ?? "";
    }
    this.load();
  }

  // What the server is asked for: times as milliseconds.
  query() {
    const values = Object.fromEntries(kFields.map((name) => [name, this.field(name).value]));
    for (const name of ["from", "to"]) {
      values[name] = values[name] ? String(new Date(values[name]).getTime()) : "";
    }
    const [order, ascending] = values.order.split(",");
    return {...values, order, ascending};
  }

  async load(after = "") {
    const turn = this.turn = (this.turn ?? 0) + 1;
    try {
      const page = await ask("/api/welds", {...this.query(), after});
      if (turn !== this.turn) {
        return; // another question was asked meanwhile
      }
      if (!after) {
        this.chosen.clear();
      }
      this.welds = after ? this.welds.concat(page.welds) : page.welds;
      this.next = page.next;
      this.error = "";
    } catch (error) {
      this.error = error.message;
    }
    this.loaded = true;
    this.draw();
  }

  choose(id, wanted) {
    wanted ? this.chosen.add(id) : this.chosen.delete(id);
    $("compare").disabled = this.chosen.size < 2 || this.chosen.size > kMaxCompared;
  }

  row(weld) {
    const box = element("input", {type: "checkbox", "aria-label": t("choose", {id: weld.id})});
    box.checked = this.chosen.has(weld.id);
    box.addEventListener("change", () => this.choose(weld.id, box.checked));
    const value = (number_, digits, scale = 1) => (number_ === undefined ? "–" : number(number_ / scale, digits));
    const verdict = weld.verdict || "none";
    const cells = [box, element("a", {href: `#weld/${weld.id}`}, weld.id), moment(weld.start), weld.module ?? "", weld.part ?? "",
      weld.program ?? "", value(weld.arcTime, 2), value(weld.amps, 0), value(weld.volts, 1), value(weld.energy, 1, kPerKilojoule),
      value(weld.samples, 0), value(weld.missed, 0), weld.ending ?? "", element("span", {class: `mark ${verdict}`}, t(`verdict.${verdict}`))];
    return element("tr", {"data-id": weld.id}, ...cells.map((cell) => element("td", {}, cell)));
  }

  draw() {
    $("welds-message").hidden = !this.error;
    setText($("welds-message"), this.error ?? "");
    if (!this.loaded) {
      return;
    }
    const heads = ["", "id", "start", "module", "part", "programNumber", "arcTime", "amps", "volts", "energyKj", "samples", "missing", "ending", "verdict"];
    const head = (key) => (key ? element("th", {scope: "col"}, t(key)) : element("td", {}));
    $("welds-table").replaceChildren(element("thead", {}, element("tr", {}, ...heads.map(head))),
      element("tbody", {}, ...this.welds.map((weld) => this.row(weld))));
    setText($("welds-count"), this.welds.length ? t("weldCount", {count: short(this.welds.length)}) : t("noWelds"));
    $("welds-more").hidden = !this.next;
    $("compare").disabled = this.chosen.size < 2 || this.chosen.size > kMaxCompared;
    const {order, ascending, ...filter} = this.query();
    $("export-csv").href = fileAddress("/api/welds.csv", filter);
    $("export-json").href = fileAddress("/api/welds.jsonl", filter);
  }
}
