// Elements made by scripts.

/** An element with attributes (true: without a value; false, null: none), children and listeners. */
export const element = (name, attributes = {}, children = [], listeners = {}) => {
  const made = document.createElement(name);
  for (const [attribute, value] of Object.entries(attributes)) {
    if (value !== null && value !== false) made.setAttribute(attribute, value === true ? '' : value);
  }
  made.append(...children);
  for (const [event, listener] of Object.entries(listeners)) made.addEventListener(event, listener);
  return made;
};

/** Sets a text, and leaves one that is the same alone: the browser would lay the page out anew for it. */
export const say = (place, text) => {
  if (place.textContent !== String(text)) place.textContent = text;
};

/** Calls `changed` when the page gets another number of device pixels for each of its own. */
export const on_density = (changed) => {
  const wait = () => {
    const same = matchMedia(`(resolution: ${devicePixelRatio}dppx)`);
    same.addEventListener('change', () => {
      wait();
      changed();
    }, {once: true});
  };
  wait();
};

const of_frames = ['header', 'number', 'measured'];
const paced_by = 100;

/**
 * A listener of the state that has `show(now)` called, but ten times a second at most for frames that
 * follow one another: nobody reads faster, and each change has the browser lay out and paint the page anew.
 */
export const paced = (show) => {
  let timer = null;
  let late = false;
  const catch_up = (now) => {
    timer = null;
    if (!late) return;
    late = false;
    show(now);
    timer = setTimeout(catch_up, paced_by, now);
  };
  return (now, changed) => {
    if (![...changed].every((name) => of_frames.includes(name))) {
      show(now);
    } else if (timer !== null) {
      late = true;
    } else {
      show(now);
      timer = setTimeout(catch_up, paced_by, now);
    }
  };
};
