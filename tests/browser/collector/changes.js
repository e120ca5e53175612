/* Stations that come to the table and leave it, and what the reader can do there. */
'use strict';

const assert = require('assert/strict');
const { until } = require('../browser.js');
const { test, FAILED_REQUEST, ROW } = require('./page.js');
const { makeStation, mac } = require('./stations.js');

const now = () => Date.now() / 1000;
const plain = (text) => text.replace(/[\u202f\u00a0]/g, ' ');

module.exports = [
	test('a station that comes is shown, and one that leaves goes', {}, async (visit) => {
		await visit.rows(3);
		visit.collector.tell('joined', { ...makeStation(3, now()), name: 'Newcomer' });
		await visit.rows(4);
		assert.ok((await visit.column('.name')).includes('Newcomer'));
		visit.collector.tell('left', { ...makeStation(3, now()), name: 'Newcomer', state: 'gone', ended: now() });
		await visit.rows(3);
		await visit.says('3 stations');
	}),

	test('a report changes its row in place', {}, async (visit) => {
		await visit.rows(3);
		visit.collector.report(0, { signal: -77, rate_down: 123, state: 'leaving' });

		const row = visit.page.locator(ROW).filter({ hasText: 'Kitchen speaker' });

		await until('the new signal', async () => (await row.locator('.figure').innerText()).startsWith('−77'));
		assert.equal(await row.locator('.badge').innerText(), 'leaving');
		assert.match(await row.locator('.rate .first').innerText(), /^↓ 123/);
	}),

	test('a report that the list has overtaken changes nothing', {}, async (visit) => {
		await visit.rows(3);
		visit.collector.tell('updated', { ...visit.collector.stations[0], signal: -11, reports: 1 });
		visit.collector.tell('left', { ...visit.collector.stations[1], id: 0 });
		visit.collector.report(2, { signal: -66 });
		await until('the report behind them', async () => (await visit.column('.figure')).some(text => text.startsWith('−66')));
		await visit.says('3 stations');
		assert.ok(!(await visit.column('.figure')).some(text => text.startsWith('−11')));
	}),

	test('a heading sorts by its column, and once more the other way round', { options: { stations: 20 } }, async (visit) => {
		await visit.rows(20);

		const signals = async () => (await visit.column('.figure')).map(text => parseInt(text.replace('−', '-'), 10));
		const heading = visit.page.getByRole('button', { name: 'Signal' });
		const sorted = (numbers, sign) => numbers.every((n, i) => i == 0 || sign * (n - numbers[i - 1]) >= 0);

		await heading.click();
		await until('the strongest first', async () => sorted(await signals(), -1));
		assert.equal(await visit.page.getByRole('columnheader', { name: 'Signal' }).getAttribute('aria-sort'), 'descending');
		await heading.press('Enter');
		await until('the weakest first', async () => sorted(await signals(), 1));
		await visit.sound();
	}),

	test('rows keep their places under a pointer that moves', { options: { stations: 6, address: '#/stations?sort=signal', frozen: true } }, async (visit) => {
		const { page, collector } = visit;

		await visit.rows(6);
		await visit.connection('Live');

		const before = await visit.column('.name');
		const last = collector.stations.findIndex(({ name, mac: own }) => [ name, own ].includes(before.at(-1)));

		await page.mouse.move(400, 300);
		collector.report(last, { signal: -31 });

		await until('the report', async () => {
			await page.clock.runFor(100);
			await page.mouse.move(400 + Math.random() * 20, 300);
			return (await visit.column('.figure')).at(-1).startsWith('−31');
		});
		assert.deepEqual(await visit.column('.name'), before);

		await until('the order, when it rests', async () => {
			await page.clock.runFor(1000);
			return (await visit.column('.name'))[0] == before.at(-1);
		});
	}),

	test('the first rows of a long list are those of its order, and do not wait for the rest', {
		options: { stations: 10000, address: '#/stations?sort=signal&ssid=Guests' }, prepare(collector) { collector.trouble.stations = 'hold'; }
	}, async (visit) => {
		const { page, collector } = visit;

		await visit.says('the first 100 of 10,000 stations');
		await until('the other question', () => collector.held.length);

		const first = await visit.column('.figure');

		assert.equal(plain(first[0]), '−40 dBm');
		assert.equal(await page.locator('section.stations').getAttribute('aria-busy'), 'true');
		await visit.sound();

		collector.report(0, { signal: -39 }); // arrives after the list
		collector.trouble = {};
		collector.release();
		await visit.says('3,333 of 10,000 stations');
		assert.equal(await page.locator('section.stations').getAttribute('aria-busy'), 'false');
		assert.deepEqual(await visit.column('.figure'), first, 'the rows that were seen are still there');
		await page.getByRole('combobox', { name: 'Network' }).selectOption('Lobby');
		await until('the report', async () => plain((await visit.column('.figure'))[0]) == '−39 dBm');
		await visit.says('3,334 of 10,000 stations');
	}),

	test('a search that only the page understands has to wait for the whole list', {
		options: { stations: 10000, address: `#/stations?search=${encodeURIComponent('qq '.repeat(200))}` },
		console: FAILED_REQUEST, prepare(collector) { collector.trouble['stations?'] = 400; }
	}, async (visit) => {
		await visit.says('0 of 10,000 stations');
		assert.equal(await visit.page.locator('.empty').innerText(), 'No station fits this choice.');
	}),

	test('on a narrow page the choices are unfolded', { options: { width: 375, stations: 120 } }, async (visit) => {
		const network = visit.page.getByRole('combobox', { name: 'Network' });

		await visit.says('120 stations');
		assert.equal(await network.isVisible(), false);
		await visit.page.getByRole('button', { name: 'Filter' }).click();
		await network.selectOption('Guests');
		await visit.says('40 of 120 stations');
		await visit.page.getByRole('combobox', { name: 'Order' }).selectOption('signal descending');
		await until('the order', async () => visit.page.url().includes('sort=signal'));
		await visit.sound();
	}),

	test('the link to the content leads there and leaves the address alone', {}, async (visit) => {
		await visit.rows(3);

		const before = visit.page.url();

		await visit.page.keyboard.press('Tab');
		await visit.page.keyboard.press('Enter');
		assert.equal(await visit.page.evaluate(() => document.activeElement.id), 'main');
		assert.equal(visit.page.url(), before);
	}),

	test('search and choices leave those who fit, and stay in the address', { options: { stations: 120 } }, async (visit) => {
		await visit.says('120 stations');
		await visit.page.keyboard.press('/');
		await visit.page.keyboard.type('tablet');
		await visit.says('13 of 120 stations');
		await visit.page.getByRole('combobox', { name: 'Network' }).selectOption('Guests');
		await visit.page.getByRole('combobox', { name: 'Band' }).selectOption('2.4 GHz');
		await until('fewer', async () => (await visit.column('.network .first')).every(text => text == 'Guests'));

		const few = await visit.column('.name');

		await visit.page.reload();
		await until('the same after a reload', async () => JSON.stringify(await visit.column('.name')) == JSON.stringify(few));
		await visit.page.getByRole('searchbox').fill('nobody has this name');
		await until('words', async () => await visit.page.locator('.empty').innerText() == 'No station fits this choice.');
		await visit.sound();
	}),

	test('ten thousand stations are walked through by keys and by scrolling', { options: { stations: 10000 } }, async (visit) => {
		const { page } = visit;

		await visit.says('10,000 stations');
		assert.equal(await page.getByRole('table').getAttribute('aria-rowcount'), '10001');
		await page.locator('.scroller').evaluate(node => { node.scrollTop = node.scrollHeight; });
		await until('the last row', () => page.locator(`${ROW}[aria-rowindex="10001"]`).count());
		assert.ok(await page.locator(ROW).count() <= 60);
		await page.locator(`${ROW}[aria-rowindex="10001"] a`).focus();

		for (let i = 0; i < 40; i++)
			await page.keyboard.press('ArrowUp');

		assert.equal(await page.evaluate(() => document.activeElement.closest('.row').getAttribute('aria-rowindex')), '9961');
		await page.locator('.scroller').evaluate(node => { node.scrollTop = 0; });
		await until('the first row', () => page.locator(`${ROW}[aria-rowindex="2"]`).count());
		assert.equal(await page.evaluate(() => document.activeElement.closest('.row').getAttribute('aria-rowindex')), '9961');
		await visit.sound();
	}),

	test('a row leads to its station', {}, async (visit) => {
		await visit.rows(3);
		assert.equal(await visit.page.getByRole('link', { name: 'Kitchen speaker' }).getAttribute('href'), `#/station/${mac(0)}`);
	})
];
