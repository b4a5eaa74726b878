// SPDX-License-Identifier: MIT
// The requests that the page makes, and the events that it gets.
import { model } from './model';

export interface Reply {
  ok: boolean;
  status: number;
  json: any;
}

export async function ask(method: string, path: string, body?: unknown): Promise<Reply> {
  try {
    const response = await fetch(path, {
      method,
      ...(body === undefined ? {} : { headers: { 'Content-Type': 'application/json' }, body: JSON.stringify(body) }),
    });
    if (response.status === 401 && path !== '/api/session') {
      model.server = 'locked';
      model.changed();
    }
    const text = await response.text();
    return { ok: response.ok, status: response.status, json: text ? JSON.parse(text) : null };
  } catch {
    return { ok: false, status: 0, json: { error: 'the console does not answer' } };
  }
}

/** Listens for good: a connection that ends is opened again. */
export function listen(): void {
  const source = new EventSource('/api/events');
  const data = (event: Event) => JSON.parse((event as MessageEvent<string>).data);
  source.addEventListener('snapshot', (event) => model.begin(data(event)));
  source.addEventListener('entries', (event) => model.take(data(event)));
  source.addEventListener('missed', (event) => model.miss(data(event).count));
  source.onerror = () => {
    source.close();
    void tellWhy().then(() => {
      if (model.server !== 'locked') setTimeout(listen, 2000);
    });
  };
}

async function tellWhy(): Promise<void> {
  const reply = await ask('GET', '/api/about');
  if (reply.status === 401) return;
  model.server = reply.ok ? 'full' : 'gone';
  model.changed();
}
