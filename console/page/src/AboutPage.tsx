// SPDX-License-Identifier: MIT
// Versions, settings, counts, keys.
import { useEffect, useState } from 'preact/hooks';
import { ask, deviceName } from './api';
import { pages } from './pages';

const counts: [string, string][] = [
  ['answered', 'Tasks answered'], ['failed', 'Tasks failed'], ['lateAnswers', 'Answers that came too late'],
  ['repeated', 'Tasks sent again after a loss'], ['inFlight', 'Under way now'], ['queued', 'Waiting to be sent now'],
  ['heldNumbers', 'Numbers held by streams that were stopped'], ['streamMessages', 'Stream messages'],
  ['droppedMessages', 'Stream messages dropped'], ['broadcasts', 'Broadcasts'],
  ['droppedBroadcasts', 'Broadcasts dropped'], ['connections', 'Times connected'], ['losses', 'Times the link was lost'],
  ['heartbeats', 'Heartbeats'],
];

export function AboutPage() {
  const [about, setAbout] = useState<any>(null);
  useEffect(() => {
    const look = () => void ask('GET', '/api/about').then((reply) => reply.ok && setAbout(reply.json));
    look();
    const timer = setInterval(look, 2000);
    return () => clearInterval(timer);
  }, []);
  if (!about) return null;
  return (
    <div class="columns">
      <section class="card" aria-labelledby="version-title">
        <h2 id="version-title">Version</h2>
        <dl>
          <dt>Console</dt><dd class="mono">{about.console}</dd>
          <dt>Library</dt><dd class="mono">{about.library}</dd>
          <dt>Client layer</dt><dd class="mono">{about.clientLayer}</dd>
        </dl>
      </section>
      <section class="card" aria-labelledby="settings-title">
        <h2 id="settings-title">Settings</h2>
        <dl>
          <dt>Device</dt><dd class="mono">{about.uri}</dd>
          <dt>Task table</dt><dd>{about.table || 'as the settings say, else the built-in one'}</dd>
          <dt>Heartbeat</dt>
          <dd>{about.heartbeat || (about.uri === 'kel:' ? 'none: a lost link is noticed when tasks fail. Start the console with --heartbeat to watch it' : "none of the console's own: the device's keld watches its link")}</dd>
          <dt>Time for an answer</dt><dd>{about.timeout / 1000} s</dd>
        </dl>
        <h3>Brel.ini</h3>
        {about.settings === null ? (
          <p class="muted">There is none in the console's working directory: the library's defaults hold.</p>
        ) : (
          <pre tabIndex={0} aria-label="Brel.ini">{about.settings}</pre>
        )}
      </section>
      <section class="card" aria-labelledby="counts-title">
        <h2 id="counts-title">Counts</h2>
        <dl class="numbers">
          {counts.map(([key, text]) => <><dt>{text}</dt><dd class="mono">{about.statistics[key]}</dd></>)}
        </dl>
      </section>
      <section class="card" aria-labelledby="keys-title">
        <h2 id="keys-title">Keys</h2>
        <dl>
          <dt><kbd>/</kbd></dt><dd>Search a task</dd>
          <dt><kbd>↓</kbd> <kbd>↑</kbd></dt><dd>Through the list of tasks; Enter chooses one</dd>
          <dt><kbd>Enter</kbd></dt><dd>Sends the form</dd>
          {deviceName !== null && <><dt><kbd>Alt</kbd> <kbd>0</kbd></dt><dd>All devices</dd></>}
          {pages.map((page, i) => <><dt><kbd>Alt</kbd> <kbd>{i + 1}</kbd></dt><dd>{page.title}</dd></>)}
        </dl>
      </section>
    </div>
  );
}
