// SPDX-License-Identifier: MIT
// The devices of a site: which there are, how they are, and whom they are reserved for.
import { useState } from 'preact/hooks';
import { ask } from './api';
import { fits, fleet, Presence, tagsOf } from './fleet';
import { useModel } from './model';
import { Empty, Mark, timeText } from './parts';

const kinds: Record<string, 'good' | 'busy' | 'bad'> = { connected: 'good', connecting: 'busy', lost: 'bad' };

export function SiteBar() {
  useModel();
  const { state } = fleet.site;
  return (
    <div class="link-bar">
      <span class="uri mono" title="The site's address">{fleet.uri}</span>
      <span role="status" aria-label="Site"><Mark kind={kinds[state] ?? 'off'}>{state}</Mark></span>
    </div>
  );
}

/** Tells what to do while the site cannot be read. */
export function SiteAdvice() {
  const { server } = useModel();
  if (server !== 'here' || fleet.site.state !== 'lost') return null;
  return (
    <p class="advice bad" role="alert">
      <strong>The site cannot be read.</strong> The reason: {fleet.site.reason}. What you see is old. The console asks
      again by itself; see whether the site's NATS servers run, and whether a keld has begun there.
    </p>
  );
}

export function FleetPage() {
  useModel();
  const [search, setSearch] = useState('');
  const [fault, setFault] = useState('');
  const devices = fleet.sorted();
  const found = devices.filter((device) => fits(device, search));

  const reserve = async (device: Presence) => {
    const reply = await ask(device.isMine ? 'DELETE' : 'PUT', `/api/fleet/reservations/${device.name}`,
                            device.isMine ? undefined : {});
    setFault(reply.ok ? '' : `${device.name} was not ${device.isMine ? 'released' : 'reserved'}: ${reply.json.error}.`);
  };

  return (
    <section class="card" aria-labelledby="devices-title">
      <div class="card-head">
        <h2 id="devices-title">Devices</h2>
        <p class="muted" role="status">{countText(found.length, devices.length)}</p>
      </div>
      <label class="field">
        <span>Search names, tags, hosts, states and holders <kbd>/</kbd></span>
        <input id="search" type="search" value={search} autocomplete="off"
               onInput={(event) => setSearch(event.currentTarget.value)} />
      </label>
      {fault && <p class="fault" role="alert">{fault}</p>}
      {found.length > 0 ? (
        <div class="table-wrap" tabIndex={0} role="region" aria-label="Devices of the site">
          <table class="devices">
            <thead>
              <tr>
                <th scope="col">Device</th><th scope="col">Link</th><th scope="col">Tags</th><th scope="col">Host</th>
                <th scope="col">Load</th><th scope="col">Reserved for</th><th scope="col"><span class="hidden">Change</span></th>
              </tr>
            </thead>
            <tbody>
              {found.map((device) => (
                <Row key={device.name} device={device} onTag={setSearch} onReserve={() => void reserve(device)} />
              ))}
            </tbody>
          </table>
        </div>
      ) : devices.length > 0 ? (
        <Empty title="No device fits">Clear the field to see all of them.</Empty>
      ) : fleet.site.state === 'connected' ? (
        <Empty title="No device is offered here">
          Start keld on a host that has one: <code>keld run --site SITE --device NAME --server HOST</code>. It appears here
          by itself.
        </Empty>
      ) : fleet.site.state === 'connecting' && <p class="muted" role="status">Loading…</p>}
    </section>
  );
}

function Row(props: { device: Presence; onTag: (tag: string) => void; onReserve: () => void }) {
  const { device } = props;
  const isFree = device.holder === '';
  return (
    <tr class={device.state === 'gone' ? 'old' : ''}>
      <td class="device">
        <a class="mono" href={`/?device=${encodeURIComponent(device.name)}`}>{device.name}</a>
        <span class="muted">keld {device.version}</span>
      </td>
      <td><Mark kind={kinds[device.state] ?? 'off'}>{device.state}</Mark></td>
      <td class="tags">
        {tagsOf(device).map((tag) => (
          <button key={tag} class="link" title={`Show the devices with ${tag}`} onClick={() => props.onTag(tag)}>{tag}</button>
        ))}
      </td>
      <td><span class="narrow">on </span>{device.host}</td>
      <td class="load">
        {device.inFlight} under way{device.queued > 0 && `, ${device.queued} wait`}
        <span class="muted">{device.tasks} tasks</span>
      </td>
      <td class="holder">
        <span class="narrow">reserved for </span>
        {isFree ? <span class="muted">nobody</span> : device.isMine ? 'this console' : device.holder}
        {!isFree && <span class="muted since">since {timeText(device.heldSince).slice(0, 8)}{device.waiting > 0 && `, ${device.waiting} wait`}</span>}
      </td>
      <td class="change">
        {(isFree || device.isMine) && device.state !== 'gone' && (
          <button class="quiet" aria-label={`${device.isMine ? 'Release' : 'Reserve'} ${device.name}`} onClick={props.onReserve}>
            {device.isMine ? 'Release' : 'Reserve'}
          </button>
        )}
      </td>
    </tr>
  );
}

function countText(found: number, all: number): string {
  const devices = all === 1 ? '1 device' : `${all} devices`;
  return found === all ? devices : `${found} of ${devices}`;
}
