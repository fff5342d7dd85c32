// The page in a real browser, beside a real door: node page_test.js ACHOST ACHOST_WEB UHFCTL UHF_SIM PICTURES. Ends with status
// 77 where no browser is.
import { AxeBuilder } from './axe.js';
import { Door, check, chromium_path, eventually } from './door.js';
import { live_tests } from './live_tests.js';
import { people_tests } from './people_tests.js';
import { settings_tests } from './settings_tests.js';
import { reader_tests } from './reader_tests.js';
import { chromium } from 'playwright-core';

const kKnown = 'E28011700000020A00000001';
const kSizes = { phone: { width: 360, height: 740 }, desk: { width: 1280, height: 800 } };
const [achost, web, uhfctl, sim, pictures] = process.argv.slice(2);

if (!chromium_path) {
  console.log('skipped: there is no /usr/bin/chromium');
  process.exit(77);
}
const browser = await chromium.launch({ executablePath: chromium_path, args: ['--no-sandbox'] });
const door = new Door(achost, web);
let context;
let complaints = []; // of the pages themselves

async function opened(role, options = {}, at = door) {
  context = await browser.newContext({ viewport: kSizes.phone, ...options });
  const page = await context.newPage();
  page.on('pageerror', (error) => complaints.push(error.message));
  page.on('console', (line) => {
    if (line.type() === 'error' && !/Failed to load resource|net::ERR/.test(line.text())) {
      complaints.push(line.text());
    }
  });
  await page.goto(await at.link(role));
  await page.locator('.live.good').waitFor();
  return page;
}

async function shows_all(page, name) {
  const wide = await page.evaluate(() => document.documentElement.scrollWidth - document.documentElement.clientWidth);
  check(wide <= 0, `${name}: it is wider than the screen by ${wide}`);
  const { violations } = await new AxeBuilder(page).analyze();
  check(violations.length === 0, `${name}: ${violations.map(({ id, nodes }) => `${id} ${nodes[0].html}`).join('; ')}`);
  if (pictures) {
    await page.screenshot({ path: `${pictures}/${name}.png` });
  }
}

