// The bus: channels, clients, the last record of a channel, and the catalogue of records.
import {$, element, fillTable, setText} from "/dom.js";
import {moment, number, short, t} from "/language.js";

const kInterval = 1000;
const kMaxMatches = 100;
const kMaxItems = 50;
const kPerKilobyte = 1000;

export class BusView {
  constructor(model) {
    this.model = model;
    this.visible = false;
    this.chosen = "";
    this.buttons = new Map();
    $("channel-filter").addEventListener("input", () => this.drawChannels());
    $("catalogue-filter").addEventListener("input", () => this.drawCatalogue());
  }

  show(visible) {
    this.visible = visible;
    clearTimeout(this.timer);
    if (visible) {
      this.loadCatalogue();
      this.refresh();
    }
  }

  // One request after the other; a hidden page asks for nothing.
  async refresh() {
    if (!document.hidden) {
      try {
        this.bus = await (await fetch("/api/bus", {signal: AbortSignal.timeout(5000)})).json();
        if (this.chosen) {
          const answer = await fetch(`/api/record?${new URLSearchParams({channel: this.chosen})}`, {signal: AbortSignal.timeout(5000)});
          this.record = answer.ok ? await answer.json() : null;
        }
        this.draw();
      } catch {
        // The state of the connection is shown by the live stream.
      }
    }
    clearTimeout(this.timer);
    if (this.visible) {
      this.timer = setTimeout(() => this.refresh(), kInterval);
    }
  }

  draw() {
    this.drawChannels();
    this.drawClients();
    this.drawRecord();
    this.drawCatalogue();
    const bus = this.bus;
    setText($("bus-totals"), !bus ? "" : bus.known
      ? t("totals", {channels: bus.channelCount, clients: bus.clientCount, rate: number(bus.rate, 0), bytes: number(bus.bytesPerSecond / kPerKilobyte, 1)})
      : t("noStatus"));
  }

  button(name) {
    let button = this.buttons.get(name);
    if (!button) {
      button = element("button", {type: "button", class: "channel"}, name);
      button.addEventListener("click", () => this.choose(name));
      this.buttons.set(name, button);
    }
    button.setAttribute("aria-pressed", String(name === this.chosen));
    return button;
  }

  choose(name) {
    this.chosen = name;
    this.record = null;
    this.draw();
    this.refresh();
  }

  drawChannels() {
    const filter = $("channel-filter").value.toLowerCase();
    const rows = (this.bus?.channels ?? []).filter((row) => row.name.toLowerCase().includes(filter));
    const heads = ["channel", "rate", "bytes", "subscribers", "missedRelays"].map((key) => t(key));
    fillTable($("channels"), heads, rows.map((row) =>
      [this.button(row.name), number(row.rate, 0), number(row.bytesPerSecond / kPerKilobyte, 1), row.subscribers, number(row.missed, 0)]));
    rows.forEach((row, index) => $("channels").tBodies[0].rows[index].classList.toggle("bad", row.missed > 0));
  }

  drawClients() {
    const rows = this.bus?.clients ?? [];
    const heads = ["client", "user", "pid", "relayed", "missedRelays", "unread"].map((key) => t(key));
    fillTable($("clients"), heads, rows.map((row) => {
      const list = row.missing.map((item) => `${item.channel} (${number(item.missed, 0)})`).join(", ");
      return [list ? `${row.program}: ${t("misses", {list})}` : row.program, row.user, row.pid, number(row.relayed, 0), number(row.missed, 0),
        number(row.unread / kPerKilobyte, 1)];
    }));
    rows.forEach((row, index) => $("clients").tBodies[0].rows[index].classList.toggle("bad", row.missed > 0));
  }

  drawRecord() {
    const record = this.record;
    if (!record?.record) {
      setText($("record-head"), this.chosen ? t("waitRecord", {channel: this.chosen}) : t("chooseChannel"));
      $("record").replaceChildren();
      this.drawnRecord = "";
      return;
    }
    setText($("record-head"), t("recordHead", {channel: record.channel, class: record.class || t("unknownClass"), time: moment(record.time)}));
    const text = JSON.stringify(record);
    if (text !== this.drawnRecord) {
      this.drawnRecord = text;
      const units = record.class === "WeldTraceData" ? this.model.state?.weld?.units ?? {} : {};
      const table = element("table", {}, element("thead", {}, element("tr", {}, element("th", {scope: "col"}, t("field")), element("th", {scope: "col"}, t("value")))),
        element("tbody", {}, ...this.fieldRows(record.record, 0, units)));
      $("record").replaceChildren(...(record.error ? [element("p", {class: "notice"}, record.error)] : []), table);
    }
  }

  fieldRows(value, depth, units) {
    const rows = [];
    const entries = Object.entries(value).slice(0, kMaxItems);
    for (const [key, item] of entries) {
      const nested = item !== null && typeof item === "object" && this.text(item) === null;
      const text = nested ? (Array.isArray(item) ? t("items", {count: item.length}) : "") : this.text(item, units[key]);
      rows.push(element("tr", {}, element("th", {scope: "row", class: `depth${Math.min(depth, 4)}`}, key), element("td", {}, text)));
      if (nested && depth < 6) {
        rows.push(...this.fieldRows(item, depth + 1, units));
      }
    }
    return rows;
  }

  // A value as text; null for a record with fields of its own.
  text(item, unit = "") {
    if (item !== null && typeof item === "object") {
      const keys = Object.keys(item).filter((key) => !key.startsWith("_"));
      const pair = keys.length === 2 && "Unit" in item && "Value" in item;
      return pair ? `${short(item.Value)} ${item.Unit}` : null;
    }
    if (typeof item === "boolean") {
      return item ? t("yes") : t("no");
    }
    const date = typeof item === "string" && /^\/Date\((-?\d+)\)\/$/.exec(item);
    return date ? moment(Number(date[1])) : unit ? `${short(item)} ${unit}` : String(item);
  }

  async loadCatalogue() {
    if (!this.catalogue) {
      try {
        this.catalogue = await (await fetch("/api/catalogue")).json();
        this.drawCatalogue();
      } catch {
        this.catalogue = undefined; // asked for again with the next look at the bus
      }
    }
  }

  // Every word must be in the name of the class or in one of its fields.
  drawCatalogue() {
    const filter = $("catalogue-filter").value.toLowerCase().split(/\s+/).filter(Boolean);
    const key = `${filter.join(" ")}|${document.documentElement.lang}|${this.catalogue?.length}`;
    if (key === this.drawnCatalogue || !this.catalogue) {
      return;
    }
    this.drawnCatalogue = key;
    const text = (item) => [item.name, ...item.fields.map((field) => field.key)].join(" ").toLowerCase();
    const found = this.catalogue.filter((item) => filter.every((word) => text(item).includes(word)));
    setText($("catalogue-count"), t("matches", {count: found.length, all: this.catalogue.length}));
    $("catalogue").replaceChildren(...found.slice(0, kMaxMatches).map((item) => this.classDetails(item, found.length === 1)),
      ...(found.length > kMaxMatches ? [element("p", {class: "faint"}, t("moreRows", {count: found.length - kMaxMatches}))] : []));
  }

  classDetails(item, open) {
    const kind = (field) => t(`kind.${field.kind}`) + (field.class ? ` ${field.class}` : "") + (field.limit ? ` (${field.limit})` : "");
    const list = element("dl", {class: "fields"}, ...item.fields.map((field) => element("div", {}, element("dt", {}, field.key), element("dd", {}, kind(field)))));
    return element("details", open ? {open: ""} : {}, element("summary", {}, item.name), list);
  }
}
