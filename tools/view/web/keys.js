// The keys, and the list of them.

import {element} from './elements.js';
import {is_within, place_in} from './geometry.js';
import {view_titles} from './state.js';

const enlarged = Math.SQRT2;
const pan_share = 1 / 8;
const names = Object.keys(view_titles);
const names_with_digit = names.slice(0, 9);

/** Where the pointer's pixel is in the active picture, or undefined where it is not seen. */
const seen_pointer = ({now}, views) => {
  const part = views.parts().find(({view}) => view === views.all[now.active]);
  if (!part || !now.pointer) return undefined;
  const place = place_in(part, now.pointer);
  return is_within(part, place) ? {view: part.view, ...place} : undefined;
};

/** What keys do, in the order of the list: {keys, group, text, run}; `run` is given the key. */
export const new_keys = ({state, views, toolbar, player, held, saving, help}) => {
  const point = (rows, columns) => {
    const frame = state.now.header;
    if (frame === null) return;
    const middle = [frame.frame_width / 2, frame.frame_height / 2];
    const [x, y] = state.now.pointer ? [state.now.pointer.column, state.now.pointer.row]
                                     : state.now.centre ?? middle;
    views.point(Math.floor(y) + rows, Math.floor(x) + columns);
  };
  const choose = (name) => {
    const chosen = [...state.now.views];
    chosen[state.now.active] = name;
    state.set({views: chosen});
  };
  const next_view = (steps) => {
    const index = names.indexOf(state.now.views[state.now.active]);
    choose(names[(index + steps + names.length) % names.length]);
  };
  const next_active = (steps) => {
    const count = state.now.views.length;
    state.set({active: (state.now.active + steps + count) % count});
  };
  const zoom = (by) => views.zoom(by, seen_pointer(state, views));
  const arrows = {ArrowUp: [-1, 0], ArrowDown: [1, 0], ArrowLeft: [0, -1], ArrowRight: [0, 1]};
  const moves = {h: [-1, 0], j: [0, 1], k: [0, -1], l: [1, 0]};

  return [
    {group: 'Pixel', keys: Object.keys(arrows), text: 'point at the next pixel (with Shift: the tenth)',
     run: (key, shift) => point(...arrows[key].map((step) => step * (shift ? 10 : 1)))},
    {group: 'Pixel', keys: ['Enter'], text: 'hold the pixel', run: () => held.hold_pixel()},
    {group: 'Pixel', keys: ['b'], text: 'a corner of a region is here; again: the opposite one', run: () => held.corner()},
    {group: 'Pixel', keys: ['x'], text: 'remove the last pixel or region that is held', run: () => held.remove()},
    {group: 'Pixel', keys: ['t', 'T'], text: 'next or previous quantity of the time line',
     run: (key) => held.next_quantity(key === 't' ? 1 : -1)},
    {group: 'Pixel', keys: ['u'], text: 'loupe', run: () => state.set({loupe: !state.now.loupe})},
    {group: 'Pixel', keys: ['Escape'], text: 'give up a region, leave a field', run: () => held.give_up()},
    {group: 'Pictures', keys: ['q'], text: 'one picture or four', run: () => toolbar.arrange(state.now.views.length === 4 ? 1 : 4)},
    {group: 'Pictures', keys: ['w', 'W'], text: 'next or previous of four pictures',
     run: (key) => next_active(key === 'w' ? 1 : -1)},
    {group: 'Pictures', keys: ['v', 'V'], text: 'next or previous quantity in this picture',
     run: (key) => next_view(key === 'v' ? 1 : -1)},
    {group: 'Pictures', keys: names_with_digit.map((_, index) => String(index + 1)),
     text: names_with_digit.map((name, index) => `${index + 1} ${view_titles[name]}`).join(', '),
     run: (key) => choose(names_with_digit[Number(key) - 1])},
    {group: 'Pictures', keys: ['+', '='], text: 'larger', run: () => zoom(enlarged)},
    {group: 'Pictures', keys: ['-'], text: 'smaller', run: () => zoom(1 / enlarged)},
    {group: 'Pictures', keys: ['z'], text: 'a pixel of the frame for each of the screen',
     run: () => views.zoom_to(1, seen_pointer(state, views))},
    {group: 'Pictures', keys: ['f', '0'], text: 'the whole frame', run: () => views.fit()},
    {group: 'Pictures', keys: Object.keys(moves), text: 'move left, down, up, right', run: (key) => views.pan(...moves[key].map((step) => step * pan_share))},
    {group: 'Pictures', keys: ['m'], text: 'other colours for angles',
     run: () => state.set({map: state.now.map === 'hue' ? 'second' : 'hue'})},
    {group: 'Pictures', keys: ['o'], text: 'mark saturated and invalid pixels', run: () => state.set({overlay: !state.now.overlay})},
    {group: 'Frames', keys: [' '], text: 'play or pause; of a camera: freeze or go on', run: () => player.toggle()},
    {group: 'Frames', keys: [',', '.'], text: 'one frame back, one on', run: (key) => player.step(key === ',' ? -1 : 1)},
    {group: 'Frames', keys: ['<', '>'], text: 'ten frames back, ten on', run: (key) => player.step(key === '<' ? -10 : 10)},
    {group: 'Frames', keys: ['Home', 'End'], text: 'first or last frame',
     run: (key) => (key === 'Home' ? player.go(0) : player.last())},
    {group: 'Frames', keys: ['g'], text: 'type the number of a frame', run: () => player.ask_number()},
    {group: 'Frames', keys: ['[', ']'], text: 'slower, faster', run: (key) => player.faster(key === '[' ? -1 : 1)},
    {group: 'Frames', keys: ['e'], text: 'show every frame, however long it takes', run: () => player.every()},
    {group: 'Frames', keys: ['r'], text: 'repeat', run: () => player.loop()},
    {group: 'Files', keys: ['s'], text: 'save the pictures with their scales', run: () => saving.picture()},
    {group: 'Files', keys: ['c'], text: 'save the numbers of what is held as CSV', run: () => saving.numbers()},
    {group: 'Files', keys: ['y'], text: 'copy the address of what is shown', run: () => document.getElementById('copy-address').click()},
    {group: 'Files', keys: ['?'], text: 'this list', run: () => help.toggle()},
  ];
};

