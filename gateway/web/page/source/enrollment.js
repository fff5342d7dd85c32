// The next card that comes to the reader is his.
import { html, nothing } from 'lit';
import { connection } from './connection.js';
import { who_is } from './person_words.js';
import { question } from './question.js';
import { Screen } from './screen.js';

class EnrollmentPart extends Screen {
  static properties = { user: { attribute: false }, waiting: { state: true }, result: { state: true } };

  constructor() {
    super();
    Object.assign(this, { user: null, waiting: null, result: null });
  }

  disconnectedCallback() {
    super.disconnectedCallback();
    this.cancel();
  }

  willUpdate(changes) {
    if (changes.has('user') && changes.get('user')?.user !== this.user?.user) {
      this.cancel();
      this.result = null;
    }
  }

  async begin() {
    const waiting = new AbortController();
    Object.assign(this, { waiting, result: null, after: connection.entries[0]?.number ?? 0 });
    try {
      const { card } = await connection.enroll(this.user.user, waiting.signal);
      this.result = { text: `Card ${card} is now of ${who_is(this.user)}. It was nobody's before.` };
      this.tell(`card ${card} is now of ${who_is(this.user)}`);
    } catch (failure) {
      this.result = waiting.signal.aborted
        ? { text: 'Cancelled: no card was taken.' }
        : { failure: failure.message };
    }
    this.waiting = null;
  }

  cancel() {
    this.waiting?.abort();
  }

  // A card that came while it waited.
  get held() {
    return connection.entries.find(
      ({ number, kind, card }) => number > this.after && kind === 'identification' && card !== undefined,
    );
  }

  // The journal tells of the card a little later than the door of its failure.
  updated() {
    const { result, held } = this;
    if (result?.failure && held && !result.isLookedFor) {
      result.isLookedFor = true;
      this.look_for_holder(result, held.card);
    }
  }

  async look_for_holder(result, card) {
    const { users } = await connection.command('user_find', { text: card }).catch(() => ({ users: [] }));
    const user = users.find(({ first_cards }) => first_cards.some((one) => one.card === card));
    if (user && this.result === result) {
      this.result = { ...result, holder: { card, user } };
    }
  }

  async move({ card, user }) {
    if (await question(`Take card ${card} from ${who_is(user)}?`, [`Then it is ${who_is(this.user)}'s.`], 'Take it')) {
      try {
        await connection.command('card_remove', { card });
        const { done } = await connection.command('card_add', { card, user: this.user.user });
        this.result = { text: done };
        this.tell(done);
      } catch (failure) {
        this.result = { failure: failure.message };
      }
    }
  }

  tell(detail) {
    this.dispatchEvent(new CustomEvent('changed', { detail }));
  }

  render() {
    return html`<section class="enrollment" aria-live="polite">
      ${this.waiting ? this.wait() : html`<button class="main" @click=${this.begin}>Enroll a card</button>`}
      ${this.result ? this.outcome(this.result) : nothing}
    </section>`;
  }

  wait() {
    return html`<p class="big">Hold the card to the reader</p>
      <p>${this.held ? `Card ${this.held.card} is there` : `The next card is ${who_is(this.user)}'s.`}</p>
      <p class="controls"><button @click=${this.cancel}>Cancel</button></p>`;
  }

  outcome({ text, failure, holder }) {
    return failure
      ? html`<p class="failure" role="alert">${failure}</p>
          ${holder
            ? html`<p>It is card ${holder.card}, of ${who_is(holder.user)}.</p>
                <p class="controls"><button @click=${() => this.move(holder)}>Take it from ${who_is(holder.user)}…</button></p>`
            : nothing}`
      : html`<p class="done">${text}</p>`;
  }
}
customElements.define('enrollment-part', EnrollmentPart);
