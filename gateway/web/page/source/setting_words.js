// A setting's value in words.
const kMeasures = ['ms', 's', 'min', 'days', 'bits', 'records', 'entries'];

export function shown({ unit }, value) {
  if (value === '') {
    return 'nothing';
  }
  if (unit === '0.01 dBm' && /^\d+$/.test(value)) {
    return `${value} (${value / 100} dBm)`;
  }
  return kMeasures.includes(unit) ? `${value} ${unit}` : value;
}
