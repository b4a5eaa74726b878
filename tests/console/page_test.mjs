// SPDX-License-Identifier: MIT
// The page in a real browser: each feature as a person uses it, by keyboard and pointer, wide and narrow, light and dark.
// Pictures of each page are left in the folder KELCONSOLE_PICTURES.
import assert from 'node:assert/strict';
import { readFileSync, writeFileSync } from 'node:fs';
import { join } from 'node:path';
import { after, before, test } from 'node:test';
import { accessibilityFaults, launch } from './browser.mjs';
import { Console, entryIn } from './console.mjs';

const debug = 'TASK_ID_APPLICATION_DEBUG_VAL';
const text = 'TASK_ID_APPLICATION_DEBUG_REF';
const streamer = 'TASK_ID_APPLICATION_DEBUG_STREAMER';
const scenario = {
  broadcasts: [{ task: 'TASK_ID_TIMER_POST_TASKS', at: 100, every: 200, payload: { text: 'alive' } }],
  rules: [
    { task: 'TASK_ID_VERSIONS_GET', refuse: { L4status: 1 } },
    { task: 'TASK_ID_TRACE_EVACUATE', drop: true },
    { task: streamer, stream: { count: 100000, interval: 5 } },
  ],
};
let device;
let browser;
let context;
let page;

/** A page in a window of its own. What goes wrong in it fails the test that runs. */
async function open({ width = 1440, height = 900, colorScheme = 'light' } = {}, of = device) {
  await context?.close();
  context = await browser.newContext({ viewport: { width, height }, colorScheme, acceptDownloads: true });
  page = await context.newPage();
  page.setDefaultTimeout(60000);
  page.on('pageerror', (error) => assert.fail(error));
  await page.goto(of.url);
  await page.getByRole('status', { name: 'Link' }).getByText('connected').waitFor();
}

const go = (title) => page.getByRole('navigation').getByRole('link', { name: title }).click();
const choose = (task) => page.getByRole('button', { name: new RegExp(`^${task} `) }).click();
const send = () => page.getByRole('button', { name: 'Send', exact: true }).click();
const newest = () => page.getByRole('region', { name: 'History' }).getByRole('listitem').first();

before(async () => {
  device = await new Console().start({ scenario });
  browser = await launch();
  await open();
});
after(async () => {
  await browser.close();
  await device.stop();
});

test('A task is found, filled in and sent by the keyboard alone', async () => {
  await page.keyboard.press('/');
  await page.keyboard.type('debug_val upper');
  await page.keyboard.press('ArrowDown');
  await page.keyboard.press('Enter');
  await page.getByLabel('Value 1').focus();
  await page.keyboard.press('ControlOrMeta+A');
  await page.keyboard.type('7');
  await page.keyboard.press('Tab');
  await page.keyboard.type('0x10');
  await page.keyboard.press('Enter');
  await newest().getByText('answered').waitFor();
  await newest().getByText('7 16 0').first().waitFor();
  for (const [i, title] of ['Tasks', 'Streams', 'Broadcasts', 'Traffic', 'Scenario', 'About'].entries()) {
    await page.keyboard.press(`Alt+${i + 1}`);
    await page.getByRole('link', { name: title, exact: true }).and(page.locator('[aria-current=page]')).waitFor();
  }
  await page.keyboard.press('/');
  await page.getByLabel(/^Search/).and(page.locator(':focus')).waitFor();
  assert.equal(new URL(page.url()).hash, '#tasks');
});

test('A value that is no number is told before anything is sent', async () => {
  await choose(debug);
  await page.getByLabel('Value 2').fill('4294967296');
  await send();
  await page.getByText('Value 2 is no number from 0 to 4294967295').waitFor();
});

test('Bytes are sent as text, as digits and from a file, and shown', async () => {
  await choose(text);
  await page.getByLabel('Text, as UTF-8').fill('grüß');
  await send();
  await newest().getByText('"grüß"').first().waitFor();
  await page.getByText('Hex', { exact: true }).click();
  await page.getByLabel('Bytes, as hexadecimal digits').fill('00 ff 1');
  await send();
  await page.getByText('no pairs of hexadecimal digits').waitFor();
  await page.getByLabel('Bytes, as hexadecimal digits').fill('00 ff 10');
  await send();
  await newest().getByText('00 ff 10').first().waitFor();
  await page.getByText('File', { exact: true }).first().click();
  await page.locator('input[type=file]').setInputFiles({ name: 'a.bin', mimeType: '', buffer: Buffer.from('from a file') });
  await send();
  await newest().getByText('"from a file"').first().waitFor();
  await newest().locator('summary').click();
  await newest().getByText('66 72 6f 6d').first().waitFor();
  const saved = page.waitForEvent('download');
  await newest().getByRole('link', { name: 'Save the answer' }).click();
  assert.equal(readFileSync(await (await saved).path(), 'utf8'), 'from a file');
});

