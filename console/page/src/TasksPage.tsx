// SPDX-License-Identifier: MIT
// Tasks: which there are, and sending one.
import { useEffect, useRef, useState } from 'preact/hooks';
import { ask } from './api';
import { History } from './History';
import { Task, useModel } from './model';
import { Content, encode, hexOf, parseHex, parseValue } from './payload';
import { Choice, Empty, Name } from './parts';

type Way = 'values' | 'text' | 'hex' | 'file' | 'empty';
type Kind = 'answer' | 'stream' | 'none';

export function TasksPage() {
  const { tasks } = useModel();
  const [search, setSearch] = useState('');
  const [name, setName] = useState('');
  const list = useRef<HTMLUListElement>(null);
  const found = tasks.filter((task) =>
    search.toLowerCase().split(/\s+/).every((word) => `${task.name} ${task.target}`.toLowerCase().includes(word)));
  const chosen = tasks.find((task) => task.name === name);

  /** Arrow keys move in the list, from the search on. */
  const move = (event: KeyboardEvent) => {
    const step = { ArrowDown: 1, ArrowUp: -1 }[event.key];
    if (!step || !list.current) return;
    event.preventDefault();
    const buttons = Array.from(list.current.querySelectorAll('button'));
    const at = buttons.indexOf(document.activeElement as HTMLButtonElement);
    if (at + step < 0) document.getElementById('search')?.focus();
    else buttons[Math.min(at + step, buttons.length - 1)]?.focus();
  };

  return (
    <div class="split">
      <section class="card side" aria-labelledby="tasks-title" onKeyDown={move}>
        <h2 id="tasks-title">Tasks</h2>
        <label class="field">
          <span>Search <kbd>/</kbd></span>
          <input id="search" type="search" value={search} autocomplete="off"
                 onInput={(event) => setSearch(event.currentTarget.value)} />
        </label>
        {found.length === 0 ? (
          <Empty title="No task found">
            {tasks.length === 0
              ? 'The task table in force has no rows. Start the console with --table and a file that has some.'
              : 'Search for another part of a name, or for a target such as "firmware".'}
          </Empty>
        ) : (
          <ul class="tasks" ref={list} aria-label="Tasks">
            {found.map((task) => (
              <li key={task.name}>
                <button aria-pressed={task.name === name} onClick={() => setName(task.name)}>
                  <Name of={task.name} />
                  <span class="muted">{task.form} · {task.target}</span>
                </button>
              </li>
            ))}
          </ul>
        )}
      </section>
      <div class="stack">
        <section class="card" aria-labelledby="send-title">
          <h2 id="send-title">Send</h2>
          {chosen ? <TaskForm key={chosen.name} task={chosen} /> : (
            <Empty title="No task chosen">Choose one of the list to see what it takes.</Empty>
          )}
        </section>
        <History />
      </div>
    </div>
  );
}

function TaskForm({ task }: { task: Task }) {
  const { timeout } = useModel();
  const [way, setWay] = useState<Way>(task.form === 'VAL' ? 'values' : 'text');
  const [kind, setKind] = useState<Kind>(task.name.includes('STREAMER') ? 'stream' : 'answer');
  const [values, setValues] = useState(['0', '0', '0']);
  const [text, setText] = useState('');
  const [hex, setHex] = useState('');
  const [file, setFile] = useState<File | null>(null);
  const [seconds, setSeconds] = useState(String(timeout / 1000));
  const [fault, setFault] = useState('');
  const [told, setTold] = useState('');
  const heading = useRef<HTMLHeadingElement>(null);
  useEffect(() => heading.current?.scrollIntoView({ block: 'nearest' }), []);

  const content = async (): Promise<Content | string> => {
    switch (way) {
      case 'values': {
        const numbers = values.map(parseValue);
        const wrong = numbers.indexOf(null);
        if (wrong >= 0) return `Value ${wrong + 1} is no number from 0 to 4294967295, decimal or with 0x.`;
        return { values: numbers as number[] };
      }
      case 'text':
        return { hex: encode(text) };
      case 'hex':
        return parseHex(hex) === null ? 'These are no pairs of hexadecimal digits.' : { hex: parseHex(hex) as string };
      case 'file':
        return file ? { hex: hexOf(new Uint8Array(await file.arrayBuffer())) } : 'Choose a file.';
      case 'empty':
        return {};
    }
  };

  const submit = async (event: Event) => {
    event.preventDefault();
    setTold('');
    const time = Number(seconds);
    if (!(time > 0 && time <= 3600)) return setFault('The time is not between 0 and 3600 seconds.');
    const payload = await content();
    if (typeof payload === 'string') return setFault(payload);
    setFault('');
    const order = { task: task.name, ...payload, timeout: time * 1000, wantsAnswer: kind !== 'none' };
    const reply = await ask('POST', kind === 'stream' ? '/api/streams' : '/api/calls', order);
    if (!reply.ok) {
      const advice = kind === 'stream' ? ' Is this a task that answers with a stream? Else send it for an answer.' : '';
      setFault(`It was not sent: ${reply.json.error}.${advice}`);
    } else {
      setTold(kind === 'stream' ? 'The stream is open; see Streams.' : 'Sent; the history has it.');
    }
  };

  return (
    <form onSubmit={(event) => void submit(event)} noValidate>
      <h3 class="task-name" ref={heading}><Name of={task.name} /></h3>
      <p class="muted facts">
        TUI 0x{task.tui.toString(16)} · {task.form === 'VAL' ? 'takes three values' : 'takes bytes'} · for the {task.target}
      </p>
      {task.form === 'REF' && (
        <Choice<Way> label="Payload" value={way} onChange={setWay}
                     options={[['text', 'Text'], ['hex', 'Hex'], ['file', 'File'], ['empty', 'Nothing']]} />
      )}
      {way === 'values' && (
        <fieldset class="values">
          <legend>Payload</legend>
          {values.map((value, i) => (
            <label class="field" key={i}>
              <span>Value {i + 1}</span>
              <input class="mono" inputMode="text" value={value} aria-invalid={parseValue(value) === null}
                     onInput={(event) => setValues(values.map((old, k) => (k === i ? event.currentTarget.value : old)))} />
            </label>
          ))}
        </fieldset>
      )}
      {way === 'text' && (
        <label class="field">
          <span>Text, as UTF-8</span>
          <textarea rows={3} value={text} onInput={(event) => setText(event.currentTarget.value)} />
        </label>
      )}
      {way === 'hex' && (
        <label class="field">
          <span>Bytes, as hexadecimal digits</span>
          <textarea class="mono" rows={3} value={hex} spellcheck={false} aria-invalid={parseHex(hex) === null}
                    onInput={(event) => setHex(event.currentTarget.value)} />
        </label>
      )}
      {way === 'file' && (
        <label class="field">
          <span>File</span>
          <input type="file" onChange={(event) => setFile(event.currentTarget.files?.[0] ?? null)} />
        </label>
      )}
      <div class="row">
        <Choice<Kind> label="What comes back" value={kind} onChange={setKind}
                      options={[['answer', 'An answer'], ['stream', 'A stream'], ['none', 'Nothing']]} />
        <label class="field short">
          <span>Wait, in seconds</span>
          <input class="mono" inputMode="decimal" value={seconds}
                 onInput={(event) => setSeconds(event.currentTarget.value)} />
        </label>
        <button class="main" type="submit">{kind === 'stream' ? 'Open stream' : 'Send'}</button>
      </div>
      {fault && <p class="fault" role="alert">{fault}</p>}
      <p class="told" role="status">{told}</p>
    </form>
  );
}
