// Pixels and regions that are held: their numbers in the frame that is shown and over the frames.

import {draw_histogram, draw_time_line, new_record, rounded, turned, with_unit} from './charts.js';
import {element, on_density} from './elements.js';
import {region_between} from './geometry.js';
import {sample_name} from './quantities.js';
import {most_held, short_name} from './state.js';

// Nobody reads faster, and a chart of many frames takes a while to draw.
const drawn_every = 200;
const point_first = 'Point at a pixel first.';
const retry_after = 1000;

export const dashes = [[], [6, 3], [2, 2], [8, 3, 2, 3], [12, 4], [4, 6], [1, 4], [10, 2, 2, 2, 2, 2]];
/** What /statistics tells of; `period` is that of angles. */
export const measured = [
  {name: 's0', title: 'S0'},
  {name: 'dolp', title: 'Degree'},
  {name: 'azimuth', title: 'Angle', period: 180},
  {name: 's1_s0', title: 'S1/S0'},
  {name: 's2_s0', title: 'S2/S0'},
  {name: 'raw', title: 'Raw sample'},
];

/** Column, row, width and height of what is held. */
export const region_of = (item) => item.region ?? [item.column, item.row, 1, 1];

export const title_of = (item, index) => item.name || `${item.region ? 'Region' : 'Pixel'} ${index + 1}`;

const key_of = (item) => region_of(item).join(',');

/**
 * Measures what is held in each frame that is shown; `ask({number, region})` gives what /statistics says.
 * `told` is called after each round.
 */
const new_measuring = (state, ask, told) => {
  const records = new Map();
  // What the program has refused of a frame is not asked for again.
  let refused = {number: -1, keys: new Set()};
  let busy = false;

  const kept = (item) => {
    const key = key_of(item);
    if (!records.has(key)) records.set(key, new_record());
    return records.get(key);
  };
  const refuse = (item, number) => {
    if (refused.number !== number) refused = {number, keys: new Set()};
    refused.keys.add(key_of(item));
  };
  const is_refused = (item) => refused.number === state.now.header?.number && refused.keys.has(key_of(item));
  /** Whether the program has answered. */
  const measure = async (item, header) => {
    const region = key_of(item);
    let answer;
    try {
      answer = await ask({number: header.number, region});
    } catch (error) {
      if (error.status === undefined) throw error;
      const final = error.status >= 400 && error.status < 500;
      if (final) refuse(item, header.number);
      return final;
    }
    // Removed meanwhile.
    if (!records.has(region)) return true;
    kept(item).add({
      number: header.number,
      time: header.capture?.camera_time_ns ?? null,
      pixels: answer.pixels,
      valid: answer.valid_pixels,
      of: Object.fromEntries(answer.quantities.map((quantity) => [quantity.name, quantity])),
    });
    return true;
  };
  const lacking = () => {
    const {header, held} = state.now;
    if (header === null) return [];
    return held.filter((item) => {
      const frame = kept(item).at(header.number);
      return !is_refused(item) && (frame === null || (frame.thin && item.region));
    });
  };
  // One round at a time, and then what lacks by then: a slow server gets no queue.
  const rounds = async () => {
    for (let header; header !== state.now.header || lacking().length > 0;) {
      header = state.now.header;
      const answered = await Promise.all(lacking().map((item) => measure(item, header)));
      told();
      if (answered.includes(false)) await new Promise((done) => setTimeout(done, retry_after));
      else if (header) state.set({measured: header.number});
    }
  };
  const run = async () => {
    const wanted = new Set(state.now.held.map(key_of));
    for (const key of [...records.keys()]) if (!wanted.has(key)) records.delete(key);
    if (busy) return;
    busy = true;
    try {
      await rounds();
    } finally {
      busy = false;
    }
  };
  return {run, record: kept, is_refused};
};

