// A person in words.
export const who_is = ({ user, name }) => (name ? `${name} (${user})` : `User ${user}`);

export const time_text = (ms) =>
  ms ? new Date(ms).toLocaleString([], { dateStyle: 'medium', timeStyle: 'short' }) : 'no limit';

export function pause_text(seconds) {
  if (!seconds) {
    return 'none';
  }
  return seconds % 3600 === 0 ? `${seconds / 3600} h` : seconds % 60 === 0 ? `${seconds / 60} min` : `${seconds} s`;
}

export function validity_of({ cards, from, until, blocked, schedule, pause, damaged }) {
  return [
    damaged ? 'not as it was stored: save it again' : '',
    blocked ? 'blocked' : '',
    cards === 0 ? 'no card' : cards === 1 ? '1 card' : `${cards} cards`,
    from ? `from ${time_text(from)}` : '',
    until ? `until ${time_text(until)}` : '',
    schedule ? `schedule ${schedule}` : '',
    pause ? `${pause_text(pause)} between entries` : '',
  ]
    .filter(Boolean)
    .join(', ');
}
