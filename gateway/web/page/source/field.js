// What lies before the reader, live, while somebody looks.

const kAgain = 2000; // ms

export class FieldFeed {
  #events = null;
  #again = 0;

  // take: gets what the door sees, or null and why it cannot be told.
  constructor(take) {
    this.take = take;
  }

  begin() {
    const events = new EventSource('/api/field');
    this.#events = events;
    events.addEventListener('field', ({ data }) => this.take(JSON.parse(data), ''));
    events.addEventListener('away', ({ data }) => this.take(null, JSON.parse(data).error));
    events.onerror = () => {
      this.take(null, 'not connected');
      // A browser comes back by itself, unless it was refused.
      if (events.readyState === EventSource.CLOSED) {
        clearTimeout(this.#again);
        this.#again = setTimeout(() => this.begin(), kAgain);
      }
    };
  }

  end() {
    clearTimeout(this.#again);
    this.#events?.close();
  }
}

// The module tells the strength as a byte in two's complement.
export const dbm_of = (rssi) => (rssi > 127 ? rssi - 256 : rssi);

// A power as the settings have it, in hundredths.
export const power_text = (power) => `${(power / 100).toFixed(2)} dBm`;
export const percent = (share) => `${Math.round(share * 100)} %`;
