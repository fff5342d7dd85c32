// A door with its page, each a process of its own.
import { execFileSync, spawn } from 'node:child_process';
import { existsSync, mkdtempSync, readFileSync, readdirSync, rmSync } from 'node:fs';
import { tmpdir } from 'node:os';
import { join } from 'node:path';

export const chromium_path = existsSync('/usr/bin/chromium') ? '/usr/bin/chromium' : null;

const kPatience = 30_000; // ms

export function check(is_so, text) {
  if (!is_so) {
    throw new Error(text);
  }
}

export async function eventually(is_so, text) {
  for (const end = Date.now() + kPatience; Date.now() < end; await new Promise((go) => setTimeout(go, 50))) {
    if (await is_so()) {
      return;
    }
  }
  throw new Error(`not so: ${text}`);
}

function ended(process) {
  return process.exitCode !== null || process.signalCode !== null
    ? Promise.resolve()
    : new Promise((done) => process.once('exit', done));
}

export class Door {
  constructor(achost, web) {
    Object.assign(this, { achost, web, state: mkdtempSync(join(tmpdir(), 'door-')), own: mkdtempSync(join(tmpdir(), 'web-')) });
    this.listen = '127.0.0.1:0';
  }

  // Its reader: simulated within the host, or, where there is one, a program that can go and come back.
  async begin() {
    if (this.sim) {
      await this.begin_reader();
    }
    await this.begin_host();
    this.run('user', 'put', '7', '--name', 'Ana');
    this.run('card', 'add', '1', '--user', '7');
    await this.begin_web();
  }

  async begin_host() {
    const port = join(this.own, 'reader');
    this.host = spawn(
      this.achost,
      ['run', '--json', ...(this.sim ? ['--port', port, '--wait'] : ['--simulate', '--interactive']),
       '--state', this.state, '--set', 'read_interval=250', '--set',
       'read_interval_diff_tags=0', '--set', 'serial_port_timeout=1000', '--set', 'host.away_time=0', '--set', 'host.door_open_time=100'],
      { stdio: ['ignore', 'pipe', 'ignore'] },
    );
    this.told = '';
    this.host.stdout.setEncoding('utf8').on('data', (text) => (this.told += text));
    await eventually(() => this.status()?.plugin, 'the host runs');
  }

  async begin_host_anew() {
    this.host.kill('SIGTERM');
    await ended(this.host);
    await this.begin_host();
  }

  async begin_reader() {
    const port = join(this.own, 'reader');
    this.reader = spawn(this.sim, ['--empty', '--link', port], { stdio: ['pipe', 'ignore', 'ignore'] });
    await eventually(() => existsSync(port), 'the reader is there');
  }

  async end_reader() {
    this.reader.kill('SIGTERM');
    await ended(this.reader);
  }

  status() {
    try {
      return JSON.parse(this.run('status', '--json'));
    } catch {
      return null;
    }
  }

  // How many talk to the host: one follows the journal for the page.
  clients() {
    const tasks = `/proc/${this.host.pid}/task`;
    const name_of = (task) => {
      try {
        return readFileSync(join(tasks, task, 'comm'), 'utf8').trim();
      } catch {
        return ''; // it has ended
      }
    };
    return readdirSync(tasks).filter((task) => name_of(task) === 'control_client').length;
  }

  run(...words) {
    return execFileSync(this.achost, [...words, '--state', this.state], { encoding: 'utf8', stdio: ['ignore', 'pipe', 'pipe'] });
  }

  run_web(...words) {
    return execFileSync(this.web, [...words, '--state', this.own], { encoding: 'utf8' });
  }

  async begin_web() {
    rmSync(join(this.own, 'place'), { force: true });
    this.server = spawn(this.web, ['run', '--listen', this.listen, '--state', this.own, '--host-state', this.state], {
      stdio: 'ignore',
    });
    await eventually(() => existsSync(join(this.own, 'place')), 'achost-web serves');
    this.listen = `127.0.0.1:${new URL(readFileSync(join(this.own, 'place'), 'utf8').trim()).port}`;
  }

  async end_web() {
    this.server.kill('SIGTERM');
    await ended(this.server);
  }

  link(role) {
    return this.run_web('link', '--role', role).split('\n')[0].trim();
  }

  async end() {
    for (const process of [this.server, this.host, this.reader]) {
      process?.kill('SIGTERM');
      if (process) {
        await ended(process);
      }
    }
    for (const place of [this.state, this.own]) {
      rmSync(place, { recursive: true, force: true });
    }
  }
}
