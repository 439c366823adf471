// The pictures: one or four canvases that show the same part of the frame.

import {on_density} from './elements.js';
import {is_within, place_in, placed, region_for, scale_for, zoomed} from './geometry.js';
import {paint_marks} from './painting.js';
import {new_picture} from './pictures.js';
import {parts_of, quantities} from './quantities.js';
import {is_whole, new_scales, planes_for} from './scales.js';
import {ask_frame} from './source.js';
import {limited, limited_zoom, view_titles} from './state.js';

const two_in_a_row = 2;
const ends = ['s0_top', 'degree_top', 'raw_top'];
const repainted_by = ['views', 'map', 'overlay', ...ends];
const needed_by = ['views', 'zoom', 'centre', 'overlay', 'source', 'number', 'playing', ...ends];
const moved_by = ['views', 'zoom', 'centre', 'source'];
const aside_pause = 2000;
// What lies over the pictures.
const marked_by = ['pointer', 'held', 'drawn'];

const new_view = (index, state) => {
  const root = document.getElementById('view-template').content.firstElementChild.cloneNode(true);
  const select = root.querySelector('select');
  const stage = root.querySelector('.stage');
  const canvas = root.querySelector('canvas');
  for (const [name, title] of Object.entries(view_titles)) select.add(new Option(title, name));
  select.addEventListener('change', () => {
    state.set({views: state.now.views.with(index, select.value), active: index});
  });
  canvas.addEventListener('focus', () => state.set({active: index}));
  return {
    root, select, stage, canvas, marks: [root.querySelector('.mark')],
    context: canvas.getContext('2d', {alpha: false}), pictures: [], name: null,
  };
};

/**
 * Shows frames in `place`. Gives what keys, held regions and pictures to save need:
 * zoom(by, at), pan(columns, rows), fit(), point(row, column), parts(), on_drawn(f), on_click(f), on_region(f).
 */
