// Pictures of a frame, in pixels of the device, kept from frame to frame.

export const new_picture = () => {
  let image = null;
  let pixels = null;
  // What is drawn larger than it is, and whether it lacks the last frame.
  let source = null;
  let stale = true;

  const filled = () => {
    source ??= document.createElement('canvas').getContext('2d', {alpha: false});
    if (stale) {
      source.canvas.width = image.width;
      source.canvas.height = image.height;
      source.putImageData(image, 0, 0);
      stale = false;
    }
    return source.canvas;
  };

  const picture = {
    /** Quantity that it shows, and header of the frame; null before. */
    name: null,
    header: null,

    /** `fill(pixels)` gives each pixel its colour. */
    paint(name, header, fill) {
      if (image?.width !== header.width || image.height !== header.height) {
        image = new ImageData(header.width, header.height);
        pixels = new Uint32Array(image.data.buffer);
      }
      fill(pixels);
      stale = true;
      Object.assign(picture, {name, header});
    },

    /** Into the part of a canvas at (x, y), within which the frame's first pixel lies at (left, top). */
    draw(context, {x, y, width, height, zoom, left, top}) {
      const {region, scale} = picture.header;
      const [column, row] = [region[0] / scale, region[1] / scale];
      // The address rounds a zoom such as 1/3: pixels of the picture are then still those of the screen.
      if (Math.abs(zoom * scale - 1) < 1e-3) {
        // Without graphics hardware each copy of all pixels counts: so none is made in between.
        const at = [x + left + column, y + top + row];
        const first = [Math.max(0, x - at[0]), Math.max(0, y - at[1])];
        const last = [Math.min(image.width, x + width - at[0]), Math.min(image.height, y + height - at[1])];
        if (last[0] <= first[0] || last[1] <= first[1]) return;
        context.putImageData(image, ...at, ...first, last[0] - first[0], last[1] - first[1]);
        return;
      }
      const step = zoom * scale;
      context.save();
      context.beginPath();
      context.rect(x, y, width, height);
      context.clip();
      // Between two colours of a table there may be any other one: the grey of opposite hues says "not polarised".
      context.imageSmoothingEnabled = false;
      context.drawImage(
          filled(), x + left + column * step, y + top + row * step, image.width * step, image.height * step);
      context.restore();
    },
  };
  return picture;
};
