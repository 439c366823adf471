// What the integers of planes say, as text.

/** Steps of half a sample unit or less are worth a digit. */
export const s0_decimals = (unit) => (unit >= 0.3 ? 1 : unit >= 0.03 ? 2 : 3);

export const s0_text = (s0, unit) => (s0 * unit).toFixed(s0_decimals(unit));

export const angle_text = (azimuth, dolp, full_scale) =>
    dolp === 0 ? 'none' : (((azimuth / full_scale) * 180 + 90) % 180).toFixed(2) + '°';

export const degree_text = (dolp, s0, full_scale) =>
    s0 === 0 ? 'none' : (dolp / full_scale).toFixed(4);
