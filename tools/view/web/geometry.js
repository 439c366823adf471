// Where pixels of the frame lie in a picture, in device pixels, and which of them are asked for.

import {limited} from './state.js';

// A centre outside of the frame would leave nothing to be seen.
const inside = ([x, y], frame) => [limited(x, 0, frame.width), limited(y, 0, frame.height)];

/** {zoom, left, top}: device pixels for a pixel of the frame, and where its first pixel begins. */
export const placed = (size, now, frame) => {
  const zoom = now.zoom === 'fit'
      ? Math.min(size.width / frame.width, size.height / frame.height)
      : now.zoom;
  const chosen = now.zoom === 'fit' ? null : now.centre;
  const centre = inside(chosen ?? [frame.width / 2, frame.height / 2], frame);
  return {
    zoom,
    left: Math.round(size.width / 2 - centre[0] * zoom),
    top: Math.round(size.height / 2 - centre[1] * zoom),
  };
};

/**
 * Pixels of the frame along each side of a requested one, which is no smaller than one of the device:
 * so all are seen, each in its own colour. The address rounds a zoom such as 1/3, which is none of 1/4.
 */
export const scale_for = (zoom) => Math.ceil((1 - 1e-5) / zoom);

const whole_steps = (least, most, scale, end) => {
  const first = Math.floor(Math.max(0, least) / scale) * scale;
  const last = Math.min(Math.ceil(Math.min(end, most) / scale) * scale, end);
  return [first, last - first];
};

/** [column, row, width, height] of what `size` shows of the frame in whole steps of the scale, or null. */
export const region_for = (size, place, frame, scale) => {
  const {zoom, left, top} = place;
  const [column, width] = whole_steps(-left / zoom, (size.width - left) / zoom, scale, frame.width);
  const [row, height] = whole_steps(-top / zoom, (size.height - top) / zoom, scale, frame.height);
  return width > 0 && height > 0 ? [column, row, width, height] : null;
};

/** The state after `zoom` became `wanted`, with the point of the frame at (x, y) of `size` left where it is. */
export const zoomed = (size, place, frame, wanted, x, y) => {
  const at = [(x - place.left) / place.zoom, (y - place.top) / place.zoom];
  return {
    zoom: wanted,
    centre: inside([at[0] + (size.width / 2 - x) / wanted, at[1] + (size.height / 2 - y) / wanted], frame),
  };
};

/** Where the middle of a pixel of the frame lies in a part of a canvas, from the part's own corner. */
export const place_in = (part, {row, column}) => ({
  x: part.left + (column + 0.5) * part.zoom,
  y: part.top + (row + 0.5) * part.zoom,
});

/** Whether a place, from the part's own corner, is seen. */
export const is_within = ({width, height}, {x, y}) => x >= 0 && y >= 0 && x < width && y < height;

/** {column, row} of the pixel at a place of a canvas in a part of it, also of one beyond the frame. */
export const corner_at = (part, {x, y}) => ({
  column: Math.floor((x - part.x - part.left) / part.zoom),
  row: Math.floor((y - part.y - part.top) / part.zoom),
});

/** [column, row, width, height] of what a frame, of any size without it, has between two pixels and with them, or null. */
export const region_between = (one, other, {frame_width = Infinity, frame_height = Infinity} = {}) => {
  const column = Math.max(0, Math.min(one.column, other.column));
  const row = Math.max(0, Math.min(one.row, other.row));
  const width = Math.min(frame_width, Math.max(one.column, other.column) + 1) - column;
  const height = Math.min(frame_height, Math.max(one.row, other.row) + 1) - row;
  return width > 0 && height > 0 ? [column, row, width, height] : null;
};
