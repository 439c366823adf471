// Histograms and time lines.

/** Frames whose numbers are kept; `process` has those of all. */
export const most_points = 10000;
const most_histograms = 16;

/** What was measured in each of the last frames: {number, time in s or null, pixels, valid, of, thin}. */
export const new_record = () => {
  // In the order of arrival, which is that of forgetting; a frame seen again is the newest.
  const frames = new Map();
  // Histograms are most of what is kept, and none but the newest are looked at: older frames are thin.
  const with_histograms = [];
  let forgotten = false;
  const make_thin = (frame) => {
    if (!frame) return;
    frame.thin = true;
    for (const quantity of Object.values(frame.of)) delete quantity.histogram;
  };
  return {
    add(frame) {
      if (with_histograms.push(frame.number) > most_histograms) make_thin(frames.get(with_histograms.shift()));
      frames.delete(frame.number);
      frames.set(frame.number, frame);
      if (frames.size <= most_points) return;
      frames.delete(frames.keys().next().value);
      forgotten = true;
    },
    has_forgotten: () => forgotten,
    last: () => [...frames.values()].at(-1) ?? null,
    at: (number) => frames.get(number) ?? null,
    in_order: () => [...frames.values()].sort((one, other) => one.number - other.number),
  };
};

/** An angle that begins again after `period`, as the same one of those from `cut` on. */
export const from_cut = (angle, period, cut) => cut + ((((angle - cut) % period) + period) % period);

/**
 * Lines through the means of a quantity: lists of [number of the frame, mean]. They end where there
 * is no mean, and where an angle, which begins again at `cut` after `period`, has taken the shorter way round.
 */
export const lines_of = (frames, quantity, period = null, cut = 0) => {
  const lines = [[]];
  for (const frame of frames) {
    const known = frame.of[quantity]?.mean ?? null;
    const mean = period && known !== null ? from_cut(known, period, cut) : known;
    const line = lines.at(-1);
    const breaks = mean === null ||
        (period && line.length > 0 && Math.abs(mean - line.at(-1)[1]) > period / 2);
    if (breaks && line.length > 0) lines.push([]);
    if (mean !== null) lines.at(-1).push([frame.number, mean]);
  }
  return lines.filter((line) => line.length > 0);
};

/** Of the points of a line those that can be told apart: the first, least, largest and last of each pixel across. */
export const thinned = (line, x) => {
  const kept = [];
  for (let i = 0; i < line.length;) {
    const first = i;
    let [least, largest] = [i, i];
    const pixel = Math.floor(x(line[i][0]));
    for (; i < line.length && Math.floor(x(line[i][0])) === pixel; ++i) {
      if (line[i][1] < line[least][1]) least = i;
      if (line[i][1] > line[largest][1]) largest = i;
    }
    const chosen = new Set([first, Math.min(least, largest), Math.max(least, largest), i - 1]);
    for (const index of chosen) kept.push(line[index]);
  }
  return kept;
};

/** Least and largest of the values in `lines`, with room where they are the same; the span of frames. */
export const extent_of = (lines) => {
  let [from, to, least, largest] = [Infinity, -Infinity, Infinity, -Infinity];
  for (const line of lines) {
    for (const [number, mean] of line) {
      from = Math.min(from, number);
      to = Math.max(to, number);
      least = Math.min(least, mean);
      largest = Math.max(largest, mean);
    }
  }
  if (from > to) return null;
  const room = least === largest ? Math.max(Math.abs(least) / 1000, 1e-3) : 0;
  return {from, to: Math.max(to, from + 1), least: least - room, largest: largest + room};
};

/**
 * Lines of several series and their extent, or null where there are none. Angles are cut where that
 * leaves less between the least and the largest: those around 0 are not torn to both ends.
 */
export const lines_with_extent = (series, name, period = null) => {
  const cuts = (period ? [0, period / 2] : [0]).map((cut) => {
    const all = series.map(({frames}) => lines_of(frames, name, period, cut));
    return {all, extent: extent_of(all.flat())};
  });
  if (cuts[0].extent === null) return null;
  const height = ({extent}) => extent.largest - extent.least;
  return cuts.reduce((best, other) => (height(other) < height(best) ? other : best));
};

/** A number with as many digits as tell `step` apart, five at most behind the point. */
export const rounded = (value, step) =>
    value === null ? '–'
                   : value.toFixed(Math.min(5, Math.max(0, 1 - Math.floor(Math.log10(step || 1)))));

const unit_texts = {sample: ' sample units', degree: '°'};

/** A unit of /statistics as it stands behind a number. */
export const with_unit = (unit) => unit_texts[unit] ?? '';

const colour = (name) => getComputedStyle(document.documentElement).getPropertyValue(name);

/** A canvas as large as it is shown, cleared, with a context in CSS pixels. */
const prepared = (canvas) => {
  const dense = globalThis.devicePixelRatio || 1;
  const [width, height] = [canvas.clientWidth, canvas.clientHeight];
  if (canvas.width !== Math.round(width * dense)) canvas.width = Math.round(width * dense);
  if (canvas.height !== Math.round(height * dense)) canvas.height = Math.round(height * dense);
  const context = canvas.getContext('2d');
  context.setTransform(dense, 0, 0, dense, 0, 0);
  context.clearRect(0, 0, width, height);
  context.font = '11px system-ui, sans-serif';
  return {context, width, height};
};

