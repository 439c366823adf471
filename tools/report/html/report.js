(() => {
  const facts = JSON.parse(document.getElementById('facts').textContent);
  const names = ['s0', 'azimuth', 'dolp'];
  const readout = document.getElementById('readout');
  const hint = document.getElementById('hint');
  const rowInput = document.getElementById('row');
  const columnInput = document.getElementById('column');
  const stages = [...document.querySelectorAll('.stage')];
  const planes = {};
  const place = {row: 0, column: 0};
  let held = false;

  const bytesOf = (base64) => {
    const text = atob(base64);
    const bytes = new Uint8Array(text.length);
    for (let i = 0; i < bytes.length; ++i) bytes[i] = text.charCodeAt(i);
    return bytes;
  };
  const colours = {};
  for (const name of names) colours[name] = bytesOf(facts.colours[name]);

  // A plane lies in the page as all low bytes, then all high bytes, deflated; a plane of
  // differences holds each element minus the one before it.
  const decode = async (name) => {
    const element = document.getElementById('plane-' + name);
    const packed = new Blob([bytesOf(element.textContent)]);
    element.remove();
    const stream = packed.stream().pipeThrough(new DecompressionStream('deflate'));
    const bytes = new Uint8Array(await new Response(stream).arrayBuffer());
    const count = facts.width * facts.height;
    if (bytes.length !== 2 * count) throw new Error('plane ' + name + ' is damaged');
    const values = new Uint16Array(count);
    const differences = facts.differences.includes(name);
    let before = 0;
    for (let i = 0; i < count; ++i) {
      const value = bytes[i] | (bytes[count + i] << 8);
      before = differences ? (before + value) & 0xffff : value;
      values[i] = before;
    }
    return values;
  };

  const at = (name, row, column) => planes[name][row * facts.width + column];
  // Index of a colour in the table of its plane, as the pictures show it.
  const degreeTop = facts.degree_top * facts.full_scale;
  const colourIndex = {
    s0: (row, column) => ramp_index(at('s0', row, column), facts.s0_top),
    azimuth: (row, column) =>
        hue_of(at('azimuth', row, column), facts.full_scale, facts.hues) * facts.levels +
        level_of(at('dolp', row, column), degreeTop, facts.levels),
    dolp: (row, column) => ramp_index(at('dolp', row, column), degreeTop),
  };

  const texts = {
    s0: (element) => s0_text(element, facts.s0_unit),
    azimuth: (element, row, column) =>
        angle_text(element, at('dolp', row, column), facts.full_scale),
    dolp: (element, row, column) =>
        degree_text(element, at('s0', row, column), facts.full_scale),
  };

  const drawLoupe = (name) => {
    const table = colours[name];
    draw_loupe(document.getElementById('loupe-' + name), (x, y) => {
      const row = place.row + y;
      const column = place.column + x;
      if (row < 0 || column < 0 || row >= facts.height || column >= facts.width) return null;
      const i = 3 * colourIndex[name](row, column);
      return table.subarray(i, i + 3);
    });
  };

  const show = (row, column) => {
    place.row = Math.min(Math.max(row, 0), facts.height - 1);
    place.column = Math.min(Math.max(column, 0), facts.width - 1);
    readout.dataset.row = place.row;
    readout.dataset.column = place.column;
    if (document.activeElement !== rowInput) rowInput.value = place.row;
    if (document.activeElement !== columnInput) columnInput.value = place.column;
    for (const name of names) {
      const element = at(name, place.row, place.column);
      document.getElementById(name + '-element').textContent = element;
      document.getElementById(name + '-text').textContent =
          texts[name](element, place.row, place.column);
      drawLoupe(name);
    }
    for (const stage of stages) {
      const mark = stage.querySelector('.mark');
      mark.style.left = 100 * (place.column + 0.5) / facts.width + '%';
      mark.style.top = 100 * (place.row + 0.5) / facts.height + '%';
    }
  };

  const remember = () => history.replaceState(null, '', `#pixel=${place.row},${place.column}`);
  const showHash = () => {
    const match = /^#pixel=(\d+),(\d+)$/.exec(location.hash);
    if (match) show(Number(match[1]), Number(match[2]));
    return match !== null;
  };
  const hold = (state) => {
    held = state;
    hint.textContent = held
        ? 'Held. Click again, or press Escape, to follow the pointer.'
        : 'Point at a picture, or focus one and use the arrow keys (with Shift: 10 pixels). ' +
            'A click holds the pixel.';
  };
  const placeOf = (stage, event) => {
    const box = stage.getBoundingClientRect();
    return [
      Math.floor((event.clientY - box.top) / box.height * facts.height),
      Math.floor((event.clientX - box.left) / box.width * facts.width),
    ];
  };
  const steps = {ArrowUp: [-1, 0], ArrowDown: [1, 0], ArrowLeft: [0, -1], ArrowRight: [0, 1]};

  const listen = () => {
    for (const stage of stages) {
      stage.addEventListener('pointermove', (event) => {
        if (!held) show(...placeOf(stage, event));
      });
      stage.addEventListener('click', (event) => {
        hold(!held);
        show(...placeOf(stage, event));
        remember();
      });
      stage.addEventListener('keydown', (event) => {
        const step = steps[event.key];
        if (event.key === 'Escape') hold(false);
        if (!step || event.ctrlKey || event.altKey || event.metaKey) return;
        event.preventDefault();
        const length = event.shiftKey ? 10 : 1;
        hold(true);
        show(place.row + step[0] * length, place.column + step[1] * length);
        remember();
      });
    }
    const typed = () => {
      if (!rowInput.checkValidity() || !columnInput.checkValidity()) return;
      hold(true);
      show(Number(rowInput.value), Number(columnInput.value));
      remember();
    };
    rowInput.addEventListener('input', typed);
    columnInput.addEventListener('input', typed);
    document.querySelector('.place').addEventListener('submit', (event) => event.preventDefault());
    addEventListener('hashchange', () => {
      if (showHash()) hold(true);
    });
  };

  const start = async () => {
    for (const name of names) planes[name] = await decode(name);
    document.body.classList.add('ready');
    listen();
    hold(false);
    if (showHash()) {
      hold(true);
    } else {
      show(Math.floor(facts.height / 2), Math.floor(facts.width / 2));
    }
    readout.dataset.state = 'ready';
  };
  // The planes are large: the page is painted first.
  setTimeout(() => start().catch((error) => {
    readout.dataset.state = 'failed';
    hint.textContent = typeof DecompressionStream === 'undefined'
        ? 'This browser is too old to show values (it lacks DecompressionStream).'
        : 'The values cannot be shown: ' + error.message;
  }), 50);
})();
