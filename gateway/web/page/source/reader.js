// At the door, with the card in the hand: what the reader sees of it now.
import { html, nothing } from 'lit';
import uPlot from 'uplot';
import { connection } from './connection.js';
import { Screen } from './screen.js';

const kPeriod = 400; // ms
const kShown = 30; // s of the trace
const kWeak = -90; // dBm
const kStrong = -30;

// The module tells the strength as a byte in two's complement.
const dbm_of = (rssi) => (rssi > 127 ? rssi - 256 : rssi);

class ReaderScreen extends Screen {
  static properties = { seen: { state: true }, failure: { state: true } };

  constructor() {
    super();
    this.seen = [];
    this.failure = '';
    this.trace = [[], []];
    this.polls = new Map(); // of each tag, at the latest look
  }

  connectedCallback() {
    super.connectedCallback();
    this.look();
  }

  disconnectedCallback() {
    super.disconnectedCallback();
    clearTimeout(this.next);
    this.chart?.destroy();
    this.chart = null;
  }

  async look() {
    try {
      const { sightings } = await connection.command('why_now');
      this.take(sightings.filter(({ goes_on }) => goes_on));
      this.failure = '';
    } catch (failure) {
      this.failure = failure.message;
    }
    if (this.isConnected) {
      this.next = setTimeout(() => this.look(), kPeriod);
    }
  }

  // The strongest first.
  take(sightings) {
    const now = performance.now() / 1000;
    const before = this.polls;
    this.polls = new Map(sightings.map(({ epc, polls }) => [epc, { polls, now }]));
    this.seen = sightings
      .map((one) => ({ ...one, dbm: dbm_of(one.rssi), share: this.share_of(one, before.get(one.epc), now) }))
      .sort((a, b) => b.dbm - a.dbm);
    this.draw(now, this.seen[0]?.dbm ?? null);
  }

  // Of the polls since the latest look, those that have read it.
  share_of({ polls }, before, now) {
    const rate = connection.status?.health.polls_per_second;
    return before && rate ? Math.min(1, (polls - before.polls) / ((now - before.now) * rate)) : null;
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
          height: 120,
          legend: { show: false },
          cursor: { show: false },
          scales: { x: { time: false }, y: { range: [kWeak, kStrong] } },
          axes: [{ show: false }, { stroke: getComputedStyle(this).color, size: 40, grid: { stroke: '#8884' } }],
          series: [{}, { stroke: '#2a7de1', width: 2, spanGaps: false }],
        },
        this.trace,
        place,
      );
    }
  }

  render() {
    const [first, ...others] = this.seen;
    return html`
      <h1 class="hidden">At the door</h1>
      <section class="signal card ${first ? 'good' : 'neutral'}">
        <h2>In the field</h2>
        ${first ? this.card(first) : html`<p class="huge">No card</p><p>Hold one to the reader.</p>`}
        <div class="trace" role="img" aria-label="Strength of the card in the field over the last ${kShown} seconds, in dBm"></div>
        ${this.failure ? html`<p class="failure" role="alert">${this.failure}</p>` : nothing}
      </section>
      ${others.length === 0
        ? nothing
        : html`<section class="card">
            <h2>Also there</h2>
            <ul>
              ${others.map(({ card, dbm }) => html`<li>Card ${card}, ${dbm} dBm</li>`)}
            </ul>
          </section>`}
      ${connection.status ? this.settings(connection.status.settings) : nothing}
    `;
  }

  card({ card, epc, dbm, share, fates }) {
    const reason = fates?.at(-1)?.reasons?.[0]?.text;
    return html`
      <p class="huge" aria-live="polite">${card}</p>
      <p class="epc">${epc}</p>
      <p>
        <meter min=${kWeak} max=${kStrong} low="-75" high="-60" optimum=${kStrong} .value=${dbm} aria-label="Strength"></meter>
        <strong>${dbm} dBm</strong>${share === null ? nothing : html`, read in ${Math.round(share * 100)} % of the polls`}
      </p>
      ${reason ? html`<p>${reason}</p>` : nothing}
    `;
  }

  settings({ region, transmit_power, operation_mode }) {
    return html`<section class="card neutral">
      <h2>Radio</h2>
      <dl>
        <dt>Power</dt>
        <dd>${(Number(transmit_power) / 100).toFixed(1)} dBm</dd>
        <dt>Region</dt>
        <dd>${region}</dd>
        <dt>Mode</dt>
        <dd>${operation_mode}</dd>
      </dl>
    </section>`;
  }
}
customElements.define('reader-screen', ReaderScreen);
