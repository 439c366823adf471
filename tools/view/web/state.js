// What the page shows, in one place: who wants something else sets it here, who shows it listens.
//
// In the address, so that who is given it sees the same:
//   views      names of view_titles, one or four
//   zoom       pixels of the screen for a pixel of the frame, or 'fit'
//   centre     [x, y] of the view's centre in pixels of the frame, or null for the frame's own
//   map        'hue' or 'second', the colours of angles
//   s0_top     S0 that is shown as white, in sample units; degree_top: degree with the last colour;
//              raw_top: sample that is shown as white; null: by the frame
//   overlay    whether saturated and not valid pixels are marked
//   loupe      whether the loupe is shown
//   number     the frame that is wanted
//   playing    whether frames follow one another; of a camera: whether the newest is shown
//   speed      1/8 to 8, every: no frame is left out, loop: the first follows the last
//   held       up to 8 of {row, column, name} and {region: [column, row, width, height], name}
// Not in the address:
//   active     index in views of the view that keys are for
//   pointer    {row, column} that values are shown for, or null
//   source     what /source says, header: what /frame says of the frame that is shown; null before
//   failed     number of the frame that was wanted and is not to be had, or null
//   silent     whether the camera has sent nothing new for a second, reception: what it had sent then
//   measured   number of the last frame that the held pixels and regions were measured in
//   drawn      region whose second corner is still to be given, or null

export const view_titles = {
  s0: 'Intensity S0',
  angle: 'Angle, dimmed by the degree',
  degree: 'Degree of polarisation',
  raw: 'Raw mosaic',
  angle_only: 'Angle',
  s1_s0: 'S1/S0',
  s2_s0: 'S2/S0',
  analysers: 'Four analysers',
  i0: 'Analyser 0°',
  i45: 'Analyser 45°',
  i90: 'Analyser 90°',
  i135: 'Analyser 135°',
};
export const speeds = [0.125, 0.25, 0.5, 1, 2, 4, 8];
export const most_held = 8;
const most_zoom = 64;
const least_zoom = 1 / 64;
/** Least and most of the ends of the scales, so that their marks have few decimals. */
export const s0_tops = [1e-3, 1e9];
export const degree_tops = [1e-4, 1];
export const raw_tops = [1, 65535];

const in_address = {
  views: ['s0', 'angle', 'degree', 'raw'],
  zoom: 'fit',
  centre: null,
  map: 'hue',
  s0_top: null,
  degree_top: null,
  raw_top: null,
  overlay: false,
  loupe: true,
  number: 0,
  playing: false,
  speed: 1,
  every: false,
  loop: false,
  held: [],
};

const not_in_address = {
  active: 0,
  pointer: null,
  source: null,
  header: null,
  failed: null,
  silent: false,
  reception: null,
  measured: null,
  drawn: null,
};

export const limited = (value, least, most) => Math.min(Math.max(value, least), most);
export const limited_zoom = (zoom) => limited(zoom, least_zoom, most_zoom);

const number_list = (text, count) => {
  const numbers = text.split(',').map(Number);
  return numbers.length === count && numbers.every(Number.isFinite) ? numbers : null;
};
const whole = (text) => (/^\d{1,15}$/.test(text) ? Number(text) : undefined);
const within = (text, [least, most]) => {
  const value = Number(text);
  return value >= least && value <= most ? value : undefined;
};
const flag = {
  write: (value) => (value ? '1' : '0'),
  read: (text) => (/^[01]$/.test(text) ? text === '1' : undefined),
};

const longest_name = 40;
/** As much of a name as is kept, in whole characters: half of a pair has no place in an address. */
export const short_name = (name) => [...name.replace(/\p{Surrogate}/gu, '')].slice(0, longest_name).join('');

// Some programs that pass addresses on write commas and semicolons with per cent signs: what separates
// is known from what belongs to a name only if names have theirs written so twice.
const apart = (name) => encodeURIComponent(name.replace(/[%,;]/g, encodeURIComponent));
const held_text = (item) => {
  const place = item.region ?? [item.column, item.row];
  return place.join(',') + (item.name ? '~' + apart(item.name) : '');
};
const held_item = (text) => {
  const [place, name] = text.split(/~(.*)/s);
  const numbers = place.split(',').map(whole);
  if (numbers.includes(undefined) || (numbers.length !== 2 && numbers.length !== 4)) return null;
  const item = numbers.length === 2 ? {row: numbers[1], column: numbers[0]} : {region: numbers};
  if (item.region && (numbers[2] === 0 || numbers[3] === 0)) return null;
  return {...item, name: short_name(decodeURIComponent(name ?? ''))};
};

