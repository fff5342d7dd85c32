// A question before something is changed.
import { html } from 'lit';
import { Screen } from './screen.js';

class QuestionDialog extends Screen {
  static properties = { asked: { state: true } };

  // Whether he says yes. lines: what would be different; yes: the word on the button.
  async ask(title, lines, yes) {
    this.asked = { title, lines, yes };
    await this.updateComplete;
    const dialog = this.querySelector('dialog');
    dialog.returnValue = '';
    dialog.showModal();
    await new Promise((done) => dialog.addEventListener('close', done, { once: true }));
    return dialog.returnValue === 'yes';
  }

  render() {
    const { title = '', lines = [], yes = '' } = this.asked ?? {};
    return html`<dialog aria-labelledby="question-title">
      <h2 id="question-title">${title}</h2>
      ${lines.map((line) => html`<p>${line}</p>`)}
      <form method="dialog" class="controls">
        <button class="main" value="yes">${yes}</button>
        <button value="">Back</button>
      </form>
    </dialog>`;
  }
}
customElements.define('question-dialog', QuestionDialog);

export const question = (title, lines, yes) => document.querySelector('question-dialog').ask(title, lines, yes);