test('A task is sent again by one click', async () => {
  await choose(debug);
  await page.getByLabel('Value 1').fill('4242');
  await send();
  await newest().getByText('4242 0 0').first().waitFor();
  const count = await page.getByText('4242 0 0').count();
  await newest().getByRole('button', { name: 'Send again' }).click();
  await page.getByText('4242 0 0').nth(2 * count - 1).waitFor();
});

test('A refused task and one without an answer say what to do', async () => {
  await choose('TASK_ID_VERSIONS_GET');
  await send();
  await newest().getByText('See whether the device is ready for this task').waitFor();
  await choose('TASK_ID_TRACE_EVACUATE');
  await page.getByLabel('Wait, in seconds').fill('0.2');
  await send();
  await newest().getByText('Send it again with more time to wait').waitFor();
});

test('A stream is plotted, paused, zoomed, exported and stopped', async () => {
  await choose(streamer);
  await page.getByRole('button', { name: 'Open stream' }).click();
  await page.getByText('The stream is open').waitFor();
  await go('Streams');
  const stream = page.getByRole('region', { name: streamer });
  await stream.locator('canvas').waitFor();
  const press = (name) => stream.getByRole('button', { name, exact: true }).click();
  const picture = () => stream.locator('canvas').evaluate((canvas) => canvas.toDataURL());
  const until = async (isReached) => {
    const end = Date.now() + 60000;
    while (!isReached(await picture())) {
      assert.ok(Date.now() < end);
      await page.waitForTimeout(50);
    }
  };
  await stream.getByText(/^\d{3,} messages/).first().waitFor(); // enough to zoom into
  await press('Pause');
  await stream.getByRole('button', { name: 'Go on' }).waitFor();
  const facts = await stream.locator('.facts').first().textContent();
  const held = await picture();
  await stream.getByText(facts, { exact: true }).waitFor({ state: 'detached' });
  assert.equal(await picture(), held, 'a pause holds the picture');
  let before = held;
  for (const name of ['Zoom in', 'Later', 'Earlier', 'Zoom out']) {
    await press(name);
    await until((now) => now !== before);
    before = await picture();
  }
  await press('Whole');
  await until((now) => now === held);
  await press('Go on');
  await until((now) => now !== held);
  await press('Pause');
  before = await picture();
  await stream.getByText('Seconds').click();
  await until((now) => now !== before);
  before = await picture();
  await stream.getByLabel('Second value').uncheck();
  await until((now) => now !== before);
  const saved = page.waitForEvent('download');
  await stream.getByRole('button', { name: 'Export CSV' }).click();
  const rows = readFileSync(await (await saved).path(), 'utf8').trim().split('\n');
  assert.equal(rows[0], 'number,seconds,first,second,third');
  assert.match(rows[1], /^\d+,\d+\.\d{6},\d+,100000,5$/);
  await stream.getByRole('button', { name: 'Stop' }).click();
  await stream.getByText('It was stopped here.').waitFor();
});

test('Broadcasts come by themselves, and can be held', async () => {
  await go('Broadcasts');
  await page.getByRole('cell', { name: '"alive"' }).first().waitFor();
  const first = () => page.locator('tbody tr').first().textContent();
  await page.getByRole('button', { name: 'Pause' }).click();
  await page.getByRole('button', { name: 'Go on' }).waitFor();
  const held = await first();
  const events = device.events();
  for (let i = 0; i < 3; ++i) await entryIn(events, (entry) => entry.kind === 'broadcast');
  await events.return();
  assert.equal(await first(), held);
  await page.getByRole('button', { name: 'Go on' }).click();
  while ((await first()) === held) await page.waitForTimeout(50);
  await page.getByLabel('Name').fill('no such name');
  await page.getByText('No broadcast of this name').waitFor();
});

test('The traffic has each request with its answer', async () => {
  await go('Traffic');
  await page.getByLabel('Show only what has this text').fill(streamer);
  await page.getByRole('cell', { name: 'message', exact: true }).first().waitFor();
  await page.getByLabel('With the messages of streams').uncheck();
  assert.equal(await page.getByRole('cell', { name: 'message', exact: true }).count(), 0);
  await page.getByLabel('Show only what has this text').fill('4242');
  const match = page.getByRole('row', { name: /request/ }).first().getByRole('button');
  await match.click();
  await page.getByLabel('Show only what has this text').fill(await match.textContent());
  const matched = page.locator('tr.matched');
  await matched.nth(1).waitFor();
  assert.match(await matched.nth(1).textContent(), /request/);
  assert.match(await matched.nth(0).textContent(), /answer/);
});

test('What came too fast for the page is told', async () => {
  const own = await context.newPage();
  const { json } = await device.ask('GET', '/api/device');
  const events = `event: snapshot\ndata: ${JSON.stringify(json)}\n\nevent: missed\ndata: {"count":7}\n\n`;
  await own.route('**/api/events', (route) => route.fulfill({ contentType: 'text/event-stream', body: events }), { times: 1 });
  await own.goto(`${device.url}#traffic`);
  await own.getByText('7 events came faster than this page takes them').waitFor();
  await own.getByText('gap').waitFor(); // among the rows
  await own.close();
});

