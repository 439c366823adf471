// Values of the pixel under the pointer, exact ones of the frame that is shown, and its surroundings.

import {say} from './elements.js';
import {draw_loupe, loupe_cells} from './loupe.js';
import {full_scale, signed_scale} from './painting.js';
import {parts_of, sample_name} from './quantities.js';
import {planes_for} from './scales.js';
import {ask_frame, Refusal} from './source.js';
import {view_titles} from './state.js';
import {angle_text, degree_text, s0_text} from './values.js';

const value_planes = ['s0', 'azimuth', 'dolp', 's1_s0', 's2_s0', 'raw', 'validity'];
const reach = (loupe_cells - 1) / 2;
// While frames play nobody reads faster.
const playing_pause = 100;
const retry_after = 1000;
const flags = [[1, 'saturated'], [2, 'below dark'], [4, 'bad pixel'], [8, 'weak']];

const flag_text = (validity) =>
    validity === 0 ? 'valid' : flags.filter(([flag]) => validity & flag).map(([, text]) => text).join(', ');

/** [name, label, integer, text] of each value of the pixel `index` of an answer. */
export const pixel_values = (planes, index, pixel, source) => {
  const at = (name) => planes[name]?.[index];
  const analyser = source.mosaic[pixel.row % 2][pixel.column % 2];
  const signed = (name) => (at('s0') === 0 ? 'none' : (at(name) / signed_scale).toFixed(4));
  const values = [
    ['s0', 'S0', at('s0'), s0_text(at('s0'), source.s0_unit)],
    ['azimuth', 'Angle', at('azimuth'), angle_text(at('azimuth'), at('dolp'), full_scale)],
    ['dolp', 'Degree', at('dolp'), degree_text(at('dolp'), at('s0'), full_scale)],
    ['s1_s0', 'S1/S0', at('s1_s0'), signed('s1_s0')],
    ['s2_s0', 'S2/S0', at('s2_s0'), signed('s2_s0')],
    ['raw', `${sample_name('Sample', source)}, analyser ${analyser}°`, at('raw'), String(at('raw'))],
  ];
  if (planes.validity) values.push(['validity', 'Validity', at('validity'), flag_text(at('validity'))]);
  return values;
};

const place_of = ({row, column}) => `row ${row}, column ${column}`;

/** Shows them in #readout. */
export const attach_readout = (state, views, painter) => {
  const root = document.getElementById('readout');
  const list = document.getElementById('values');
  const loupes = document.getElementById('loupes');
  const place_text = document.getElementById('place-text');
  let asked = '';
  let busy = false;

  const show_values = (values) => {
    while (list.childElementCount > 2 * values.length) list.lastElementChild.remove();
    values.forEach(([name, label, integer, text], index) => {
      if (!list.children[2 * index]) {
        list.append(document.createElement('dt'), document.createElement('dd'));
      }
      const [key, value] = [list.children[2 * index], list.children[2 * index + 1]];
      key.textContent = label;
      value.textContent = text;
      value.dataset.name = name;
      value.dataset.value = integer;
    });
  };

  const show_loupes = ({header, planes}, names, pixel) => {
    while (loupes.childElementCount > names.length) loupes.lastElementChild.remove();
    const pixels = new Uint32Array(header.width * header.height);
    names.forEach((name, index) => {
      if (!loupes.children[index]) {
        const figure = document.createElement('figure');
        const canvas = document.createElement('canvas');
        canvas.width = canvas.height = 8 * loupe_cells;
        figure.append(canvas, document.createElement('figcaption'));
        loupes.append(figure);
      }
      const [canvas, caption] = loupes.children[index].children;
      caption.textContent = view_titles[name].replace(/, .*|Intensity | of polari.*| mosaic|Analyser /, '');
      painter.paint(name, planes, pixels, views.tops(), state.now.map);
      draw_loupe(canvas, (x, y) => {
        const column = pixel.column + x - header.region[0];
        const row = pixel.row + y - header.region[1];
        if (row < 0 || column < 0 || row >= header.height || column >= header.width) return null;
        const colour = pixels[row * header.width + column];
        return [colour & 255, (colour >> 8) & 255, (colour >> 16) & 255];
      });
    });
  };

  const ask = async (pixel, number) => {
    const {loupe, views: names} = state.now;
    // What is shown may be another once the answer is here.
    const loupe_names = loupe ? [...new Set(names.flatMap(parts_of))] : [];
    const around = loupe ? reach : 0;
    const column = Math.max(0, pixel.column - around);
    const row = Math.max(0, pixel.row - around);
    const region = [column, row, pixel.column + around + 1 - column, pixel.row + around + 1 - row];
    const planes = new Set([...value_planes, ...(loupe ? planes_for(names, false) : [])]);
    const answer = await ask_frame({number, region: region.join(), scale: 1, planes: [...planes].join()});
    const {header} = answer;
    if (pixel.row >= header.frame_height || pixel.column >= header.frame_width) throw new Refusal(404, 'The frame is smaller.');
    const index = (pixel.row - row) * header.width + pixel.column - column;
    say(place_text, place_of(pixel));
    show_values(pixel_values(answer.planes, index, pixel, state.now.source));
    show_loupes(answer, loupe_names, pixel);
    Object.assign(root.dataset, {row: pixel.row, column: pixel.column, number, state: 'ready'});
  };

  /** What is there belongs to another frame or pixel. */
  const show_none = (pixel, refusal) => {
    root.dataset.state = 'failed';
    list.replaceChildren();
    loupes.replaceChildren();
    say(place_text, place_of(pixel) + (refusal.status === 404 ? ', not in this frame' : ''));
  };

  const follow = async () => {
    const {pointer, header, loupe, views: names, map} = state.now;
    const wanted = JSON.stringify([pointer, header?.number, loupe, names, map, views.tops()]);
    if (busy || !pointer || !header || wanted === asked) return;
    busy = true;
    asked = wanted;
    let pause = state.now.playing ? playing_pause : 0;
    try {
      await ask(pointer, header.number);
    } catch (error) {
      // Its pictures say what is wrong; of a camera's frame that is gone the next one is asked.
      if (error.status === undefined) throw error;
      show_none(pointer, error);
      if (error.status === 0) {
        asked = '';
        pause = retry_after;
      }
    } finally {
      setTimeout(() => {
        busy = false;
        follow();
      }, pause);
    }
  };

  state.listen((now, changed) => {
    const reasons = ['pointer', 'header', 'loupe', 'views', 'map', 's0_top', 'degree_top', 'raw_top'];
    // Values that change with each frame would be read out without end.
    if (changed.has('playing')) list.setAttribute('aria-live', now.playing ? 'off' : 'polite');
    if (reasons.some((name) => changed.has(name))) {
      if (changed.has('pointer')) root.dataset.state = 'waiting';
      follow();
    }
  });
};
