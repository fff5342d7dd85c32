// The journal's entries in words.
const kRefusals = {
  unknown: "was refused: it is nobody's",
  blocked: 'was refused: who has it is blocked',
  not_yet_valid: 'was refused: the time of who has it has not come',
  no_longer_valid: 'was refused: the time of who has it is over',
  outside_schedule: 'was refused: the schedule of who has it is shut',
  too_soon_after_entry: 'was refused: who has it came in too recently',
  held_back: 'held back: a card is being enrolled',
  door_locked: 'was refused: the door is locked',
  mode_awaited: 'was refused: the stored operation mode is not in force yet',
  failed: 'was refused: the users cannot be read',
  journal_unwritable: 'was refused: the journal cannot be written',
  still_here: 'stays, and has opened already',
};

const kContacts = {
  closed: 'is shut',
  opened: 'was opened',
  forced: 'was opened by force',
  held_warning: 'stands open',
  held_alarm: 'stands open for too long',
  not_used: 'was released, and not used',
};

const kCommands = {
  open: () => 'opened the door by command',
  exit: () => 'pressed the exit button by command',
  borrow: () => 'borrowed the reader',
  restore: () => 'put a backup in place of what is stored',
  enroll: (entry) => `began an enrollment for ${user_of(entry)}`,
  try_power: ({ fields }) => `tries powers, first ${fields.power}`,
  line: ({ fields }) => `set line ${fields.line} to ${fields.value}`,
  relay_test: ({ fields }) => `tried relay ${fields.relay}`,
  mode: ({ fields }) => `told the door to be ${fields.what} for ${fields.seconds} s`,
};

const user_of = ({ user, name }) => (user === undefined ? 'Somebody' : name ? `${name} (${user})` : `User ${user}`);
const card_of = ({ card }) => (card === undefined ? 'a card' : `card ${card}`);
const with_reason = (text, reason) => (reason ? `${text}: ${reason}` : text);
const rest_of = (fields, ...without) =>
  Object.entries(fields)
    .filter(([name]) => !['by', 'by_uid', 'on_behalf_of', ...without].includes(name))
    .map(([name, value]) => `${name} ${value}`)
    .join(', ');

function maker_of({ by, by_uid, on_behalf_of }) {
  const maker = by || (by_uid === undefined ? 'The device' : `uid ${by_uid}`);
  return on_behalf_of ? `${on_behalf_of} (${maker})` : maker;
}

const kWords = {
  identification: (entry) => {
    const { outcome } = entry.fields;
    return outcome === 'opens'
      ? [user_of(entry), `came in with ${card_of(entry)}`]
      : [user_of(entry), `${card_of(entry)} ${kRefusals[outcome] ?? outcome}`];
  },
  opening: ({ fields }) => ['Door', with_reason('opens', fields.reason)],
  closing: () => ['Door', 'closes'],
  exit_request: () => ['Somebody', 'wants to leave'],
  enrollment: (entry) =>
    entry.fields.outcome === 'done'
      ? [user_of(entry), `was given ${card_of(entry)}`]
      : [user_of(entry), with_reason('got no card', entry.fields.reason)],
  user_change: (entry) => [
    maker_of(entry.fields),
    with_reason(`${entry.fields.change} ${user_of(entry)}`, rest_of(entry.fields, 'change')),
  ],
  card_change: (entry) => [
    maker_of(entry.fields),
    `${entry.fields.change} ${card_of(entry)}${entry.user === undefined ? '' : ` of ${user_of(entry)}`}`,
  ],
  setting_change: ({ fields }) => [
    maker_of(fields),
    `set ${fields.setting} to ${fields.value || 'nothing'} (was ${fields.previous_value || 'nothing'})`,
  ],
  reader_state: ({ fields }) => ['Reader', with_reason(fields.state, fields.cause)],
  alarm: ({ fields }) => [`Alarm ${fields.name}`, fields.state === 'over' ? `over: ${fields.text}` : fields.text],
  contact: ({ fields }) => ['Door', kContacts[fields.state] ?? fields.state],
  mode: ({ fields }) => ['Door', `is ${fields.mode}`],
  command: (entry) => [maker_of(entry.fields), (kCommands[entry.fields.what] ?? kCommands.mode)(entry)],
  schedule_change: ({ fields }) => [
    maker_of(fields),
    with_reason(`${fields.change} ${fields.schedule ?? fields.holiday ?? 'schedules'}`, fields.text),
  ],
  refusal: ({ fields }) => ['Door', with_reason('stays shut', fields.reason)],
  start: ({ fields }) => ['achost', `begins, version ${fields.version}`],
  end: ({ fields }) => ['achost', with_reason('ends', fields.reason)],
};

const kHarmless = ['opens', 'held_back', 'still_here'];
const kAlarming = ['forced', 'held_warning', 'held_alarm'];

// Whether somebody should look at it.
export const is_bad = ({ kind, fields }) =>
  (kind === 'identification' && !kHarmless.includes(fields.outcome)) ||
  (kind === 'reader_state' && !['answering', 'lent'].includes(fields.state)) ||
  (kind === 'contact' && kAlarming.includes(fields.state)) ||
  (kind === 'alarm' && fields.state !== 'over') ||
  ['refusal', 'disagreement', 'gap'].includes(kind);

// Who, and what he did.
export function words_of(entry) {
  const [who, what] = (kWords[entry.kind] ?? (() => [entry.kind.replaceAll('_', ' '), rest_of(entry.fields)]))(entry);
  return { who, what };
}
