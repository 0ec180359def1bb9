// Texts and numbers in the language of the reader.
const kLanguages = ["en", "de"];
let texts = {};
let current = "en";

export async function loadLanguage(wanted) {
  const candidates = [wanted, ...navigator.languages.map((name) => name.slice(0, 2)), "en"];
  current = candidates.find((name) => kLanguages.includes(name));
  texts = await (await fetch(`/language/${current}.json`)).json();
  document.documentElement.lang = current;
  for (const element of document.querySelectorAll("[data-t]")) {
    element.textContent = t(element.dataset.t);
  }
  for (const element of document.querySelectorAll("[data-t-label]")) {
    element.setAttribute("aria-label", t(element.dataset.tLabel));
  }
  return current;
}

export function t(key, values = {}) {
  return (texts[key] ?? key).replace(/\{(\w+)\}/g, (_, name) => values[name] ?? "");
}

export function number(value, digits) {
  return value.toLocaleString(current, {minimumFractionDigits: digits, maximumFractionDigits: digits});
}

// As many digits as a reader needs: four figures.
export function short(value) {
  const size = Math.abs(value);
  return number(value, size >= 1000 || Number.isInteger(value) ? 0 : size >= 100 ? 1 : size >= 1 ? 2 : 3);
}

// All digits of a single sample.
export function exact(value) {
  return value.toLocaleString(current, {maximumFractionDigits: 15, useGrouping: false});
}

// The labels of an axis: as many digits as tell neighbours apart.
export function axisLabels(ticks, unit = "") {
  const step = ticks.length > 1 ? Math.abs(ticks[1] - ticks[0]) : 1;
  const digits = Math.min(Math.max(0, Math.ceil(-Math.log10(step) - 1e-6)), 6);
  return ticks.map((tick) => number(tick, digits) + unit);
}

export function clock(milliseconds) {
  return new Date(milliseconds).toLocaleTimeString(current);
}

export function moment(milliseconds) {
  const date = new Date(milliseconds);
  return Number.isNaN(date.getTime()) ? String(milliseconds) : date.toLocaleString(current);
}
