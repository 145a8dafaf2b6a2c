// SPDX-License-Identifier: Apache-2.0
// The line between the two layers: dragged, or moved with the arrow keys.
import { h } from './dom.js';

const STEP = 0.02;

/** @param onMove called with the new share of the map's width */
export function makeSwipe(onMove) {
  const names = [h('span', { class: 'side left' }), h('span', { class: 'side right' })];
  const handle = h(
    'div',
    {
      class: 'swipe',
      role: 'slider',
      tabindex: '0',
      'aria-label': 'Border between the two layers',
      'aria-valuemin': '0',
      'aria-valuemax': '100',
      hidden: true,
    },
    h('span', { class: 'grip', 'aria-hidden': 'true' }),
    names,
  );
  let share = 0.5;

  const move = (next) => {
    share = Math.min(Math.max(next, 0), 1);
    handle.style.left = `${100 * share}%`;
    handle.setAttribute('aria-valuenow', String(Math.round(100 * share)));
    handle.setAttribute(
      'aria-valuetext',
      `${names[0].textContent} left of ${Math.round(100 * share)} %, ${names[1].textContent} right of it`,
    );
    onMove(share);
  };
  const drag = (event) => {
    const box = handle.parentElement.getBoundingClientRect();
    move((event.clientX - box.left) / box.width);
  };
  handle.addEventListener('pointerdown', (event) => {
    handle.setPointerCapture(event.pointerId);
    handle.focus({ preventScroll: true });
    event.preventDefault();
    event.stopPropagation();
  });
  handle.addEventListener('pointermove', (event) => {
    event.stopPropagation();
    if (handle.hasPointerCapture(event.pointerId)) drag(event);
  });
  handle.addEventListener('keydown', (event) => {
    const steps = {
      ArrowLeft: share - STEP,
      ArrowDown: share - STEP,
      ArrowRight: share + STEP,
      ArrowUp: share + STEP,
      PageDown: share - 5 * STEP,
      PageUp: share + 5 * STEP,
      Home: 0,
      End: 1,
    };
    if (!(event.key in steps)) return;
    move(steps[event.key]);
    event.preventDefault();
    event.stopPropagation();
  });
  /** Shows the line between two layers; null hides it. */
  handle.between = (left, right) => {
    handle.hidden = right === null;
    names[0].textContent = left?.title ?? '';
    names[1].textContent = right?.title ?? '';
    move(share);
  };
  return handle;
}
