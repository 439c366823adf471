// The frame behind the wanted one, asked for while a recording plays: the program makes it while the
// wanted one is sent and painted. There is one at most, and it is used or dropped, so nothing queues up.

import {frame_after} from './player.js';

/** Frames from one to another; where frames repeat, the first follows the last. */
export const distance = (from, to, {source, loop}) =>
    loop ? (to - from + source.frames) % source.frames : to - from;

/** `ask(parameters, signal)` gives an answer, like ask_frame. */
export const new_ahead = (state, ask) => {
  let asked = null;
  let wanted_last = 0;
  // Frames between the last that were wanted. The lesser is asked ahead: what comes late by no more than
  // the greater is still of use, what is too far ahead is not.
  let steps = [1, 1];

  const step = () => (state.now.every ? 1 : Math.max(1, Math.min(...steps)));
  const leaps = () => state.now.playing && !state.now.every;
  const is_late = (frames) => leaps() && frames > 0 && frames <= Math.max(...steps);
  const is_early = (frames) => leaps() && frames > 0 && frames <= step();

  return {
    /**
     * A promise of the answer for the wanted frame, or for one little before it; of null if it could
     * not be had. Null, without a promise, if it was not asked for.
     */
    taken({shape, parameters}) {
      if (!asked) return null;
      const {number, answer, road} = asked;
      const fits = asked.shape === shape;
      if (fits && is_early(distance(parameters.number, number, state.now))) return null;
      asked = null;
      if (fits && (number === parameters.number || is_late(distance(number, parameters.number, state.now)))) {
        return answer;
      }
      road.abort();
      return null;
    },
    /** Asks for the frame behind the wanted one. */
    ask({shape, parameters}) {
      const {source, playing, loop} = state.now;
      if (source.kind !== 'recording') return;
      const since = distance(wanted_last, parameters.number, state.now);
      if (since !== 0) steps = [steps[1], since];
      wanted_last = parameters.number;
      if (!playing || asked) return;
      const number = frame_after(parameters.number, step(), source.frames, loop);
      if (number === parameters.number) return;
      const road = new AbortController();
      // Why it failed shows when it is asked for as the wanted one.
      const answer = ask({...parameters, number}, road.signal).catch(() => null);
      asked = {number, shape, road, answer};
    },
  };
};
