// What the live view draws: the columns of one weld, in arrays of a fixed size.
export const kQuantities = ["amps", "volts", "wfs", "gas", "power"];
const kCapacity = 4096;

export class Model {
  constructor() {
    this.count = new Float64Array(kCapacity);
    this.min = kQuantities.map(() => new Float64Array(kCapacity));
    this.mean = kQuantities.map(() => new Float64Array(kCapacity));
    this.max = kQuantities.map(() => new Float64Array(kCapacity));
    this.faults = [];
    this.link = {link: "wait", since: Date.now()};
    this.pace = "full";
    this.hello = null;
    this.state = null;
    this.old = false; // what is here came before the stream was closed
    this.clear(0);
  }

  clear(weld) {
    this.weld = weld;
    this.level = 0;
    this.size = 0;
    this.values = null;
    this.count.fill(0);
  }

  apply(type, data) {
    switch (type) {
      case "hello":
        if (this.hello && this.hello.run !== data.run) {
          this.faults = [];
        }
        this.hello = data;
        this.pace = "full";
        this.clear(0); // the server sends all columns again
        break;
      case "state":
        this.state = data;
        this.old = false;
        break;
      case "columns":
        this.takeColumns(data);
        break;
      case "fault":
        if (!this.faults.some((fault) => fault.id === data.id)) {
          this.faults.push(data);
          this.faults.splice(0, this.faults.length - 200);
        }
        break;
      case "pace":
        this.pace = data;
        break;
      case "link":
        this.link = data;
        this.old ||= data.link === "wait";
        break;
    }
  }

  takeColumns(data) {
    if (data.weld !== this.weld || (data.from === 0 && data.level !== this.level && data.level < this.level)) {
      this.clear(data.weld);
      this.level = data.level;
    }
    while (this.level < data.level) {
      this.fold();
    }
    data.columns.forEach((column, offset) => this.setColumn(data.from + offset, column));
    this.values = data.values;
  }

  setColumn(index, column) {
    if (index >= kCapacity) {
      return;
    }
    this.size = Math.max(this.size, index + 1);
    this.count[index] = column === 0 ? 0 : column[0];
    for (let q = 0; q < kQuantities.length && column !== 0; ++q) {
      this.min[q][index] = column[1 + 3 * q];
      this.mean[q][index] = column[2 + 3 * q];
      this.max[q][index] = column[3 + 3 * q];
    }
  }

  // Merges neighbours, as the server has done.
  fold() {
    for (let to = 0; 2 * to < this.size; ++to) {
      const a = 2 * to, b = a + 1 < this.size ? a + 1 : a;
      const na = this.count[a], nb = b === a ? 0 : this.count[b];
      for (let q = 0; q < kQuantities.length; ++q) {
        this.min[q][to] = na && nb ? Math.min(this.min[q][a], this.min[q][b]) : this.min[q][na ? a : b];
        this.max[q][to] = na && nb ? Math.max(this.max[q][a], this.max[q][b]) : this.max[q][na ? a : b];
        this.mean[q][to] = na + nb ? (this.mean[q][a] * na + this.mean[q][b] * nb) / (na + nb) : 0;
      }
      this.count[to] = na + nb;
    }
    this.size = Math.ceil(this.size / 2);
    this.level += 1;
  }

  get period() {
    return this.state?.weld?.period ?? 0;
  }

  // For another tab of the same browser, which gets nothing old but the errors.
  snapshot() {
    const size = this.old ? 0 : this.size;
    const cut = (array) => array.slice(0, size);
    return {weld: this.weld, level: this.level, size, values: this.old ? null : this.values, faults: this.faults,
      link: this.link, pace: this.pace, hello: this.hello, state: this.old ? null : this.state, count: cut(this.count),
      min: this.min.map(cut), mean: this.mean.map(cut), max: this.max.map(cut)};
  }

  restore(snapshot) {
    const {count, min, mean, max, ...rest} = snapshot;
    const first = this.link.link === "wait" && !this.old ? this.state : null; // it came with the session
    Object.assign(this, rest, {state: rest.state ?? first, old: false});
    this.count.fill(0);
    this.count.set(count);
    kQuantities.forEach((_, q) => {
      this.min[q].set(min[q]);
      this.mean[q].set(mean[q]);
      this.max[q].set(max[q]);
    });
  }
}