// How a field is written into the address and read from it; undefined is no value of it.
const forms = {
  views: {
    write: (views) => views.join(','),
    read: (text) => {
      const views = text.split(',');
      const known = views.every((name) => Object.hasOwn(view_titles, name));
      return known && (views.length === 1 || views.length === 4) ? views : undefined;
    },
  },
  zoom: {
    write: (zoom) => (zoom === 'fit' ? zoom : String(Number(zoom.toPrecision(6)))),
    read: (text) => {
      if (text === 'fit') return text;
      const zoom = within(text, [Number.MIN_VALUE, most_zoom]);
      return zoom && limited_zoom(zoom);
    },
  },
  centre: {
    write: (centre) => centre.map((value) => Number(value.toFixed(2))).join(','),
    read: (text) => number_list(text, 2) ?? undefined,
  },
  map: {write: String, read: (text) => (text === 'hue' || text === 'second' ? text : undefined)},
  s0_top: {write: String, read: (text) => within(text, s0_tops)},
  degree_top: {write: String, read: (text) => within(text, degree_tops)},
  raw_top: {write: String, read: (text) => within(text, raw_tops)},
  overlay: flag,
  loupe: flag,
  number: {write: String, read: whole},
  playing: flag,
  speed: {
    write: String,
    read: (text) => (speeds.includes(Number(text)) ? Number(text) : undefined),
  },
  every: flag,
  loop: flag,
  held: {
    write: (held) => held.map(held_text).join(';'),
    read: (text) => {
      const held = text === '' ? [] : text.split(';').map(held_item);
      return held.includes(null) ? undefined : held.slice(0, most_held);
    },
  },
};

const same = (one, other) => one === other || JSON.stringify(one) === JSON.stringify(other);

/** The fragment, without '#', of an address that shows what `fields` say. */
export const to_fragment = (fields) =>
    Object.keys(in_address)
        .filter((name) => !same(fields[name], in_address[name]))
        .map((name) => name + '=' + forms[name].write(fields[name]))
        .join('&');

/** All fields that an address holds; those that it lacks, or that no page has written, as at the start. */
export const from_fragment = (fragment) => {
  const fields = structuredClone(in_address);
  for (const part of fragment.replace(/^#/, '').split('&')) {
    const [name, text] = part.split(/=(.*)/s);
    if (!Object.hasOwn(forms, name) || text === undefined) continue;
    try {
      const value = forms[name].read(decodeURIComponent(text));
      if (value !== undefined) fields[name] = value;
    } catch {
      // A per cent sign that stands for nothing: not a value either.
    }
  }
  return fields;
};

/** A state: `now` has the fields, `set` changes some of them, `listen(f)` has f(now, names of what changed) called. */
export const new_state = () => {
  const listeners = [];
  const state = {
    now: {...structuredClone(in_address), ...not_in_address},
    set(changes) {
      const changed = new Set();
      for (const [name, value] of Object.entries(changes)) {
        const kept = state.now[name];
        if (name in in_address ? same(value, kept) : value === kept) continue;
        state.now[name] = value;
        changed.add(name);
      }
      if (changed.has('views')) state.now.active = Math.min(state.now.active, state.now.views.length - 1);
      if (changed.size > 0) for (const listener of listeners) listener(state.now, changed);
    },
    listen(listener) {
      listeners.push(listener);
    },
  };
  return state;
};

/** The page's state. */
export const state = new_state();

/** Takes the state from the address, and keeps the address true, written four times a second at most. */
export const keep_in_address = (kept = state) => {
  const written_every = 250;
  // What is none of the page's own addresses changes nothing.
  const read = () => {
    const parts = location.hash.slice(1).split('&').map((part) => part.split('='));
    const known = parts.some(([name, text]) => text !== undefined && Object.hasOwn(forms, name));
    if (known || location.hash === '') kept.set(from_fragment(location.hash));
  };
  let timer = null;
  read();
  addEventListener('hashchange', read);
  kept.listen((now, changed) => {
    if (timer !== null || ![...changed].some((name) => name in in_address)) return;
    timer = setTimeout(() => {
      timer = null;
      const fragment = to_fragment(kept.now);
      if (location.hash.slice(1) !== fragment) {
        history.replaceState(null, '', fragment ? '#' + fragment : location.pathname);
      }
    }, written_every);
  });
};

/** The address that shows the same, also with the `ends` of the scales, to others, who need a token of their own. */
export const shared_address = (ends) =>
    location.origin + location.pathname + '#' + to_fragment({...state.now, ...ends});
