// SPDX-License-Identifier: MIT
// What the page knows of a site's devices.
import { model } from './model';

export interface Presence {
  name: string;
  model: string;
  tags: Record<string, string>;
  host: string;
  version: string;
  state: string; // of its link; "gone" if nothing was heard of it
  inFlight: number;
  queued: number;
  tasks: number;
  holder: string; // whom it is reserved for
  heldSince: number;
  waiting: number;
  isMine: boolean; // reserved by this console
}

interface Site {
  state: 'connecting' | 'connected' | 'lost';
  reason: string;
}

type Entry =
  | { kind: 'site'; site: Site }
  | { kind: 'device'; device: Presence }
  | { kind: 'withdrawn'; name: string };

/** Its changes are those of the model. */
class Fleet {
  uri = ''; // empty until it is known
  site: Site = { state: 'connecting', reason: '' };
  devices = new Map<string, Presence>();

  begin(snapshot: { uri: string; site: Site; devices: Presence[] }): void {
    this.uri = snapshot.uri;
    this.site = snapshot.site;
    this.devices = new Map(snapshot.devices.map((device) => [device.name, device]));
    model.server = 'here';
    model.changed();
  }

  take(entries: Entry[]): void {
    for (const entry of entries) {
      if (entry.kind === 'site') this.site = entry.site;
      if (entry.kind === 'device') this.devices.set(entry.device.name, entry.device);
      if (entry.kind === 'withdrawn') this.devices.delete(entry.name);
    }
    model.changed();
  }

  /** By their names, numbers in them by their values. */
  sorted(): Presence[] {
    return [...this.devices.values()].sort((one, other) => one.name.localeCompare(other.name, 'en', { numeric: true }));
  }
}

export const fleet = new Fleet();

/** A device's tags, as they are searched and shown. */
export function tagsOf(device: Presence): string[] {
  return Object.entries(device.tags).filter(([, value]) => value !== '').map(([key, value]) => `${key}=${value}`);
}

/** Whether a device has all words of a search somewhere. */
export function fits(device: Presence, search: string): boolean {
  const { name, host, version, state, holder } = device;
  const text = [name, host, version, state, holder, ...tagsOf(device)].join(' ').toLowerCase();
  return search.toLowerCase().split(/\s+/).every((word) => text.includes(word));
}
