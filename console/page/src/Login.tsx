// SPDX-License-Identifier: MIT
// Asks for the console's token.
import { useState } from 'preact/hooks';
import { ask } from './api';

export function Login() {
  const [token, setToken] = useState('');
  const [fault, setFault] = useState('');
  const submit = async (event: Event) => {
    event.preventDefault();
    const reply = await ask('POST', '/api/session', { token });
    if (reply.ok) location.reload();
    else setFault(reply.status === 401 ? 'This is not the token of this console.' : reply.json.error);
  };
  return (
    <main class="login">
      <form class="card" onSubmit={(event) => void submit(event)}>
        <h1>KELHandler console</h1>
        <p class="muted">Who started the console knows its token: the first line of its token file.</p>
        <label class="field">
          <span>Token</span>
          <input type="password" value={token} autocomplete="current-password"
                 onInput={(event) => setToken(event.currentTarget.value)} />
        </label>
        {fault && <p class="fault" role="alert">{fault}</p>}
        <button class="main" type="submit">Open</button>
      </form>
    </main>
  );
}
