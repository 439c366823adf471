// What the program behind the page is asked: with its token, and with answers in typed arrays.

const token_key = 'polarization-token';
// A frame is made within a second or two, but a slow road may take long to bring it.
const told_within = 10000;
const sent_within = 60000;
const element_types = {u8: Uint8Array, u16: Uint16Array, i16: Int16Array};

/** An answer that is a refusal (status 400 and above), none at all (0), or one that is not there yet (204). */
export class Refusal extends Error {
  constructor(status, text) {
    super(text);
    this.status = status;
  }
}

/**
 * Takes the token out of the address, which may be passed on, into the memory of this tab. If there is nothing
 * else in it, what the fragment `before` showed stays.
 */
export const take_token = (before = '') => {
  const parts = location.hash.replace(/^#/, '').split('&');
  const found = parts.find((part) => part.startsWith('token='));
  if (found) {
    sessionStorage.setItem(token_key, found.slice('token='.length));
    const rest = parts.filter((part) => part !== found).join('&') || before.replace(/^#/, '');
    history.replaceState(null, '', rest ? '#' + rest : location.pathname);
  }
  return sessionStorage.getItem(token_key) !== null;
};

/** What `taken` makes of the answer; an answer that ends early or stands still is none. */
const ask = async (path, taken, signal) => {
  const late = new AbortController();
  const give_up = () => late.abort();
  let timer = setTimeout(give_up, told_within);
  try {
    const response = await fetch(path, {
      headers: {'Polarization-Token': sessionStorage.getItem(token_key) ?? ''},
      cache: 'no-store',
      signal: signal ? AbortSignal.any([signal, late.signal]) : late.signal,
    });
    clearTimeout(timer);
    timer = setTimeout(give_up, sent_within);
    if (response.status === 204) throw new Refusal(204, 'There is no newer frame.');
    if (!response.ok) throw new Refusal(response.status, (await response.text()).trim());
    return await taken(response);
  } catch (error) {
    if (error instanceof Refusal) throw error;
    signal?.throwIfAborted();
    throw new Refusal(0, 'The program does not answer.');
  } finally {
    clearTimeout(timer);
  }
};

/** The planes of an answer as they lie in it, without a copy. */
export const decoded = (buffer) => {
  const length = new DataView(buffer).getUint32(0, true);
  const header = JSON.parse(new TextDecoder().decode(new Uint8Array(buffer, 4, length)));
  const count = header.width * header.height;
  const planes = {};
  let place = 4 + length;
  for (const {name, type} of header.planes) {
    const Elements = element_types[type];
    planes[name] = new Elements(buffer, place, count);
    place += Math.ceil((count * Elements.BYTES_PER_ELEMENT) / 8) * 8;
  }
  return {header, planes};
};

const query = (parameters) =>
    Object.entries(parameters)
        .filter(([, value]) => value !== undefined)
        .map(([name, value]) => name + '=' + value)
        .join('&');

const json = (path, signal) => ask(path, (response) => response.json(), signal);

export const ask_source = () => json('/source');
export const ask_colours = () => json('/colours');
/** {number or after, region, scale, planes} to {header, planes: {name: typed array}}. */
export const ask_frame = (parameters, signal) =>
    ask('/frame?' + query(parameters), async (response) => decoded(await response.arrayBuffer()), signal);
/** {number, region} to mean, deviation and histogram of each quantity. */
export const ask_statistics = (parameters, signal) => json('/statistics?' + query(parameters), signal);
