// The door, for who runs it: whether it lives, who came last, what is wrong.
import { html, nothing } from 'lit';
import { connection } from './connection.js';
import { Screen, day_of, span_text, time_of } from './screen.js';
import { is_bad, words_of } from './words.js';

const kModes = ['normal', 'locked', 'unlocked'];
const kStates = { answering: 'good', lent: 'neutral' };

class DoorScreen extends Screen {
  static properties = { search: { state: true }, failure: { state: true } };

  constructor() {
    super();
    this.search = '';
    this.failure = '';
  }

  render() {
    const { status, away } = connection;
    if (!status) {
      return html`<p class="notice bad">${away || 'Asking the door…'}</p>`;
    }
    return html`
      <h1 class="hidden">Door</h1>
      <div class="cards">${this.alarms(status)} ${this.reader(status)} ${this.door(status)} ${this.last()}</div>
      ${this.timeline()}
      <footer>achost ${connection.session.version}, up for ${span_text(status.uptime_s)}; ${status.reader}</footer>
    `;
  }

  alarms({ alarms }) {
    return alarms.length === 0
      ? nothing
      : html`<section class="card bad" role="alert">
          <h2>Alarms</h2>
          <ul>
            ${alarms.map(({ name, text }) => html`<li><strong>${name}</strong> ${text}</li>`)}
          </ul>
        </section>`;
  }

  reader({ health }) {
    return html`<section class="card ${kStates[health.state] ?? 'bad'}">
      <h2>Reader</h2>
      <p class="big">${health.state}</p>
      <p>
        ${health.last_answer_s === null || health.last_answer_s === undefined
          ? 'No answer yet'
          : `Last answer ${span_text(health.last_answer_s)} ago`},
        ${Math.round(health.polls_per_second ?? 0)} polls a second
      </p>
      ${health.cause ? html`<p>${health.cause}</p>` : nothing}
      ${health.way_out ? html`<p><strong>${health.way_out}</strong></p>` : nothing}
    </section>`;
  }

  door({ door }) {
    return html`<section class="card ${door.case ? 'bad' : 'neutral'}">
      <h2>Door</h2>
      <p class="big">${door.lock === 'open' ? 'Lock open' : 'Lock shut'}</p>
      <p>
        ${door.contact ? `Contact: ${door.contact}. ` : nothing}${door.case ? html`<strong>${door.case}.</strong> ` : nothing}
        Mode: ${door.mode}${door.by === 'nobody' ? '' : `, by ${door.by}`}
      </p>
      ${connection.mayChange ? this.controls(door) : nothing}
      ${this.failure ? html`<p class="failure" role="alert">${this.failure}</p>` : nothing}
    </section>`;
  }

  controls(door) {
    return html`<p class="controls">
      <button class="main" @click=${() => this.tell('door_open')}>Open</button>
      <label
        >Mode
        <select @change=${({ target }) => this.tell('door_mode', { mode: target.value })}>
          ${kModes.map((mode) => html`<option ?selected=${mode === door.mode}>${mode}</option>`)}
        </select>
      </label>
    </p>`;
  }

  async tell(command, fields) {
    try {
      await connection.command(command, fields);
      this.failure = '';
    } catch (failure) {
      this.failure = failure.message;
    }
  }

  last() {
    const entry = connection.entries.find(({ kind }) => kind === 'identification');
    if (!entry) {
      return html`<section class="card neutral">
        <h2>Last card</h2>
        <p>None yet</p>
      </section>`;
    }
    const { who, what } = words_of(entry);
    return html`<section class="card ${is_bad(entry) ? 'bad' : 'good'}">
      <h2>Last card</h2>
      <p class="big">${who}</p>
      <p>${what}, ${time_of(entry.time)}</p>
      <p>${this.why_button(entry)}</p>
    </section>`;
  }

  timeline() {
    const wanted = this.search.trim().toLowerCase();
    const entries = connection.entries
      .map((entry) => ({ entry, ...words_of(entry) }))
      .filter(({ entry, who, what }) => `${entry.time} ${entry.kind} ${who} ${what}`.toLowerCase().includes(wanted));
    return html`<section class="timeline">
      <h2>What happened</h2>
      <input
        type="search"
        aria-label="Search what happened"
        placeholder="Search: a name, a card, a kind"
        .value=${this.search}
        @input=${({ target }) => (this.search = target.value)}
      />
      ${entries.length === 0 ? html`<p class="notice">${wanted ? 'Nothing like that' : 'Nothing yet'}</p>` : nothing}
      <ol>
        ${entries.map(
          ({ entry, who, what }, at) => html`
            ${at === 0 || day_of(entries[at - 1].entry.time) !== day_of(entry.time)
              ? html`<li class="day">${day_of(entry.time)}</li>`
              : nothing}
            <li class=${is_bad(entry) ? 'bad' : nothing}>
              <time datetime=${entry.time} title=${entry.clock_trusted ? nothing : 'nothing kept the clock right then'}
                >${time_of(entry.time)}${entry.clock_trusted ? '' : '?'}</time>
              <span><strong>${who}</strong> ${what}</span>
              ${this.why_button(entry)}
            </li>
          `,
        )}
      </ol>
    </section>`;
  }

  why_button(entry) {
    return entry.card === undefined
      ? nothing
      : html`<button class="link" aria-label=${`Why, card ${entry.card}, ${time_of(entry.time)}`}
          @click=${() => document.querySelector('why-dialog').ask(entry)}>Why?</button>`;
  }
}
customElements.define('door-screen', DoorScreen);
