// Which colour of a table a pixel has, from the integers of its planes alone.

const share = (value, most) => Math.min(1, value / most);

/** Of a table of 256 levels: `top` and more have the last one. */
export const ramp_index = (value, top) => Math.round(255 * share(value, top));

/** Of a hue: the azimuth plane runs 90 degrees ahead of the angle. */
export const hue_of = (azimuth, full_scale, hues) =>
    Math.round(((azimuth / full_scale + 0.5) % 1) * hues) % hues;

/** Of a level of a hue: the degree plane up to `top`. */
export const level_of = (dolp, top, levels) => Math.round(share(dolp, top) * (levels - 1));

/** Of a table of 256 levels whose 128th is zero: plus and minus `top` lie 127 away from it. */
export const signed_index = (value, top) =>
    128 + Math.sign(value) * Math.round(127 * share(Math.abs(value), top));
