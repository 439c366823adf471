// What the integers of planes say, as text.

/** Steps of half a sample unit or less are worth a digit. */
export const s0_decimals = (unit) => (unit >= 0.3 ? 1 : unit >= 0.03 ? 2 : 3);

export const s0_text = (s0, unit) => (s0 * unit).toFixed(s0_decimals(unit));

/** From 0 to below 180 degrees, also where rounding gets there. */
export const angle_text = (azimuth, dolp, full_scale) => {
  if (dolp === 0) return 'none';
  const text = (((azimuth / full_scale) * 180 + 90) % 180).toFixed(2);
  return (text === '180.00' ? '0.00' : text) + '°';
};

export const degree_text = (dolp, s0, full_scale) =>
    s0 === 0 ? 'none' : (dolp / full_scale).toFixed(4);
