// Files of what is shown: a picture with its scales, and the numbers of what is held.

import {most_points} from './charts.js';
import {element, say} from './elements.js';
import {measured, region_of, title_of} from './held.js';
import {box_of} from './marks.js';
import {mark_flags, mark_texts, paint_marks} from './painting.js';
import {is_of_samples, quantities, sample_name} from './quantities.js';
import {view_titles} from './state.js';

/** A field of RFC 4180. */
const field = (value) => {
  const text = value === null || value === undefined ? '' : String(value);
  return /[",\r\n]/.test(text) ? `"${text.replaceAll('"', '""')}"` : text;
};

/** A name as no program for tables takes it for a formula. */
const plain_name = (name) => (/^[=+\-@\t\r]/.test(name) ? "'" + name : name);

/** Lines of RFC 4180 of rows of values. */
export const csv_of = (rows) => rows.map((row) => row.map(field).join(',') + '\r\n').join('');

/**
 * Rows of numbers: a header with units, and for each of `series` ({title, item, frames}) and each
 * frame that it was measured in, by the frames, one row. Headings tell what was done to samples of `source`.
 */
export const rows_of = (series, source) => {
  const units = {};
  for (const {frames} of series) {
    for (const {of} of frames) for (const [name, value] of Object.entries(of)) units[name] ??= value.unit ?? '';
  }
  const statistics = ['mean', 'deviation', 'least', 'largest'];
  const heading = (name, statistic) => `${name === 'raw' ? sample_name(name, source) : name} ${statistic}` + (units[name] && units[name] !== '1' ? ` [${units[name]}]` : '');
  const header = [
    'frame', 'camera time [ns]', 'name', 'column', 'row', 'width', 'height', 'pixels',
    'valid pixels (neither saturated nor below dark nor bad; all figures are of these)',
    ...measured.flatMap(({name}) => statistics.map((statistic) => heading(name, statistic))),
  ];
  const rows = series.flatMap(({title, item, frames}, index) => frames.map((frame) => ({
    order: [frame.number, index],
    row: [
      frame.number, frame.time, plain_name(title), ...region_of(item), frame.pixels, frame.valid,
      ...measured.flatMap(({name}) => statistics.map((statistic) => frame.of[name]?.[statistic] ?? null)),
    ],
  })));
  rows.sort((one, other) => one.order[0] - other.order[0] || one.order[1] - other.order[1]);
  return [header, ...rows.map(({row}) => row)];
};

/** A name for a file about `source` and a frame of it, of characters that every system takes. */
export const file_name = (source, number, rest) => {
  const stem = (source ?? 'view').replace(/^.*[\\/]/, '').replace(/\.[A-Za-z0-9]{1,5}$/, '');
  const plain = stem.replace(/[^A-Za-z0-9._-]+/g, '_').replace(/^[._]+/, '').slice(0, 80) || 'view';
  return `${plain}_${String(number).padStart(6, '0')}${rest}`;
};

const save = (blob, name) => {
  const address = URL.createObjectURL(blob);
  element('a', {href: address, download: name}).click();
  // The download has begun by then, and a blob kept is memory lost.
  setTimeout(() => URL.revokeObjectURL(address), 10000);
};

const ink = '#1f2328';
const outline = '#b8b4ab';
const title_height = 26;
const legend_height = 44;
const bar_height = 14;
const most_bar = 320;
const mark_height = 18;
const gap = 12;
const full_scale = 65535;

/** Texts at the ends of a quantity's scale, and between them. */
export const texts_of = (quantity, now, tops) => {
  const degree = String(Number((tops.degree / full_scale).toPrecision(3)));
  if (quantity.colours === 'angle') {
    // The second map's angles differ in brightness too: without a degree all of them are of one grey.
    const [none, full] = now.map === 'second' ? ['grey', 'full colour'] : ['dark', 'bright'];
    const more = tops.degree < full_scale ? ' and more' : '';
    return ['0°', quantity.scale ? `${none}: degree 0, ${full}: ${degree}${more}` : '', '180°'];
  }
  if (quantity.colours === 'signed') return ['−' + degree, '0', degree];
  if (quantity.colours === 'degree') return ['0', '', degree];
  const top = quantity.scale === 's0' ? tops.s0 * now.source.s0_unit : tops.raw;
  return ['0', '', `${Number(top.toPrecision(4))} sample units`];
};

/** Red, green and blue of the colours of a bar `width` x `height`: of angles, the degree upwards. */
const bar_of = (quantity, {map}, colours, width, height) => {
  const angle = quantity.colours === 'angle';
  const name = angle && map === 'second' ? 'angle_second' : quantity.colours;
  const table = Uint8Array.from(atob(colours[name]), (letter) => letter.charCodeAt(0));
  const {hues, levels} = colours;
  const image = new ImageData(width, height);
  for (let row = 0; row < height; ++row) {
    const level = quantity.scale ? Math.round((1 - row / (height - 1)) * (levels - 1)) : levels - 1;
    for (let column = 0; column < width; ++column) {
      const share = column / (width - 1);
      const index = angle ? (Math.round(share * hues) % hues) * levels + level
                          : Math.round(share * (table.length / 3 - 1));
      image.data.set(table.subarray(3 * index, 3 * index + 3), 4 * (row * width + column));
      image.data[4 * (row * width + column) + 3] = 255;
    }
  }
  return image;
};

/** A bar of a quantity's colours with its texts, with its upper left corner at (x, y). */
const draw_legend = (context, now, page, quantity, x, y, width) => {
  context.putImageData(bar_of(quantity, now, page.colours, width, bar_height), x, y);
  context.strokeStyle = outline;
  context.lineWidth = 1;
  context.strokeRect(x - 0.5, y - 0.5, width + 1, bar_height + 1);
  const texts = texts_of(quantity, now, page.views.tops());
  context.fillStyle = ink;
  ['left', 'center', 'right'].forEach((side, index) => {
    context.textAlign = side;
    context.fillText(texts[index], x + (index * width) / 2, y + bar_height + 14);
  });
  context.textAlign = 'left';
};

/** What is held, over a picture whose canvas lies at (left, top). */
const draw_held = (context, held, parts, left, top) => {
  for (const part of parts) {
    context.save();
    context.beginPath();
    context.rect(left + part.x, top + part.y, part.width, part.height);
    context.clip();
    held.forEach((item, index) => {
      const {x, y, width, height} = box_of(region_of(item), part);
      for (const [colour, thick] of [['#000', 3], ['#fff', 1]]) {
        context.strokeStyle = colour;
        context.lineWidth = thick;
        context.strokeRect(left + x, top + y, width, height);
      }
      context.lineWidth = 3;
      context.strokeStyle = '#000';
      context.fillStyle = '#fff';
      context.strokeText(String(index + 1), left + x + width + 3, top + y);
      context.fillText(String(index + 1), left + x + width + 3, top + y);
    });
    context.restore();
  }
};

/** Names of the parts of a picture of several, each in its lower left corner. */
const draw_names = (context, parts, left, top) => {
  for (const {name, x, y, height} of parts) {
    context.fillStyle = 'rgb(0 0 0 / 60%)';
    context.fillRect(left + x, top + y + height - 18, context.measureText(view_titles[name]).width + 12, 18);
    context.fillStyle = '#fff';
    context.fillText(view_titles[name], left + x + 6, top + y + height - 5);
  }
};

/** What the stripes over the pictures mean, with its upper left corner at (x, y). */
const draw_marks = (context, x, y) => {
  const size = {width: 22, height: 12};
  for (const [name, flag] of Object.entries(mark_flags)) {
    const image = new ImageData(size.width, size.height);
    const validity = new Uint8Array(size.width * size.height).fill(flag);
    paint_marks(validity, {...size, region: [0, 0], scale: 1}, new Uint32Array(image.data.buffer));
    context.putImageData(image, x, y);
    context.fillStyle = ink;
    context.fillText(mark_texts[name], x + size.width + 7, y + size.height - 1);
    y += mark_height;
  }
};

/** The pictures as they are shown, with titles, scales, what is held, the source and the number. */
export const picture_of = (now, page) => {
  const shown = page.views.all.slice(0, now.views.length);
  const width = Math.max(...shown.map(({canvas}) => canvas.width), most_bar);
  const height = Math.max(...shown.map(({canvas}) => canvas.height)) + title_height + legend_height;
  const columns = shown.length > 1 ? 2 : 1;
  const made = element('canvas', {
    width: columns * (width + gap) + gap,
    height: Math.ceil(shown.length / columns) * (height + gap) + gap + title_height + (now.overlay ? 2 * mark_height : 0),
  });
  const context = made.getContext('2d');
  context.fillStyle = '#fff';
  context.fillRect(0, 0, made.width, made.height);
  context.fillStyle = ink;
  context.font = 'bold 15px system-ui, sans-serif';
  const frame = `frame ${now.header.number}`;
  const name = now.header.name || now.source.name;
  const about = now.source.kind === 'frame' || name.endsWith(frame) ? name : `${name}, ${frame}`;
  context.fillText(about, gap, gap + 12, made.width - 2 * gap);
  context.font = '13px system-ui, sans-serif';
  shown.forEach(({canvas}, index) => {
    const view = now.views[index];
    const x = gap + (index % columns) * (width + gap);
    const y = gap + title_height + Math.floor(index / columns) * (height + gap);
    context.fillStyle = ink;
    const title = view_titles[view];
    context.fillText(is_of_samples(view) ? sample_name(title, now.source) : title, x, y + 14);
    context.drawImage(canvas, x, y + title_height);
    const parts = page.views.parts().filter((part) => part.view === shown[index]);
    if (parts.length > 1) draw_names(context, parts, x, y + title_height);
    draw_held(context, now.held, parts, x, y + title_height);
    draw_legend(context, now, page, quantities[view], x, y + title_height + canvas.height + 6, most_bar);
  });
  if (now.overlay) draw_marks(context, gap, made.height - gap - 2 * mark_height);
  return made;
};

/** Buttons in `place`, and what they and the keys do. */
export const attach_saving = (state, page, held, place) => {
  const name = (header, rest) => file_name(state.now.source?.name, header?.number ?? 0, rest);
  const said = element('span', {class: 'said', role: 'status'});
  // Asked for, and saved with the first drawing of all that its title and scales tell of.
  let awaited = false;
  const drawn = () => {
    if (!awaited) return;
    const header = page.views.settled();
    awaited = header === null && !page.views.has_failed();
    say(said, awaited ? 'The picture is saved as soon as all of it is there.'
        : header === null ? 'Not saved: there is no such picture of this frame.' : '');
    if (header === null) return;
    const now = {...state.now, header};
    picture_of(now, page).toBlob((blob) => save(blob, name(header, `_${now.views.join('_')}.png`)));
  };
  page.views.on_drawn(drawn);
  state.listen((now, changed) => {
    if (!awaited) return;
    // Another picture than the one that was asked for comes now.
    if (changed.has('views') || changed.has('playing') || (!now.playing && changed.has('number'))) {
      awaited = false;
      say(said, 'Not saved: the picture was not there yet.');
    } else if (changed.has('failed')) {
      page.views.redraw();
    }
  });
  const saving = {
    picture() {
      if (state.now.header === null || state.now.source === null) return;
      awaited = true;
      page.views.redraw();
    },
    numbers() {
      const {header, playing, source} = state.now;
      const lacking = [];
      const forgotten = [];
      const series = state.now.held.map((item, index) => {
        const title = title_of(item, index);
        const record = held.record(item);
        const frames = record.in_order();
        if (record.has_forgotten()) forgotten.push(title);
        // Frames that play by are left out by intention.
        if (header && !(playing ? record.last() : record.at(header.number))) {
          frames.push({number: header.number, time: null, pixels: null, valid: null, of: {}});
          lacking.push(title);
        }
        return {title, item, frames};
      });
      const parts = [
        series.length === 0 && 'Nothing is held.',
        lacking.length > 0 && `Saved without numbers of ${lacking.join(', ')} in frame ${header.number}.`,
        forgotten.length > 0 && `Saved with the last ${most_points} frames of ${forgotten.join(', ')}; none before are kept.`,
      ];
      said.textContent = parts.filter(Boolean).join(' ');
      if (series.length > 0) save(new Blob([csv_of(rows_of(series, source))], {type: 'text/csv'}), name(header, '_held.csv'));
    },
  };
  const button = (text, title, run) => element('button', {type: 'button', title}, [text], {click: run});
  place.append(
      button('Save picture', 'Save the pictures with their scales (s)', saving.picture),
      button('CSV', 'Save the numbers of what is held as CSV (c)', saving.numbers),
      said);
  return saving;
};
