// Shared by all tabs of a browser: one stream, however many tabs. Browsers open only six connections to a server, and
// each stream holds one.
import {Feed} from "/feed.js";
import {Model} from "/model.js";

const kRelease = 60000; // hidden for so long: the stream is closed
const model = new Model();
const tabs = new Map(); // port -> whether it is visible
let release = 0;

const feed = new Feed((type, data) => {
  model.apply(type, data);
  for (const port of tabs.keys()) {
    port.postMessage({type, data});
  }
});

function update() {
  clearTimeout(release);
  if ([...tabs.values()].some((visible) => visible)) {
    feed.wake();
  } else {
    release = setTimeout(() => feed.sleep(), tabs.size === 0 ? 0 : kRelease);
  }
}

function take(port, message) {
  if (message.type === "bye") {
    tabs.delete(port);
  } else {
    if (!tabs.has(port)) {
      port.postMessage({type: "snapshot", data: model.snapshot()});
    }
    tabs.set(port, message.visible);
    if (message.columns > feed.columns) {
      feed.columns = message.columns;
      if (feed.source) {
        feed.open(); // also while no tab is visible: without a stream, what is shown would look live
      }
    }
  }
  update();
}

self.onconnect = (event) => {
  const port = event.ports[0];
  port.onmessage = (message) => take(port, message.data);
};
