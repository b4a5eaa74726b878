// SPDX-License-Identifier: MIT
// Broadcasts, as they come.
import { useState } from 'preact/hooks';
import { Broadcast, model, useModel } from './model';
import { brief } from './payload';
import { Empty, Name, timeText } from './parts';

const kShown = 200;

export function BroadcastsPage() {
  const { broadcasts } = useModel();
  const [search, setSearch] = useState('');
  const [held, setHeld] = useState<Broadcast[] | null>(null); // what is shown while it is paused
  const found = (held ?? broadcasts)
    .filter((one) => one.task.toLowerCase().includes(search.toLowerCase()))
    .slice(-kShown).reverse();
  return (
    <section class="card" aria-labelledby="broadcasts-title">
      <div class="card-head">
        <h2 id="broadcasts-title">Broadcasts</h2>
        <div class="buttons">
          <button aria-pressed={held !== null} onClick={() => setHeld(held ? null : broadcasts.slice())}>
            {held ? 'Go on' : 'Pause'}
          </button>
          <button onClick={() => { model.broadcasts = []; setHeld(null); model.changed(); }}>Clear</button>
        </div>
      </div>
      <label class="field">
        <span>Name</span>
        <input type="search" value={search} onInput={(event) => setSearch(event.currentTarget.value)} />
      </label>
      {found.length === 0 ? (
        <Empty title={broadcasts.length === 0 ? 'No broadcast has come' : 'No broadcast of this name'}>
          {broadcasts.length === 0
            ? 'What the device sends unasked stands here at once. The stand-in sends some if its scenario has "broadcasts", or if you send it a BROADCASTER task.'
            : 'Clear the field to see all of them. One that the task table does not know is called UNKNOWN_TASK.'}
        </Empty>
      ) : (
        <div class="table-wrap" tabIndex={0} role="region" aria-label="Broadcasts, newest first">
          <table>
            <thead><tr><th scope="col">Time</th><th scope="col">Task</th><th scope="col">Word</th><th scope="col">Payload</th></tr></thead>
            <tbody>
              {found.map((one) => (
                <tr key={one.key}>
                  <td class="mono">{timeText(one.time)}</td>
                  <td class="name"><Name of={one.task} /></td>
                  <td class="mono">0x{one.word.toString(16)}</td>
                  <td class="mono">{brief(one.payload)}</td>
                </tr>
              ))}
            </tbody>
          </table>
        </div>
      )}
    </section>
  );
}
