// Mouse, pen and fingers on the pictures.

import {corner_at, region_between} from './geometry.js';

const click_reach = 5;
const wheel_step = 1.0015;

/** Drag moves, with Shift it marks a region; wheel and two fingers zoom; a click is told to `on_click`. */
export const attach_pointing = (state, views) => {
  const click_listeners = [];
  const region_listeners = [];
  const fingers = new Map();
  let start = null;

  const place_of = (view, event) => {
    const box = view.canvas.getBoundingClientRect();
    return {
      view,
      x: ((event.clientX - box.left) / box.width) * view.canvas.width,
      y: ((event.clientY - box.top) / box.height) * view.canvas.height,
    };
  };
  const part_at = ({view, x, y}) => views.parts().find((part) => part.view === view &&
      x >= part.x && y >= part.y && x < part.x + part.width && y < part.y + part.height);
  const pixel_of = (place) => views.pixel_at(place.view, place.x, place.y);
  const spread = () => {
    const [one, other] = [...fingers.values()];
    return {
      view: one.view, x: (one.x + other.x) / 2, y: (one.y + other.y) / 2,
      length: Math.hypot(one.x - other.x, one.y - other.y),
    };
  };

  const pressed = (view, event) => {
    if (event.button !== 0) return;
    // A finger on another picture spans nothing with those on this one.
    if ([...fingers.values()].some((finger) => finger.view !== view)) return;
    view.canvas.setPointerCapture(event.pointerId);
    const place = place_of(view, event);
    fingers.set(event.pointerId, place);
    start = fingers.size === 1 ? {place, marks: event.shiftKey, moved: false} : null;
    const part = part_at(place);
    if (start?.marks && part) Object.assign(start, {part: part.part, corner: corner_at(part, place)});
  };
  const pinched = (event, place) => {
    const before = spread();
    fingers.set(event.pointerId, place);
    const after = spread();
    views.pan_pixels(before.x - after.x, before.y - after.y, after);
    if (before.length > 0) views.zoom(after.length / before.length, after);
  };
  const moved = (view, event) => {
    const place = place_of(view, event);
    const pixel = pixel_of(place);
    if (pixel) state.set({pointer: pixel});
    const before = fingers.get(event.pointerId);
    if (!before) return;
    if (fingers.size === 2) {
      pinched(event, place);
      return;
    }
    if (!start) return;
    const far = Math.hypot(place.x - start.place.x, place.y - start.place.y) > click_reach * devicePixelRatio;
    if (!start.moved && !far) return;
    start.moved = true;
    fingers.set(event.pointerId, place);
    if (!start.marks) views.pan_pixels(before.x - place.x, before.y - place.y, place);
    else tell_region(place, false);
  };
  // To be drawn up to the frame's edge a region may begin and end beyond it.
  const tell_region = (place, done) => {
    const part = views.parts().find((other) => other.view === place.view && other.part === start.part);
    const region = part && start.corner && state.now.header
        ? region_between(start.corner, corner_at(part, place), state.now.header) : null;
    for (const listener of region_listeners) listener(region, done);
  };
  const released = (view, event) => {
    const place = place_of(view, event);
    const pixel = pixel_of(place);
    fingers.delete(event.pointerId);
    if (!start || event.type === 'pointercancel') {
      if (start?.marks) for (const listener of region_listeners) listener(null, true);
      start = null;
      return;
    }
    if (start.marks && start.moved) {
      tell_region(place, true);
    } else if (!start.moved && pixel) {
      state.set({pointer: pixel});
      for (const listener of click_listeners) listener(pixel);
    }
    start = null;
  };
  const wheel = (view, event) => {
    event.preventDefault();
    const lines = event.deltaMode === WheelEvent.DOM_DELTA_LINE ? 16 : 1;
    views.zoom(wheel_step ** (-event.deltaY * lines), place_of(view, event));
  };

  for (const view of views.all) {
    const {canvas} = view;
    canvas.addEventListener('pointerdown', (event) => pressed(view, event));
    canvas.addEventListener('pointermove', (event) => moved(view, event));
    canvas.addEventListener('pointerup', (event) => released(view, event));
    canvas.addEventListener('pointercancel', (event) => released(view, event));
    canvas.addEventListener('wheel', (event) => wheel(view, event), {passive: false});
  }
  return {
    /** f({row, column}) */
    on_click: (listener) => click_listeners.push(listener),
    /** f([column, row, width, height] or null, done): while it is drawn, and at its end. */
    on_region: (listener) => region_listeners.push(listener),
  };
};
