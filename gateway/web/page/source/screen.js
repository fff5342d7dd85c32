// What all screens share.
import { LitElement } from 'lit';
import { connection } from './connection.js';

// A part of the page that shows what the connection knows.
export class Screen extends LitElement {
  #changed = () => this.requestUpdate();

  createRenderRoot() {
    return this;
  }
  connectedCallback() {
    super.connectedCallback();
    connection.addEventListener('change', this.#changed);
  }
  disconnectedCallback() {
    super.disconnectedCallback();
    connection.removeEventListener('change', this.#changed);
  }
}

// As the door has it: its own local time is in the text.
export const time_of = (iso) => iso.slice(11, 19);
export const day_of = (iso) => iso.slice(0, 10);

export function span_text(seconds) {
  if (seconds < 10) {
    return `${seconds.toFixed(1)} s`;
  }
  if (seconds < 120) {
    return `${Math.round(seconds)} s`;
  }
  return seconds < 7200 ? `${Math.round(seconds / 60)} min` : `${Math.round(seconds / 3600)} h`;
}
