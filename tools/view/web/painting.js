// Colours of pixels, by tables of /colours, from the integers of planes.

import {hue_of, level_of, ramp_index, signed_index} from './palette.js';

export const full_scale = 65535;
export const signed_scale = 32767;

const flag_saturated = 1;
export const mark_colours = {saturated: [255, 64, 160], invalid: [0, 200, 255]};
export const mark_texts = {saturated: 'saturated, rising stripes', invalid: 'not valid for other reasons, falling stripes'};
/** Of /frame's validity: what a mark of a name stands for. */
export const mark_flags = {saturated: flag_saturated, invalid: 2};

const pixel_of = ([red, green, blue]) => (0xff000000 | (blue << 16) | (green << 8) | red) >>> 0;
const black = pixel_of([0, 0, 0]);

const table_of = (base64) => {
  const bytes = atob(base64);
  const table = new Uint32Array(bytes.length / 3);
  for (let i = 0; i < table.length; ++i) {
    table[i] = pixel_of([0, 1, 2].map((channel) => bytes.charCodeAt(3 * i + channel)));
  }
  return table;
};

/** What paints pixels: `colours` is the answer of /colours. */
export const new_painter = (colours) => {
  const tables = {};
  for (const name of ['s0', 'degree', 'angle', 'angle_second', 'signed']) {
    tables[name] = table_of(colours[name]);
  }
  // A colour for each value of a plane: one look-up a pixel. They are filled anew when a scale moves.
  const kept = new Map();
  const lookup = (kind, top, fill, Elements = Uint32Array) => {
    const found = kept.get(kind);
    if (found?.top === top) return found.values;
    const values = found?.values ?? new Elements(65536);
    for (let value = 0; value < 65536; ++value) values[value] = fill(value);
    kept.set(kind, {top, values});
    return values;
  };
  const ramp = (name, top) =>
      lookup(name, top, (value) => tables[name][ramp_index(value, top)]);
  const signs = (top) =>
      lookup('signed', top, (value) => tables.signed[signed_index((value << 16) >> 16, top)]);
  const hues = () => lookup('hue', 0,
      (value) => hue_of(value, full_scale, colours.hues) * colours.levels, Uint16Array);
  const levels = (top) => lookup('level', top,
      (value) => level_of(value, top, colours.levels), Uint8Array);
  const present = () => lookup('present', 0, (value) => (value > 0 ? colours.levels - 1 : 0), Uint8Array);

  const angles = (planes, pixels, map, level) => {
    const table = tables[map === 'second' ? 'angle_second' : 'angle'];
    const {azimuth, dolp} = planes;
    const hue = hues();
    for (let i = 0; i < pixels.length; ++i) pixels[i] = table[hue[azimuth[i]] + level[dolp[i]]];
  };
  const through = (plane, pixels, colour) => {
    for (let i = 0; i < pixels.length; ++i) pixels[i] = colour[plane[i] & 0xffff];
  };

  /** Colours the pixels of one picture; `tops` are the ends of the scales in integers of planes. */
  const paint = (name, planes, pixels, tops, map) => {
    if (name === 'angle') angles(planes, pixels, map, levels(tops.degree));
    else if (name === 'angle_only') angles(planes, pixels, map, present());
    else if (name === 'degree') through(planes.dolp, pixels, ramp('degree', tops.degree));
    else if (name === 's0') through(planes.s0, pixels, ramp('s0', tops.s0));
    else if (name === 's1_s0' || name === 's2_s0') {
      through(planes[name], pixels, signs((tops.degree / full_scale) * signed_scale));
    } else {
      const top = tops.raw;
      through(planes[name], pixels,
          lookup('raw', top, (value) => tables.s0[ramp_index(value, top)]));
    }
  };
  return {paint, colours};
};

const marks = {
  saturated: pixel_of(mark_colours.saturated),
  invalid: pixel_of(mark_colours.invalid),
};

/**
 * Hatches what the validity plane flags, in stripes that do not move with the picture: rising ones
 * of saturated pixels, falling ones of pixels not valid for other reasons.
 */
export const paint_marks = (validity, header, pixels) => {
  const width = header.width;
  const column = header.region[0] / header.scale;
  const row = header.region[1] / header.scale;
  for (let i = 0; i < pixels.length; ++i) {
    if (validity[i] === 0) continue;
    const x = column + (i % width);
    const y = row + Math.floor(i / width);
    const saturated = (validity[i] & flag_saturated) !== 0;
    const place = saturated ? x + y : x - y;
    pixels[i] = (place & 3) < 2 ? (saturated ? marks.saturated : marks.invalid) : black;
  }
};