test('A scenario with a mistake is not applied, and one without is', async () => {
  await go('Scenario');
  const editor = page.getByLabel('Scenario, as JSON');
  await editor.fill('{\n  "rulse": []\n}');
  await page.getByText('a scenario has no key "rulse"').waitFor();
  assert.ok(await page.getByRole('button', { name: 'Apply' }).isDisabled());
  await page.getByRole('button', { name: 'Line 2' }).click();
  assert.equal(await editor.evaluate((area) => area.value.slice(area.selectionStart, area.selectionEnd)), '  "rulse": []');
  await editor.fill(JSON.stringify({ ...scenario, rules: [...scenario.rules, { task: debug, reply: { values: [1, 2, 3] } }] }, null, 2));
  await page.getByText('No mistakes.').waitFor();
  await page.getByRole('button', { name: 'Apply' }).click();
  await page.getByText('In force.').waitFor();
  await go('Tasks');
  await choose(debug);
  await send();
  await newest().getByText('1 2 3').first().waitFor();
});

test('A closed link says what to do, and opens again', async () => {
  await page.getByRole('button', { name: 'Disconnect' }).click();
  await page.getByText('Press Connect to open it.').waitFor();
  await page.getByRole('button', { name: 'Connect', exact: true }).click();
  await page.getByRole('status', { name: 'Link' }).getByText('connected').waitFor();
});

test('A lost link says what to do', async () => {
  const lossy = { rules: [{ task: debug, loseLink: 1 }], socketRefusals: [{ skip: 1 }] };
  const of = await new Console().start({ scenario: lossy, args: ['--heartbeat', 'TASK_ID_VERSIONS_GET_UIDS'] });
  await open({}, of);
  await choose(debug);
  await send();
  await newest().getByText('The console connects again by itself.').waitFor();
  await page.getByText('see whether the device is on and nobody else holds it').waitFor();
  await of.stop();
});

for (const [width, height] of [[1440, 900], [390, 844]]) {
  for (const colorScheme of ['light', 'dark']) {
    test(`Every page is accessible and as wide as the window at ${width} pixels, ${colorScheme}`, async () => {
      await open({ width, height, colorScheme });
      const [red] = await page.evaluate(() => getComputedStyle(document.body).backgroundColor.match(/\d+/g).map(Number));
      assert.ok(colorScheme === 'dark' ? red < 64 : red > 192, 'the background is of the scheme');
      await choose(debug);
      await send();
      await newest().getByText('answered').waitFor();
      await choose('TASK_ID_VERSIONS_GET');
      await send();
      await newest().getByText('refused', { exact: true }).waitFor();
      await choose(streamer);
      await page.getByRole('button', { name: 'Open stream' }).click();
      await page.getByText('The stream is open').waitFor();
      await choose(debug);
      for (const [title, ready] of [['Tasks', () => newest()], ['Streams', () => page.locator('canvas').first()],
                                    ['Broadcasts', () => page.getByRole('cell').first()],
                                    ['Traffic', () => page.getByRole('cell').first()],
                                    ['Scenario', () => page.getByText('No mistakes.')],
                                    ['About', () => page.getByRole('heading', { name: 'Counts' })]]) {
        await go(title);
        await ready().waitFor();
        assert.deepEqual(await accessibilityFaults(page), [], title);
        assert.equal(await page.evaluate(() => document.documentElement.scrollWidth), width, title);
        assert.ok((await page.getByRole('navigation').boundingBox()).height < 50, 'the navigation is one line');
        await page.screenshot({ path: join(process.env.KELCONSOLE_PICTURES, `${title.toLowerCase()}-${width}-${colorScheme}.png`) });
      }
      await go('Streams');
      await page.getByRole('button', { name: 'Stop' }).first().click();
    });
  }
}

test('A console with a token asks for it', async () => {
  const locked = new Console();
  writeFileSync(join(locked.folder, 'token'), 'a-token-of-24-characters\n');
  await locked.start({ args: ['--token-file', 'token'] });
  await context.close();
  context = await browser.newContext({ viewport: { width: 390, height: 844 } });
  page = await context.newPage();
  await page.goto(locked.url);
  await page.getByLabel('Token').fill('wrong');
  await page.keyboard.press('Enter');
  await page.getByText('This is not the token of this console.').waitFor();
  assert.deepEqual(await accessibilityFaults(page), []);
  await page.getByLabel('Token').fill('a-token-of-24-characters');
  await page.keyboard.press('Enter');
  await page.getByRole('status', { name: 'Link' }).getByText('connected').waitFor();
  await locked.stop();
});

test('A console that has ended is missed, and found again', async () => {
  const of = await new Console().start({ scenario });
  await open({}, of);
  const { port } = new URL(of.url);
  await of.stop();
  await page.getByText('The console does not answer.').waitFor();
  const next = await new Console().start({ port });
  await page.getByText('The console does not answer.').waitFor({ state: 'detached' });
  await next.stop();
});
