// Which frame of a recording is wanted when, and whether a camera's newest frame is followed.

import {element, paced, say} from './elements.js';
import {limited, speeds} from './state.js';

const usual_rate = 30;

/** The frame `steps` after `number`: past an end, the other one where frames repeat, or else that end. */
export const frame_after = (number, steps, frames, loop) =>
    loop ? (((number + steps) % frames) + frames) % frames : limited(number + steps, 0, frames - 1);

// In ms. The screen is drawn at times of its own; what becomes due this little later counts as due, or else frames
// as frequent as its pictures would come now before one of them and now behind it.
const soon = 4;

/** Frames that are due since `anchor` ({time in ms, number}) was shown, at `rate` frames/s. */
export const frames_due = (anchor, time, rate) =>
    Math.max(0, Math.floor(((time + soon - anchor.time) * rate) / 1000));

/**
 * When the frame after `anchor`, wanted at `time`, begins to have its time on the screen, where every frame is shown.
 * Lateness is made up for, so that the rate is kept, but no more of it than a frame's time.
 */
export const due_time = (anchor, time, rate) => Math.max(anchor.time + 1000 / rate, time - 1000 / rate);

const rate_of = ({source, speed}) => (source.rate || usual_rate) * speed;

/**
 * What a playing recording wants next: {number, ended}. `shown` says that the wanted frame is on the
 * screen, and measured where something is held; frames are left out unless `every` is set.
 */
export const next_frame = (now, anchor, time, shown) => {
  const frames = now.source.frames;
  const rate = rate_of(now);
  const due = frames_due(anchor, time, rate);
  const steps = now.every ? Math.min(due, shown ? 1 : 0) : due;
  const number = now.every ? now.number : anchor.number;
  const ended = !now.loop && shown && due > 0 && now.number === frames - 1;
  return {number: ended ? now.number : frame_after(number, steps, frames, now.loop), ended};
};

const is_shown = (now) =>
    now.failed === now.number ||
    (now.header?.number === now.number &&
        (!now.every || now.held.length === 0 || now.measured === now.number));

/** What keys and buttons do; `element` gets the buttons. */
export const attach_player = (state, place) => {
  let anchor = null;
  let own = false;

  const tick = () => {
    const now = state.now;
    if (!now.playing || now.source?.kind !== 'recording') return;
    const time = performance.now();
    anchor ??= {time, number: now.number};
    const next = next_frame(now, anchor, time, is_shown(now));
    if (next.ended) {
      state.set({playing: false});
      return;
    }
    if (next.number === now.number) return;
    if (now.every) anchor = {time: due_time(anchor, time, rate_of(now)), number: next.number};
    own = true;
    state.set({number: next.number});
    own = false;
  };
  let running = false;
  const run = () => {
    tick();
    running = state.now.playing;
    if (running) requestAnimationFrame(run);
  };

  const camera = () => state.now.source?.kind === 'camera';
  const frames = () => state.now.source?.frames ?? 1;
  const last_shown = () => state.now.header?.number ?? 0;
  const player = {
    toggle() {
      const now = state.now;
      if (camera()) {
        state.set(now.playing ? {playing: false, number: last_shown()} : {playing: true});
      } else if (now.source?.kind === 'recording') {
        const again = !now.playing && !now.loop && now.number === frames() - 1;
        state.set({playing: !now.playing, ...(again ? {number: 0} : {})});
      }
    },
    step(steps) {
      if (camera()) return;
      const number = frame_after(state.now.number, steps, frames(), state.now.loop);
      state.set({playing: false, number});
    },
    go(number) {
      if (!camera()) state.set({number: limited(number, 0, frames() - 1)});
    },
    last: () => player.go(frames() - 1),
    faster(steps) {
      const index = speeds.indexOf(state.now.speed) + steps;
      state.set({speed: speeds[limited(index, 0, speeds.length - 1)]});
    },
    every: () => state.set({every: !state.now.every}),
    loop: () => state.set({loop: !state.now.loop}),
    ask_number() {
      controls.number.focus();
      controls.number.select();
    },
  };
  const controls = buttons(player, state, place);

  state.listen((now, changed) => {
    if (changed.has('source') && now.source) {
      if (camera()) state.set({playing: true});
      else if (frames() === 1) state.set({playing: false});
    }
    // An address may name a frame that is not there.
    if (['source', 'number'].some((name) => changed.has(name)) && now.source && !camera()) {
      state.set({number: limited(now.number, 0, frames() - 1)});
    }
    if (changed.has('number') && !own) anchor = null;
    if (['playing', 'speed', 'every', 'loop', 'source'].some((name) => changed.has(name))) anchor = null;
    // An address may have it playing before there is a source.
    if (now.playing && now.source !== null && !running) {
      running = true;
      requestAnimationFrame(run);
    }
    if (['header', 'measured', 'failed'].some((name) => changed.has(name))) tick();
  });
  state.listen(paced(controls.show));
  controls.show(state.now);
  return player;
};

