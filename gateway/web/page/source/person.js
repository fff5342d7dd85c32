// One person: what he may, and his cards.
import { html, nothing } from 'lit';
import { keyed } from 'lit/directives/keyed.js';
import { connection } from './connection.js';
import './enrollment.js';
import { pause_text, time_text, validity_of, who_is } from './person_words.js';
import { question } from './question.js';
import { Screen } from './screen.js';

const kFields = { name: 'Name', from: 'From', until: 'Until', schedule: 'Schedule', pause: 'Pause' };
const kShown = {
  name: (name) => name || 'none',
  from: time_text,
  until: time_text,
  schedule: (schedule) => schedule || 'none',
  pause: pause_text,
};
const kNobody = { user: '', name: '', from: null, until: null, schedule: '', pause: 0, cards: 0, first_cards: [] };

// As a field for a local time has it.
const local_of = (ms) => (ms ? new Date(ms - new Date(ms).getTimezoneOffset() * 60_000).toISOString().slice(0, 16) : '');
const ms_of = (text) => (text ? new Date(text).getTime() : 0);

class PersonDialog extends Screen {
  static properties = { user: { state: true }, failure: { state: true }, done: { state: true }, schedules: { state: true } };

  constructor() {
    super();
    Object.assign(this, { user: null, failure: '', done: '', schedules: [] });
  }

  // Null: a new one.
  async open(user) {
    Object.assign(this, { user: user ?? kNobody, failure: '', done: '', turn: {} });
    await this.updateComplete;
    this.querySelector('dialog').showModal();
    const { schedules } = await connection.command('schedule_list').catch(() => ({ schedules: [] }));
    this.schedules = schedules.map(({ schedule }) => schedule);
  }

  get isNew() {
    return this.user === kNobody;
  }

  // What the form has that is not stored. A field shows a time without its seconds: one that nobody touched is as it was.
  wanted() {
    const of = (name) => this.querySelector(`[name=${name}]`).value;
    const time_of = (name) => (of(name) === local_of(this.user[name]) ? (this.user[name] ?? 0) : ms_of(of(name)));
    const all = {
      name: of('name').trim(),
      from: time_of('from'),
      until: time_of('until'),
      schedule: of('schedule'),
      pause: Math.round(Number(of('pause')) * 60),
    };
    return Object.fromEntries(Object.entries(all).filter(([field, value]) => value !== (this.user[field] ?? 0)));
  }

  async save(event) {
    event.preventDefault();
    const user = this.isNew ? Number(this.querySelector('[name=user]').value) : this.user.user;
    const fields = this.wanted();
    if (!this.isNew && !this.user.damaged && Object.keys(fields).length === 0) {
      this.done = 'Nothing is different';
      return;
    }
    const lines = Object.entries(fields).map(
      ([field, value]) => `${kFields[field]}: ${this.isNew ? '' : `${kShown[field](this.user[field])} → `}${kShown[field](value)}`,
    );
    const title = this.isNew ? `Add user ${user}?` : `Change ${who_is(this.user)}?`;
    if (await question(title, lines, this.isNew ? 'Add' : 'Change')) {
      await this.tell(this.isNew ? 'user_add' : 'user_put', { user, ...fields });
    }
  }

  async ask_and_tell(title, lines, yes, command, fields) {
    if (await question(title, lines, yes)) {
      await this.tell(command, fields);
    }
  }

  // What is stored afterwards is shown; a person who is removed is shown no more.
  async tell(command, fields) {
    try {
      const { done } = await connection.command(command, fields);
      await this.changed(done, command === 'user_remove' ? null : (fields.user ?? this.user.user));
    } catch (failure) {
      Object.assign(this, { failure: failure.message, done: '' });
    }
  }

  async changed(done, user) {
    Object.assign(this, { failure: '', done });
    this.dispatchEvent(new CustomEvent('changed', { detail: done }));
    if (user === null) {
      this.querySelector('dialog').close();
      return;
    }
    const { users } = await connection.command('user_find', { text: String(user), after: user - 1, most: 1 });
    Object.assign(this, { user: users[0] ?? this.user, turn: {} });
  }

