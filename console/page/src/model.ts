// SPDX-License-Identifier: MIT
// What the page knows of the device. The server tells all of it once, and then what changes.
import { useEffect, useState } from 'preact/hooks';
import { brief, Payload, wordsOf } from './payload';

export interface Link {
  state: 'connecting' | 'connected' | 'lost' | 'closed';
  reason: string;
  attempt: number;
  pause: number;
  time: number;
}

export interface Task {
  name: string;
  tui: number;
  form: 'VAL' | 'REF';
  target: string;
}

export interface Call {
  id: number;
  time: number;
  task: string;
  wantsAnswer: boolean;
  request: Payload;
  state: 'waiting' | 'answered' | 'sent' | 'failed';
  milliseconds?: number;
  answer?: Payload;
  cause?: string;
  text?: string;
}

export interface Stream {
  id: number;
  task: string;
  time: number;
  state: string; // "open", or why it has ended
  messages: number;
  dropped: number;
  request: Payload;
}

export interface Broadcast {
  key: number;
  time: number;
  task: string;
  word: number;
  payload: Payload;
}

/** One line of the traffic. Lines that belong together have the same match. */
export interface Passage {
  key: number;
  time: number;
  direction: 'out' | 'in' | 'link';
  kind: string;
  task: string;
  match: string;
  text: string;
  milliseconds?: number;
  isBad?: boolean;
}

/** What a plot draws: of each message its number, its time in seconds since the first, and its first three words. */
export class Points {
  numbers: number[] = [];
  times: number[] = [];
  words: (number | null)[][] = [[], [], []];
  last: Payload | null = null;
  private begin = 0;

  add(number: number, time: number, payload: Payload): void {
    if (this.begin === 0) this.begin = time;
    this.numbers.push(number);
    this.times.push((time - this.begin) / 1000);
    const words = wordsOf(payload);
    this.words.forEach((column, i) => column.push(words[i] ?? null));
    this.last = payload;
    if (this.numbers.length > kMostPoints + kMostPoints / 4) {
      for (const column of [this.numbers, this.times, ...this.words]) column.splice(0, column.length - kMostPoints);
    }
  }
}

const kMostPoints = 20000;
const kMostBroadcasts = 500;
const kMostPassages = 1000;
const kMostCalls = 500;

type Entry =
  | { kind: 'link'; link: Link }
  | { kind: 'call'; call: Call }
  | { kind: 'stream'; stream: Stream }
  | { kind: 'no-stream'; id: number }
  | { kind: 'message'; stream: number; number: number; time: number; payload: Payload }
  | { kind: 'broadcast'; time: number; task: string; word: number; payload: Payload };

interface Snapshot {
  uri: string;
  link: Link;
  streams: Stream[];
  heartbeat: string;
  timeout: number;
  tasks: Task[];
  calls: Call[];
  isStandIn: boolean;
}

class Model {
  isKnown = false; // something has come from the server
  server: 'here' | 'gone' | 'full' | 'locked' = 'here';
  uri = '';
  heartbeat = '';
  timeout = 10000;
  isStandIn = false;
  link: Link = { state: 'connecting', reason: '', attempt: 0, pause: 0, time: 0 };
  tasks: Task[] = [];
  calls = new Map<number, Call>(); // oldest first
  streams = new Map<number, Stream>();
  points = new Map<number, Points>();
  broadcasts: Broadcast[] = []; // newest last
  missed = 0;

  // Newest last. What may come by the thousand stands by itself, so that it does not push out requests and answers.
  private passages: Passage[] = [];
  private unasked: Passage[] = [];

  private nextKey = 1;
  private listeners = new Set<() => void>();
  private isScheduled = false;

  subscribe(listener: () => void): () => void {
    this.listeners.add(listener);
    return () => this.listeners.delete(listener);
  }

  /** Has all that is shown drawn again, once for all changes that come together. */
  changed(): void {
    if (this.isScheduled) return;
    this.isScheduled = true;
    setTimeout(() => {
      this.isScheduled = false;
      this.listeners.forEach((listener) => listener());
    }, 30);
  }

  /** All that passed, newest last. */
  traffic(): Passage[] {
    return [...this.passages, ...this.unasked].sort((one, other) => one.key - other.key);
  }

  clearTraffic(): void {
    this.passages = [];
    this.unasked = [];
    this.changed();
  }

