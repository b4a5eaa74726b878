// SPDX-License-Identifier: MIT
// The link: where it stands, and what to do about it.
import { useState } from 'preact/hooks';
import { ask } from './api';
import { useModel } from './model';
import { Mark } from './parts';

const kinds = { connected: 'good', connecting: 'busy', lost: 'bad', closed: 'off' } as const;

export function LinkBar() {
  const { link, uri } = useModel();
  const [isBusy, setBusy] = useState(false);
  const change = async (connected: boolean) => {
    setBusy(true);
    await ask('PUT', '/api/link', { connected });
    setBusy(false);
  };
  return (
    <div class="link-bar">
      <span class="uri mono" title="The device's address">{uri}</span>
      <span role="status" aria-label="Link"><Mark kind={kinds[link.state]}>{link.state}</Mark></span>
      <button class="quiet" disabled={isBusy} onClick={() => void change(link.state === 'closed')}>
        {link.state === 'closed' ? 'Connect' : 'Disconnect'}
      </button>
    </div>
  );
}

/** Tells what to do while there is no link, or no console. */
export function Advice() {
  const { link, server, isKnown } = useModel();
  if (server === 'gone') {
    return (
      <p class="advice bad" role="alert">
        <strong>The console does not answer.</strong> What you see is old. Start it again with{' '}
        <code>kelctl console</code>; this page finds it by itself.
      </p>
    );
  }
  if (server === 'full') {
    return (
      <p class="advice bad" role="alert">
        <strong>Too many pages look at this device.</strong> Close one of them; this page goes on by itself.
      </p>
    );
  }
  if (!isKnown || link.state === 'connected') return null;
  const reason = link.reason ? ` The reason: ${link.reason}.` : '';
  if (link.state === 'closed') {
    return (
      <p class="advice" role="alert">
        <strong>The link is closed.</strong>{reason} Press Connect to open it.
      </p>
    );
  }
  return (
    <p class={link.state === 'lost' ? 'advice bad' : 'advice'} role="status">
      <strong>{link.state === 'lost' ? 'The link is lost.' : 'Connecting.'}</strong>
      {reason} The console tries again by itself. If that lasts, see whether the device is on and nobody else holds it.
    </p>
  );
}
