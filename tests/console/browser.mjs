// SPDX-License-Identifier: MIT
// A browser without a screen, and what it finds of a page's accessibility.
import { readFileSync } from 'node:fs';
import { createRequire } from 'node:module';
import { join } from 'node:path';

const fromPackages = createRequire(join(process.env.KELCONSOLE_PACKAGES, 'package.json'));
const { chromium } = fromPackages('playwright-core');
const axe = readFileSync(fromPackages.resolve('axe-core/axe.min.js'), 'utf8');

export function launch() {
  return chromium.launch({
    timeout: 120000,
    executablePath: '/usr/bin/chromium-headless-shell',
    args: ['--no-sandbox', '--disable-gpu', '--disable-quic', '--no-first-run', '--disable-background-networking',
           '--disable-component-update', '--disable-sync'],
  });
}

/** What axe-core finds wrong, in words. */
export async function accessibilityFaults(page) {
  await page.evaluate(axe);
  const { violations } = await page.evaluate(() => window.axe.run());
  return violations.map((one) => `${one.id}: ${one.help}: ${one.nodes.map((node) => node.html).join(' | ')}`);
}
