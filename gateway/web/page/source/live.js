// What passes at the door: messages on its bus, and what goes over the reader's line.
import { html, nothing } from 'lit';
import { Screen } from './screen.js';

const kKept = 10_000; // of each kind
const kShown = 300;
const kPeriod = 200; // ms between two looks
const kAgain = 3000; // ms

const text_of_fields = (fields) =>
  Object.entries(fields)
    .map(([name, value]) => `${name}=${value}`)
    .join(' ');

const rows = {
  message: ({ time, message, fields }) => ({ time, what: message, text: text_of_fields(fields) }),
  frame: ({ time, direction, bytes, left_out }) => ({
    time,
    what: direction === '>' ? 'to the reader' : 'from the reader',
    text: left_out ? `${left_out} bytes left out; ${bytes}` : bytes,
    isBytes: true,
  }),
};

const row_of_gap = ({ reason, first, last }) =>
  reason === 'gone'
    ? { what: 'missing', text: `${last - first + 1} messages, which are not kept any more` }
    : { what: 'started anew', text: 'the door daemon: what passed before is missing' };

class LiveScreen extends Screen {
  static properties = { filter: { state: true }, kinds: { state: true }, isPaused: { state: true }, apart: { state: true }, isLive: { state: true } };

  constructor() {
    super();
    Object.assign(this, { filter: '', kinds: { message: true, frame: false }, isPaused: false, apart: {}, isLive: false });
    this.forget();
  }

  // let_go: what passed and is not kept any more, while paused. until: the last that is shown.
  forget() {
    Object.assign(this, { kept: { message: [], frame: [] }, let_go: 0, order: 0, until: this.isPaused ? 0 : Infinity });
  }

  connectedCallback() {
    super.connectedCallback();
    this.look_on();
    this.period = setInterval(() => this.show(), kPeriod);
  }

  disconnectedCallback() {
    super.disconnectedCallback();
    this.events.close();
    clearInterval(this.period);
    clearTimeout(this.again);
  }

  look_on() {
    const events = (this.events = new EventSource(`/api/traffic${this.last_event ? `?last_event=${this.last_event}` : ''}`));
    const on = (name, take) =>
      events.addEventListener(name, ({ data, lastEventId }) => {
        this.last_event = lastEventId || this.last_event;
        take(JSON.parse(data));
      });
    on('begin', () => this.tell_of_break());
    on('message', (line) => this.keep('message', rows.message(line)));
    on('gap', (gap) => this.keep('message', row_of_gap(gap)));
    on('frame', (line) => this.keep('frame', rows.frame(line)));
    on('apart', ({ what, error }) => (this.apart = { ...this.apart, [what]: error }));
    on('together', ({ what }) => (this.apart = { ...this.apart, [what]: '' }));
    events.onerror = () => this.lost(events);
  }

  // A browser comes back by itself, and goes on behind the last message that it has, unless it was refused: there may be
  // room later.
  lost(events) {
    this.isLive = false;
    if (events.readyState === EventSource.CLOSED) {
      this.again = setTimeout(() => this.look_on(), kAgain);
    }
  }

  // Messages have numbers, from which they go on; what goes over the line has none.
  tell_of_break() {
    if (this.order > 0) {
      this.keep('frame', { what: 'connection lost', text: 'what passed meanwhile is missing' });
    }
    this.isLive = true;
  }

  keep(kind, row) {
    const list = this.kept[kind];
    list.push({ ...row, order: ++this.order, found_by: `${row.what} ${row.text}`.toLowerCase() });
    if (list.length > kKept) {
      list.shift();
      this.let_go += this.isPaused ? 1 : 0;
    }
    this.isNew = true;
  }

  show() {
    if (this.isNew) {
      this.isNew = false;
      this.requestUpdate();
    }
  }

  pause() {
    this.isPaused = !this.isPaused;
    this.until = this.isPaused ? this.order : Infinity;
    this.let_go = this.isPaused ? 0 : this.let_go;
  }

  // The newest first, and no more than are shown: both lists are walked from their ends.
  matching() {
    const wanted = this.filter.trim().toLowerCase();
    const lists = Object.keys(rows).filter((kind) => this.kinds[kind]).map((kind) => this.kept[kind]);
    const at = lists.map((list) => list.length - 1);
    const found = [];
    while (found.length < kShown && at.some((place) => place >= 0)) {
      const orders = lists.map((list, i) => list[at[i]]?.order ?? 0);
      const newest = orders.indexOf(Math.max(...orders));
      const row = lists[newest][at[newest]--];
      if (row.order <= this.until && row.found_by.includes(wanted)) {
        found.push(row);
      }
    }
    return found;
  }

  render() {
    const all = this.matching();
    return html`
      <h1>Live</h1>
      ${Object.entries(this.apart).map(([what, error]) => (error && this.kinds[what] ? html`<p class="notice bad" role="alert">${error}</p>` : nothing))}
      <input type="search" aria-label="Filter" placeholder="Filter: a message, a field, bytes"
        .value=${this.filter} @input=${({ target }) => (this.filter = target.value)} />
      <p class="controls">
        ${this.tick('message', 'Messages')} ${this.tick('frame', "The reader's line")}
        <button class="main" aria-pressed=${this.isPaused} @click=${this.pause}>${this.isPaused ? 'Go on' : 'Pause'}</button>
        <button @click=${() => { this.forget(); this.requestUpdate(); }}>Clear</button>
        <a class="button" href="/api/recording" download="door.uhfrec">Save a recording</a>
      </p>
      <p class="quiet" role="status">${this.isPaused ? `Paused: ${this.order - this.until} more have come` : this.isLive ? '' : 'Not connected'}</p>
      ${this.let_go > 0 ? html`<p class="notice">${this.let_go} of the oldest were let go during the pause: ${kKept} of each are kept</p>` : nothing}
      ${all.length === 0 ? html`<p class="notice">${this.filter ? 'Nothing like that yet' : 'Nothing yet'}</p>` : nothing}
      ${all.length === kShown ? html`<p class="quiet">The latest ${kShown}: a filter shows others</p>` : nothing}
      <ol class="log" tabindex="0" aria-label="What passes">
        ${all.map(
          ({ time, what, text, isBytes }) => html`<li>
            <time>${time?.slice(11, 23) ?? ''}</time><strong>${what}</strong>
            <span class=${isBytes ? 'bytes' : 'fields-text'}>${text}</span>
          </li>`,
        )}
      </ol>
    `;
  }

  tick(kind, title) {
    return html`<label><input type="checkbox" .checked=${this.kinds[kind]}
      @change=${({ target }) => (this.kinds = { ...this.kinds, [kind]: target.checked })} /> ${title}</label>`;
  }
}
customElements.define('live-screen', LiveScreen);
