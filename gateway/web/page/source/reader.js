// At the door, with the card in the hand: what the reader sees of it now, and the settings that follow from that.
import { html, nothing } from 'lit';
import uPlot from 'uplot';
import { connection } from './connection.js';
import { FieldFeed, dbm_of, percent, power_text } from './field.js';
import './number.js';
import './power.js';
import { Screen } from './screen.js';

const kShown = 30; // s of the trace
const kHeight = 90; // px
const kWeak = -90; // dBm
const kStrong = -30;
const kDown = ['silent', 'gone', 'lent', 'direct'];

class ReaderScreen extends Screen {
  static properties = { field: { state: true }, failure: { state: true } };

  constructor() {
    super();
    this.field = null;
    this.failure = '';
    this.trace = [[], []];
    this.fit = () => this.chart?.setSize({ width: this.querySelector('.trace').clientWidth, height: kHeight });
    this.feed = new FieldFeed((field, failure) => this.take(field, failure));
  }

  connectedCallback() {
    super.connectedCallback();
    this.feed.begin();
    addEventListener('resize', this.fit);
  }

  disconnectedCallback() {
    super.disconnectedCallback();
    this.feed.end();
    removeEventListener('resize', this.fit);
    this.chart?.destroy();
    this.chart = null;
  }

  take(field, failure) {
    this.failure = failure;
    this.field = field;
    this.seen = (field?.tags ?? [])
      .map((tag) => ({ ...tag, dbm: dbm_of(tag.rssi) }))
      .sort((a, b) => b.dbm - a.dbm); // the strongest first
    this.draw(performance.now() / 1000, this.seen[0]?.dbm ?? null);
  }

  draw(now, dbm) {
    const [times, values] = this.trace;
    times.push(now);
    values.push(dbm);
    while (times[0] < now - kShown) {
      times.shift();
      values.shift();
    }
    this.chart?.setScale('x', { min: now - kShown, max: now });
    this.chart?.setData(this.trace, false);
  }

  updated() {
    const place = this.querySelector('.trace');
    if (place && !this.chart) {
      this.chart = new uPlot(
        {
          width: place.clientWidth,
          height: kHeight,
          legend: { show: false },
          cursor: { show: false },
          scales: { x: { time: false }, y: { range: [kWeak, kStrong] } },
          axes: [{ show: false }, { stroke: getComputedStyle(this).color, size: 40, grid: { stroke: '#8884' }, splits: [-80, -60, -40] }],
          series: [{}, { stroke: '#2a7de1', width: 2, spanGaps: false }],
        },
        this.trace,
        place,
      );
    }
  }

  render() {
    const [first, ...others] = this.seen ?? [];
    return html`
      <h1 class="hidden">At the door</h1>
      <div class="at-the-door">
        ${this.signal(first)}
        <div class="part settings">
          ${connection.mayChange
            ? html`<power-card .field=${this.field} .tag=${first}></power-card><number-card .tag=${first}></number-card>`
            : this.radio()}
        </div>
        <div class="part more">
          <section class="card neutral">
            <h2>The last ${kShown} seconds</h2>
            <div class="trace" role="img" aria-label="Strength of the card in the field over the last ${kShown} seconds, in dBm"></div>
            ${first?.reason ? html`<p>${first.reason}</p>` : nothing}
          </section>
          ${others.length === 0
            ? nothing
            : html`<section class="card neutral">
                <h2>Also there</h2>
                <ul>
                  ${others.map(({ card, dbm, share }) => html`<li>Card ${card}, ${dbm} dBm, ${percent(share)} of the polls</li>`)}
                </ul>
              </section>`}
        </div>
      </div>
    `;
  }

  signal(first) {
    const health = connection.status?.health;
    const trouble = this.failure || connection.away || (kDown.includes(health?.state) ? health.cause || health.state : '');
    if (trouble) {
      return html`<section class="signal card bad" role="alert">
        <h2>Reader</h2>
        <p class="huge">${health && !this.failure ? health.state : 'not heard'}</p>
        <p>${trouble}</p>
        ${health?.way_out ? html`<p><strong>${health.way_out}</strong></p>` : nothing}
      </section>`;
    }
    return html`<section class="signal card ${first ? 'good' : 'neutral'}">
      <h2>In the field</h2>
      <p class="huge ${first?.card.length > 8 ? 'long' : ''}" aria-live="polite">${first ? first.card : 'No card'}</p>
      ${first
        ? html`<p class="epc">${first.epc}</p>
            <meter min=${kWeak} max=${kStrong} low="-75" high="-60" optimum=${kStrong} .value=${first.dbm} aria-label="Strength"></meter>
            <p><strong>${first.dbm} dBm</strong>, read in <strong>${percent(first.share)}</strong> of the polls</p>`
        : html`<p>${this.field ? 'Hold one to the reader.' : 'Asking the door…'}</p>`}
    </section>`;
  }

  // For who may only look.
  radio() {
    const { status } = connection;
    return status && this.field
      ? html`<section class="card neutral">
          <h2>Radio</h2>
          <dl>
            <dt>Power</dt>
            <dd>${power_text(this.field.radio.power)}${this.field.radio.trial_s === null ? nothing : '; somebody tries another one now'}</dd>
            <dt>Region</dt>
            <dd>${status.settings.region}</dd>
            <dt>Mode</dt>
            <dd>${status.settings.operation_mode}</dd>
          </dl>
        </section>`
      : nothing;
  }
}
customElements.define('reader-screen', ReaderScreen);
