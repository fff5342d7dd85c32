// People in the browser: looked for, changed, enrolled, imported.
import { check, eventually } from './door.js';
import { readFileSync, writeFileSync } from 'node:fs';
import { join } from 'node:path';

const kTaken = 'E28011700000020A00000034';
const kNew = 'E28011700000020A00000033';

export const people_tests = ({ door, opened, shows_all }) => {
  const people = async (role) => {
    const page = await opened(role);
    await page.getByRole('link', { name: 'People', exact: true }).click();
    await page.getByText('Ana (7)').first().waitFor();
    return page;
  };
  const waits = (user) =>
    eventually(
      () => door.told.split('\n').some((line) => /"enrollment"/.test(line) && /"started"/.test(line) && line.includes(`"user_id":${user}`)),
      'the door waits for a card',
    );
  const users = () => JSON.parse(door.run('user', 'list', '--json'));
  const say_yes = (page, word) => page.locator('question-dialog').getByRole('button', { name: word, exact: true }).click();
  const upload = async (page, text) => {
    const file = join(door.state, 'people.csv');
    writeFileSync(file, text);
    const [chooser] = await Promise.all([page.waitForEvent('filechooser'), page.getByLabel('A file as the export makes it').click()]);
    await chooser.setFiles(file);
  };

  return {
    async 'a person is added, changed, blocked and removed, each after a question'() {
      const page = await people('admin');
      await page.getByRole('button', { name: 'Add a person' }).click();
      await page.getByLabel('Number').fill('8');
      await page.getByLabel('Name', { exact: true }).fill('Lena');
      await page.getByRole('button', { name: 'Add', exact: true }).click();
      await shows_all(page, 'people-question');
      await page.locator('question-dialog').getByRole('button', { name: 'Back' }).click();
      check(!JSON.stringify(users()).includes('Lena'), 'who says no adds nobody');
      await page.getByRole('button', { name: 'Add', exact: true }).first().click();
      await say_yes(page, 'Add');
      await page.getByRole('heading', { name: 'Lena (8)' }).waitFor();
      await page.getByLabel('Name', { exact: true }).fill('Lena M.');
      await page.getByLabel('Minutes between entries').fill('5');
      await page.getByRole('button', { name: 'Save' }).click();
      await page.getByText('Name: Lena → Lena M.').waitFor();
      await say_yes(page, 'Change');
      await page.getByRole('heading', { name: 'Lena M. (8)' }).waitFor();
      await page.getByLabel('Add a card by its number').fill('0x21');
      await page.getByRole('button', { name: 'Add the card' }).click();
      await say_yes(page, 'Give');
      await page.getByRole('button', { name: 'Take card 33 away' }).waitFor();
      await page.getByRole('button', { name: 'Block' }).click();
      await say_yes(page, 'Block');
      await page.getByRole('button', { name: 'Unblock' }).waitFor();
      await shows_all(page, 'person');
      const stored = door.run('user', 'export');
      check(/^8,Lena M\.,33,.*,1,,5 ?min|^8,Lena M\.,33,.*,1,,300/m.test(stored), `it is stored: ${stored}`);
      await page.getByRole('button', { name: 'Remove' }).click();
      await say_yes(page, 'Remove');
      await page.getByText('Lena M. (8) is removed, with 1 card').first().waitFor();
      check(!door.run('user', 'list').includes('Lena'), 'he is gone');
      await page.locator('#person-title').waitFor({ state: 'hidden' });
    },

    async 'what nobody touched stays as it was, to the millisecond'() {
      door.run('user', 'put', '10', '--name', 'Vera', '--from', '2026-01-31T08:30:12.345Z', '--pause', '100');
      const row = () => door.run('user', 'export').split('\n').find((line) => line.startsWith('10,'));
      const before = row();
      const page = await people('admin');
      await page.getByRole('button', { name: /Vera/ }).click();
      await page.getByLabel('Name', { exact: true }).fill('Vera B.');
      await page.getByRole('button', { name: 'Save' }).click();
      check((await page.locator('question-dialog p').count()) === 1, 'one thing is different');
      await say_yes(page, 'Change');
      await page.getByRole('heading', { name: 'Vera B. (10)' }).waitFor();
      check(row() === before.replace('Vera', 'Vera B.'), `it is ${row()}, and was ${before}`);
    },

    async 'a person is added with the keyboard alone'() {
      const page = await people('admin');
      await page.getByRole('button', { name: 'Add a person' }).focus();
      await page.keyboard.press('Enter');
      await page.getByRole('heading', { name: 'A new person' }).waitFor();
      await page.keyboard.type('11');
      await page.keyboard.press('Tab');
      await page.keyboard.type('Ida');
      await page.keyboard.press('Enter');
      await page.getByRole('heading', { name: 'Add user 11?' }).waitFor();
      await page.keyboard.press('Enter');
      await page.getByRole('heading', { name: 'Ida (11)' }).waitFor();
      await page.keyboard.press('Escape');
      await page.getByRole('button', { name: /Ida \(11\)/ }).waitFor();
    },

    async 'what the door refuses is said, and nothing is different'() {
      const page = await people('admin');
      await page.getByRole('button', { name: 'Add a person' }).click();
      await page.getByLabel('Number').fill('7');
      await page.getByRole('button', { name: 'Add', exact: true }).click();
      await say_yes(page, 'Add');
      await page.getByRole('alert').getByText('Ana (7) is there already').waitFor();
    },

    async 'an enrollment is told from the waiting to the card'() {
      const page = await people('admin');
      await page.getByRole('button', { name: /Ana \(7\)/ }).click();
      await page.getByRole('button', { name: 'Enroll a card' }).click();
      await page.getByText('Hold the card to the reader').waitFor();
      await waits(7);
      await shows_all(page, 'enrollment');
      door.run('field', 'add', kNew);
      await page.getByText('Card 51 is now of Ana (7). It was').waitFor();
      await page.getByRole('button', { name: 'Take card 51 away' }).waitFor();
      door.run('field', 'clear');
      check(door.run('card', 'list').includes('51'), 'it is stored');
    },

    async "a card that is somebody's says whose, and can be taken from him"() {
      door.run('user', 'put', '9', '--name', 'Kim');
      door.run('card', 'add', '52', '--user', '7');
      const page = await people('admin');
      await page.getByRole('button', { name: /Kim \(9\)/ }).click();
      await page.getByRole('button', { name: 'Enroll a card' }).click();
      await page.getByText('Hold the card to the reader').waitFor();
      await waits(9);
      door.run('field', 'add', kTaken);
      await page.getByText("the card is somebody's already").waitFor();
      await page.getByText('It is card 52, of Ana (7).').waitFor();
      await page.getByRole('button', { name: 'Take it from Ana (7)' }).click();
      await say_yes(page, 'Take it');
      await page.getByRole('button', { name: 'Take card 52 away' }).waitFor();
      door.run('field', 'clear');
      check(/52.*(9|Kim)/.test(door.run('card', 'list')), 'it is his');
    },

    async 'an enrollment that is cancelled waits for no card any more'() {
      const before = door.told.length;
      const page = await people('admin');
      await page.getByRole('button', { name: /Ana \(7\)/ }).click();
      await page.getByRole('button', { name: 'Enroll a card' }).click();
      await eventually(() => door.told.slice(before).includes('"started"'), 'the door waits for a card');
      await page.getByRole('button', { name: 'Cancel' }).click();
      await page.getByText('Cancelled: no card was taken').waitFor();
      await eventually(() => /Ana \(7\) +got no card/.test(door.run('journal', '--kind', 'enrollment')), 'the door has given it up');
    },

    async 'an import with a faulty line names it and stores nothing, and a good one says first what it would do'() {
      const page = await people('admin');
      await page.getByRole('button', { name: 'Import' }).click();
      await upload(page, 'id,name,card\n20,Olga,2001\n21,Petr,never\n');
      await page.getByRole('alert').getByText(/3: .*never/).waitFor();
      await shows_all(page, 'import-refused');
      check(!door.run('user', 'list').includes('Olga'), 'nothing is stored');
      await upload(page, 'id,name,card\n20,Olga,2001\n21,Petr,2002\n');
      await page.getByText('users: 2 added').waitFor();
      await shows_all(page, 'import-plan');
      check(!door.run('user', 'list').includes('Olga'), 'a plan stores nothing');
      await page.locator('import-dialog').getByRole('button', { name: 'Import', exact: true }).click();
      await page.getByRole('button', { name: /Olga \(20\)/ }).waitFor();
      check(door.run('card', 'list').includes('2002'), 'it is stored');
    },

    async 'an export is the table that an import takes'() {
      const page = await people('view');
      const [download] = await Promise.all([page.waitForEvent('download'), page.getByRole('link', { name: 'Export' }).click()]);
      check(readFileSync(await download.path(), 'utf8') === door.run('user', 'export'), 'it is that of the command line');
    },

    async 'a hundred thousand cards are searched, and come in parts'() {
      const file = join(door.state, 'many.csv');
      const rows = Array.from({ length: 100_000 }, (_, i) => `${1000 + i},Person ${i},${5_000_000 + i}`);
      writeFileSync(file, `id,name,card\n${rows.join('\n')}\n`);
      const before = join(door.state, 'before.csv');
      writeFileSync(before, door.run('user', 'export'));
      const page = await people('admin');
      await page.getByRole('button', { name: 'Import' }).click();
      await page.getByLabel('A file as the export makes it').setInputFiles(file);
      await page.locator('import-dialog').getByRole('button', { name: 'Import', exact: true }).click();
      await page.getByText(/100,?0\d\d people/).waitFor();
      check((await page.locator('.rows li').count()) === 50, 'there are fifty');
      await page.getByRole('button', { name: 'Show more' }).click();
      await eventually(async () => (await page.locator('.rows li').count()) === 100, 'there are fifty more');
      await page.getByLabel('Search people').fill('5099999');
      await page.getByRole('button', { name: /Person 99999/ }).waitFor();
      check((await page.locator('.rows li').count()) === 1, 'he alone has that card');
      door.run('user', 'import', '--replace', before);
    },

    async 'who may only look changes nobody'() {
      const page = await people('view');
      check((await page.getByRole('button', { name: /Add|Import/ }).count()) === 0, 'there is no button for it');
      await page.getByRole('button', { name: /Ana \(7\)/ }).click();
      await page.getByRole('heading', { name: 'Cards' }).waitFor();
      check((await page.locator('person-dialog').getByRole('button', { name: /Save|Block|Remove|Enroll|Take|Add/ }).count()) === 0, 'nor in the dialog');
    },
  };
};
