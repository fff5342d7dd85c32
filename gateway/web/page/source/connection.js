// What the page knows of the door, and how it asks. One for all screens; a "change" event tells them.

const kMostEntries = 200;

async function asked(path, options = {}) {
  const response = await fetch(path, { cache: 'no-store', ...options });
  const body = await response.json().catch(() => ({}));
  if (!response.ok) {
    const text = body.error ?? `the door answers ${response.status}`;
    throw Object.assign(new Error(text), { status: response.status, kind: body.status });
  }
  return body;
}

const post = (path, body, options = {}) =>
  asked(path, { method: 'POST', headers: { 'Content-Type': 'application/json' }, body: JSON.stringify(body), ...options });

class Connection extends EventTarget {
  session = null; // {role, version}; role null: nobody is logged in
  error = ''; // why not
  status = null; // of the daemon, a second old at most
  away = ''; // why there is none
  isLive = false;
  entries = []; // of the journal, the newest first
  #events = null;
  #again = 0;

  get mayChange() {
    return this.session?.role === 'admin';
  }

  // link: what lets somebody in; empty: who is in already.
  async begin(link) {
    if (!link && this.session?.role) {
      return;
    }
    try {
      this.session = await (link ? post('/api/session', { link }) : asked('/api/session'));
      this.error = '';
    } catch (failure) {
      this.error = failure.message;
      if (link) {
        this.session = await asked('/api/session').catch(() => null);
      }
    }
    this.#changed();
    if (this.session?.role) {
      this.#follow();
    } else if (!this.session) {
      this.#retry(() => this.begin(link));
    }
  }

  // The answer. What is thrown has the door's words, and a kind: 9 when it is stored and not in force yet.
  command(command, fields = {}) {
    return this.#known(post('/api/command', { command, ...fields }));
  }

  // The next card is that user's; the answer has it. signal: ends it.
  enroll(user, signal) {
    return this.#known(post('/api/enrollment', { user }, { signal }));
  }

  upload(path, file) {
    return this.#known(asked(path, { method: 'POST', headers: { 'Content-Type': 'application/octet-stream' }, body: file }));
  }

  async #known(request) {
    try {
      return await request;
    } catch (failure) {
      if (failure.status === 401) {
        this.#expired(failure.message);
      }
      throw failure;
    }
  }

  async leave() {
    await asked('/api/session', { method: 'DELETE' }).catch(() => {});
    this.#expired('');
  }

  #follow() {
    this.#events?.close();
    const events = new EventSource('/api/events');
    this.#events = events;
    const on = (name, take) =>
      events.addEventListener(name, ({ data }) => {
        take(JSON.parse(data));
        this.isLive = true;
        this.#changed();
      });
    on('status', (status) => Object.assign(this, { status, away: '' }));
    on('away', ({ error }) => Object.assign(this, { status: null, away: error }));
    on('timeline', () => (this.entries = []));
    on('entry', (entry) => this.#take(entry));
    events.onerror = () => this.#lost(events);
  }

  // Entries that came before the connection was lost may come again.
  #take(entry) {
    if (!this.entries.some(({ number }) => number === entry.number)) {
      this.entries = [entry, ...this.entries].slice(0, kMostEntries);
    }
  }

  // A browser comes back by itself, and goes on behind the last entry that it has, unless it was refused.
  #lost(events) {
    this.isLive = false;
    this.#changed();
    if (events.readyState === EventSource.CLOSED) {
      this.#retry(async () => {
        const session = await asked('/api/session').catch(() => null);
        if (session && !session.role) {
          this.#expired('Your session is over.');
        } else {
          this.#follow();
        }
      });
    }
  }

  #expired(why) {
    this.#events?.close();
    Object.assign(this, { session: { role: null }, error: why, isLive: false, status: null, entries: [] });
    this.#changed();
  }

  #retry(action) {
    clearTimeout(this.#again);
    this.#again = setTimeout(action, 2000);
  }

  #changed() {
    this.dispatchEvent(new Event('change'));
  }
}

export const connection = new Connection();
