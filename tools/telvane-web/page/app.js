// Starts the page, and draws at most once per frame.
import {BusView} from "/bus.js";
import {$, element, setText} from "/dom.js";
import {clock, moment, number, t, useLanguage} from "/language.js";
import {LiveView} from "/live.js";
import {signIn, startLogin} from "/login.js";
import {Model} from "/model.js";
import {connect} from "/stream.js";
import {WeldView} from "/weld.js";
import {WeldList} from "/welds.js";

const kViews = ["live", "welds", "weld", "bus", "errors"];
const kConnecting = 5000; // the state that came with the session is shown for so long without a stream
const model = new Model();
const meter = {updates: 0, perSecond: 0, draw: 0, draws: 0, since: performance.now()};
const scripts = new Promise((resolve) => addEventListener("DOMContentLoaded", resolve)); // uPlot among them
let live, bus, welds, weld, view = "live", waiting = false;

function setting(name, value) {
  try {
    return value === undefined ? localStorage.getItem(name) : localStorage.setItem(name, value);
  } catch {
    return null; // the browser keeps nothing for this page
  }
}

function drawErrors() {
  const list = $("errors-list");
  const newest = model.faults.at(-1)?.id ?? 0;
  const key = `${newest}|${model.faults.length}|${document.documentElement.lang}`;
  $("no-errors").hidden = model.faults.length > 0;
  $("error-count").hidden = model.faults.length === 0;
  setText($("error-count"), String(model.faults.length));
  if (list.dataset.key !== key) {
    list.dataset.key = key;
    list.replaceChildren(...model.faults.toReversed().map((fault) => element("li", {},
      element("time", {datetime: new Date(fault.time).toISOString()}, moment(fault.time)),
      element("span", {class: "source"}, fault.code ? `${fault.channel} · ${t("code", {code: fault.code})}` : fault.channel),
      element("span", {class: "message"}, fault.text))));
  }
}

function drawDiagnostics() {
  if (!$("diagnostics").parentElement.open) {
    return;
  }
  const heap = performance.memory?.usedJSHeapSize;
  const items = {version: model.hello?.version ?? "", bus: model.hello?.bus ?? "", frame: `${number(meter.draw, 1)} ms`,
    updates: `${number(meter.perSecond, 0)}/s`, columns: String(model.size), samples: number(model.values?.samples ?? 0, 0),
    pace: t(`d.${model.pace}`), ...(heap ? {heap: `${number(heap / 1e6, 1)} MB`} : {})};
  $("diagnostics").replaceChildren(...Object.entries(items).map(([key, value]) =>
    element("div", {}, element("dt", {}, t(`d.${key}`)), element("dd", {}, value))));
}

function draw() {
  waiting = false;
  const begin = performance.now();
  const link = model.link.link;
  $("link").dataset.link = link;
  setText($("link"), link === "lost" ? `${t("link.lost")} ${clock(model.link.since)}` : t(`link.${link}`));
  if (view === "live") {
    live?.draw(); // not before the reader is let in
  }
  drawErrors();
  queueMicrotask(() => { // after the charts, which are drawn in microtasks
    meter.draw = performance.now() - begin;
    meter.draws += 1;
  });
}

function schedule() {
  if (!waiting) {
    waiting = true;
    requestAnimationFrame(draw);
  }
}

function onEvent(type, data) {
  if (type === "link" && data.link === "lost") {
    startLogin(); // the session may be over
  }
  meter.updates += type === "columns" ? 1 : 0;
  schedule();
}

// The address is "#live", "#welds?part=A", "#weld/17" or "#weld/17,18,20": a view, and what it shows.
function showView() {
  const [name, query] = location.hash.slice(1).split("?");
  if (name === "main") {
    return;
  }
  const [wanted, rest] = name.split("/");
  view = kViews.includes(wanted) ? wanted : "live";
  for (const each of kViews) {
    $(`view-${each}`).hidden = each !== view;
    document.querySelector(`nav a[href="#${each}"]`)?.removeAttribute("aria-current");
  }
  document.querySelector(`nav a[href="#${view === "weld" ? "welds" : view}"]`).setAttribute("aria-current", "page");
  bus.show(view === "bus");
  welds.show(view === "welds", query);
  scripts.then(() => weld.show(view === "weld", rest)); // its charts need uPlot
  schedule();
}

function setTheme(theme) {
  if (theme) {
    document.documentElement.dataset.theme = theme;
  }
  live?.restyle();
  weld?.restyle();
}

function setLanguage(name) {
  $("language").value = useLanguage(name);
  bus?.draw();
  welds?.draw();
  weld?.draw();
  schedule();
}

// A state that no stream confirms is old.
function forgetState() {
  if (model.link.link === "wait") {
    model.state = null;
    schedule();
  }
}

function startCharts() {
  live.complete = true;
  schedule();
}

async function start() {
  setTheme(setting("theme"));
  setLanguage(setting("language"));
  const session = await signIn();
  live = new LiveView(model, session.archive);
  if (session.state) {
    model.apply("state", session.state);
    setTimeout(forgetState, kConnecting);
  }
  draw(); // the words at once, the charts when the browser has shown them
  bus = new BusView(model);
  welds = new WeldList();
  weld = new WeldView();
  $("nav-welds").hidden = !session.archive;
  Object.assign(window, {telvaneModel: model, telvaneView: live, telvaneWeld: weld, telvaneMeter: meter}); // for bug reports and tests
  $("language").addEventListener("change", (event) => {
    setting("language", event.target.value);
    setLanguage(event.target.value);
  });
  $("theme").addEventListener("click", () => {
    const dark = document.documentElement.dataset.theme ?? (matchMedia("(prefers-color-scheme: dark)").matches ? "dark" : "light");
    const theme = dark === "dark" ? "light" : "dark";
    setting("theme", theme);
    setTheme(theme);
    schedule();
  });
  matchMedia("(prefers-color-scheme: dark)").addEventListener("change", () => setTheme());
  addEventListener("hashchange", showView);
  $("numbers").addEventListener("toggle", schedule);
  setInterval(() => {
    const now = performance.now();
    meter.perSecond = meter.updates * 1000 / (now - meter.since);
    meter.updates = 0;
    meter.since = now;
    drawDiagnostics();
  }, 1000);
  showView();
  connect(model, onEvent);
  requestAnimationFrame(() => setTimeout(() => scripts.then(startCharts)));
}

start();
