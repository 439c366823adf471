// Ends of the scales of a picture by the frame, unless the user has chosen them: the rules of the report.

import {full_scale} from './painting.js';
import {quantities} from './quantities.js';

const degree_ends = [0.05, 0.1, 0.2, 0.3, 0.5];
const recomputed_every = 2000;
const counts = new Uint32Array(65536);

/** The least value that at least this share of the planes does not exceed. */
export const quantile = (planes, share) => {
  counts.fill(0);
  let total = 0;
  for (const plane of planes) {
    for (let i = 0; i < plane.length; ++i) ++counts[plane[i]];
    total += plane.length;
  }
  let sum = 0;
  for (let value = 0; value < counts.length; ++value) {
    sum += counts[value];
    if (sum > 0 && sum >= share * total) return value;
  }
  return 0;
};

const rules = {
  s0: (planes) => planes.s0 && Math.max(1, quantile([planes.s0], 0.999)),
  degree: (planes) => {
    if (!planes.dolp) return undefined;
    const most = quantile([planes.dolp], 0.99) / full_scale;
    return (degree_ends.find((end) => end >= most) ?? 1) * full_scale;
  },
  raw: (planes) => {
    const found = ['raw', 'i0', 'i45', 'i90', 'i135'].filter((name) => planes[name]);
    return found.length > 0 ? Math.max(1, quantile(found.map((name) => planes[name]), 0.999)) : undefined;
  },
};

export const is_whole = ({region: [column, row, width, height], frame_width, frame_height}) =>
    column === 0 && row === 0 && width === frame_width && height === frame_height;

/** Ends by the whole of the frame that is shown, whichever part is seen; while frames play they move slowly. */
export const new_scales = () => {
  const tops = {s0: null, degree: null, raw: null};
  const times = {s0: 0, degree: 0, raw: 0};
  const numbers = {s0: null, degree: null, raw: null};
  const measure = (answer, playing) => {
    const {header, planes} = answer;
    if (!is_whole(header)) return;
    const time = performance.now();
    for (const [name, rule] of Object.entries(rules)) {
      if (tops[name] !== null && playing && time - times[name] < recomputed_every) continue;
      const top = rule(planes);
      if (top === undefined) continue;
      tops[name] = top;
      times[name] = time;
      numbers[name] = header.number;
    }
  };
  /** Whether a whole frame, or the whole of the frame `number`, has still to tell where a scale of the views ends. */
  const lacks = (now, number) => now.views.map((name) => quantities[name].scale).some((scale) => scale !== null &&
      (tops[scale] === null || (number !== undefined && numbers[scale] !== number && now[scale + '_top'] === null)));
  /** In integers of planes; a user's S0 is in sample units. */
  const chosen = (now) => ({
    s0: now.s0_top === null ? tops.s0 ?? 1 : Math.max(1, Math.round(now.s0_top / now.source.s0_unit)),
    degree: now.degree_top === null ? tops.degree ?? full_scale : now.degree_top * full_scale,
    raw: now.raw_top ?? tops.raw ?? 1,
  });
  /** The ends that are in force of the scales that are shown, in the words of the state. */
  const in_force = (now) => {
    const rounded = (value) => value && Number(value.toPrecision(9));
    const found = {
      s0: rounded(tops.s0 && tops.s0 * now.source.s0_unit),
      degree: rounded(tops.degree && tops.degree / full_scale),
      raw: tops.raw,
    };
    // Others may be those of a frame that was seen before.
    const used = new Set(now.views.map((name) => quantities[name].scale));
    return Object.fromEntries(Object.entries(found).map(([scale, end]) =>
        [scale + '_top', now[scale + '_top'] ?? (used.has(scale) ? end : null)]));
  };
  return {measure, lacks, chosen, in_force};
};

/** Planes that the views and their scales need, in one order. */
export const planes_for = (views, overlay) => {
  const needed = new Set(views.flatMap((name) => quantities[name].planes));
  // Signed pictures share the scale of the degree.
  if (views.some((name) => quantities[name].scale === 'degree')) needed.add('dolp');
  if (overlay) needed.add('validity');
  const order = ['s0', 'azimuth', 'dolp', 's1_s0', 's2_s0', 'raw', 'i0', 'i45', 'i90', 'i135', 'validity'];
  return order.filter((name) => needed.has(name));
};
