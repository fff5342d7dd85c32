// The power of the reader: tried at once, taken back unless it is saved.
import { html, nothing } from 'lit';
import { connection } from './connection.js';
import { percent, power_text, dbm_of } from './field.js';
import { Saving } from './saving.js';
import { Screen, span_text } from './screen.js';
import { Survey } from './survey.js';

const kSettle = 150; // ms without another move, before the reader hears of it
const kRenew = 4000; // ms; the door takes a power back that nobody has asked for in ten seconds
const kLongest = 120_000; // ms that a power is tried without a touch
const kStep = 50; // hundredths of a dBm

const kPower = { section: 'uhf', key: 'transmit_power' };

class PowerCard extends Screen {
  static properties = {
    field: { attribute: false }, // what the door sees
    tag: { attribute: false }, // the strongest
    wanted: { state: true }, // of the slider, while it is not what is stored
    failure: { state: true },
  };

  constructor() {
    super();
    this.wanted = null;
    this.failure = '';
    this.survey = new Survey(() => this.requestUpdate());
    this.saving = new Saving(this, async ([{ value }]) => {
      const { power } = await connection.command('try_power');
      this.give_up();
      return `Stored: ${power_text(value)}. The reader says: ${power_text(power)}.`;
    });
  }

  disconnectedCallback() {
    super.disconnectedCallback();
    this.survey.stop();
    if (this.wanted !== null) {
      this.take_back();
    }
  }

  get is_busy() {
    return this.survey.progress !== null;
  }

  // All that the slider can give: the limit too, where it lies between two steps.
  powers() {
    const { power, most } = this.field.radio;
    const steps = Array.from({ length: Math.floor(most / kStep) + 1 }, (_, i) => i * kStep);
    return [...new Set([...steps, most, power])].sort((a, b) => a - b);
  }

  move(power) {
    this.wanted = power;
    this.touched = Date.now();
    this.saving.state = null;
    clearTimeout(this.next);
    this.next = setTimeout(() => this.ask_for_it(), kSettle);
  }

  // Again and again, while somebody is here.
  async ask_for_it() {
    if (this.wanted === null || this.is_asking) {
      return;
    }
    if (Date.now() - this.touched > kLongest) {
      this.take_back();
      return;
    }
    const asked = this.wanted;
    this.is_asking = true;
    try {
      const { power } = await connection.command('try_power', { power: asked });
      this.failure = power === asked ? '' : `The reader was told ${power_text(asked)} and has ${power_text(power)}.`;
    } catch (failure) {
      this.failure = failure.message;
    }
    this.is_asking = false;
    clearTimeout(this.next);
    this.next = setTimeout(() => this.ask_for_it(), this.wanted === asked ? kRenew : 0);
  }

  give_up() {
    clearTimeout(this.next);
    this.wanted = null;
  }

  async take_back() {
    this.give_up();
    try {
      await connection.command('try_power');
      this.failure = '';
    } catch (failure) {
      this.failure = failure.message;
    }
  }

  async mark(must) {
    this.give_up();
    try {
      await this.survey.mark(must, this.field.radio.most, this.tag?.epc);
      this.failure = '';
    } catch (failure) {
      this.failure = failure.message;
    }
  }

  save() {
    this.saving.save([{ ...kPower, value: this.wanted }]);
  }

  render() {
    if (!this.field) {
      return nothing;
    }
    const { power, most, region } = this.field.radio;
    const shown = this.wanted ?? power;
    return html`<section class="card neutral">
      <h2>Power</h2>
      <p class="big" id="power-now">${power_text(shown)}</p>
      <p class="quiet">${this.standing()}</p>
      ${this.slider(shown)}
      <p class="quiet">${region} allows ${power_text(most)} with an antenna of 6 dBi.</p>
      ${this.failure ? html`<p class="failure" role="alert">${this.failure}</p>` : nothing} ${this.marks()}
      <div class="thumb">${this.ways_out(power)}</div>
    </section>`;
  }

  // Where a thumb reaches them, wherever the page stands.
  ways_out(power) {
    return this.wanted === null || this.wanted === power
      ? this.saving.render()
      : html`<p class="controls">
          <button class="main" @click=${() => this.save()}>Save ${power_text(this.wanted)}</button>
          <button @click=${() => this.take_back()}>Take back</button>
        </p>`;
  }

  standing() {
    if (this.is_busy) {
      return 'The card is being listened to at each power.';
    }
    if (this.wanted === null || this.wanted === this.field.radio.power) {
      return this.field.radio.trial_s === null || this.wanted !== null ? 'Stored.' : 'Stored. Somebody tries another one now.';
    }
    return `Tried, not stored: taken back ${span_text(kLongest / 1000)} after your last touch, or when this page goes.`;
  }

  slider(shown) {
    const powers = this.powers();
    const at = powers.findIndex((power) => power >= shown);
    const step = (by) => this.move(powers[Math.min(Math.max(at + by, 0), powers.length - 1)]);
    return html`<div class="slider">
      <button aria-label="Less power" ?disabled=${this.is_busy} @click=${() => step(-1)}>−</button>
      <input
        type="range"
        aria-label="Power"
        min="0"
        max=${powers.length - 1}
        .value=${String(at)}
        aria-valuetext=${power_text(shown)}
        ?disabled=${this.is_busy}
        @input=${({ target }) => this.move(powers[target.value])}
      />
      <button aria-label="More power" ?disabled=${this.is_busy} @click=${() => step(1)}>+</button>
    </div>`;
  }

  marks() {
    const { marks, progress, choice } = this.survey;
    return html`<h3>Which power?</h3>
      <p class="quiet">Hold the card where it must open, and tap; then where it must not, a pocket in the hallway. Hold still for ten seconds.</p>
      ${progress
        ? html`<p role="status"><strong>Hold still</strong>: ${power_text(progress.power)}, ${progress.at} of ${progress.of} at most</p>
            <progress aria-label="Listening" max=${progress.of} .value=${progress.at}></progress>
            <p class="controls"><button @click=${() => this.survey.stop()}>Stop</button></p>`
        : html`<p class="controls wide">
            <button @click=${() => this.mark(true)}>Must read here</button>
            <button @click=${() => this.mark(false)}>Must not read here</button>
          </p>`}
      ${marks.length === 0 ? nothing : html`<ul class="marks">${marks.map((mark) => this.marked(mark))}</ul>`}
      ${choice ? this.recommendation(choice) : nothing}`;
  }

  marked(mark) {
    const read = mark.steps.filter(({ share }) => share > 0);
    const best = read.reduce((a, b) => (b.share > a.share ? b : a), read[0]);
    return html`<li>
      <span
        ><strong>${mark.must ? 'Must read' : 'Must not read'}</strong>:
        ${best
          ? `from ${power_text(read.at(-1).power)} on; ${percent(best.share)} of the polls, ${dbm_of(best.rssi)} dBm at best`
          : 'it is not'}</span
      >
      <button class="link" ?disabled=${this.is_busy} aria-label=${`Remove: ${mark.must ? 'must read' : 'must not read'}`}
        @click=${() => this.survey.remove(mark)}>Remove</button>
    </li>`;
  }

  recommendation({ power, text }) {
    return html`<p class=${power === null ? 'failure' : ''} role="status"><strong>Recommended</strong>: ${text}.</p>
      ${power === null || power === (this.wanted ?? this.field.radio.power)
        ? nothing
        : html`<p class="controls"><button class="main" ?disabled=${this.is_busy} @click=${() => this.move(power)}>Try ${power_text(power)}</button></p>`}`;
  }
}
customElements.define('power-card', PowerCard);
