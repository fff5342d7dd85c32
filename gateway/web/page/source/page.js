import { LitElement, html, nothing } from "lit";
import { ask, enter, leave, lookOn, session } from "./door.js";
import { ago, clockOf, isBad, outcomeOf, personOf, plain, sentenceOf } from "./words.js";

const MOST = 400;  // entries
const READER = { answering: "good", noisy: "doubt", lent: "doubt", silent: "bad", gone: "bad", direct: "doubt" };
const MODES = ["normal", "locked", "unlocked"];
const STORAGE = /^(disk|journal|.*\.db)$/;

class DoorPage extends LitElement {
  static properties = {
    role: { state: true }, version: { state: true }, problem: { state: true }, status: { state: true },
    away: { state: true }, isLost: { state: true }, entries: { state: true }, wanted: { state: true },
    why: { state: true }, done: { state: true },
  };

  constructor() {
    super();
    Object.assign(this, { role: undefined, entries: [], wanted: "", why: {}, isLost: false, away: "", done: "" });
  }

  // The page's own style sheet holds, and a search of the browser finds all.
  createRenderRoot() { return this; }

  async connectedCallback() {
    super.connectedCallback();
    const link = location.hash.slice(1);
    history.replaceState(null, "", "/");
    try {
      const now = link ? await enter(link) : await session();
      this.begin(now);
    } catch (failure) {
      this.problem = failure.message;
      this.begin(await session().catch(() => ({ role: null })));
    }
  }

  begin({ role, version }) {
    this.role = role;
    this.version = version;
    if (role) this.source = lookOn(this.listener());
  }

  listener() {
    return {
      status: (status) => { this.status = status; this.away = ""; this.isLost = false; },
      away: ({ error }) => { this.away = error; this.isLost = false; },
      timeline: () => { this.entries = []; this.isLost = false; },
      entry: (entry) => { this.entries = [entry, ...this.entries].slice(0, MOST); },
      lost: () => { this.isLost = true; },
      out: () => { this.role = null; this.problem = "This session has ended."; },
    };
  }

  async act(words, ...request) {
    this.done = "";
    try {
      await ask(...request);
      this.done = words;
    } catch (failure) {
      this.done = failure.message;
    }
  }

  async explain(entry) {
    const { [entry.number]: told, ...others } = this.why;
    if (told !== undefined) {
      this.why = others;
      return;
    }
    const from = entry.at - 600_000;
    const answer = await ask("why", { card: entry.card, from, to: entry.at + 5_000, at: entry.at })
      .catch((failure) => ({ text: failure.message }));
    this.why = { ...this.why, [entry.number]: answer.text.trim() };
  }

  async end() {
    this.source?.close();
    await leave().catch(() => {});
    this.problem = "";
    this.role = null;
  }

  render() {
    if (this.role === undefined) return nothing;
    return this.role === null ? this.entrance() : this.door();
  }

  entrance() {
    return html`<header><h1>Door</h1></header>
      <main><div class="entrance cards">
        ${this.problem ? html`<p class="bad" role="alert">${this.problem}</p>` : nothing}
        <p>A link lets you in, once. On the door, <code>achost-web link</code> prints one.</p>
      </div></main>`;
  }

  door() {
    return html`<header><h1>Door</h1><span class="quiet">${this.role}</span><button @click=${this.end}>Log out</button></header>
      <main>
        ${this.isLost ? html`<p class="banner" role="alert">The connection is lost. What you see is old; it comes back by itself.</p>`
          : this.away ? html`<p class="banner" role="alert">${this.away}</p>` : nothing}
        <div class="cards">
          ${this.status ? [this.reader(), this.lock()] : nothing} ${this.person()}
          ${this.status ? [this.alarms(), this.machine()] : nothing}
        </div>
        ${this.timeline()}
      </main>`;
  }

  reader() {
    const { state, cause, way_out, last_answer_s } = this.status.health;
    return html`<section class="card"><h2>Reader</h2>
      <p class="big ${READER[state] ?? "bad"}">${plain(state)}</p>
      <p>last answer ${ago(last_answer_s)}</p>
      ${cause ? html`<p class="bad">${cause}</p>` : nothing}
      ${way_out ? html`<p class="quiet">${way_out}</p>` : nothing}</section>`;
  }

  lock() {
    const { lock, mode, by, contact } = this.status.door;
    return html`<section class="card"><h2>Door</h2>
      <p class="big">${lock === "open" ? "lock open" : "lock closed"}</p>
      <p>${contact ? `contact: ${plain(contact)}` : "no contact"}, mode ${mode}${by === "nobody" ? "" : ` (${by})`}</p>
      ${this.role === "admin" ? html`<div class="actions">
        <button class="main" @click=${() => this.act("The door is told to open.", "door_open")}>Open</button>
        ${MODES.map((one) => html`<button aria-pressed=${one === mode}
          @click=${() => this.act(`The door is ${one}.`, "door_mode", { mode: one })}>${one}</button>`)}
      </div>` : nothing}
      <p role="status" class="quiet">${this.done}</p></section>`;
  }

  person() {
    const last = this.entries.find(({ kind }) => kind === "identification");
    return html`<section class="card"><h2>Last person</h2>
      ${last ? html`<p class="big ${isBad(last) ? "bad" : ""}">${personOf(last)}</p>
        <p>${outcomeOf(last)}</p><p class="quiet">at ${clockOf(last)}</p>` : html`<p class="quiet">nobody yet</p>`}</section>`;
  }

  alarms() {
    const { alarms } = this.status;
    return html`<section class="card"><h2>Alarms</h2>
      ${alarms.length === 0 ? html`<p class="big good">none</p>`
        : alarms.map(({ name, text }) => html`<p class="bad"><strong>${plain(name)}</strong>: ${text}</p>`)}</section>`;
  }

  machine() {
    const { alarms, plugin, uptime_s } = this.status;
    const bad = alarms.some(({ name }) => STORAGE.test(name));
    return html`<section class="card"><h2>Machine</h2>
      <p>storage: <span class=${bad ? "bad" : "good"}>${bad ? "see the alarms" : "well"}</span></p>
      <p>plug-in: ${plugin ?? "not started"}</p>
      <p class="quiet">version ${this.version}, began ${ago(uptime_s)}</p></section>`;
  }

  timeline() {
    const wanted = this.wanted.toLowerCase();
    const shown = this.entries.map((entry) => [entry, sentenceOf(entry)])
      .filter(([entry, text]) => `${text} ${entry.card ?? ""} ${entry.time}`.toLowerCase().includes(wanted));
    return html`<section class="timeline" aria-label="Timeline">
      <div class="search"><h2>Timeline</h2>
        <input type="search" placeholder="Search" aria-label="Search the timeline"
          @input=${(event) => { this.wanted = event.target.value; }}></div>
      <ol>${shown.map(([entry, text]) => this.entry(entry, text))}</ol>
      ${shown.length === 0 ? html`<p class="search quiet">nothing here</p>` : nothing}</section>`;
  }

  entry(entry, text) {
    const told = this.why[entry.number];
    return html`<li><div class="row"><time datetime=${entry.time}>${clockOf(entry)}</time>
      <span class=${isBad(entry) ? "bad" : ""}>${text}</span>
      ${entry.kind === "identification" && entry.card
        ? html`<button aria-expanded=${told !== undefined} aria-label="Why: ${text}" @click=${() => this.explain(entry)}>why</button>`
        : nothing}</div>
      ${told !== undefined ? html`<p class="why">${told}</p>` : nothing}</li>`;
  }
}

customElements.define("door-page", DoorPage);