  begin(snapshot: Snapshot): void {
    const isFirst = !this.isKnown;
    this.isKnown = true;
    this.server = 'here';
    this.uri = snapshot.uri;
    this.heartbeat = snapshot.heartbeat;
    this.timeout = snapshot.timeout;
    this.isStandIn = snapshot.isStandIn;
    this.tasks = snapshot.tasks;
    this.link = snapshot.link;
    this.calls = new Map();
    for (const call of snapshot.calls) {
      this.calls.set(call.id, call);
      if (isFirst) this.addPassagesOf(call);
    }
    this.streams = new Map(snapshot.streams.map((stream) => [stream.id, stream]));
    this.changed();
  }

  take(entries: Entry[]): void {
    for (const entry of entries) this.takeOne(entry);
    this.changed();
  }

  miss(count: number): void {
    this.missed += count;
    this.pass({ time: Date.now(), direction: 'link', kind: 'gap', task: '', match: '', isBad: true,
                text: `${count} events were dropped: they came faster than this page takes them` });
    this.changed();
  }

  private takeOne(entry: Entry): void {
    switch (entry.kind) {
      case 'link': {
        const hasComeBack = entry.link.state === 'connected' && this.link.state !== 'connected';
        if (entry.link.time <= this.link.time && !hasComeBack) return; // the snapshot had it
        this.link = entry.link;
        this.pass({ time: entry.link.time, direction: 'link', kind: entry.link.state, task: '', match: '',
                    text: entry.link.reason, isBad: entry.link.state === 'lost' });
        break;
      }
      case 'call':
        this.addPassagesOf(entry.call);
        this.calls.set(entry.call.id, entry.call);
        if (this.calls.size > kMostCalls) this.calls.delete(this.calls.keys().next().value as number);
        break;
      case 'stream': {
        const { stream } = entry;
        const isNew = !this.streams.has(stream.id);
        this.streams.set(stream.id, stream);
        if (isNew) {
          this.pass({ time: stream.time, direction: 'out', kind: 'stream request', task: stream.task,
                      match: `stream ${stream.id}`, text: brief(stream.request) });
        } else if (stream.state !== 'open') {
          this.pass({ time: Date.now(), direction: 'in', kind: 'stream end', task: stream.task,
                      match: `stream ${stream.id}`, text: `${stream.state}, ${stream.messages} messages` });
        }
        break;
      }
      case 'no-stream':
        this.streams.delete(entry.id);
        break;
      case 'message': {
        let points = this.points.get(entry.stream);
        if (!points) this.points.set(entry.stream, (points = new Points()));
        points.add(entry.number, entry.time, entry.payload);
        const stream = this.streams.get(entry.stream);
        if (stream && stream.state === 'open') stream.messages = entry.number + 1;
        this.pass({ time: entry.time, direction: 'in', kind: 'message', task: stream ? stream.task : '',
                    match: `stream ${entry.stream}`, text: brief(entry.payload) });
        break;
      }
      case 'broadcast':
        this.broadcasts.push({ ...entry, key: this.nextKey++ });
        if (this.broadcasts.length > kMostBroadcasts * 1.5) this.broadcasts.splice(0, this.broadcasts.length - kMostBroadcasts);
        this.pass({ time: entry.time, direction: 'in', kind: 'broadcast', task: entry.task, match: '',
                    text: brief(entry.payload) });
        break;
    }
  }

  private addPassagesOf(call: Call): void {
    const match = `task ${call.id}`;
    const before = this.calls.get(call.id);
    if (before?.state === call.state && this.passages.length > 0 && before !== call) return; // the snapshot had it
    if (!before || before === call) {
      this.pass({ time: call.time, direction: 'out', kind: 'request', task: call.task, match, text: brief(call.request) });
    }
    if (call.state === 'waiting') return;
    this.pass({
      time: call.time + (call.milliseconds ?? 0), direction: 'in', task: call.task, match,
      kind: call.state === 'answered' ? 'answer' : call.state,
      text: call.answer ? brief(call.answer) : (call.text ?? ''),
      milliseconds: call.milliseconds ?? 0,
      isBad: call.state === 'failed',
    });
  }

  private pass(passage: Omit<Passage, 'key'>): void {
    const list = passage.kind === 'message' || passage.kind === 'broadcast' ? this.unasked : this.passages;
    list.push({ ...passage, key: this.nextKey++ });
    if (list.length > kMostPassages * 1.5) list.splice(0, list.length - kMostPassages);
  }
}

export const model = new Model();

/** Has a component drawn again when something changes. */
export function useModel(): Model {
  const [, setCount] = useState(0);
  useEffect(() => model.subscribe(() => setCount((count) => count + 1)), []);
  return model;
}