/** The list in `place` and the time line in `line_place`. */
export const attach_held = (state, ask, place, line_place) => {
  let corner = null;
  let quantity = measured[2];
  let redraw = 0;
  let late = 0;
  let drawn = -drawn_every;
  const measuring = new_measuring(state, ask, () => show_soon());

  const say = element('p', {class: 'hint', 'aria-live': 'polite'});
  const hold = (item) => {
    const now = state.now;
    const region = region_of(item);
    const frame = now.header;
    const inside = frame && region[0] < frame.frame_width && region[1] < frame.frame_height;
    const twice = now.held.some((other) => key_of(other) === key_of(item));
    say.textContent = !inside ? 'Nothing is there to hold.'
        : twice ? 'This is held already.'
        : now.held.length === most_held ? `${most_held} are held; remove one first.` : '';
    if (say.textContent === '') state.set({held: [...now.held, {name: '', ...item}]});
  };
  const held = {
    measured,
    record: measuring.record,
    hold_pixel(at = state.now.pointer) {
      if (at) hold({row: at.row, column: at.column});
      else say.textContent = point_first;
    },
    hold_region(region) {
      hold({region});
    },
    /** The pointer's pixel is a corner of a region, and the next time the opposite one. */
    corner(at = state.now.pointer) {
      if (!at) {
        say.textContent = point_first;
        return;
      }
      if (corner !== null) {
        hold({region: region_between(corner, at)});
        corner = null;
      } else {
        corner = {...at};
        say.textContent = `A corner is at row ${at.row}, column ${at.column}; give the opposite one.`;
      }
      state.set({drawn: corner && region_between(corner, at)});
    },
    give_up() {
      corner = null;
      say.textContent = '';
      state.set({drawn: null});
    },
    remove(index = state.now.held.length - 1) {
      state.set({held: state.now.held.filter((_, other) => other !== index)});
    },
    rename(index, name) {
      const renamed = (item, other) => (other === index ? {...item, name: short_name(name)} : item);
      state.set({held: state.now.held.map(renamed)});
    },
    next_quantity(steps = 1) {
      const index = measured.indexOf(quantity) + steps + measured.length;
      quantity = measured[index % measured.length];
      choice.value = quantity.name;
      show();
    },
  };

  const choice = element('select', {'aria-label': 'Quantity', title: 'Quantity (t)'},
      measured.map(({name, title}) => element('option', {value: name}, [title])), {
        change: () => {
          quantity = measured.find(({name}) => name === choice.value);
          show();
        },
      });
  choice.value = quantity.name;
  const pixel_button = element('button', {type: 'button', title: 'Hold the pixel that values are shown for (Enter)'},
      ['Hold pixel'], {click: () => held.hold_pixel()});
  const region_button = element('button', {type: 'button', title: 'Give a corner of a region at the pixel that values are shown for (b)'},
      ['Corner of a region'], {click: () => held.corner()});
  const list = element('ol', {class: 'held-list'});
  place.append(element('div', {class: 'held-tools'}, [pixel_button, region_button, choice]), say, list);
  const line = new_time_line(state, line_place, () => show());

  /** {frame, lacks}: what is told of an item, and what is said before it or instead of it. */
  const shown_of = (item) => {
    const {header, playing} = state.now;
    const [column, row] = region_of(item);
    const record = measuring.record(item);
    const frame = header && record.at(header.number);
    if (frame) return {frame, lacks: ''};
    if (header && (column >= header.frame_width || row >= header.frame_height)) return {frame: null, lacks: 'not in this frame'};
    if (measuring.is_refused(item)) return {frame: null, lacks: 'not to be had in this frame'};
    const last = record.last();
    if (last === null) return {frame: null, lacks: 'not measured yet'};
    // Of frames that play nobody reads the numbers beside them.
    return {frame: last, lacks: playing ? '' : `frame ${last.number}: `};
  };
  const rows = [];
  const fill = () => {
    const items = state.now.held;
    while (rows.length > items.length) {
      const {row} = rows.pop();
      // Who removes by keys goes on from what is left.
      if (row.contains(document.activeElement)) (rows.at(-1)?.remove ?? pixel_button).focus();
      row.remove();
    }
    while (rows.length < items.length) {
      rows.push(new_row(held, rows.length));
      list.append(rows.at(-1).row);
    }
    items.forEach((item, index) => rows[index].show(item, quantity, shown_of(item)));
  };
  const show = () => {
    redraw = 0;
    drawn = performance.now();
    fill();
    const series = state.now.held.map((item, index) => ({
      label: String(index + 1),
      title: title_of(item, index),
      dash: dashes[index],
      frames: measuring.record(item).in_order(),
    }));
    line.show(series, {...quantity, title: choice.selectedOptions[0].text});
  };
  const show_soon = () => {
    redraw ||= setTimeout(() => requestAnimationFrame(show), drawn + drawn_every - performance.now());
  };
  state.listen((now, changed) => {
    if (changed.has('source')) [...choice.options].find(({value}) => value === 'raw').text = sample_name('Raw sample', now.source);
    if (['held', 'header', 'playing'].some((name) => changed.has(name))) measuring.run();
    if (changed.has('held')) show_soon();
    // Numbers of another frame are not taken for this one's, if its own take longer than to be told.
    if (changed.has('header') && !now.playing) {
      clearTimeout(late);
      late = setTimeout(show_soon, drawn_every);
    }
    if (changed.has('pointer') && corner && now.pointer) state.set({drawn: region_between(corner, now.pointer)});
  });
  addEventListener('resize', show_soon);
  on_density(show_soon);
  measuring.run();
  return held;
};