export const attach_views = (state, place, painter) => {
  const scales = new_scales();
  const all = [0, 1, 2, 3].map((index) => new_view(index, state));
  const drawn_listeners = [];
  let latest = null;
  let unpainted = false;
  let undrawn = true;
  let waiting = 0;

  const shown = () => all.slice(0, state.now.views.length);
  const frame_size = () => {
    const {header, source} = state.now;
    const known = latest?.header ?? header;
    if (known) return {width: known.frame_width, height: known.frame_height};
    // That of a folder whose first frame is damaged has no size.
    return source?.width ? source : null;
  };

  /** {name, view, x, y, width, height, zoom, left, top} of each picture, in device pixels of its canvas. */
  const parts = (now = state.now) => {
    const frame = frame_size();
    if (!frame) return [];
    return shown().flatMap((view, index) => {
      const names = parts_of(state.now.views[index]);
      const columns = names.length === 1 ? 1 : two_in_a_row;
      const size = {
        width: Math.floor(view.canvas.width / columns),
        height: Math.floor(view.canvas.height / columns),
      };
      return names.map((name, part) => ({
        name, view, part, x: (part % columns) * size.width,
        y: Math.floor(part / columns) * size.height, ...size, ...placed(size, now, frame),
      }));
    });
  };

  // Frames of a recording are stepped through faster than they come.
  let hurries = false;
  // A part is seen in the same colours whichever frame came before it: the whole frame tells them.
  const lacks_ends = () => {
    const {playing, source, number} = state.now;
    const follows = playing || hurries || source?.kind === 'camera';
    return scales.lacks(state.now, follows ? undefined : number);
  };
  const fitted = () => ({...state.now, zoom: 'fit'});

  /** {region, scale, planes} that the pictures are made of, or null while there is none. */
  const needed = (now = lacks_ends() ? fitted() : state.now) => {
    const frame = frame_size();
    const places = parts(now).filter(({width, height}) => width > 0 && height > 0);
    if (places.length === 0) return null;
    const scale = scale_for(Math.max(...places.map(({zoom}) => zoom)));
    const regions = places.map((part) => region_for(part, part, frame, scale)).filter(Boolean);
    if (regions.length === 0) return null;
    const ends = (start) => regions.map((region) => region[start] + region[start + 2]);
    const column = Math.min(...regions.map((region) => region[0]));
    const row = Math.min(...regions.map((region) => region[1]));
    const region = [column, row, Math.max(...ends(0)) - column, Math.max(...ends(1)) - row];
    return {region, scale, planes: planes_for(state.now.views, state.now.overlay)};
  };

  const paint_all = () => {
    const {header, planes} = latest;
    const tops = scales.chosen(state.now);
    for (const {name, view, part} of parts()) {
      if (quantities[name].planes.some((plane) => !planes[plane])) continue;
      const picture = (view.pictures[part] ??= new_picture());
      picture.paint(name, header, (pixels) => {
        painter.paint(name, planes, pixels, tops, state.now.map);
        if (state.now.overlay && planes.validity) paint_marks(planes.validity, header, pixels);
      });
    }
    unpainted = false;
  };

  const draw_part = (place) => {
    const picture = place.view.pictures[place.part];
    if (picture?.name === place.name) picture.draw(place.view.context, place);
  };

  // The next frame mostly covers the one before it: without graphics hardware every pixel spared counts.
  const clear = (view, places) => {
    const covered = JSON.stringify(places.map(({name, part, x, y, width, height, zoom, left, top}) => {
      const picture = view.pictures[part];
      const {region, scale} = picture?.header ?? {};
      return [picture?.name === name, x, y, width, height, zoom, left, top, region, scale];
    }));
    if (covered === view.covered) return;
    view.covered = covered;
    view.context.fillStyle = '#000';
    view.context.fillRect(0, 0, view.canvas.width, view.canvas.height);
  };

  const place_mark = (mark, part) => {
    const {pointer} = state.now;
    const at = pointer && part && place_in(part, pointer);
    mark.hidden = !at || !is_within(part, at);
    if (mark.hidden) return;
    const ratio = part.view.stage.clientWidth / part.view.canvas.width;
    mark.style.left = (part.x + at.x) * ratio + 'px';
    mark.style.top = (part.y + at.y) * ratio + 'px';
  };
  const draw_marks = (view, places) => {
    while (view.marks.length < places.length) {
      view.marks.push(view.marks[0].cloneNode());
      view.stage.append(view.marks.at(-1));
    }
    view.marks.forEach((mark, index) => place_mark(mark, places[index]));
  };

  const draw = () => {
    waiting = 0;
    if (unpainted && latest) paint_all();
    const places = parts();
    const places_of = (view) => places.filter((part) => part.view === view);
    if (undrawn) {
      undrawn = false;
      shown().forEach((view) => clear(view, places_of(view)));
      places.forEach(draw_part);
    }
    shown().forEach((view) => draw_marks(view, places_of(view)));
    for (const listener of drawn_listeners) listener(places);
    if (latest && state.now.header !== latest.header) state.set({header: latest.header, failed: null});
  };
  const draw_soon = () => {
    waiting ||= requestAnimationFrame(draw);
  };
  const redraw = () => {
    undrawn = true;
    draw_soon();
  };

  /** Has `answer` tell the ends of the scales; whether what is shown stays until the part that is seen comes. */
  const only_measured = (answer) => {
    const {header} = answer;
    const {playing, source, number} = state.now;
    const lacked = lacks_ends();
    hurries = !playing && source?.kind === 'recording' && header.number !== number;
    scales.measure(answer, playing);
    if (!latest || !lacked || lacks_ends()) return false;
    const sizes = (one) => [one.frame_width, one.frame_height].join();
    const need = needed();
    const stays = sizes(header) === sizes(latest.header) && need?.planes.every((plane) => latest.planes[plane]) &&
        (need.scale !== header.scale || need.region.join() !== header.region.join());
    if (stays && header.number === latest.header.number) {
      unpainted = true;
      redraw();
    }
    return stays;
  };

  // While frames play, a part is not kept waiting for the whole of its frame.
  let aside = false;
  const measure_aside = async ({header}) => {
    if (aside || !state.now.playing || is_whole(header) || !scales.lacks(state.now, header.number)) return;
    const need = needed(fitted());
    if (!need) return;
    aside = true;
    const {region, scale, planes} = need;
    // That of a fast camera may be gone by now.
    const which = state.now.source.kind === 'camera' ? {after: -1} : {number: header.number};
    const answer = await ask_frame({...which, region: region.join(), scale, planes: planes.join()}).catch(() => null);
    if (answer && state.now.playing) {
      scales.measure(answer, true);
      unpainted = true;
      redraw();
    }
    setTimeout(() => (aside = false), aside_pause);
  };

  /** Takes the answer of /frame, to be seen with the screen's next picture. */
  const show = (answer) => {
    if (only_measured(answer)) return;
    latest = answer;
    unpainted = true;
    redraw();
    measure_aside(answer);
  };

  /** Whether the frame that stands is not to be had, or no more of it. */
  const has_failed = () => {
    const {number, failed, playing, source} = state.now;
    return !playing && failed !== null && (source?.kind === 'camera' || failed === number);
  };
  /** Header of the frame that is drawn if all that is wanted of it, or all that is to be had, is seen; else null. */
  const settled = () => {
    const need = needed();
    if (!latest || !need || unpainted || undrawn) return null;
    const {header, planes} = latest;
    const {number, playing, source} = state.now;
    if (need.planes.some((name) => !planes[name])) return null;
    // What cannot be had stays as it was, a camera's frame that is not kept any more as coarse.
    if (has_failed()) return header;
    if (source?.kind !== 'camera' && !playing && header.number !== number) return null;
    const same = header.scale === need.scale && header.region.join() === need.region.join();
    return same ? header : null;
  };

  const resize = () => {
    for (const {stage, canvas} of shown()) {
      const width = Math.round(stage.clientWidth * devicePixelRatio);
      const height = Math.round(stage.clientHeight * devicePixelRatio);
      if (canvas.width === width && canvas.height === height) continue;
      canvas.width = width;
      canvas.height = height;
    }
    redraw();
    changed_need();
  };
  let changed_need = () => {};

  const part_at = (at) =>
      parts().find(({view}) => view === (at?.view ?? all[state.now.active])) ?? parts()[0];
  const zoom_to = (wanted, at) => {
    const part = part_at(at);
    if (!part) return;
    const x = at ? at.x % part.width : part.width / 2;
    const y = at ? at.y % part.height : part.height / 2;
    state.set(zoomed(part, part, frame_size(), limited_zoom(wanted), x, y));
  };
  /** `at`: {view, x, y} in device pixels of its canvas; the middle of the active view without. */
  const zoom = (by, at) => zoom_to((part_at(at)?.zoom ?? 1) * by, at);
  /** By device pixels of the view that `at` names, or of the active one. */
  const pan_pixels = (x, y, at) => {
    const part = part_at(at);
    if (!part) return;
    const frame = frame_size();
    const now = (state.now.zoom !== 'fit' && state.now.centre) || [frame.width / 2, frame.height / 2];
    state.set({
      zoom: part.zoom,
      centre: [
        limited(now[0] + x / part.zoom, 0, frame.width),
        limited(now[1] + y / part.zoom, 0, frame.height),
      ],
    });
  };
  /** By shares of what is seen. */
  const pan = (columns, rows) => {
    const part = part_at();
    if (part) pan_pixels(columns * part.width, rows * part.height);
  };
  const point = (row, column) => {
    const frame = frame_size();
    if (!frame) return;
    const pointer = {row: limited(row, 0, frame.height - 1), column: limited(column, 0, frame.width - 1)};
    state.set({pointer});
    // The picture follows a pixel that leaves it.
    const part = part_at();
    if (part && !is_within(part, place_in(part, pointer))) {
      state.set({zoom: part.zoom, centre: [pointer.column + 0.5, pointer.row + 0.5]});
    }
  };
  /** {row, column} of the frame at a place of a canvas, or null outside of the frame. */
  const pixel_at = (view, x, y) => {
    const part = parts().find((other) => other.view === view && x >= other.x && y >= other.y &&
        x < other.x + other.width && y < other.y + other.height);
    if (!part) return null;
    const column = Math.floor((x - part.x - part.left) / part.zoom);
    const row = Math.floor((y - part.y - part.top) / part.zoom);
    const frame = frame_size();
    return row >= 0 && column >= 0 && row < frame.height && column < frame.width ? {row, column} : null;
  };

  const arrange = () => {
    place.dataset.views = state.now.views.length;
    place.replaceChildren(...shown().map(({root}) => root));
    resize();
  };
  const name_parts = (stage, names) => {
    for (const old of stage.querySelectorAll('.part-name')) old.remove();
    if (names.length === 1) return;
    names.forEach((name, part) => {
      const label = document.createElement('span');
      label.className = 'part-name';
      label.textContent = view_titles[name];
      label.style.left = (part % two_in_a_row) * 50 + '%';
      label.style.top = (Math.floor(part / two_in_a_row) + 1) * 50 + '%';
      stage.append(label);
    });
  };
  const name_views = () => {
    shown().forEach((view, index) => {
      const name = state.now.views[index];
      view.select.value = name;
      view.root.dataset.name = name;
      view.canvas.setAttribute('aria-label', view_titles[name]);
      name_parts(view.stage, parts_of(name));
    });
  };
  const mark_active = () => {
    shown().forEach(({root, canvas}, index) => {
      const active = shown().length > 1 && index === state.now.active;
      root.toggleAttribute('data-active', active);
      canvas.setAttribute('aria-current', active);
    });
  };

  state.listen((now, changed) => {
    if (changed.has('views')) {
      name_views();
      if (place.childElementCount !== now.views.length) arrange();
    }
    if (changed.has('views') || changed.has('active')) mark_active();
    // What played was measured now and then.
    const stands = changed.has('playing') && !now.playing && latest !== null;
    if (stands) scales.measure(latest, false);
    if (stands || repainted_by.some((name) => changed.has(name))) unpainted = true;
    if (needed_by.some((name) => changed.has(name))) changed_need();
    if (stands || [...repainted_by, ...moved_by].some((name) => changed.has(name))) redraw();
    else if (marked_by.some((name) => changed.has(name))) draw_soon();
  });
  new ResizeObserver(resize).observe(place);
  on_density(resize);
  name_views();
  mark_active();
  arrange();
  return {
    all, parts, needed, show, zoom, zoom_to, pan, pan_pixels, point, pixel_at, redraw,
    fit: () => state.set({zoom: 'fit', centre: null}),
    tops: () => scales.chosen(state.now),
    settled, has_failed,
    ends: () => scales.in_force(state.now),
    latest: () => latest,
    on_drawn: (listener) => drawn_listeners.push(listener),
    on_need: (listener) => (changed_need = listener),
  };
};
