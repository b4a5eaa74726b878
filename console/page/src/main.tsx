// SPDX-License-Identifier: MIT
// The page: its head, its navigation, and the part that is chosen.
import { render } from 'preact';
import { useEffect, useState } from 'preact/hooks';
import { AboutPage } from './AboutPage';
import { deviceName, listen, whatIsShown } from './api';
import { BroadcastsPage } from './BroadcastsPage';
import { fleet } from './fleet';
import { FleetPage, SiteAdvice, SiteBar } from './FleetPage';
import { Advice, LinkBar } from './LinkBar';
import { Login } from './Login';
import { model, useModel } from './model';
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

type Shown = 'unknown' | 'site' | 'device';

/** Keys that work everywhere. "/" does not where something is being typed. */
function takeKey(event: KeyboardEvent, shown: Shown): void {
  const target = event.target as HTMLElement;
  const isTyping = target.matches('textarea, select, input:not([type=radio]):not([type=checkbox])');
  if (event.key === '/' && !isTyping) {
    event.preventDefault();
    const focus = () => document.getElementById('search')?.focus();
    if (shown === 'site' || pageInAddress() === 'tasks') return focus();
    location.hash = 'tasks';
    addEventListener('hashchange', () => setTimeout(focus), { once: true }); // once the page has changed
  }
  if (shown !== 'device') return;
  if (event.altKey && event.key === '0' && deviceName !== null) location.href = '/';
  const page = event.altKey ? pages[Number(event.key) - 1] : undefined;
  if (page) {
    event.preventDefault();
    location.hash = page.word;
  }
}

function App() {
  const { server, streams, isKnown } = useModel();
  const [shown, setShown] = useState<Shown>('unknown');
  const [page, setPage] = useState(pageInAddress());
  useEffect(() => void begin(setShown), []);
  useEffect(() => {
    const change = () => {
      setPage(pageInAddress());
      scrollTo(0, 0);
    };
    const key = (event: KeyboardEvent) => takeKey(event, shown);
    addEventListener('hashchange', change);
    addEventListener('keydown', key);
    return () => {
      removeEventListener('hashchange', change);
      removeEventListener('keydown', key);
    };
  }, [shown]);
  if (server === 'locked') return <Login />;
  const Content = contents[page];
  const open = Array.from(streams.values()).filter((stream) => stream.state === 'open').length;
  const isLoaded = shown === 'site' ? fleet.uri !== '' : isKnown;
  return (
    <>
      <a class="skip" href="#main" onClick={(event) => { event.preventDefault(); document.getElementById('main')?.focus(); }}>
        To the content
      </a>
      <header>
        <div class="head-row">
          <h1>KELHandler <span>console</span></h1>
          {deviceName !== null && <a class="back" href="/">All devices</a>}
          {shown === 'site' ? <SiteBar /> : <LinkBar />}
        </div>
        {shown === 'device' && (
          <nav aria-label="Pages">
            {pages.map(({ word, title }) => (
              <a key={word} href={`#${word}`} aria-current={word === page ? 'page' : undefined}>
                {title}
                {word === 'streams' && open > 0 && <span class="count" aria-label={`${open} open`}>{open}</span>}
              </a>
            ))}
          </nav>
        )}
      </header>
      <main id="main" tabIndex={-1}>
        <Advice />
        {shown === 'site' && <SiteAdvice />}
        {isLoaded ? (shown === 'site' ? <FleetPage /> : <Content />)
                  : server === 'here' && <p class="muted" role="status">Loading…</p>}
      </main>
    </>
  );
}

/** Finds out what the console shows, and listens for it. */
async function begin(setShown: (shown: Shown) => void): Promise<void> {
  const reply = await whatIsShown();
  if (!reply.ok) {
    if (model.server !== 'locked') setTimeout(() => void begin(setShown), 2000);
    return;
  }
  if (reply.json.uri !== null && deviceName === null) {
    setShown('site');
    listen('/api/fleet/events', { snapshot: (all) => fleet.begin(all), entries: (some) => fleet.take(some) });
  } else {
    setShown('device');
    if (deviceName !== null) document.title = `${deviceName} – KELHandler console`;
    listen('/api/events', {
      snapshot: (all) => model.begin(all),
      entries: (some) => model.take(some),
      missed: ({ count }) => model.miss(count),
    });
  }
}

render(<App />, document.getElementById('app') as HTMLElement);
