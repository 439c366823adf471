// The frames behind the wanted one, asked for while a recording plays: the program makes them while the
// wanted one is sent and painted. Each is used, or dropped when something else is wanted, and there are two at
// most, so nothing queues up.

import {frame_after} from './player.js';

/** Frames from one to another; where frames repeat, the first follows the last. */
export const distance = (from, to, {source, loop}) =>
    loop ? (to - from + source.frames) % source.frames : to - from;

/** `ask(parameters, signal)` gives an answer, like ask_frame. */
export const new_ahead = (state, ask) => {
  // In the order in which they are shown.
  let asked = [];
  let wanted_last = 0;
  let shape_last = '';
  // Frames between the last that were wanted. The lesser is asked ahead: what comes late by no more than
  // the greater is still of use, what is too far ahead is not.
  let steps = [1, 1];

  // Where every frame is shown, a second one makes up for one that comes late. Where frames are left out, it
  // would only be older when it is shown.
  const most = () => (state.now.every ? 2 : 1);
  const step = () => (state.now.every ? 1 : Math.max(1, Math.min(...steps)));
  const leaps = () => state.now.playing && !state.now.every;
  const is_late = (frames) => frames === 0 || (leaps() && frames > 0 && frames <= Math.max(...steps));
  const is_early = (frames) => state.now.playing && frames > 0 && frames <= most() * step();

  return {
    /**
     * A promise of the answer for the wanted frame, or for one little before it; of null if it could
     * not be had. Null, without a promise, if it was not asked for.
     */
    taken({shape, parameters}) {
      const fitting = asked.filter((one) => one.shape === shape);
      const kept = fitting.filter(({number}) => is_early(distance(parameters.number, number, state.now)));
      const taken = fitting.findLast((one) => !kept.includes(one) &&
          is_late(distance(one.number, parameters.number, state.now)));
      for (const one of asked) {
        if (one !== taken && !kept.includes(one)) one.road.abort();
      }
      asked = kept;
      return taken?.answer ?? null;
    },
    /** Asks for the frames behind the wanted one. */
    ask({shape, parameters}) {
      const {source, playing, loop} = state.now;
      if (source.kind !== 'recording') return;
      const since = distance(wanted_last, parameters.number, state.now);
      if (since !== 0) steps = [steps[1], since];
      wanted_last = parameters.number;
      // While another part is wanted each time, a second one would be made in vain.
      const count = shape === shape_last ? most() : 1;
      shape_last = shape;
      if (!playing) return;
      while (asked.length < count) {
        const last = asked.at(-1)?.number ?? parameters.number;
        const number = frame_after(last, step(), source.frames, loop);
        if (number === last || number === parameters.number) return;
        const road = new AbortController();
        // Why it failed shows when it is asked for as the wanted one.
        const answer = ask({...parameters, number}, road.signal).catch(() => null);
        asked.push({number, shape, road, answer});
      }
    },
  };
};
