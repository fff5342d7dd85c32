// Which settings make the number that is printed on the card.
import { html, nothing } from 'lit';
import { connection } from './connection.js';
import { Saving } from './saving.js';
import { Screen } from './screen.js';

const kEnds = { msb: 'last', lsb: 'first' };

const words_of = ({ identification_bits, reader_type }) =>
  `${identification_bits} bits from its ${kEnds[reader_type] ?? kEnds.msb} bytes`;
const settings_of = ({ identification_bits, reader_type }) => [
  { section: 'uhf', key: 'identification_bits', value: identification_bits },
  { section: 'uhf', key: 'reader_type', value: reader_type },
];

class NumberCard extends Screen {
  static properties = {
    tag: { attribute: false }, // the card in the field
    printed: { state: true },
    forms: { state: true }, // that make it; null: nobody has asked
    chosen: { state: true },
    failure: { state: true },
  };

  constructor() {
    super();
    Object.assign(this, { printed: '', forms: null, chosen: 0, failure: '' });
    this.saving = new Saving(this, ([bits, type]) =>
      `Stored: ${words_of({ identification_bits: bits.value, reader_type: type.value })}.`);
  }

  async find(event) {
    event.preventDefault();
    Object.assign(this, { forms: null, chosen: 0, failure: '' });
    this.saving.state = null;
    if (!this.tag) {
      this.failure = 'Hold the card to the reader, so that its EPC is known.';
      return;
    }
    try {
      ({ forms: this.forms } = await connection.command('card_forms', { epc: this.tag.epc, printed: this.printed }));
    } catch (failure) {
      this.failure = failure.message;
    }
  }

  render() {
    return html`<section class="card neutral">
      <h2>Number on the card</h2>
      <p>${this.tag ? html`The door calls the card in the field <strong>${this.tag.card}</strong>.` : 'No card is in the field.'}</p>
      <form class="controls" @submit=${(event) => this.find(event)}>
        <label for="printed">Printed on it</label>
        <input
          id="printed"
          type="text"
          autocomplete="off"
          placeholder="0012345678 or 123,45678"
          .value=${this.printed}
          @input=${({ target }) => (this.printed = target.value)}
        />
        <button ?disabled=${this.printed.trim() === ''}>Find</button>
      </form>
      ${this.failure ? html`<p class="failure" role="alert">${this.failure}</p>` : nothing}
      ${this.forms ? this.found() : nothing} ${this.saving.render()}
    </section>`;
  }

  found() {
    if (this.forms.length === 0) {
      return html`<p class="failure" role="alert">
        No settings make that number of this card's EPC. Is it this card's, with all its digits?
      </p>`;
    }
    const form = this.forms[this.chosen];
    return html`<fieldset>
        <legend>${this.forms.length > 1 ? 'These make it; a second card tells them apart' : 'This makes it'}</legend>
        ${this.forms.map(
          (one, at) => html`<label class="choice">
            <input type="radio" name="form" .checked=${at === this.chosen} @change=${() => (this.chosen = at)} />
            <span>${words_of(one)}: <strong>${one.card}</strong></span>
          </label>`,
        )}
      </fieldset>
      ${form.card === this.tag?.card
        ? html`<p role="status">The door calls it so.</p>`
        : html`<p class="quiet">Cards that are enrolled already get other numbers, too.</p>
            <p class="controls">
              <button class="main" @click=${() => this.saving.save(settings_of(form))}>Save ${words_of(form)}</button>
            </p>`}`;
  }
}
customElements.define('number-card', NumberCard);
