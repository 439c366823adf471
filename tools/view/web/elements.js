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
