// SPDX-License-Identifier: MIT
// Everything that passed, each request with its answer.
import { useState } from 'preact/hooks';
import { model, Passage, useModel } from './model';
import { durationText, Empty, Name, timeText } from './parts';

const kShown = 300;
const arrows = { out: '→', in: '←', link: '•' };
const words = { out: 'sent', in: 'came', link: 'link' };

export function TrafficPage() {
  const { missed } = useModel();
  const traffic = model.traffic();
  const [search, setSearch] = useState('');
  const [match, setMatch] = useState('');
  const [hasMessages, setHasMessages] = useState(true);
  const [held, setHeld] = useState<Passage[] | null>(null);
  const found = (held ?? traffic)
    .filter((one) => hasMessages || one.kind !== 'message')
    .filter((one) => `${one.kind} ${one.task} ${one.match} ${one.text}`.toLowerCase().includes(search.toLowerCase()))
    .slice(-kShown).reverse();
  return (
    <section class="card" aria-labelledby="traffic-title">
      <div class="card-head">
        <h2 id="traffic-title">Traffic</h2>
        <div class="buttons">
          <button aria-pressed={held !== null} onClick={() => setHeld(held ? null : traffic)}>
            {held ? 'Go on' : 'Pause'}
          </button>
          <button onClick={() => { model.clearTraffic(); setHeld(null); }}>Clear</button>
        </div>
      </div>
      <label class="field">
        <span>Show only what has this text</span>
        <input type="search" value={search} onInput={(event) => setSearch(event.currentTarget.value)} />
      </label>
      <label class="check">
        <input type="checkbox" checked={hasMessages} onChange={() => setHasMessages(!hasMessages)} />
        With the messages of streams
      </label>
      {missed > 0 && <p class="muted facts">{missed} events came faster than this page takes them, and were dropped.</p>}
      {found.length === 0 ? (
        <Empty title="No traffic">
          {traffic.length === 0 ? 'Send a task, or wait for what the device sends.' : 'Clear the field to see all of it.'}
        </Empty>
      ) : (
        <div class="table-wrap" tabIndex={0} role="region" aria-label="Traffic, newest first">
          <table>
            <thead>
              <tr>
                <th scope="col">Time</th><th scope="col"><span class="hidden">Direction</span></th><th scope="col">What</th>
                <th scope="col">Belongs to</th><th scope="col">Task</th><th scope="col">Payload</th><th scope="col">After</th>
              </tr>
            </thead>
            <tbody>
              {found.map((one) => (
                <tr key={one.key} class={(one.match && one.match === match ? 'matched ' : '') + (one.isBad ? 'bad-row' : '')}>
                  <td class="mono">{timeText(one.time)}</td>
                  <td><span aria-hidden="true">{arrows[one.direction]}</span><span class="hidden">{words[one.direction]}</span></td>
                  <td>{one.kind}</td>
                  <td>
                    {one.match && (
                      <button class="link" aria-pressed={one.match === match}
                              onClick={() => setMatch(one.match === match ? '' : one.match)}>
                        {one.match}
                      </button>
                    )}
                  </td>
                  <td class="name"><Name of={one.task} /></td>
                  <td class="mono">{one.text}</td>
                  <td class="mono">{one.milliseconds === undefined ? '' : durationText(one.milliseconds)}</td>
                </tr>
              ))}
            </tbody>
          </table>
        </div>
      )}
    </section>
  );
}