const typed_into = 'select, textarea, input:not([type=checkbox], [type=range], [type=button])';
const own_keys = [
  ['button, summary, a[href]', [' ', 'Enter']],
  ['input[type=checkbox]', [' ']],
  ['input[type=range]', ['ArrowUp', 'ArrowDown', 'ArrowLeft', 'ArrowRight', 'Home', 'End', 'PageUp', 'PageDown']],
];

/** Whether a key that is pressed in an element means something to that element. */
export const belongs_to = (target, key) => {
  if (!(target instanceof Element)) return false;
  if (target.matches(typed_into) || target.isContentEditable) return true;
  return own_keys.some(([selector, keys]) => target.matches(selector) && keys.includes(key));
};

export const attach_keys = (tools) => {
  const list = new_keys(tools);
  const by_key = new Map(list.flatMap((entry) => entry.keys.map((key) => [key, entry])));
  tools.help.fill(list);
  addEventListener('keydown', (event) => {
    const {key, target} = event;
    // With AltGr, which some systems tell as Ctrl and Alt, many keyboards give brackets.
    const other = (event.ctrlKey || event.altKey) && !event.getModifierState('AltGraph');
    if (event.defaultPrevented || other || event.metaKey || event.isComposing) return;
    if (belongs_to(target, key)) {
      if (key === 'Escape') target.blur();
      return;
    }
    const entry = by_key.get(key);
    // An open list is closed by its keys and takes no others.
    if (!entry || (tools.help.is_open() && key !== '?')) return;
    event.preventDefault();
    entry.run(key, event.shiftKey);
  });
};

const key_names = {
  ArrowUp: '↑', ArrowDown: '↓', ArrowLeft: '←', ArrowRight: '→', ' ': 'Space', Escape: 'Esc',
};

/** The list of the keys, in the dialog `place`. */
export const attach_help = (place, button) => {
  const help = {
    fill(list) {
      const groups = [...new Set(list.map(({group}) => group))];
      const entries = (group) => list.filter((entry) => entry.group === group).flatMap(({keys, text}) => [
        element('dt', {}, keys.map((key) => element('kbd', {}, [key_names[key] ?? key]))),
        element('dd', {}, [text]),
      ]);
      place.replaceChildren(
          element('div', {class: 'keys-head'}, [
            element('h2', {}, ['Keys']),
            element('button', {type: 'button'}, ['Close'], {click: () => place.close()}),
          ]),
          element('div', {class: 'keys-groups'}, groups.map(
              (group) => element('section', {}, [element('h3', {}, [group]), element('dl', {}, entries(group))]))),
          element('p', {class: 'hint'}, ['With a mouse: a click holds a pixel, a drag with Shift a region, a drag moves, the wheel enlarges.']));
    },
    toggle: () => (place.open ? place.close() : place.showModal()),
    is_open: () => place.open,
  };
  button?.addEventListener('click', help.toggle);
  return help;
};
