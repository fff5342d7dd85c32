// A table of people: first what would become of whom, then that.
import { html, nothing } from 'lit';
import { connection } from './connection.js';
import { Screen } from './screen.js';

const kLargest = 16 * 1024 * 1024; // bytes; the door takes no more at once

class ImportDialog extends Screen {
  static properties = { file: { state: true }, plan: { state: true }, failure: { state: true }, isBusy: { state: true } };

  constructor() {
    super();
    this.forget();
  }

  forget() {
    Object.assign(this, { file: null, plan: null, failure: '', isBusy: false });
  }

  async open() {
    this.forget();
    await this.updateComplete;
    this.querySelector('form').reset();
    this.querySelector('dialog').showModal();
  }

  get options() {
    return ['move', 'replace'].filter((name) => this.querySelector(`[name=${name}]`).checked).map((name) => `${name}=1`).join('&');
  }

  // A file that is chosen again counts anew: it may have been mended. The same file with the same options, so that what was planned is what is done.
  async look() {
    const file = this.querySelector('[type=file]').files[0];
    Object.assign(this, { file, plan: null, failure: '' });
    if (file && file.size > kLargest) {
      this.failure = `${file.name} is larger than 16 MB: take several files`;
    } else if (file) {
      this.plan = await this.send('/api/people/plan');
    }
  }

  async take() {
    const taken = await this.send('/api/people');
    if (taken) {
      this.dispatchEvent(new CustomEvent('changed', { detail: taken.done }));
      this.querySelector('dialog').close();
    }
  }

  async send(path) {
    Object.assign(this, { isBusy: true, failure: '' });
    try {
      return await connection.upload(`${path}?${this.options}`, this.file);
    } catch (failure) {
      const stored = failure.kind === undefined ? 'Look whether it is stored before you send it again.' : 'Nothing is stored.';
      this.failure = `${failure.message}. ${stored}`;
      return null;
    } finally {
      this.isBusy = false;
    }
  }

  render() {
    return html`<dialog class="wide" aria-labelledby="import-title">
      <h2 id="import-title">Import people</h2>
      <form method="dialog" class="fields">
        <label>A file as the export makes it, CSV or JSON lines <input type="file" accept=".csv,.jsonl,.json,.txt"
          @click=${({ target }) => (target.value = '')} @change=${this.look} /></label>
        <label class="tick"><input type="checkbox" name="move" @change=${this.look} /> A card may be somebody else's before</label>
        <label class="tick"><input type="checkbox" name="replace" @change=${this.look} /> Whom the file does not name goes</label>
        ${this.isBusy ? html`<p role="status">Sending…</p>` : nothing}
        ${this.failure ? html`<p class="failure" role="alert">${this.failure}</p>` : nothing}
        ${this.plan ? this.planned(this.plan) : nothing}
        <p class="controls">
          ${this.plan ? html`<button type="button" class="main" ?disabled=${this.isBusy} @click=${this.take}>Import</button>` : nothing}
          <button>Close</button>
        </p>
      </form>
    </dialog>`;
  }

  planned({ done, plan }) {
    return html`<h3>What it would do</h3>
      <p role="status">${done}</p>
      ${plan ? html`<pre class="plan" tabindex="0" aria-label="What would become of whom, the first of it">${plan}</pre>` : nothing}`;
  }
}
customElements.define('import-dialog', ImportDialog);
