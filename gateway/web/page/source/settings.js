// What can be set: what it is, what it is now, and what a change would do.
import { html, nothing } from 'lit';
import { connection } from './connection.js';
import { Screen } from './screen.js';
import './setting.js';
import { shown } from './setting_words.js';

const kSections = { uhf: 'Reader', host: 'Door' };

class SettingsScreen extends Screen {
  static properties = { settings: { state: true }, search: { state: true }, failure: { state: true } };

  constructor() {
    super();
    Object.assign(this, { settings: null, search: '', failure: '' });
  }

  connectedCallback() {
    super.connectedCallback();
    this.look();
  }

  // Each with what it may be and what it is.
  async look() {
    try {
      const [{ settings: schema }, { settings: values }] = await Promise.all([
        connection.command('config_schema'),
        connection.command('config_list'),
      ]);
      const found = new Map(values.map((value) => [`${value.section}.${value.key}`, value]));
      this.settings = schema.map((one) => ({ ...one, ...found.get(`${one.section}.${one.key}`) }));
      this.failure = '';
    } catch (failure) {
      this.failure = failure.message;
    }
  }

  render() {
    return html`
      <h1>Settings</h1>
      ${this.failure ? html`<p class="notice bad" role="alert">${this.failure}</p>` : nothing}
      <input type="search" aria-label="Search settings" placeholder="Search: a key, a word of its help"
        .value=${this.search} @input=${({ target }) => (this.search = target.value)} />
      ${this.settings ? Object.entries(kSections).map(([section, title]) => this.section(section, title)) : html`<p class="notice">Asking the door…</p>`}
      <setting-dialog @changed=${this.look}></setting-dialog>
    `;
  }

  section(section, title) {
    const wanted = this.search.trim().toLowerCase();
    const settings = this.settings.filter(
      (one) => one.section === section && `${one.section}.${one.key} ${one.help}`.toLowerCase().includes(wanted),
    );
    return html`<section>
      <h2>${title}</h2>
      ${settings.length === 0 ? html`<p class="quiet">Nothing like that</p>` : nothing}
      <ul class="rows">
        ${settings.map(
          (one) => html`<li>
            <button class="row" @click=${() => this.querySelector('setting-dialog').open(one)}>
              <strong>${one.key}</strong>
              <span>${shown(one, one.value)}${one.value === one.default ? '' : html` <span class="quiet">changed</span>`}
                ${one.overridden ? html`<span class="quiet">for this run</span>` : nothing}
                ${one.in_force === undefined ? nothing : html`<span class="bad">not in force: it has ${shown(one, one.in_force)}</span>`}
              </span>
              <span class="quiet">${one.help}</span>
            </button>
          </li>`,
        )}
      </ul>
    </section>`;
  }
}
customElements.define('settings-screen', SettingsScreen);
