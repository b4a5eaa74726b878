// SPDX-License-Identifier: MIT
// The page: its head, its navigation, and the part that is chosen.
import { render } from 'preact';
import { useEffect, useState } from 'preact/hooks';
import { AboutPage } from './AboutPage';
import { listen } from './api';
import { BroadcastsPage } from './BroadcastsPage';
import { Advice, LinkBar } from './LinkBar';
import { Login } from './Login';
import { useModel } from './model';
import { pageInAddress, pages, PageWord } from './pages';
import { ScenarioPage } from './ScenarioPage';
import { StreamsPage } from './StreamsPage';
import './style.css';
import { TasksPage } from './TasksPage';
import { TrafficPage } from './TrafficPage';

const contents: Record<PageWord, () => any> = {
  tasks: TasksPage,
  streams: StreamsPage,
  broadcasts: BroadcastsPage,
  traffic: TrafficPage,
  scenario: ScenarioPage,
  about: AboutPage,
};

/** Keys that work everywhere. "/" does not where something is being typed. */
function takeKey(event: KeyboardEvent): void {
  const target = event.target as HTMLElement;
  const isTyping = target.matches('textarea, select, input:not([type=radio]):not([type=checkbox])');
  if (event.key === '/' && !isTyping) {
    event.preventDefault();
    location.hash = 'tasks';
    setTimeout(() => document.getElementById('search')?.focus(), 50);
  }
  const page = event.altKey ? pages[Number(event.key) - 1] : undefined;
  if (page) {
    event.preventDefault();
    location.hash = page.word;
  }
}

function App() {
  const { server, streams, isKnown } = useModel();
  const [page, setPage] = useState(pageInAddress());
  useEffect(() => {
    const change = () => {
      setPage(pageInAddress());
      scrollTo(0, 0);
    };
    addEventListener('hashchange', change);
    addEventListener('keydown', takeKey);
    return () => {
      removeEventListener('hashchange', change);
      removeEventListener('keydown', takeKey);
    };
  }, []);
  if (server === 'locked') return <Login />;
  const Content = contents[page];
  const open = Array.from(streams.values()).filter((stream) => stream.state === 'open').length;
  return (
    <>
      <a class="skip" href="#main" onClick={(event) => { event.preventDefault(); document.getElementById('main')?.focus(); }}>
        To the content
      </a>
      <header>
        <div class="head-row">
          <h1>KELHandler <span>console</span></h1>
          <LinkBar />
        </div>
        <nav aria-label="Pages">
          {pages.map(({ word, title }) => (
            <a key={word} href={`#${word}`} aria-current={word === page ? 'page' : undefined}>
              {title}
              {word === 'streams' && open > 0 && <span class="count" aria-label={`${open} open`}>{open}</span>}
            </a>
          ))}
        </nav>
      </header>
      <main id="main" tabIndex={-1}>
        <Advice />
        {isKnown ? <Content /> : server === 'here' && <p class="muted" role="status">Loading…</p>}
      </main>
    </>
  );
}

render(<App />, document.getElementById('app') as HTMLElement);
listen();
