// A few pixels around one, enlarged.

export const loupe_cells = 11;
const size = 8;

/** Draws the cells of `colour_of(x, y)`, [red, green, blue] or null, -5 to 5 around the middle one, which is framed. */
export const draw_loupe = (canvas, colour_of) => {
  const context = canvas.getContext('2d');
  context.clearRect(0, 0, loupe_cells * size, loupe_cells * size);
  const reach = (loupe_cells - 1) / 2;
  for (let y = -reach; y <= reach; ++y) {
    for (let x = -reach; x <= reach; ++x) {
      const colour = colour_of(x, y);
      if (!colour) continue;
      context.fillStyle = `rgb(${colour.join()})`;
      context.fillRect((x + reach) * size, (y + reach) * size, size, size);
    }
  }
  context.lineWidth = 1;
  context.strokeStyle = '#000';
  context.strokeRect(reach * size - 1.5, reach * size - 1.5, size + 3, size + 3);
  context.strokeStyle = '#fff';
  context.strokeRect(reach * size - 0.5, reach * size - 0.5, size + 1, size + 1);
};