/** A histogram over one period of angles, begun half of it later: what is around 0 stays together. */
export const turned = ({from, to, counts}) => {
  const half = Math.floor(counts.length / 2);
  const later = (half / counts.length) * (to - from);
  return {
    from: from + later, to: to + later, period: to - from,
    counts: [...counts.slice(half), ...counts.slice(0, half)],
  };
};

/** Bars of a histogram {from, to, counts}, of a turned one also with its `period`, with its ends below. */
export const draw_histogram = (canvas, histogram, unit) => {
  const {context, width, height} = prepared(canvas);
  const {from, to, counts, period} = histogram;
  const tallest = Math.max(1, ...counts);
  const base = height - 14;
  context.fillStyle = colour('--bar') || '#7d8fa6';
  counts.forEach((count, index) => {
    const tall = (count / tallest) * base;
    const left = (index / counts.length) * width;
    context.fillRect(left, base - tall, width / counts.length - 0.5, tall);
  });
  context.fillStyle = colour('--soft') || '#5b636d';
  context.textBaseline = 'bottom';
  const text = (value) => rounded(period ? value % period : value, (to - from) / 10);
  const begin = text(from);
  const end = text(to) + with_unit(unit);
  context.textAlign = 'left';
  context.fillText(begin, 0, height);
  context.textAlign = 'right';
  context.fillText(end, width, height);
  context.textAlign = 'center';
  if (period) context.fillText(text(period), ((period - from) / (to - from)) * width, height);
  canvas.setAttribute('role', 'img');
  canvas.setAttribute('aria-label', `Histogram from ${begin}${period ? ' over ' + text(period) : ''} to ${end}`);
};

const margins = {left: 64, right: 26, top: 8, bottom: 18};

/** Where a frame and a value are in a time line of a width and height with this extent. */
export const places_of = (extent, width, height) => ({
  x: (number) => margins.left + ((number - extent.from) / (extent.to - extent.from)) *
      (width - margins.left - margins.right),
  y: (value) => height - margins.bottom - ((value - extent.least) / (extent.largest - extent.least)) *
      (height - margins.top - margins.bottom),
  number: (x) => Math.round(extent.from + ((x - margins.left) / (width - margins.left - margins.right)) *
      (extent.to - extent.from)),
});

const draw_axes = ({context, width, height}, extent, places, {title, period}, unit) => {
  context.strokeStyle = colour('--line') || '#e0ddd6';
  context.setLineDash([]);
  context.lineWidth = 1;
  context.strokeRect(margins.left, margins.top, width - margins.left - margins.right,
                     height - margins.top - margins.bottom);
  context.fillStyle = colour('--soft') || '#5b636d';
  const step = (extent.largest - extent.least) / 4;
  context.textBaseline = 'middle';
  context.textAlign = 'right';
  for (const value of [extent.least, (extent.least + extent.largest) / 2, extent.largest]) {
    const shown = period && value >= period ? value - period : value;
    context.fillText(rounded(shown, step) + (unit === 'degree' ? '°' : ''), margins.left - 4, places.y(value),
                     margins.left - 6);
  }
  context.textBaseline = 'bottom';
  context.textAlign = 'left';
  context.fillText(`frame ${extent.from}`, margins.left, height);
  context.textAlign = 'right';
  context.fillText(String(extent.to), width - margins.right, height);
  context.textAlign = 'center';
  context.fillText(title + (unit === 'sample' ? ', sample units' : ''), width / 2, height);
};

/**
 * The means of a quantity over the frames: `series` are {label, dash, frames}. Lines differ by their
 * dashes and the label at their ends. What places the values have, or null where there are none.
 */
export const draw_time_line = (canvas, series, quantity, unit, cursor) => {
  const drawn = prepared(canvas);
  const {context, width, height} = drawn;
  const found = lines_with_extent(series, quantity.name, quantity.period);
  if (found === null) return null;
  const {all, extent} = found;
  const places = places_of(extent, width, height);
  draw_axes(drawn, extent, places, quantity, unit);
  context.strokeStyle = context.fillStyle = colour('--ink') || '#1f2328';
  context.textAlign = 'left';
  context.textBaseline = 'middle';
  // Lines of one pixel of the screen are drawn ten times faster, and many points need no thicker ones.
  const points = all.flat().reduce((sum, line) => sum + line.length, 0);
  context.lineWidth = points > width ? 1 / (globalThis.devicePixelRatio || 1) : 1.5;
  all.forEach((lines, index) => {
    context.setLineDash(series[index].dash);
    for (const line of lines) {
      context.beginPath();
      // A point alone is a dot.
      context.moveTo(places.x(line[0][0]) - 0.75, places.y(line[0][1]));
      for (const [number, mean] of thinned(line, places.x)) context.lineTo(places.x(number) + 0.75, places.y(mean));
      context.stroke();
    }
    const end = lines.at(-1)?.at(-1);
    if (end) context.fillText(series[index].label, places.x(end[0]) + 4, places.y(end[1]));
  });
  if (cursor !== null && cursor >= extent.from && cursor <= extent.to) {
    context.setLineDash([2, 2]);
    context.lineWidth = 1;
    context.beginPath();
    context.moveTo(places.x(cursor), margins.top);
    context.lineTo(places.x(cursor), height - margins.bottom);
    context.stroke();
  }
  return {...places, ...extent};
};
