// What passes, in the browser.
import { check, eventually } from './door.js';
import { execFileSync } from 'node:child_process';

export const live_tests = ({ door, opened, shows_all, uhfctl }) => {
  const live = async () => {
    const page = await opened('view');
    await page.getByRole('link', { name: 'Live' }).click();
    await page.getByRole('heading', { name: 'Live' }).waitFor();
    await eventually(() => door.clients() >= 3, 'the door tells what passes');
    return page;
  };
  const rows = (page) => page.locator('.log li').allInnerTexts();

  return {
    async 'messages and frames are told as they pass, and filtered'() {
      const page = await live();
      door.run('rex');
      await page.locator('.log li', { hasText: 'gpio' }).first().waitFor();
      check(!(await rows(page)).some((text) => text.startsWith('to the reader')), 'no frames before they are asked for');
      await page.getByLabel("The reader's line").check();
      await page.locator('.log li', { hasText: 'to the reader' }).first().waitFor();
      await page.locator('.log li', { hasText: 'from the reader' }).first().waitFor();
      await shows_all(page, 'live');
      await page.getByLabel('Filter').fill('FROM the');
      await eventually(
        async () => (await rows(page)).length > 0 && (await rows(page)).every((text) => text.includes('from the reader')),
        'only such rows are left',
      );
    },

    async 'a pause stops what is shown, and loses nothing'() {
      const page = await live();
      await page.getByRole('button', { name: 'Pause' }).click();
      const before = await rows(page);
      const count = async () => (await page.locator('.log li', { hasText: 'exit_request' }).count());
      const shown = await count();
      door.run('rex');
      door.run('rex');
      await page.getByText(/Paused: [1-9]\d* more have come/).waitFor();
      check((await rows(page)).join() === before.join(), 'nothing moves');
      await page.getByRole('button', { name: 'Go on' }).click();
      await eventually(async () => (await rows(page)).length > before.length, 'what came is there');
      check((await count()) >= shown, 'nothing that was shown is lost');
    },

    async 'a connection that was lost comes back, with no message lost or told twice'() {
      const page = await live();
      await page.getByLabel("The reader's line").check();
      await page.locator('.log li', { hasText: 'to the reader' }).first().waitFor();
      await page.getByLabel("The reader's line").uncheck();
      await page.getByLabel('Filter').fill('sec_box_rex_changed active=0');
      const pressed = async () => (await rows(page)).length;
      const presses = async (count, text) => {
        const before = await pressed();
        for (let i = 0; i < count; ++i) {
          door.run('rex');
        }
        return () => eventually(async () => (await pressed()) === before + count, text);
      };
      await (await presses(1, 'the button is told'))();
      await door.end_web();
      await page.locator('live-screen').getByText('Not connected').waitFor();
      const all_are_told = await presses(3, 'what passed meanwhile is told, once each');
      await door.begin_web();
      await all_are_told();
      await (await presses(1, 'and what comes then'))();
      await page.getByLabel('Filter').fill('');
      await page.getByLabel("The reader's line").check();
      await page.getByLabel('Filter').fill('what passed meanwhile is missing');
      await eventually(async () => (await rows(page)).length === 1, 'of the line it is said what is missing');
    },

    async 'a door daemon that has started anew is said'() {
      const page = await live();
      door.run('rex');
      await page.locator('.log li', { hasText: 'sec_box_rex_changed' }).first().waitFor();
      await door.begin_host_anew();
      await page.locator('.log li', { hasText: 'started anew' }).first().waitFor();
      door.run('rex');
      await page.getByLabel('Filter').fill('sec_box_rex_changed active=0');
      await eventually(async () => (await rows(page)).length === 2, 'it goes on');
    },

    async 'a recording is one that the tools read'() {
      const page = await live();
      const [download] = await Promise.all([
        page.waitForEvent('download'),
        page.getByRole('link', { name: 'Save a recording' }).click(),
      ]);
      const file = await download.path();
      check(execFileSync(uhfctl, ['decode', file], { encoding: 'utf8', maxBuffer: 1 << 30 }).length > 0, 'uhfctl decodes it');
    },

    async 'nobody taps the door when nobody looks on'() {
      const page = await live();
      await page.getByRole('link', { name: 'Settings' }).click();
      await eventually(() => door.clients() < 3, 'the taps are closed');
    },
  };
};
