// What the journal's entries are in words.

const OUTCOMES = {
  opens: "came in",
  unknown: "card that nobody has",
  blocked: "is blocked",
  not_yet_valid: "is not valid yet",
  no_longer_valid: "is no longer valid",
  held_back: "held to the reader for an enrollment",
  still_here: "card still there",
  outside_schedule: "came outside the schedule",
  door_locked: "came to a locked door",
};

const CONTACTS = {
  closed: "is shut", opened: "was opened", forced: "was opened by force",
  held_warning: "stands open", held_alarm: "stands open for too long", not_used: "was not used",
};

export const plain = (word) => String(word ?? "").replaceAll("_", " ");

export const personOf = (entry) =>
  entry.name || (entry.user !== undefined ? `user ${entry.user}` : entry.card ? `card ${entry.card}` : "somebody");

export const outcomeOf = (entry) => OUTCOMES[entry.fields.outcome] ?? plain(entry.fields.outcome);

const makerOf = ({ fields }) => fields.on_behalf_of || fields.by || "the device";

const COMMANDS = {
  open: () => "opened the door by command",
  exit: () => "pressed the exit button by command",
  enroll: (entry) => `began an enrollment for ${personOf(entry)}`,
  line: ({ fields }) => `set line ${fields.line} to ${fields.value}`,
};

const SENTENCES = {
  identification: (entry) => `${personOf(entry)}: ${outcomeOf(entry)}`,
  opening: ({ fields }) => `The door opens: ${plain(fields.reason)}`,
  closing: () => "The door closes",
  exit_request: () => "Somebody wants to leave",
  enrollment: (entry) => `Enrollment of ${personOf(entry)}: ${plain(entry.fields.outcome)}`,
  setting_change: ({ fields }) => `${fields.setting} is ${fields.value || "empty"}, was ${fields.previous_value || "empty"}`,
  reader_state: ({ fields }) => `The reader is ${plain(fields.state)}${fields.cause ? `: ${fields.cause}` : ""}`,
  alarm: ({ fields }) => `${fields.standing ? "Alarm" : "Alarm over"} (${plain(fields.name)}): ${fields.text ?? ""}`,
  start: ({ fields }) => `The daemon begins, version ${fields.version}`,
  end: () => "The daemon ends",
  refusal: ({ fields }) => `The door was to open and could not: ${plain(fields.reason)}`,
  contact: ({ fields }) => `The door ${CONTACTS[fields.state] ?? plain(fields.state)}`,
  mode: ({ fields }) => `The door's mode is ${plain(fields.mode)}`,
  command: (entry) =>
    `${makerOf(entry)} ${(COMMANDS[entry.fields.what] ?? (({ fields }) => `told the door to be ${plain(fields.what)}`))(entry)}`,
};

// Of a kind without a sentence, all that it has.
const bare = ({ kind, fields }) =>
  `${plain(kind)}${Object.entries(fields).map(([name, value]) => ` ${plain(name)}=${value}`).join("")}`;

export const sentenceOf = (entry) => (SENTENCES[entry.kind] ?? bare)(entry);

export const isBad = ({ kind, fields }) =>
  (kind === "identification" && !["opens", "held_back", "still_here"].includes(fields.outcome)) ||
  (kind === "reader_state" && !["answering", "lent"].includes(fields.state)) ||
  (kind === "contact" && ["forced", "held_warning", "held_alarm"].includes(fields.state)) ||
  (kind === "alarm" && Boolean(fields.standing)) || ["refusal", "disagreement", "gap"].includes(kind);

// As the door's own clock shows it, with its zone: "2026-11-22T07:57:22.446+00:00".
export const clockOf = (entry) => entry.time.slice(11, 19);

export const ago = (seconds) =>
  seconds === null || seconds === undefined ? "never"
    : seconds < 1 ? "just now"
    : seconds < 90 ? `${Math.round(seconds)} s ago`
    : seconds < 5400 ? `${Math.round(seconds / 60)} min ago`
    : `${Math.round(seconds / 3600)} h ago`;
