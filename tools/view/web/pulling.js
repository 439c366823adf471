// Frames for the pictures: one request at a time, and the next one asks for what is wanted then. So
// nothing queues up, however slow the road is. While a recording plays, the frames after the wanted one are
// asked for ahead.

import {new_ahead} from './ahead.js';
import {planes_for} from './scales.js';
import {ask_frame, ask_source, Refusal} from './source.js';

const retry_after = 1000;
const coarse_scale = 8;
// The program waits a second for a camera's next frame.
const least_silence = 800;
const let_go_pause = 200;
const gone_text = 'This frame is not kept any more, so no more of it can be seen. “Go on” shows the newest.';
const pause = (time) => new Promise((resolve) => setTimeout(resolve, time));

/** Runs as long as the page. `trouble(refusal or null)` tells the reader. */
export const start_pulling = (state, views, trouble) => {
  let troubled = false;
  const tell = (refusal) => {
    troubled = refusal !== null;
    trouble(refusal);
  };
  let wake = () => {};
  let waiting_for_new = null;
  const ahead = new_ahead(state, ask_frame);
  let shown = {number: -1, shape: ''};
  let failed = {number: -1, shape: ''};
  // Number of a camera's frame that will not come any more.
  let gone = null;
  // Number of a frame that has nothing where the last one was looked at: the frames differ in size.
  let smaller = null;

  // While no frame has told its size, what may be seen of one is all of it.
  const needed = () => {
    const {source, views: names, overlay} = state.now;
    const blind = {scale: coarse_scale, planes: planes_for(names, overlay)};
    return source && (views.needed() ?? (source.width === null ? blind : null));
  };

  /** Of a recording: what it was told about another frame is over once the wanted one is seen again. */
  const is_seen = () => {
    const {source, number} = state.now;
    return source !== null && source.kind !== 'camera' && shown.number === number &&
        shown.shape === JSON.stringify(needed());
  };

  const wanted = () => {
    const {source, playing, number} = state.now;
    const need = needed();
    if (!need) return null;
    const shape = JSON.stringify(need);
    const parameters = {region: need.region?.join(), scale: need.scale, planes: need.planes.join()};
    if (source.kind !== 'camera') {
      if ([shown, failed].some((last) => last.number === number && last.shape === shape)) return null;
      if (smaller === number) {
        return {shape, parameters: {number, scale: Math.max(need.scale, coarse_scale), planes: parameters.planes}};
      }
      return {shape, parameters: {number, ...parameters}};
    }
    if (!playing) {
      const still = shown.number >= 0 ? shown.number : number;
      if (gone === still || (shown.number >= 0 && shown.shape === shape)) return null;
      return {shape, parameters: {number: still, ...parameters}};
    }
    // What is shown is asked for again, finer or elsewhere, before the next frame is waited for.
    if (shown.number >= 0 && shown.shape !== shape) {
      return {shape, parameters: {number: shown.number, ...parameters}};
    }
    return {shape, parameters: {after: shown.number, ...parameters}, waits: shown.number >= 0};
  };

  const refused = async (refusal, want, elapsed) => {
    const {number} = want.parameters;
    if (refusal.status === 204) {
      // Where many look on, the program lets those wait no longer who have waited longest.
      if (elapsed < least_silence) {
        await pause(let_go_pause);
        return;
      }
      state.set({silent: true});
      const {reception} = await ask_source().catch(() => ({}));
      if (reception) state.set({reception});
      return;
    }
    // A frame is gone, and others have come; without a number it is the camera that is gone.
    if (refusal.status === 410 && number !== undefined) {
      if (state.now.playing) {
        shown = {number: -1, shape: ''};
      } else {
        gone = number;
        tell(new Refusal(410, gone_text));
        state.set({failed: number});
      }
      return;
    }
    if (refusal.status === 404 && want.parameters.region && state.now.source.kind !== 'camera') {
      smaller = number;
      return;
    }
    smaller = null;
    tell(refusal);
    if (refusal.status >= 400 && refusal.status < 500 && number !== undefined) {
      failed = {number, shape: want.shape};
      state.set({failed: number});
      if (state.now.source.kind !== 'camera') return;
    }
    await pause(retry_after);
  };

  const pull_one = async (want) => {
    waiting_for_new = want.waits ? new AbortController() : null;
    const begun = performance.now();
    try {
      const ask = () => ask_frame(want.parameters, waiting_for_new?.signal);
      const asked = ahead.taken(want) ?? ask();
      ahead.ask(want);
      const answer = (await asked) ?? (await ask());
      shown = {number: answer.header.number, shape: want.shape};
      failed = {number: -1, shape: ''};
      smaller = null;
      tell(null);
      if (want.parameters.after !== undefined) state.set({silent: false, reception: null});
      views.show(answer);
    } catch (error) {
      if (error.name === 'AbortError') return;
      if (error.status === undefined) throw error;
      await refused(error, want, performance.now() - begun);
    }
  };

  const run = async () => {
    for (;;) {
      const changed = new Promise((resolve) => (wake = resolve));
      const want = document.hidden ? null : wanted();
      if (want) {
        await pull_one(want);
        continue;
      }
      if (troubled && is_seen()) tell(null);
      await changed;
    }
  };
  const need_changed = () => {
    waiting_for_new?.abort();
    wake();
  };
  views.on_need(need_changed);
  document.addEventListener('visibilitychange', need_changed);
  return run();
};
