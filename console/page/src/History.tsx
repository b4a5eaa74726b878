// SPDX-License-Identifier: MIT
// What was sent, with its answers.
import { ask, pathOf } from './api';
import { Call, useModel } from './model';
import { brief } from './payload';
import { durationText, Empty, Mark, Name, PayloadView, timeText } from './parts';

const kShown = 100;

const advice: Record<string, string> = {
  'unknown-task': 'Choose a task of the list, or start the console with --table and a table that has it.',
  'wrong-form': 'A VAL task takes three values, and nothing else.',
  refused: 'See whether the device is ready for this task, or a scenario refuses it; then send it again.',
  'no-answer': 'Send it again with more time to wait, or see in the traffic whether anything comes from the device.',
  'link-lost': 'The console connects again by itself. Send it again once it has.',
  'no-number': 'Wait for answers, or stop streams that you do not need; then send it again.',
  'not-connected': 'Connect first, then send it again.',
  closed: 'Connect, then send it again.',
  busy: 'Wait for a moment, then send it again.',
  reserved: 'Wait until it is released; the page of all devices tells whom it is reserved for.',
};

export function History() {
  const { calls } = useModel();
  const newest = Array.from(calls.values()).reverse().slice(0, kShown);
  return (
    <section class="card" aria-labelledby="history-title">
      <h2 id="history-title">History</h2>
      {newest.length === 0 ? (
        <Empty title="Nothing sent yet">Tasks that you send stand here with their answers.</Empty>
      ) : (
        <ol class="history">{newest.map((call) => <Row key={call.id} call={call} />)}</ol>
      )}
    </section>
  );
}

function Row({ call }: { call: Call }) {
  const kind = { waiting: 'busy', answered: 'good', sent: 'good', failed: 'bad' } as const;
  return (
    <li>
      <div class="history-head">
        <Mark kind={kind[call.state]}>{call.state === 'failed' ? (call.cause ?? 'failed') : call.state}</Mark>
        <span class="muted mono">{timeText(call.time)}</span>
        {call.milliseconds !== undefined && <span class="muted mono">{durationText(call.milliseconds)}</span>}
        <button class="quiet again" aria-label={`Send again: ${call.task}`}
                onClick={() => void ask('POST', `/api/calls/${call.id}/again`, {})}>
          Send again
        </button>
      </div>
      <details>
        <summary>
          <Name of={call.task} />
          <span class="mono exchange">
            {brief(call.request)} {call.answer && <>→ <strong>{brief(call.answer)}</strong></>}
          </span>
        </summary>
        <PayloadView label="Request" payload={call.request} />
        {call.answer && <PayloadView label="Answer" payload={call.answer} />}
        {call.answer && call.answer.size > 0 && (
          <a href={pathOf(`/api/calls/${call.id}/answer`)} download>Save the answer's bytes</a>
        )}
      </details>
      {call.state === 'failed' && (
        <p class="fault">{sentence(call.text ?? 'it failed')} {advice[call.cause ?? ''] ?? ''}</p>
      )}
    </li>
  );
}

function sentence(text: string): string {
  return text.charAt(0).toUpperCase() + text.slice(1) + '.';
}
