// Places where a card must be read, or must not, and what the reader heard there at each power.
import { connection } from './connection.js';

const kStep = 250; // hundredths of a dBm
const kLeast = 500;
const kMeasure = 800; // ms at each
const kFewest = 5; // polls that tell something,
const kOften = 3; // and how often they are waited for
const kQuiet = 2; // so many powers without a reading, and less need not be tried
const kKept = 'marks';

// The most first: a card that lies far away is heard there.
function powers_up_to(most) {
  const powers = [most];
  for (let power = Math.ceil(most / kStep - 1) * kStep; power >= kLeast; power -= kStep) {
    powers.push(power);
  }
  return powers;
}

export class Survey {
  marks = JSON.parse(sessionStorage.getItem(kKept) ?? '[]');
  choice = null; // {power, text}
  progress = null; // {must, power, at, of}
  #stopped = false;

  // changed: is called when there is something to show.
  constructor(changed) {
    this.changed = changed;
    this.choose();
  }

  // The card in the hand: another one may lie about.
  get epc() {
    return this.marks[0]?.epc;
  }

  // What is read here at each power. epc: of the strongest card now, if there is one. Throws.
  async mark(must, most, epc) {
    const powers = powers_up_to(most);
    const mark = { must, epc: this.epc ?? epc, card: '', steps: [] };
    this.#stopped = false;
    let quiet = 0;
    try {
      for (let i = 0; i < powers.length && quiet < kQuiet && !this.#stopped; ++i) {
        this.#show({ must, power: powers[i], at: i + 1, of: powers.length });
        const found = await this.#listen(powers[i]);
        if (found.power !== powers[i]) {
          break; // less the reader cannot
        }
        quiet = this.#take(mark, found) ? 0 : quiet + 1;
      }
    } finally {
      this.#show(null);
      await connection.command('try_power');
    }
    if (!this.#stopped && mark.steps.length > 0) {
      await this.#keep([...this.marks, mark]);
    }
  }

  stop() {
    this.#stopped = true;
  }

  async remove(mark) {
    await this.#keep(this.marks.filter((one) => one !== mark));
  }

  async #listen(power) {
    for (let i = 0; i < kOften; ++i) {
      const found = await connection.command('try_power', { power, measure: kMeasure });
      if (found.polls >= kFewest || found.power !== power) {
        return found;
      }
    }
    throw new Error('the reader is polled too seldom to tell: is it well?');
  }

  // Whether the card was read.
  #take(mark, { power, tags }) {
    const [strongest] = [...tags].sort((a, b) => b.share - a.share);
    mark.epc ??= strongest?.epc;
    const tag = tags.find(({ epc }) => epc === mark.epc);
    mark.card = tag?.card ?? mark.card;
    mark.steps.push({ power, share: tag?.share ?? 0, rssi: tag?.rssi ?? null });
    return Boolean(tag);
  }

  async #keep(marks) {
    this.marks = marks;
    sessionStorage.setItem(kKept, JSON.stringify(marks));
    await this.choose();
  }

  // The door knows the rule.
  async choose() {
    const places = (must) =>
      this.marks
        .filter((mark) => mark.must === must)
        .map(({ steps }) => steps.map(({ power, share }) => `${power}:${share.toFixed(3)}`).join(' '));
    this.choice =
      this.marks.length === 0
        ? null
        : await connection
            .command('choose_power', { must: places(true), must_not: places(false) })
            .catch((failure) => ({ power: null, text: failure.message }));
    this.changed();
  }

  #show(progress) {
    this.progress = progress;
    this.changed();
  }
}
