// Held pixels and regions drawn over the pictures, and held by the pointer: a click holds the pixel, a
// drag with Shift the region.

import {region_of} from './held.js';

const drawing = 'http://www.w3.org/2000/svg';
const least_size = 3;

/** {x, y, width, height} of a region in a part of a canvas, in pixels of the canvas. */
export const box_of = ([column, row, width, height], part) => ({
  x: part.x + part.left + column * part.zoom,
  y: part.y + part.top + row * part.zoom,
  width: Math.max(width * part.zoom, least_size),
  height: Math.max(height * part.zoom, least_size),
});

const shape = (name, attributes, text = '') => {
  const made = document.createElementNS(drawing, name);
  for (const [attribute, value] of Object.entries(attributes)) made.setAttribute(attribute, value);
  made.textContent = text;
  return made;
};

/** What is held and being drawn: [region, label]. */
const marked = (now) => [
  ...now.held.map((item, index) => [region_of(item), String(index + 1)]),
  ...(now.drawn ? [[now.drawn, '']] : []),
];

/** The frames and numbers of one part of a canvas, cut off at its edges. */
const drawn_part = (part, ratio, regions) => {
  const {x, y, width, height} = part;
  const layer = shape('svg', {x: x * ratio, y: y * ratio, width: width * ratio, height: height * ratio});
  for (const [region, label] of regions) {
    const box = box_of(region, {...part, x: 0, y: 0});
    const sizes = Object.fromEntries(Object.entries(box).map(([name, value]) => [name, value * ratio]));
    layer.append(
        shape('rect', {class: 'mark-dark', ...sizes}),
        shape('rect', {class: 'mark-light', ...sizes}),
        shape('text', {class: 'mark-text', x: sizes.x + sizes.width + 3, y: sizes.y - 2}, label));
  }
  return layer;
};

/** Draws the marks over each picture, and holds what is pointed at. */
export const attach_marks = (state, {views, pointing}, held) => {
  const layers = new Map();
  let shown = '';

  views.on_drawn((parts) => {
    const regions = marked(state.now);
    // Most frames leave the marks where they are; to ask for widths has the page laid out at once.
    const places = regions.length > 0 && parts.map(({view, x, y, width, height, zoom, left, top}) =>
        [views.all.indexOf(view), view.canvas.width, view.stage.clientWidth, x, y, width, height, zoom, left, top]);
    const wanted = JSON.stringify([regions, places]);
    if (wanted === shown) return;
    shown = wanted;
    for (const view of views.all) {
      if (!layers.has(view)) layers.set(view, shape('svg', {class: 'marks', 'aria-hidden': 'true'}));
      const layer = layers.get(view);
      if (layer.parentNode !== view.stage) view.stage.append(layer);
      const ratio = view.stage.clientWidth / view.canvas.width;
      const own = regions.length > 0 ? parts.filter((part) => part.view === view) : [];
      layer.replaceChildren(...own.map((part) => drawn_part(part, ratio, regions)));
    }
  });
  pointing.on_click((pixel) => {
    // A finger points with each touch; it holds with the button.
    if (!matchMedia('(pointer: coarse)').matches) held.hold_pixel(pixel);
  });
  pointing.on_region((region, done) => {
    state.set({drawn: done ? null : region});
    if (done && region) held.hold_region(region);
  });
};
