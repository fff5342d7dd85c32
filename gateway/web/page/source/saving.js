// Settings that are stored, read back, and taken back with one tap.
import { html, nothing } from 'lit';
import { connection } from './connection.js';

const name_of = ({ section, key }) => `${section}.${key}`;

async function values_of(wanted) {
  const { settings } = await connection.command('config_list');
  return wanted.map(({ section, key }) => settings.find((one) => one.section === section && one.key === key));
}

export class Saving {
  #host;
  #said;
  state = null; // {text, failure, before}

  // said: what to say of the values that were read back; may ask the door.
  constructor(host, said) {
    this.#host = host;
    this.#said = said;
  }

  // wanted: [{section, key, value}], all or none.
  async save(wanted) {
    await this.#store(wanted, (before) => ({ before }));
  }

  async undo() {
    await this.#store(this.state.before, () => ({}));
  }

  async #store(wanted, kept) {
    this.#show({ text: 'Storing…' });
    let before = [];
    try {
      before = await values_of(wanted);
      await connection.command('config_import', { settings: wanted.map((one) => `${name_of(one)}=${one.value}`) });
      const after = await values_of(wanted);
      const waits = after.find(({ reason }) => reason);
      this.#show({ text: await this.#said(after), failure: waits ? `not in force yet: ${waits.reason}` : '', ...kept(before) });
    } catch (failure) {
      // What is stored and not in force yet can be taken back, too.
      const is_stored = before.length > 0 && (await this.#is_stored(wanted));
      this.#show({ text: '', failure: failure.message, ...(is_stored ? kept(before) : {}) });
    }
  }

  async #is_stored(wanted) {
    const now = await values_of(wanted).catch(() => []);
    return now.length > 0 && now.every(({ value }, at) => value === `${wanted[at].value}`);
  }

  #show(state) {
    this.state = state;
    this.#host.requestUpdate();
  }

  render() {
    if (!this.state) {
      return nothing;
    }
    const { text, failure, before } = this.state;
    return html`${text ? html`<p role="status">${text}</p>` : nothing}
      ${failure ? html`<p class="failure" role="alert">${failure}</p>` : nothing}
      ${before ? html`<p class="controls"><button @click=${() => this.undo()}>Undo</button></p>` : nothing}`;
  }
}