  render() {
    const { user } = this;
    return html`<dialog class="wide" aria-labelledby="person-title" @close=${() => this.querySelector('enrollment-part')?.cancel()}>
      <h2 id="person-title">${user && !this.isNew ? who_is(user) : 'A new person'}</h2>
      ${user ? html`${this.told()} ${this.isNew ? nothing : this.cards(user)} ${this.rules(user)}` : nothing}
      <form method="dialog" class="controls">
        ${user && !this.isNew && connection.mayChange ? this.drastic(user) : nothing}
        <button>Close</button>
      </form>
    </dialog>`;
  }

  told() {
    return html`<div class="told">
      <p class="done" role="status">${this.done}</p>
      ${this.failure ? html`<p class="failure" role="alert">${this.failure}</p>` : nothing}
    </div>`;
  }

  // What is typed and not saved goes with its person.
  rules(user) {
    return connection.mayChange ? keyed(this.turn, this.form(user)) : html`<p>${validity_of(user)}</p>`;
  }

  form(user) {
    return html`<form class="fields" @submit=${this.save}>
      ${this.isNew ? nothing : html`<h3>Name and times</h3>`}
      ${this.isNew
        ? html`<label>Number <input name="user" type="number" min="1" required inputmode="numeric" /></label>`
        : nothing}
      <label>Name <input name="name" maxlength="256" autocomplete="off" .value=${user.name} /></label>
      <label>From <input name="from" type="datetime-local" .value=${local_of(user.from)} /></label>
      <label>Until <input name="until" type="datetime-local" .value=${local_of(user.until)} /></label>
      <label>Schedule
        <select name="schedule">
          ${['', ...new Set([...this.schedules, user.schedule].filter(Boolean))].map(
            (name) => html`<option value=${name} ?selected=${name === user.schedule}>${name || 'any time'}</option>`,
          )}
        </select>
      </label>
      <label>Minutes between entries
        <input name="pause" type="number" min="0" step="any" inputmode="decimal" .value=${String(user.pause / 60)} />
      </label>
      <p class="quiet">Times are this device's; an empty one is no limit.</p>
      <p class="controls"><button class="main">${this.isNew ? 'Add' : 'Save'}</button></p>
    </form>`;
  }

  cards(user) {
    const { cards, first_cards } = user;
    return html`<h3>Cards</h3>
      ${cards === 0 ? html`<p>None yet</p>` : nothing}
      <ul class="rows">
        ${first_cards.map(
          ({ card, enrolled, registration }) => html`<li class="line">
            <span><strong>${card}</strong> <span class="quiet">since ${enrolled.slice(0, 10)}${registration ? `, ${registration}` : ''}</span></span>
            ${connection.mayChange
              ? html`<button aria-label="Take card ${card} away" @click=${() => this.ask_and_tell(
                  `Take card ${card} from ${who_is(user)}?`, ['It opens nothing then.'], 'Take away', 'card_remove', { card })}>Take away</button>`
              : nothing}
          </li>`,
        )}
      </ul>
      ${cards > first_cards.length ? html`<p class="quiet">and ${cards - first_cards.length} more: search for a card's number</p>` : nothing}
      ${connection.mayChange
        ? html`<enrollment-part .user=${user} @changed=${({ detail }) => this.changed(detail, user.user)}></enrollment-part>
            <form class="fields" @submit=${(event) => this.add_card(event, user)}>
              <label>Add a card by its number <input name="card" required autocomplete="off" placeholder="33 or 0x21" /></label>
              <p class="controls"><button>Add the card</button></p>
            </form>`
        : nothing}`;
  }

  async add_card(event, user) {
    event.preventDefault();
    const form = event.target;
    const card = form.elements.card.value.trim();
    await this.ask_and_tell(`Give card ${card} to ${who_is(user)}?`, [], 'Give', 'card_add', { card, user: user.user });
    form.reset();
  }

  drastic(user) {
    const [word, then] = user.blocked ? ['Unblock', 'His cards open again.'] : ['Block', 'His cards open nothing until you unblock him.'];
    return html`<button type="button" @click=${() =>
        this.ask_and_tell(`${word} ${who_is(user)}?`, [then], word, 'user_block', { user: user.user, blocked: !user.blocked })}>${word}</button>
      <button type="button" class="danger" @click=${() =>
        this.ask_and_tell(`Remove ${who_is(user)}?`, [`With ${user.cards === 1 ? '1 card' : `${user.cards} cards`}.`], 'Remove', 'user_remove', { user: user.user })}>Remove</button>`;
  }
}
customElements.define('person-dialog', PersonDialog);
