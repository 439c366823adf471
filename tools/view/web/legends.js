// Scales of the pictures that are shown: bars, the wheel of angles, and what the marks mean.

import {full_scale, mark_colours, mark_texts} from './painting.js';
import {is_of_samples, quantities, sample_name} from './quantities.js';
import {degree_tops, raw_tops, s0_tops} from './state.js';
import {s0_decimals} from './values.js';

const svg_space = 'http://www.w3.org/2000/svg';
const bar_width = 260;
const bar_height = 12;
const text_drop = 14;

const svg = (name, attributes, text) => {
  const made = document.createElementNS(svg_space, name);
  for (const [attribute, value] of Object.entries(attributes)) made.setAttribute(attribute, value);
  if (text !== undefined) made.textContent = text;
  return made;
};

/** Up to seven round numbers from `least` to `most`: [place from 0 to 1, text]. */
export const round_ticks = (least, most) => {
  const range = most - least;
  const power = 10 ** Math.floor(Math.log10(range));
  const step = power * ([0.1, 0.2, 0.5, 1, 2].find((candidate) => range / (candidate * power) <= 6) ?? 5);
  const decimals = Math.max(0, -Math.floor(Math.log10(step) + 1e-9));
  const ticks = [];
  for (let i = Math.ceil(least / step - 1e-9); i * step <= most + 1e-9 * range; ++i) {
    ticks.push([(i * step - least) / range, (i * step).toFixed(decimals)]);
  }
  return ticks;
};

/** A bar of colours with numbers below it. */
export const bar = (uri, ticks, label) => {
  const drawing = svg('svg', {
    viewBox: `0 0 ${bar_width} ${bar_height + text_drop + 4}`, role: 'img', 'aria-label': label,
  });
  const size = {width: bar_width, height: bar_height};
  drawing.append(
      svg('image', {href: uri, ...size, preserveAspectRatio: 'none'}),
      svg('rect', {class: 'frame', ...size}));
  for (const [place, text] of ticks) {
    const anchor = place < 0.02 ? 'start' : place > 0.98 ? 'end' : 'middle';
    drawing.append(svg('text',
        {x: place * bar_width, y: bar_height + text_drop, 'text-anchor': anchor}, text));
  }
  return drawing;
};

const wheel = (text) => {
  const parsed = new DOMParser().parseFromString(text, 'text/html').querySelector('svg');
  return document.importNode(parsed, true);
};

const number_field = (label, [least, most], step, set) => {
  const outer = document.createElement('label');
  const input = document.createElement('input');
  Object.assign(input, {type: 'number', min: 0, max: most, step, placeholder: 'auto'});
  input.addEventListener('change', () => {
    const number = Number(input.value);
    set(input.value !== '' && number >= least && number <= most ? number : null);
  });
  outer.append(label + ' ', input);
  return outer;
};

/** Shows them in `place`. */
export const attach_legends = (state, views, colours, place) => {
  let shown = '';

  const parts = {
    s0(tops) {
      const unit = state.now.source.s0_unit;
      return [bar(colours.bars.s0, round_ticks(0, tops.s0 * unit), 'Scale of S0 in sample units')];
    },
    raw: (tops) => [bar(colours.bars.s0, round_ticks(0, tops.raw), 'Scale of the samples')],
    degree: (tops) =>
        [bar(colours.bars.degree, round_ticks(0, tops.degree / full_scale), 'Scale of the degree')],
    signed(tops) {
      const top = tops.degree / full_scale;
      return [bar(colours.bars.signed, round_ticks(-top, top), 'Scale of S1/S0 and S2/S0')];
    },
    angle(tops) {
      const note = document.createElement('p');
      const top = Number((tops.degree / full_scale).toPrecision(3));
      note.className = 'wheel-note';
      note.textContent = `Centre: degree 0. Rim: ${top}${top < 1 ? ' and above' : ''}.`;
      return [wheel(colours.wheels[state.now.map]), note];
    },
  };
  const titles = {
    s0: 'S0, sample units', degree: 'Degree', signed: 'S1/S0, S2/S0', angle: 'Angle and degree',
  };
  const kind_of = (name) => (is_of_samples(name) ? 'raw' : quantities[name].colours);

  const marks = () => {
    const list = document.createElement('ul');
    for (const [name, colour] of Object.entries(mark_colours)) {
      const item = document.createElement('li');
      const sample = document.createElement('span');
      sample.className = 'stripes ' + name;
      sample.style.setProperty('--stripe', `rgb(${colour.join()})`);
      item.append(sample, mark_texts[name]);
      list.append(item);
    }
    return list;
  };

  const section = (kind, tops) => {
    const made = document.createElement('section');
    const title = document.createElement('h2');
    title.textContent = titles[kind] ?? sample_name('Samples', state.now.source);
    made.dataset.kind = kind;
    made.append(title, ...parts[kind](tops));
    return made;
  };

  const bars = document.createElement('div');
  const ends = document.createElement('p');
  const meanings = document.createElement('div');
  ends.className = 'ends';
  place.append(bars, ends, meanings);

  const fields = {};
  const add_fields = () => {
    const unit = 10 ** -s0_decimals(state.now.source.s0_unit);
    const outer = {
      s0_top: number_field('S0 up to', s0_tops, unit, (s0_top) => state.set({s0_top})),
      degree_top: number_field('degree up to', degree_tops, 0.01, (degree_top) => state.set({degree_top})),
      raw_top: number_field('samples up to', raw_tops, 1, (raw_top) => state.set({raw_top})),
    };
    for (const [name, label] of Object.entries(outer)) fields[name] = label.querySelector('input');
    ends.append(...Object.values(outer));
  };
  const fill_fields = () => {
    if (!fields.s0_top) add_fields();
    for (const [name, field] of Object.entries(fields)) {
      if (field !== document.activeElement) field.value = state.now[name] ?? '';
    }
    // Few pictures are of samples, and a narrow page has no room to spare.
    fields.raw_top.parentNode.hidden = state.now.raw_top === null && !state.now.views.some(is_of_samples);
  };

  const show = () => {
    const {now} = state;
    if (!now.source || !views.latest()) return;
    const kinds = [...new Set(now.views.map(kind_of))];
    const tops = views.tops();
    const wanted = JSON.stringify([kinds, tops, now.map, now.overlay, now.s0_top, now.degree_top, now.raw_top]);
    if (wanted === shown) return;
    shown = wanted;
    bars.replaceChildren(...kinds.map((kind) => section(kind, tops)));
    meanings.replaceChildren(...(now.overlay ? [marks()] : []));
    fill_fields();
    Object.assign(place.dataset, {s0: tops.s0, degree: tops.degree, raw: tops.raw});
  };
  state.listen(show);
  place.addEventListener('focusout', () => setTimeout(fill_fields));
};
