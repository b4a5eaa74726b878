// SPDX-License-Identifier: MIT
// Small parts that the pages share.
import { ComponentChildren } from 'preact';
import { useState } from 'preact/hooks';
import { dump, Payload, textOf, wordsOf } from './payload';

/** Tells what to do where there is nothing to see. */
export function Empty({ title, children }: { title: string; children: ComponentChildren }) {
  return (
    <div class="empty">
      <p class="empty-title">{title}</p>
      <p>{children}</p>
    </div>
  );
}

/** The name of a task, which may be broken behind its underscores. */
export function Name({ of }: { of: string }) {
  return <span class="mono name">{of.split(/(?<=_)/).map((part, i) => <>{i > 0 && <wbr />}{part}</>)}</span>;
}

export function timeText(time: number): string {
  const date = new Date(time);
  return date.toLocaleTimeString('en-GB') + '.' + String(date.getMilliseconds()).padStart(3, '0');
}

export function durationText(milliseconds: number): string {
  if (milliseconds < 10) return milliseconds.toFixed(2) + ' ms';
  return milliseconds < 1000 ? milliseconds.toFixed(0) + ' ms' : (milliseconds / 1000).toFixed(1) + ' s';
}

/** A state in a word, beside a mark whose colour is not the only sign. */
export function Mark({ kind, children }: { kind: 'good' | 'bad' | 'busy' | 'off'; children: ComponentChildren }) {
  return <span class={`mark ${kind}`}>{children}</span>;
}

/** A payload in all ways that fit it. */
export function PayloadView({ label, payload }: { label: string; payload: Payload }) {
  const text = textOf(payload);
  const words = payload.size === 12 ? wordsOf(payload) : null;
  return (
    <section class="payload" aria-label={label}>
      <h4>
        {label} <span class="muted">{payload.form}, {payload.size} bytes</span>
      </h4>
      {words && <p class="mono">{words.map((word) => `${word} (0x${word.toString(16)})`).join('  ')}</p>}
      {payload.form === 'REF' && text !== null && <p class="mono">"{text}"</p>}
      {payload.size > 0 && <pre tabIndex={0} aria-label={`${label} as bytes`}>{dump(payload)}</pre>}
    </section>
  );
}

/** A choice of a few, as a row of radio buttons. */
export function Choice<T extends string>(props: {
  label: string;
  value: T;
  options: [T, string][];
  onChange: (value: T) => void;
}) {
  const [name] = useState(() => 'choice' + Math.random().toString(36).slice(2));
  return (
    <fieldset class="choice">
      <legend>{props.label}</legend>
      <div class="choice-row">
        {props.options.map(([value, text]) => (
          <label key={value} class={value === props.value ? 'chosen' : ''}>
            <input type="radio" name={name} checked={value === props.value} onChange={() => props.onChange(value)} />
            {text}
          </label>
        ))}
      </div>
    </fieldset>
  );
}

/** Gives the browser a file to keep. */
export function saveFile(name: string, type: string, content: string): void {
  const link = document.createElement('a');
  link.href = URL.createObjectURL(new Blob([content], { type }));
  link.download = name;
  link.click();
  setTimeout(() => URL.revokeObjectURL(link.href), 1000);
}
