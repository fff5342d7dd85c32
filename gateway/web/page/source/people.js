// People and their cards, in parts: there may be a hundred thousand.
import { html, nothing } from 'lit';
import { connection } from './connection.js';
import './import.js';
import './person.js';
import { validity_of, who_is } from './person_words.js';
import { Screen } from './screen.js';

const kPart = 50; // people at once
const kQuiet = 250; // ms until a search that is typed is asked for

class PeopleScreen extends Screen {
  static properties = { found: { state: true }, search: { state: true }, failure: { state: true }, done: { state: true } };

  constructor() {
    super();
    Object.assign(this, { found: null, search: '', failure: '', done: '' });
  }

  connectedCallback() {
    super.connectedCallback();
    this.find();
  }

  // An answer that comes behind a later one's is of no use.
  async find(after = 0) {
    const turn = (this.turn = {});
    try {
      const found = await connection.command('user_find', { text: this.search.trim(), after, most: kPart });
      if (turn === this.turn) {
        this.found = after ? { ...found, users: [...this.found.users, ...found.users] } : found;
        this.failure = '';
      }
    } catch (failure) {
      this.failure = failure.message;
    }
  }

  type(text) {
    this.search = text;
    clearTimeout(this.quiet);
    this.quiet = setTimeout(() => this.find(), kQuiet);
  }

  // What a dialog has done.
  async changed({ detail }) {
    this.done = detail;
    await this.find();
  }

  render() {
    return html`
      <h1>People</h1>
      ${this.failure ? html`<p class="notice bad" role="alert">${this.failure}</p>` : nothing}
      <input type="search" aria-label="Search people" placeholder="Search: a name, a number, a card"
        .value=${this.search} @input=${({ target }) => this.type(target.value)} />
      <p class="controls">
        ${connection.mayChange
          ? html`<button class="main" @click=${() => this.open(null)}>Add a person</button>
              <button @click=${() => this.querySelector('import-dialog').open()}>Import…</button>`
          : nothing}
        <a class="button" href="/api/people" download="people.csv">Export</a>
      </p>
      <p class="done" role="status">${this.done}</p>
      ${this.found ? this.list(this.found) : html`<p class="notice">Asking the door…</p>`}
      <person-dialog @changed=${this.changed}></person-dialog>
      <import-dialog @changed=${this.changed}></import-dialog>
    `;
  }

  open(user) {
    this.querySelector('person-dialog').open(user);
  }

  list({ users, more, all_users, all_cards }) {
    return html`
      <p class="quiet">${all_users} ${all_users === 1 ? 'person' : 'people'}, ${all_cards} ${all_cards === 1 ? 'card' : 'cards'}</p>
      ${users.length === 0 ? html`<p class="notice">${this.search ? 'Nobody like that' : 'Nobody yet'}</p>` : nothing}
      <ul class="rows">
        ${users.map(
          (user) => html`<li>
            <button class="row" @click=${() => this.open(user)}>
              <strong>${who_is(user)}</strong>
              <span class=${user.blocked || user.damaged ? 'bad' : 'quiet'}>${validity_of(user)}</span>
            </button>
          </li>`,
        )}
      </ul>
      ${more ? html`<p class="controls"><button @click=${() => this.find(users.at(-1).user)}>Show more</button></p>` : nothing}
    `;
  }
}
customElements.define('people-screen', PeopleScreen);
