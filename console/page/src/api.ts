// SPDX-License-Identifier: MIT
// The requests that the page makes, and the events that it gets.
import { model } from './model';

export interface Reply {
  ok: boolean;
  status: number;
  json: any;
}

/** The device of a site that this page shows; null for a site itself, and for a device without one. */
export const deviceName = new URLSearchParams(location.search).get('device');

/** A request's path, with the device that it is about. */
export function pathOf(path: string): string {
  return deviceName === null ? path : `${path}?device=${encodeURIComponent(deviceName)}`;
}

export async function ask(method: string, path: string, body?: unknown): Promise<Reply> {
  try {
    const response = await fetch(pathOf(path), {
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

/** Listens for good, with a taker for each event: a connection that ends is opened again. */
export function listen(path: string, takers: Record<string, (data: any) => void>): void {
  const source = new EventSource(pathOf(path));
  for (const [name, take] of Object.entries(takers)) {
    source.addEventListener(name, (event) => take(JSON.parse((event as MessageEvent<string>).data)));
  }
  source.onerror = () => {
    source.close();
    void whatIsShown().then((reply) => {
      if (reply.ok) model.server = 'full';
      model.changed();
      if (model.server !== 'locked') setTimeout(() => listen(path, takers), 2000);
    });
  };
}

/** Asks which site the console shows. Its silence is told. */
export async function whatIsShown(): Promise<Reply> {
  const reply = await ask('GET', '/api/fleet');
  if (!reply.ok && reply.status !== 401) {
    model.server = 'gone';
    model.changed();
  }
  return reply;
}
