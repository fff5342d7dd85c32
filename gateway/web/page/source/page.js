// The page: what it shows is chosen by the address's fragment, so that back and forth work.
import { LitElement, html, nothing } from 'lit';
import { connection } from './connection.js';
import './door.js';
import './live.js';
import './people.js';
import './question.js';
import './reader.js';
import './settings.js';
import './why.js';

const kScreens = [
  { name: 'door', title: 'Door', show: () => html`<door-screen></door-screen>` },
  { name: 'reader', title: 'At the door', show: () => html`<reader-screen></reader-screen>` },
  { name: 'people', title: 'People', show: () => html`<people-screen></people-screen>` },
  { name: 'settings', title: 'Settings', show: () => html`<settings-screen></settings-screen>` },
  { name: 'live', title: 'Live', show: () => html`<live-screen></live-screen>` },
];

class DoorPage extends LitElement {
  createRenderRoot() {
    this.replaceChildren();
    return this;
  }

  connectedCallback() {
    super.connectedCallback();
    connection.addEventListener('change', () => this.requestUpdate());
    addEventListener('hashchange', () => this.enterByLink());
    this.enterByLink();
  }

  // A link that lets somebody in goes from the address at once: it is good only once, and nobody's business.
  enterByLink() {
    const secret = location.hash.slice(1);
    const isLink = secret.length > 20;
    if (isLink) {
      history.replaceState(null, '', '#door');
    }
    connection.begin(isLink ? secret : '');
    this.requestUpdate();
  }

  render() {
    const wanted = location.hash.slice(1);
    const screen = kScreens.find(({ name }) => name === wanted) ?? kScreens[0];
    return html`
      <header>
        <nav aria-label="Screens">
          ${kScreens.map(
            ({ name, title }) =>
              html`<a href="#${name}" aria-current=${name === screen.name ? 'page' : nothing}>${title}</a>`,
          )}
        </nav>
        ${this.state()}
        ${connection.session?.role ? html`<button class="link" @click=${() => connection.leave()}>Log out</button>` : nothing}
      </header>
      <main>${connection.session?.role ? screen.show() : this.outside()}</main>
      <why-dialog></why-dialog>
      <question-dialog></question-dialog>
    `;
  }

  state() {
    const text = connection.isLive ? 'live' : connection.session?.role ? 'not connected' : '';
    return html`<p class="live ${connection.isLive ? 'good' : 'bad'}" role="status">${text}</p>`;
  }

  outside() {
    if (!connection.session) {
      return html`<p class="notice">${connection.error || 'Asking the door…'}</p>`;
    }
    return html`<section class="notice">
      <h1>Nobody is logged in here</h1>
      <p>${connection.error || 'A link from the door lets you in. On the door, type:'}</p>
      <pre>achost-web link</pre>
    </section>`;
  }
}
customElements.define('door-page', DoorPage);
