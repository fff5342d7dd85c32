// Settings in the browser.
import { check } from './door.js';

export const settings_tests = ({ door, opened, shows_all }) => {
  const setting = async (role, key) => {
    const page = await opened(role);
    await page.getByRole('link', { name: 'Settings' }).click();
    await page.getByRole('button', { name: new RegExp(`^${key} `) }).click();
    await page.getByRole('heading', { name: key }).waitFor();
    return page;
  };
  const stored = (key) => door.run('config', 'get', key).trim();

  return {
    async 'a change says what it will do, what was read back, and can be undone'() {
      const page = await setting('admin', 'probe_interval');
      const before = stored('probe_interval');
      await page.getByLabel('New value').fill('25');
      await page.getByText(`${before} ms → 25 ms, at once`).waitFor();
      check(stored('probe_interval') === before, 'nothing is changed yet');
      await shows_all(page, 'setting');
      await page.getByRole('button', { name: 'Apply' }).click();
      await page.getByText('The door has read back: 25 ms').waitFor();
      check(stored('probe_interval') === '25', 'it is stored');
      await page.getByRole('button', { name: `Undo: ${before} ms` }).click();
      await page.getByText(`The door has read back: ${before} ms`).waitFor();
      check(stored('probe_interval') === before, 'it is as before');
    },

    async 'what the door raises is read back as it is'() {
      const page = await setting('admin', 'read_interval');
      await page.getByLabel('New value').fill('100');
      await page.getByRole('button', { name: 'Apply' }).click();
      await page.getByText('The door has read back: 250 ms').waitFor();
    },

    async 'what waits for a start says so'() {
      const page = await setting('admin', 'serial_port_timeout');
      await page.getByLabel('New value').fill('700');
      await page.getByText('700 ms, at the next start of achost').waitFor();
    },

    async 'a value that is not allowed is refused at its field'() {
      const page = await setting('admin', 'probe_interval');
      await page.getByLabel('New value').fill('soon');
      await page.getByRole('button', { name: 'Apply' }).click();
      await page.getByRole('alert').getByText(/probe_interval.*soon/).waitFor();
      check((await page.getByLabel('New value').getAttribute('aria-invalid')) === 'true', 'the field is marked');
      await shows_all(page, 'setting-refused');
      await page.getByRole('button', { name: /^Default/ }).click();
      await page.getByText('→ 10 ms').or(page.getByText('Now')).first().waitFor();
    },

    async 'who may only look sees what is set, and changes nothing'() {
      const page = await setting('view', 'region');
      await page.getByText('regulatory region').last().waitFor();
      check((await page.getByRole('button', { name: 'Apply' }).count()) === 0, 'there is no button for it');
    },
  };
};
