// axe-core, run in the page; its content policy lets no foreign script in but by the browser's own hand.
import { readFileSync } from 'node:fs';
import { createRequire } from 'node:module';

const source = readFileSync(createRequire(import.meta.url).resolve('axe-core/axe.min.js'), 'utf8');

export class AxeBuilder {
  constructor(page) {
    this.page = page;
  }
  async analyze() {
    await this.page.evaluate(source);
    return this.page.evaluate(() => axe.run(document, { resultTypes: ['violations'] }));
  }
}
