// One setting: a change says what it will do before it is made, and what the door has read back.
import { html, nothing } from 'lit';
import { connection } from './connection.js';
import { Screen } from './screen.js';
import { shown } from './setting_words.js';

const kNotInForce = 9;

class SettingDialog extends Screen {
  static properties = {
    setting: { state: true },
    wanted: { state: true },
    failure: { state: true },
    done: { state: true },
    before: { state: true },
    isBusy: { state: true },
  };

  async open(setting) {
    Object.assign(this, { setting, wanted: setting.value, failure: '', done: '', before: null, isBusy: false });
    await this.updateComplete;
    this.querySelector('dialog').showModal();
  }

  // before: what an undo would have back.
  async set(value, before) {
    const { section, key } = this.setting;
    Object.assign(this, { isBusy: true, failure: '', done: '' });
    try {
      const stored = await connection.command('config_set', { section, key, value });
      this.take(stored, before);
    } catch (failure) {
      this.failure = failure.message;
      if (failure.kind === kNotInForce) {
        this.take(await connection.command('config_get', { section, key }), before);
      }
    }
    this.isBusy = false;
  }

  take({ value, in_force, reason }, before) {
    this.setting = { ...this.setting, value, in_force, reason };
    Object.assign(this, { wanted: value, before, done: `The door has read back: ${shown(this.setting, value)}` });
    this.dispatchEvent(new CustomEvent('changed'));
  }

  render() {
    const { setting } = this;
    return html`<dialog class="wide" aria-labelledby="setting-title">
      <h2 id="setting-title">${setting?.key}</h2>
      ${setting ? this.body(setting) : nothing}
      <form method="dialog" class="controls"><button>Close</button></form>
    </dialog>`;
  }

  body(setting) {
    const { help, allowed, unit, default: standard, live, value, in_force, reason, overridden } = setting;
    return html`
      <p>${help}</p>
      <dl>
        <dt>Now</dt><dd>${shown(setting, value)}${overridden ? ', given for this run' : ''}</dd>
        ${in_force === undefined ? nothing : html`<dt>In force</dt><dd class="bad">${shown(setting, in_force)}: ${reason}</dd>`}
        <dt>Allowed</dt><dd>${allowed}${unit && unit !== '-' ? `, in ${unit}` : ''}</dd>
        <dt>Default</dt><dd>${shown(setting, standard)}</dd>
        <dt>A change</dt><dd>${live ? 'applies at once' : 'applies at the next start of achost'}</dd>
      </dl>
      ${connection.mayChange ? this.form(setting) : nothing}
    `;
  }

  form(setting) {
    const { value, default: standard, live } = setting;
    const isOther = this.wanted !== value;
    return html`<form class="fields" @submit=${(event) => {
      event.preventDefault();
      this.set(this.wanted, value);
    }}>
      <label>New value ${this.field(setting)}</label>
      ${this.failure ? html`<p class="failure" id="setting-failure" role="alert">${this.failure}</p>` : nothing}
      <p role="status">
        ${this.isBusy
          ? 'Asking the door…'
          : isOther
            ? html`<strong>${shown(setting, value)} → ${shown(setting, this.wanted)}</strong>, ${live ? 'at once' : 'at the next start of achost'}`
            : html`<span class="done">${this.done}</span>`}
      </p>
      <p class="controls">
        <button class="main" ?disabled=${!isOther || this.isBusy}>Apply</button>
        ${this.before !== null && !isOther
          ? html`<button type="button" ?disabled=${this.isBusy} @click=${() => this.set(this.before, null)}>Undo: ${shown(setting, this.before)}</button>`
          : nothing}
        ${this.wanted !== standard
          ? html`<button type="button" ?disabled=${this.isBusy} @click=${() => (this.wanted = standard)}>Default: ${shown(setting, standard)}</button>`
          : nothing}
      </p>
    </form>`;
  }

  field({ type, choices, min }) {
    const fault = this.failure ? 'true' : nothing;
    const take = ({ target }) => (this.wanted = target.value);
    if (type === 'choice' || type === 'flag') {
      const all = type === 'flag' ? ['0', '1'] : choices;
      return html`<select aria-invalid=${fault} @change=${take}>
        ${all.map((one) => html`<option value=${one} .selected=${one === this.wanted}>${one}</option>`)}
      </select>`;
    }
    return html`<input autocomplete="off" aria-invalid=${fault} aria-describedby=${fault === nothing ? nothing : 'setting-failure'}
      inputmode=${type === 'integer' && min >= 0 ? 'numeric' : 'text'} .value=${this.wanted ?? ''} @input=${take} />`;
  }
}
customElements.define('setting-dialog', SettingDialog);
