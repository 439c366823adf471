// Buttons above the pictures, and what is said beside them.

import {paced, say} from './elements.js';
import {shared_address} from './state.js';

const by_id = (id) => document.getElementById(id);

export const camera_line = ({header, silent, reception}) => {
  // Frames that come incomplete are none that tell of themselves.
  const camera = (silent && reception) || header?.camera;
  if (!camera) return header ? '' : 'waiting for the first frame';
  const losses = [['dropped', camera.dropped], ['lost', camera.lost], ['incomplete', camera.incomplete]];
  if (camera.reconnections > 0) losses.push([camera.reconnections === 1 ? 'reconnection' : 'reconnections', camera.reconnections]);
  const lost = losses.map(([name, count]) => `${count ?? 0} ${name}`).join(', ');
  const waits = header ? 'nothing new for a second' : 'waiting for the first frame';
  if (silent) return `${waits} · ${camera.received} received, ${lost}`;
  const rate = camera.rate == null ? '' : `${camera.rate.toFixed(1)} frames/s · `;
  const delay = camera.latency_ms == null ? '' : ` · ${camera.latency_ms.toFixed(1)} ms old`;
  return `${rate}${camera.received} received, ${lost}${delay}`;
};

const camera_settings = (camera) => [
  camera.exposure_us == null ? '' : `exposure ${(camera.exposure_us / 1000).toFixed(2)} ms`,
  camera.gain == null ? '' : `gain ${camera.gain}`,
  camera.pixel_format ?? '',
].filter(Boolean).join(' · ');

export const facts = (source, header) => {
  const size = header ? [header.frame_width, header.frame_height] : [source.width, source.height];
  const frame = header && source.kind !== 'frame' ? ` · frame ${header.number}` : '';
  // Frames of one recording have its name and their number.
  const file = header?.name?.replace(/, frame \d+$/, '') ?? source.name;
  const name = file !== source.name ? ` · ${header.name}` : '';
  const pixels = size[0] === null ? '' : `${size[0]} × ${size[1]} pixels · `;
  return `${pixels}${source.bit_depth} bits${frame}${name}`;
};

export const attach_toolbar = (state, views) => {
  const one = by_id('one-view');
  const four = by_id('four-views');
  const others = ['s0', 'angle', 'degree', 'raw'];
  let former = null;
  /** One view shows the active of four; four show what there was before, with it in its place. */
  const arrange = (count) => {
    const {views: names, active} = state.now;
    if (names.length === count) return;
    const name = names[active];
    if (count === 1) {
      former = {views: names, active};
      state.set({views: [name], active: 0});
    } else if (former) {
      state.set({views: former.views.with(former.active, name), active: former.active});
    } else {
      state.set({views: [name, ...others.filter((other) => other !== name).slice(0, 3)], active: 0});
    }
  };
  const clicks = {
    'one-view': () => arrange(1),
    'four-views': () => arrange(4),
    'zoom-out': () => views.zoom(1 / Math.SQRT2),
    'zoom-in': () => views.zoom(Math.SQRT2),
    'zoom-one': () => views.zoom_to(1),
    'zoom-fit': () => views.fit(),
    'copy-address': () => copy_address(),
  };
  for (const [id, run] of Object.entries(clicks)) by_id(id).addEventListener('click', run);

  const copy_address = async () => {
    const button = by_id('copy-address');
    const text = button.textContent;
    try {
      await navigator.clipboard.writeText(shared_address(views.ends()));
      button.textContent = 'Copied';
    } catch {
      // Without leave for the clipboard: there it can be copied by hand.
      prompt('The address of what is shown, without the token:', shared_address(views.ends()));
    }
    setTimeout(() => (button.textContent = text), 1500);
  };

  const map = by_id('map');
  const overlay = by_id('overlay');
  const loupe = by_id('loupe');
  map.addEventListener('change', () => state.set({map: map.value}));
  overlay.addEventListener('change', () => state.set({overlay: overlay.checked}));
  loupe.addEventListener('change', () => state.set({loupe: loupe.checked}));

  const show = (now) => {
    one.setAttribute('aria-pressed', now.views.length === 1);
    four.setAttribute('aria-pressed', now.views.length === 4);
    map.value = now.map;
    overlay.checked = now.overlay;
    loupe.checked = now.loupe;
    const zoom = views.parts()[0]?.zoom;
    say(by_id('zoom-text'), zoom ? `${zoom >= 0.095 ? Math.round(100 * zoom) : (100 * zoom).toFixed(1)} %` : '');
    if (!now.source) return;
    document.title = `${now.source.name} – polarisation`;
    say(by_id('name'), now.source.name);
    by_id('name').title = now.source.settings.map(([name, text]) => `${name}: ${text}`).join('\n');
    say(by_id('facts'), facts(now.source, now.header));
    const camera = by_id('camera');
    camera.hidden = !now.source.camera;
    if (!camera.hidden) {
      const settings = camera_settings(now.source.camera);
      const line = camera_line(now);
      say(camera, settings ? `${settings} · ${line}` : line);
    }
  };
  state.listen(paced(show));
  show(state.now);
  return {arrange};
};
