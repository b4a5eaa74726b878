// SPDX-License-Identifier: MIT
// Streams: each as a plot.
import { useRef, useState } from 'preact/hooks';
import { ask } from './api';
import { Points, Stream, useModel } from './model';
import { brief } from './payload';
import { Choice, Empty, Mark, Name, saveFile } from './parts';
import { Axis, Controls, Plot } from './Plot';

const ends: Record<string, string> = {
  finished: 'The device has ended it.',
  stopped: 'It was stopped here.',
  'link-lost': 'The link was lost, or renewed. Open it again from the tasks.',
  closed: 'The link was closed.',
};

export function StreamsPage() {
  const { streams } = useModel();
  const newest = Array.from(streams.values()).reverse();
  return (
    <div class="stack">
      <h2 class="page-title">Streams</h2>
      {newest.length === 0 && (
        <section class="card">
          <Empty title="No stream yet">
            Choose a task on the page <a href="#tasks">Tasks</a> and have "A stream" come back.
          </Empty>
        </section>
      )}
      {newest.map((stream) => <StreamCard key={stream.id} stream={stream} />)}
    </div>
  );
}

function StreamCard({ stream }: { stream: Stream }) {
  const { points: all } = useModel();
  const points = all.get(stream.id);
  const [axis, setAxis] = useState<Axis>('number');
  const [shown, setShown] = useState([true, true, true]);
  const [isPaused, setPaused] = useState(false);
  const controls = useRef<Controls | null>(null);
  const isOpen = stream.state === 'open';
  const title = `stream-${stream.id}`;

  return (
    <section class="card" aria-labelledby={title}>
      <div class="card-head">
        <h3 id={title}><Name of={stream.task} /> <span class="muted">stream {stream.id}</span></h3>
        <Mark kind={isOpen ? 'good' : 'off'}>{stream.state}</Mark>
      </div>
      <p class="muted facts">
        {stream.messages} messages
        {stream.dropped > 0 && `, ${stream.dropped} dropped`} · asked with {brief(stream.request)}
        {points?.last && <> · last: <span class="mono">{brief(points.last)}</span></>}
      </p>
      {!isOpen && ends[stream.state] && <p class="muted facts">{ends[stream.state]}</p>}
      {points ? (
        <>
          <Plot points={points} axis={axis} shown={shown} isPaused={isPaused}
                onReady={(ready) => (controls.current = ready)}
                label={`Plot of ${stream.messages} messages of ${stream.task}. The last one: ${points.last ? brief(points.last) : 'none'}`} />
          <fieldset class="legend">
            <legend class="hidden">Values that are drawn</legend>
            {['First', 'Second', 'Third'].map((name, i) => (
              <label key={name} class={`line-${i + 1}`}>
                <input type="checkbox" checked={shown[i]}
                       onChange={() => setShown(shown.map((old, k) => (k === i ? !old : old)))} />
                {name} value
              </label>
            ))}
          </fieldset>
          <div class="row">
            <Choice<Axis> label="Along" value={axis} onChange={setAxis} options={[['number', 'Number'], ['time', 'Seconds']]} />
            <div class="buttons" role="group" aria-label="Plot">
              <button aria-pressed={isPaused} onClick={() => setPaused(!isPaused)}>{isPaused ? 'Go on' : 'Pause'}</button>
              <button onClick={() => controls.current?.zoom(0.5)}>Zoom in</button>
              <button onClick={() => controls.current?.zoom(2)}>Zoom out</button>
              <button aria-label="Earlier" onClick={() => controls.current?.move(-0.25)}>←</button>
              <button aria-label="Later" onClick={() => controls.current?.move(0.25)}>→</button>
              <button onClick={() => controls.current?.whole()}>Whole</button>
              <button onClick={() => saveFile(`stream-${stream.id}.csv`, 'text/csv', csvOf(points))}>Export CSV</button>
              {isOpen && (
                <button class="danger" onClick={() => void ask('DELETE', `/api/streams/${stream.id}`)}>Stop</button>
              )}
            </div>
          </div>
        </>
      ) : (
        <>
          <Empty title="No message here">
            {isOpen ? 'The plot begins with the first message that comes.'
                    : 'Messages that came before this page was opened are not kept.'}
          </Empty>
          {isOpen && <button class="danger" onClick={() => void ask('DELETE', `/api/streams/${stream.id}`)}>Stop</button>}
        </>
      )}
    </section>
  );
}

function csvOf(points: Points): string {
  const rows = points.numbers.map((number, i) =>
    [number, (points.times[i] as number).toFixed(6), ...points.words.map((column) => column[i] ?? '')].join(','));
  return ['number,seconds,first,second,third', ...rows].join('\n') + '\n';
}