const speed_texts = {0.125: '⅛ ×', 0.25: '¼ ×', 0.5: '½ ×'};

/** Buttons and fields of the player in `place`; `show(now)` has them say what is so. */
const buttons = (player, state, place) => {
  const button = (text, label, run, key) =>
      element('button', {type: 'button', 'aria-label': label, title: `${label} (${key})`}, [text], {click: run});
  const check = (text, key, run) => {
    const input = element('input', {type: 'checkbox', title: `${text} (${key})`}, [], {change: run});
    return [input, element('label', {}, [input, ' ' + text])];
  };
  const play = button('Play', 'Play', () => player.toggle(), 'Space');
  const slider = element('input', {type: 'range', min: 0, step: 1, 'aria-label': 'Frame'}, [], {
    input: () => player.go(Number(slider.value)),
  });
  const number = element('input', {type: 'number', min: 0, step: 1, 'aria-label': 'Number of the frame', title: 'Number of the frame (g)'}, [], {
    change: () => {
      if (number.value !== '') player.go(Math.round(Number(number.value)));
      number.value = state.now.number;
    },
    blur: () => (number.value = state.now.number),
  });
  const of = element('span', {class: 'of'});
  const speed = element('select', {'aria-label': 'Speed', title: 'Speed ([ and ])'},
      speeds.map((value) => element('option', {value}, [speed_texts[value] ?? `${value} ×`])),
      {change: () => state.set({speed: Number(speed.value)})});
  const [every, every_label] = check('every frame', 'e', () => player.every());
  const [loop, loop_label] = check('repeat', 'r', () => player.loop());
  const of_recordings = [
    button('|◀', 'First frame', () => player.go(0), 'Home'),
    button('◀', 'One frame back', () => player.step(-1), ','),
    button('▶', 'One frame on', () => player.step(1), '.'),
    button('▶|', 'Last frame', () => player.last(), 'End'),
    slider, number, of, speed, every_label, loop_label,
  ];
  place.append(of_recordings[0], of_recordings[1], play, ...of_recordings.slice(2));

  const show = (now) => {
    const kind = now.source?.kind;
    place.hidden = kind !== 'camera' && !(kind === 'recording' && now.source.frames > 1);
    for (const part of of_recordings) part.hidden = kind === 'camera';
    const names = kind === 'camera' ? ['Go on', 'Freeze'] : ['Play', 'Pause'];
    const name = names[Number(now.playing)];
    say(play, name);
    play.setAttribute('aria-label', name);
    play.title = name + ' (Space)';
    const last = (now.source?.frames ?? 1) - 1;
    slider.max = number.max = last;
    slider.value = now.number;
    if (document.activeElement !== number) number.value = now.number;
    say(of, `of 0 to ${last}`);
    speed.value = now.speed;
    every.checked = now.every;
    loop.checked = now.loop;
  };
  return {number, show};
};