/** One held pixel or region in the list. */
const new_row = (held, index) => {
  const name = element('input', {type: 'text', maxlength: 40, 'aria-label': `Name of ${index + 1}`}, [], {
    change: () => held.rename(index, name.value),
  });
  const where = element('span', {class: 'where'});
  const remove = element('button', {type: 'button', 'aria-label': `Remove ${index + 1}`, title: `Remove ${index + 1}`},
      ['×'], {click: () => held.remove(index)});
  const numbers = element('output', {class: 'numbers'});
  const histogram = element('canvas', {class: 'held-histogram'});
  const row = element('li', {class: 'held-item'}, [
    element('span', {class: 'held-number', 'aria-hidden': 'true'}, [String(index + 1)]),
    name, where, remove, numbers, histogram,
  ]);
  const show = (item, quantity, {frame, lacks}) => {
    const region = region_of(item);
    if (document.activeElement !== name) name.value = item.name;
    name.placeholder = title_of({...item, name: ''}, index);
    where.textContent = item.region
        ? `row ${region[1]}, column ${region[0]}, ${region[2]} × ${region[3]}`
        : `row ${region[1]}, column ${region[0]}`;
    const value = frame?.of[quantity.name];
    numbers.textContent = lacks + (value ? numbers_of(value, frame) : '');
    histogram.hidden = !value?.histogram || !item.region || lacks !== '';
    if (histogram.hidden) return;
    // The ends of an angle's are where it is not.
    const {period} = quantity;
    const around_0 = period && Math.abs(value.mean - period / 2) > period / 4;
    draw_histogram(histogram, around_0 ? turned(value.histogram) : value.histogram, value.unit ?? '');
  };
  return {row, remove, show};
};

// An angle just below 180 degrees is nearest to 0.
const angle_mean = (mean) => (Number(mean.toFixed(2)) % 180).toFixed(2);

const numbers_of = (value, frame) => {
  if (value.mean === null) return 'none';
  const unit = with_unit(value.unit);
  const is_angle = value.unit === 'degree';
  const step = Math.max(value.deviation, Math.abs(value.mean) / 1000, 1e-4);
  const mean = is_angle ? angle_mean(value.mean) : rounded(value.mean, step);
  if (frame.pixels === 1) return mean + unit;
  const deviation = is_angle ? value.deviation.toFixed(2) : rounded(value.deviation, step);
  return `${mean} ± ${deviation}${unit}, mean of ${frame.valid} of ${frame.pixels} pixels`;
};

/** The chart of means over the frames: a pointer or arrow keys read its values. */
const new_time_line = (state, place, refresh) => {
  const canvas = element('canvas', {tabindex: 0, role: 'img', 'aria-label': 'Means over the frames; arrow keys read values, Enter shows the frame'});
  const read = element('output', {class: 'time-line-values', 'aria-live': 'polite'});
  place.append(canvas, read);
  let cursor = null;
  let places = null;
  let shown = {series: [], quantity: measured[0]};

  const show = (series, quantity) => {
    shown = {series, quantity};
    const unit = series.map(({frames}) => frames.at(-1)?.of[quantity.name]?.unit).find(Boolean) ?? '';
    // One frame is no line, and the first hold does not move the pictures.
    place.hidden = !series.some(({frames}) => frames.length > 1);
    places = place.hidden ? null : draw_time_line(canvas, series, quantity, unit, cursor);
    const values = cursor === null ? [] : series.flatMap(({title, frames}) => {
      const frame = frames.find(({number}) => number === cursor);
      const value = frame?.of[quantity.name];
      return value ? [`${title} ${numbers_of(value, frame)}`] : [];
    });
    read.textContent = values.length > 0 ? `Frame ${cursor}: ${values.join('; ')}` : '';
  };
  const move = (number) => {
    const known = [...new Set(shown.series.flatMap(({frames}) => frames.map((frame) => frame.number)))];
    if (known.length === 0) return;
    cursor = known.reduce((best, other) => (Math.abs(other - number) < Math.abs(best - number) ? other : best));
    show(shown.series, shown.quantity);
  };
  canvas.addEventListener('pointermove', (event) => {
    if (places) move(places.number(event.offsetX));
  });
  const show_frame = () => {
    if (cursor !== null && state.now.source?.kind === 'recording') state.set({playing: false, number: cursor});
  };
  canvas.addEventListener('click', show_frame);
  canvas.addEventListener('keydown', (event) => {
    if (event.key === 'Enter') {
      event.preventDefault();
      event.stopPropagation();
      show_frame();
      return;
    }
    const steps = {ArrowLeft: -1, ArrowRight: 1}[event.key];
    if (!steps || !places) return;
    event.preventDefault();
    event.stopPropagation();
    refresh();
    const numbers = [...new Set(shown.series.flatMap(({frames}) => frames.map((frame) => frame.number)))]
                        .sort((one, other) => one - other);
    const index = numbers.indexOf(cursor ?? state.now.number);
    move(numbers[Math.min(Math.max(index + steps, 0), numbers.length - 1)]);
  });
  return {show};
};
