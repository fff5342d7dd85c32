// Why a card opened the door then, or did not.
import { html, nothing } from 'lit';
import { connection } from './connection.js';
import { Screen, time_of } from './screen.js';

const kAround = 10_000; // ms

class WhyDialog extends Screen {
  static properties = { entry: { state: true }, answer: { state: true }, failure: { state: true } };

  async ask(entry) {
    Object.assign(this, { entry, answer: null, failure: '' });
    await this.updateComplete;
    this.querySelector('dialog').showModal();
    try {
      const { at } = entry;
      this.answer = await connection.command('why', { card: entry.card, from: at - kAround, to: at + kAround, at });
    } catch (failure) {
      this.failure = failure.message;
    }
  }

  render() {
    return html`<dialog aria-labelledby="why-title">
      <h2 id="why-title">Card ${this.entry?.card}, ${this.entry ? time_of(this.entry.time) : ''}</h2>
      ${this.failure ? html`<p class="failure" role="alert">${this.failure}</p>` : nothing}
      ${this.answer ? html`<pre>${this.answer.text ?? ''}</pre>` : this.failure ? nothing : html`<p>Asking…</p>`}
      <form method="dialog"><button class="main">Close</button></form>
    </dialog>`;
  }
}
customElements.define('why-dialog', WhyDialog);
