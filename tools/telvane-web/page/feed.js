// The stream of the server, with a watchdog. EventSource alone does not notice a connection that died while the machine
// slept, and can wait for an answer for ever.
const kOpening = 5000;

export class Feed {
  constructor(onEvent) {
    this.onEvent = onEvent;
    this.columns = 1024;
    this.heartbeat = 2000;
    this.run = "";
    this.lastId = "";
    this.source = null;
    this.link = "wait";
    this.lostAt = 0;
    this.failures = 0;
    setInterval(() => this.check(), 500);
  }

  open() {
    this.close();
    this.heard = performance.now();
    this.opened = false;
    const query = new URLSearchParams({columns: this.columns, run: this.run, last: this.lastId});
    const source = new EventSource(`/api/events?${query}`);
    this.source = source;
    source.onerror = () => this.source === source && this.fail();
    for (const type of ["hello", "state", "columns", "fault", "pace", "beat"]) {
      source.addEventListener(type, (event) => this.source === source && this.take(type, event));
    }
  }

  close() {
    this.source?.close();
    this.source = null;
    clearTimeout(this.timer);
  }

  take(type, event) {
    this.heard = performance.now();
    this.opened = true;
    this.failures = 0;
    const data = JSON.parse(event.data);
    if (type === "hello") {
      this.run = data.run;
      this.heartbeat = data.heartbeat;
    }
    if (event.lastEventId) {
      this.lastId = event.lastEventId;
    }
    this.setLink("live");
    this.onEvent(type, data);
  }

  setLink(link) {
    if (link !== this.link) {
      this.link = link;
      this.lostAt = Date.now();
      this.onEvent("link", this.linkState());
    }
  }

  linkState() {
    return {link: this.link, since: this.lostAt};
  }

  // Tries again after a pause that grows, and differs between browsers, so that they do not all come at once.
  fail() {
    this.close();
    this.setLink("lost");
    const pause = Math.min(500 * 2 ** this.failures, 4000) * (0.5 + Math.random());
    this.failures += 1;
    this.timer = setTimeout(() => this.open(), pause);
  }

  check() {
    const limit = this.opened ? 2 * this.heartbeat + 500 : kOpening;
    if (this.source && performance.now() - this.heard > limit) {
      this.fail();
    }
  }

  // Until a page is visible again. What came so far is old by then.
  sleep() {
    this.close();
    this.lastId = ""; // a stream that goes on from there would show all states since then
    this.setLink("wait");
  }

  // After a sleep: do not wait for the next pause to end.
  wake() {
    if (this.source) {
      this.check();
    }
    if (!this.source) {
      this.failures = 0;
      this.open();
    }
  }
}
