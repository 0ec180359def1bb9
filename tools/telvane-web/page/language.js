// Texts and numbers in the language of the reader.
import {de} from "/language/de.json";
import {en} from "/language/en.json";

const kLanguages = {en, de};
const formats = new Map(); // making one takes longer than everything else that a number needs
let texts = en;
let current = "en";

export function useLanguage(wanted) {
  const candidates = [wanted, ...navigator.languages.map((name) => name.slice(0, 2)), "en"];
  current = candidates.find((name) => Object.hasOwn(kLanguages, name));
  texts = kLanguages[current];
  formats.clear();
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
  if (!formats.has(digits)) {
    formats.set(digits, new Intl.NumberFormat(current, {minimumFractionDigits: digits, maximumFractionDigits: digits}));
  }
  return formats.get(digits).format(value);
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
