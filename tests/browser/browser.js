/* Chromium, and the helpers that every test of a page uses. */
'use strict';

const fs = require('fs');
const os = require('os');
const path = require('path');
const assert = require('assert/strict');
const { chromium } = require('playwright-core');

const AXE = fs.readFileSync(require.resolve('axe-core/axe.min.js'), 'utf8');

/* A time limit for waiting: long, since a loaded machine is slow; a test that passes never reaches it. */
const PATIENCE = 60000;

async function launch() {
	const profile = fs.mkdtempSync(path.join(os.tmpdir(), 'wsmd-browser-'));
	const context = await chromium.launch({
		executablePath: process.env.WSMD_CHROMIUM || '/usr/bin/chromium',
		env: { ...process.env, HOME: profile },
		args: [ '--no-sandbox', '--disable-gpu', '--disable-quic', '--no-first-run', '--disable-background-networking',
			'--disable-component-update', '--disable-sync' ]
	});

	context.on('disconnected', () => fs.rmSync(profile, { recursive: true, force: true }));

	return context;
}

/* A page that records what went wrong in it: console errors, exceptions, unhandled rejections. */
async function newPage(browser, { width = 1280, height = 900, dark = false, locale = 'en-GB', zone = 'UTC' } = {}) {
	const context = await browser.newContext({
		viewport: { width, height },
		screen: { width, height },
		isMobile: width < 600,
		colorScheme: dark ? 'dark' : 'light',
		locale,
		timezoneId: zone
	});
	const page = await context.newPage();

	page.setDefaultTimeout(PATIENCE);
	page.errors = [];
	page.on('console', (message) => { if (message.type() == 'error') page.errors.push(message.text()); });
	page.on('pageerror', (error) => page.errors.push(String(error)));

	return page;
}

/* Waits until the function gives something true. */
async function until(what, fn) {
	const end = Date.now() + PATIENCE;

	for (;;) {
		const found = await fn();

		if (found)
			return found;

		assert.ok(Date.now() < end, `waited in vain: ${what}`);
		await new Promise((resolve) => setTimeout(resolve, 20));
	}
}

async function violations(page) {
	if (!await page.evaluate(() => 'axe' in window))
		await page.evaluate(AXE);

	return page.evaluate(async () => (await window.axe.run(document)).violations
		.map(({ id, help, nodes }) => `${id}: ${help}: ${nodes.slice(0, 3).map(node => node.html.slice(0, 200)).join(' | ')}`));
}

/* What reaches beyond the window's sides, and words that are wider than their box; not what can be scrolled within `scrollers`. */
function stickingOut(page, scrollers = 'none') {
	return page.evaluate((inner) => {
		const found = [];

		if (document.scrollingElement.scrollWidth > document.documentElement.clientWidth)
			found.push(`the page scrolls sideways: ${document.scrollingElement.scrollWidth}`);

		for (const node of document.body.querySelectorAll('*')) {
			const box = node.getBoundingClientRect();

			if (node.parentNode.closest(inner))
				continue;

			if (box.width && (box.left < -0.5 || box.right > document.documentElement.clientWidth + 0.5))
				found.push(`${node.tagName} ${node.className} ${node.textContent.slice(0, 40)}: ${box.left} to ${box.right}`);
		}

		for (const cell of document.querySelectorAll('td, th'))
			if (cell.scrollWidth > cell.clientWidth + 1 && !cell.closest(inner))
				found.push(`cell ${cell.textContent.slice(0, 40)}: ${cell.scrollWidth} in ${cell.clientWidth}`);

		return found;
	}, scrollers);
}

/* Live objects after a collection of the browser's garbage. */
async function memory(page) {
	const session = await page.context().newCDPSession(page);

	await session.send('Performance.enable');
	await session.send('HeapProfiler.collectGarbage');
	await session.send('HeapProfiler.collectGarbage');

	const { metrics } = await session.send('Performance.getMetrics');

	await session.detach();

	return Object.fromEntries(metrics.map(({ name, value }) => [ name, value ]));
}

/* A figure for people, which the test runner prints at its end. */
function measured(text) {
	if (process.env.WSMD_PICTURES)
		fs.appendFileSync(path.join(path.dirname(process.env.WSMD_PICTURES), 'measured'), `${text}\n`);
}

const FIRST_TABLE = 300 * 1024; // bytes, at most

/* When the collector's page had its first rows (ms), and the bytes of all files and answers that it had fetched by then: as they
 * were sent, and unpacked. */
function firstTable(page) {
	return page.evaluate(() => {
		const time = performance.getEntriesByName('first-table')[0].startTime;
		const asked = [ ...performance.getEntriesByType('navigation'), ...performance.getEntriesByType('resource') ]
			.filter(({ startTime }) => startTime <= time);
		const bytes = (answers, size) => asked.filter(({ name }) => name.includes('/api/') == answers).reduce((sum, one) => sum + one[size], 0);

		return { time, page: bytes(false, 'transferSize'), list: bytes(true, 'transferSize'),
			unpackedPage: bytes(false, 'decodedBodySize'), unpackedList: bytes(true, 'decodedBodySize') };
	});
}

/* A picture for people, in the folder that the runner names. */
async function picture(page, name, options = {}) {
	const folder = process.env.WSMD_PICTURES;

	if (!folder)
		return;

	fs.mkdirSync(folder, { recursive: true });
	await page.screenshot({ path: path.join(folder, `${name}.png`), ...options });
}

module.exports = { launch, newPage, until, violations, stickingOut, memory, measured, FIRST_TABLE, firstTable, picture };
