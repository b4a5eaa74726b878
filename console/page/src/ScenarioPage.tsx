// SPDX-License-Identifier: MIT
// The stand-in's scenario: view, edit, check, apply.
import { useEffect, useRef, useState } from 'preact/hooks';
import { ask } from './api';
import { useModel } from './model';
import { Empty } from './parts';

interface Mistake {
  line: number;
  found: string;
  expected: string;
}

const kStart = '{\n  "rules": []\n}\n';

export function ScenarioPage() {
  const { isStandIn, isKnown } = useModel();
  const [file, setFile] = useState('');
  const [inForce, setInForce] = useState('');
  const [text, setText] = useState<string | null>(null); // null until it has come
  const [mistakes, setMistakes] = useState<Mistake[]>([]);
  const [told, setTold] = useState('');
  const editor = useRef<HTMLTextAreaElement>(null);
  const numbers = useRef<HTMLPreElement>(null);

  useEffect(() => {
    if (!isStandIn) return;
    void ask('GET', '/api/scenario').then((reply) => {
      if (!reply.ok) return;
      setFile(reply.json.file);
      setInForce(reply.json.text);
      setText(reply.json.text || kStart);
    });
  }, [isStandIn]);

  useEffect(() => {
    if (text === null) return;
    const timer = setTimeout(() => {
      void ask('POST', '/api/scenario/check', { text }).then((reply) => reply.ok && setMistakes(reply.json.mistakes));
    }, 250);
    return () => clearTimeout(timer);
  }, [text]);

  if (!isKnown) return null;
  if (!isStandIn) {
    return (
      <section class="card">
        <h2>Scenario</h2>
        <Empty title="This device has no scenario">
          Only the stand-in device has one: it says what the device answers, and when. Run the console where the stand-in
          is installed to see it.
        </Empty>
      </section>
    );
  }
  if (text === null) return null;

  const apply = async () => {
    setTold('');
    const reply = await ask('PUT', '/api/scenario', { text });
    if (reply.ok) {
      setInForce(text);
      setTold('In force. The link was opened anew, since a scenario begins with a connection.');
    } else if (reply.status === 422) {
      setMistakes(reply.json.mistakes);
    } else {
      setTold(`It was not applied: ${reply.json.error}.`);
    }
  };
  const go = (line: number) => {
    const area = editor.current;
    if (!area || line === 0) return;
    const lines = text.split('\n');
    const begin = lines.slice(0, line - 1).reduce((sum, one) => sum + one.length + 1, 0);
    area.focus();
    area.setSelectionRange(begin, begin + (lines[line - 1] ?? '').length);
    area.scrollTop = (line - 4) * 20;
  };

  const wrong = new Set(mistakes.map((mistake) => mistake.line));
  return (
    <section class="card" aria-labelledby="scenario-title">
      <h2 id="scenario-title">Scenario</h2>
      <p class="muted facts">
        {file ? <>From <span class="mono">{file}</span>. </> : 'The stand-in runs without a scenario. '}
        What you apply holds until the console ends; the file stays as it is.
      </p>
      <label for="scenario" class="label">Scenario, as JSON</label>
      <div class="editor">
        <pre aria-hidden="true" ref={numbers}>
          {text.split('\n').map((_, i) => <span key={i} class={wrong.has(i + 1) ? 'wrong' : ''}>{i + 1}{'\n'}</span>)}
        </pre>
        <textarea id="scenario" ref={editor} class="mono" spellcheck={false} wrap="off" value={text}
                  aria-invalid={mistakes.length > 0} aria-describedby="mistakes"
                  onScroll={(event) => numbers.current && (numbers.current.scrollTop = event.currentTarget.scrollTop)}
                  onInput={(event) => { setText(event.currentTarget.value); setTold(''); }} />
      </div>
      <div id="mistakes" role="status">
        {mistakes.length === 0 ? <p class="good-text">No mistakes.</p> : (
          <>
            <p class="fault">{mistakes.length === 1 ? 'One mistake:' : `${mistakes.length} mistakes:`}</p>
            <ul class="mistakes">
              {mistakes.map((mistake, i) => (
                <li key={i}>
                  <button class="link" onClick={() => go(mistake.line)}>Line {mistake.line}</button>{' '}
                  {mistake.found}; expected {mistake.expected}
                </li>
              ))}
            </ul>
          </>
        )}
      </div>
      <div class="buttons">
        <button class="main" disabled={mistakes.length > 0 || text === inForce} onClick={() => void apply()}>Apply</button>
        <button disabled={text === (inForce || kStart)} onClick={() => { setText(inForce || kStart); setTold(''); }}>Revert</button>
      </div>
      <p class="told" role="status">{told}</p>
    </section>
  );
}