const kTests = {
  async 'each screen fits each size, by day and by night, and anybody can use it'() {
    door.run('field', 'add', kKnown);
    for (const [size, viewport] of Object.entries(kSizes)) {
      for (const colorScheme of ['light', 'dark']) {
        const page = await opened('admin', { viewport, colorScheme });
        await page.getByText('came in with card 1').first().waitFor();
        await shows_all(page, `door-${size}-${colorScheme}`);
        await page.getByRole('link', { name: 'At the door' }).click();
        await page.locator('.huge', { hasText: /^1$/ }).waitFor();
        await shows_all(page, `reader-${size}-${colorScheme}`);
        await page.getByRole('link', { name: 'People', exact: true }).click();
        await page.getByRole('button', { name: /Ana/ }).waitFor();
        await shows_all(page, `people-${size}-${colorScheme}`);
        await page.getByRole('button', { name: /Ana/ }).click();
        await page.getByRole('button', { name: 'Enroll a card' }).waitFor();
        await shows_all(page, `person-${size}-${colorScheme}`);
        await page.keyboard.press('Escape');
        await page.getByRole('link', { name: 'Settings' }).click();
        await page.getByRole('button', { name: /^region/ }).waitFor();
        await shows_all(page, `settings-${size}-${colorScheme}`);
        await page.getByRole('link', { name: 'Live' }).click();
        await page.getByLabel("The reader's line").check();
        await page.locator('.log li', { hasText: 'from the reader' }).first().waitFor();
        await shows_all(page, `live-${size}-${colorScheme}`);
        await context.close();
      }
    }
    door.run('field', 'clear');
  },

  async 'a card that comes is told at once, and why it opened'() {
    const page = await opened('view');
    const before = await page.getByText('came in with card 1').count();
    door.run('field', 'add', kKnown);
    await eventually(async () => (await page.getByText('came in with card 1').count()) > before, 'the card is told');
    await page.getByRole('button', { name: /^Why, card 1/ }).first().click();
    await page.getByRole('dialog').getByText(/07|opened|announced/i).first().waitFor();
    await shows_all(page, 'why');
    door.run('field', 'clear');
  },

  async 'who may only look cannot open'() {
    const page = await opened('view');
    await page.getByText('Lock shut').waitFor();
    check((await page.getByRole('button', { name: 'Open' }).count()) === 0, 'there is no button for it');
  },

  async 'who may opens the door, and the journal says for whom'() {
    const page = await opened('admin');
    await page.getByRole('button', { name: 'Open' }).click();
    await page.getByText('opens: command').first().waitFor();
    await page.getByLabel('Mode').selectOption('locked');
    await page.getByText('Mode: locked').waitFor();
    await page.getByLabel('Mode').selectOption('normal');
    await page.getByText('Mode: normal').waitFor();
  },

  async 'a search leaves what it means'() {
    const page = await opened('view');
    await page.getByLabel('Search what happened').fill('COMMAND');
    await eventually(
      async () => (await page.locator('.timeline li:not(.day)').allInnerTexts()).every((text) => /command/i.test(text)),
      'only such entries are left',
    );
    await page.getByLabel('Search what happened').fill('no such thing');
    await page.getByText('Nothing like that').waitFor();
  },

  async 'a connection that was lost comes back, with nothing lost or told twice'() {
    const page = await opened('view');
    const told = () => page.locator('.timeline li', { hasText: 'wants to leave' }).count();
    const before = await told();
    await door.end_web();
    await page.getByText('not connected').waitFor();
    for (let i = 0; i < 3; ++i) {
      door.run('rex');
    }
    await door.begin_web();
    await page.locator('.live.good').waitFor();
    await eventually(async () => (await told()) === before + 3, 'three more exit requests are told, once each');
  },

  async 'a session that is over says so, and shows nothing more'() {
    const page = await opened('view');
    door.run_web('forget');
    await door.end_web();
    await door.begin_web();
    await page.getByText('Nobody is logged in here').waitFor();
    check((await page.getByText('came in with').count()) === 0, 'what was shown is gone');
    await shows_all(page, 'outside');
  },

  async 'who logs out is out'() {
    const page = await opened('view');
    await page.getByRole('button', { name: 'Log out' }).click();
    await page.getByText('Nobody is logged in here').waitFor();
    await page.reload();
    await page.getByText('Nobody is logged in here').waitFor();
  },

  async 'a used link says so'() {
    const page = await (await browser.newContext()).newPage();
    const link = await door.link('view');
    await opened('view');
    await page.goto(link);
    await page.locator('.live.good').waitFor();
    const other = await (await browser.newContext()).newPage();
    await other.goto(link);
    await other.getByText('this link has been used').waitFor();
  },

  async 'the first load is small and asks nobody else'() {
    const page = await (await browser.newContext()).newPage();
    let size = 0;
    const hosts = new Set();
    page.on('response', async (response) => {
      hosts.add(new URL(response.url()).host);
      size += Number(response.headers()['content-length'] ?? 0);
    });
    await page.goto(await door.link('view'));
    await page.locator('.live.good').waitFor();
    check(size > 0 && size <= 120 * 1024, `it is ${size} bytes`);
    check(hosts.size === 1, `it asks ${[...hosts].join(', ')}`);
    console.log(`first load: ${size} bytes`);
  },
};

const tools = { door, opened, shows_all, uhfctl, sim };
Object.assign(kTests, people_tests(tools), settings_tests(tools), live_tests(tools), reader_tests(tools));

const wanted = process.env.ONLY ?? ''; // a part of the name of those to run
let failed = 0;
try {
  await door.begin();
  for (const [name, test] of Object.entries(kTests).filter(([name]) => name.includes(wanted))) {
    try {
      complaints = [];
      await test();
      check(complaints.length === 0, complaints.join('; '));
      console.log(`passed: ${name}`);
    } catch (failure) {
      ++failed;
      console.log(`FAILED: ${name}: ${failure.message}`);
    }
    await context?.close();
  }
} finally {
  await browser.close();
  await door.end();
}
process.exit(failed === 0 ? 0 : 1);
