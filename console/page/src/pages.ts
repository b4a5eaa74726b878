// SPDX-License-Identifier: MIT
// The pages of a device, by the word behind the # of the address.
export const pages = [
  { word: 'tasks', title: 'Tasks' },
  { word: 'streams', title: 'Streams' },
  { word: 'broadcasts', title: 'Broadcasts' },
  { word: 'traffic', title: 'Traffic' },
  { word: 'scenario', title: 'Scenario' },
  { word: 'about', title: 'About' },
] as const;

export type PageWord = (typeof pages)[number]['word'];

export function pageInAddress(): PageWord {
  const word = location.hash.slice(1);
  return pages.find((page) => page.word === word)?.word ?? 'tasks';
}
