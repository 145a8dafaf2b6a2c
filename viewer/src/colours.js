// SPDX-License-Identifier: Apache-2.0
// Colours with a meaning. They stand for the same in the map, the legend, the table and the charts.

/** Values of the quality layer; colours told apart with any colour vision. */
export const QUALITY = {
  1: { text: 'seen by several photos', short: 'Seen by several photos', colour: [72, 145, 176] },
  2: { text: 'seen by one photo only', short: 'Seen by one photo only', colour: [242, 193, 78] },
  3: {
    text: 'seen by no photo, filled from its surroundings',
    short: 'Filled',
    colour: [199, 52, 92],
  },
};

/** Hue by the golden angle, so that photos taken one after the other differ most. */
export function photoColour(number) {
  const hue = (number * 137.508 + 200) % 360;
  const lightness = [0.58, 0.46, 0.68][number % 3];
  return fromHsl(hue, 0.52, lightness);
}

function fromHsl(hue, saturation, lightness) {
  const chroma = saturation * Math.min(lightness, 1 - lightness);
  return [0, 8, 4].map((n) => {
    const k = (n + hue / 30) % 12;
    return Math.round(255 * (lightness - chroma * Math.max(-1, Math.min(k - 3, 9 - k, 1))));
  });
}

const RAMP = [
  [236, 233, 222],
  [246, 190, 122],
  [232, 113, 92],
  [163, 54, 110],
  [68, 20, 92],
];

/** From pale (hidden from none) to dark (hidden from the most). */
export function hiddenColour(count, most) {
  if (most === 0) return RAMP[0];
  const at = (Math.min(count, most) / most) * (RAMP.length - 1);
  const low = Math.min(Math.floor(at), RAMP.length - 2);
  return RAMP[low].map((v, i) => Math.round(v + (RAMP[low + 1][i] - v) * (at - low)));
}

export const css = ([r, g, b]) => `rgb(${r}, ${g}, ${b})`;
