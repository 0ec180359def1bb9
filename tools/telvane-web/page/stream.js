// Connects the page to the stream: through the shared worker, or by itself where the browser has none.
import {Feed} from "/feed.js";

// The only script that is loaded by its address, so that the browser can refuse any other.
function workerAddress() {
  const policy = self.trustedTypes?.createPolicy("telvane", {createScriptURL: () => "/worker.js"});
  return policy ? policy.createScriptURL("") : "/worker.js";
}

// Made at once, so that it is loaded while the page asks for the session. It connects when a page reports.
const worker = "SharedWorker" in self ? new SharedWorker(workerAddress(), {type: "module", name: "telvane"}) : null;

export function connect(model, onEvent) {
  const columns = 2 ** Math.ceil(Math.log2(Math.max(screen.width, screen.height, 512)));
  const receive = (type, data) => {
    type === "snapshot" ? model.restore(data) : model.apply(type, data);
    onEvent(type, data);
  };
  if (worker) {
    const report = () => worker.port.postMessage({type: "tab", visible: !document.hidden, columns});
    worker.port.onmessage = (message) => receive(message.data.type, message.data.data);
    worker.port.start();
    document.addEventListener("visibilitychange", report);
    addEventListener("pageshow", report);
    addEventListener("pagehide", () => worker.port.postMessage({type: "bye"}));
    report();
    return;
  }
  const feed = new Feed(receive);
  feed.columns = columns;
  let release = 0;
  const update = () => {
    clearTimeout(release);
    if (document.hidden) {
      release = setTimeout(() => feed.sleep(), 60000);
    } else {
      feed.wake();
    }
  };
  document.addEventListener("visibilitychange", update);
  addEventListener("pageshow", update);
  update();
}
