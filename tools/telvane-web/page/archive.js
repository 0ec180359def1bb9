// Questions to the archive, and the state of the page that goes into its address.

// Returns the answer, or throws an Error with the server's reason.
export async function ask(path, query = {}) {
  const given = Object.entries(query).filter(([, value]) => value !== "" && value !== undefined && value !== null);
  const answer = await fetch(`${path}?${new URLSearchParams(given)}`, {signal: AbortSignal.timeout(30000)});
  if (!answer.ok) {
    throw new Error((await answer.text()).trim());
  }
  return answer.json();
}

export function fileAddress(path, query) {
  const given = Object.entries(query).filter(([, value]) => value !== "" && value !== undefined);
  return `${path}?${new URLSearchParams(given)}`;
}

export const kChannels = ["amps", "volts", "wfs", "gas", "power", "motor"];

// A curve as arrays that the charts draw, for each channel: mean, minimum, maximum.
export function unpackCurve(curve) {
  const single = curve.kind === "samples";
  const rows = single ? curve.samples : curve.columns;
  const times = single ? rows.map((row) => row[0]) : rows.map((_, i) => curve.from + (i + 0.5) * curve.width);
  const channels = Object.fromEntries(kChannels.map((name, q) => {
    const pick = single ? () => rows.map((row) => row[2 + q])
      : (kind) => rows.map((row) => (row === 0 ? null : row[1 + 3 * q + kind]));
    const mean = pick(1);
    return [name, {mean, min: single ? mean : pick(0), max: single ? mean : pick(2)}];
  }));
  return {single, times, channels, numbers: single ? rows.map((row) => row[1]) : null};
}

// The value of a series at other times: that of the column which contains the time.
export function valuesAt(times, begin, width, values) {
  return times.map((time) => values[Math.floor((time - begin) / width)] ?? null);
}

// The band of former welds at the times of a curve: the lowest and the highest mean.
export function bandAt(band, name, times) {
  const q = kChannels.indexOf(name);
  if (!band || band.welds < 2 || q < 0) {
    return [new Array(times.length).fill(null), new Array(times.length).fill(null)];
  }
  return [0, 1].map((kind) => valuesAt(times, 0, band.width, band.columns.map((column) => column[1 + 2 * q + kind])));
}
