// The picture of the page in the README, from a real door: node picture.js ACHOST ACHOST_WEB FILE.
import { Door, check, chromium_path } from './door.js';
import { chromium } from 'playwright-core';

const kCard = 'E2801170000002EB00BC614E'; // 12345678
const [achost, web, file] = process.argv.slice(2);

check(chromium_path, 'there is no /usr/bin/chromium');
const browser = await chromium.launch({ executablePath: chromium_path, args: ['--no-sandbox'] });
const door = new Door(achost, web);
try {
  await door.begin();
  const page = await browser.newPage({ viewport: { width: 360, height: 740 }, deviceScaleFactor: 1.5 });
  await page.goto(await door.link('admin'));
  await page.getByRole('link', { name: 'At the door' }).click();
  door.run('field', 'add', kCard, 'rssi=206', 'power=2100');
  await page.locator('.signal .huge', { hasText: '12345678' }).waitFor();
  await page.getByRole('button', { name: 'Must read here', exact: true }).click();
  await page.getByRole('button', { name: 'Try 22.50 dBm' }).click();
  await page.getByRole('button', { name: 'Save 22.50 dBm' }).waitFor();
  await page.locator('.signal').getByText('100 %').waitFor();
  await page.evaluate(() => document.activeElement.blur());
  await page.evaluate(() => scrollTo(0, 0));
  await page.screenshot({ path: file });
} finally {
  await browser.close();
  await door.end();
}
