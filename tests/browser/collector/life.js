/* What the page costs: to open, and to leave open. */
'use strict';

const assert = require('assert/strict');
const { FIRST_TABLE, firstTable, measured, memory, until } = require('../browser.js');
const { test, ROW } = require('./page.js');

module.exports = [
	...[ 120, 10000 ].map(stations => test(`bytes and time to the first table of ${stations} stations`, { options: { stations } }, async (visit) => {
		await until('a row', () => visit.page.locator(ROW).count());

		const { time, page, list } = await firstTable(visit.page);

		measured(`first table of ${stations} stations: ${Math.round(time)} ms; ${page} bytes of page, ${list} bytes of answers`);
		assert.ok(page > 10000 && list > 10000, `${page} and ${list} bytes: not all was measured`);
		assert.ok(page + list <= FIRST_TABLE, `${page} and ${list} bytes`);
	})),

	test('after an hour of updates the page holds no more than before', { options: { stations: 120 } }, async (visit) => {
		const { collector, page } = visit;
		let marked = 0;

		/* Seconds of an hour: two reports in each, and somebody who goes and comes. */
		const pass = async (seconds) => {
			for (let i = 0; i < seconds; i++) {
				const n = i * 2 % 118;

				collector.report(n, { signal: -40 - i % 45 });
				collector.report(n + 1, { signal: -45 - i % 40 });

				if (i % 5 == 0) {
					const gone = collector.stations[119];

					collector.tell('left', { ...gone, state: 'gone' });
					gone.id += 120;
					collector.tell('joined', gone);
				}
			}

			collector.report(118, { name: `mark ${++marked}`, signal: -40 });
			await until('all of it', async () => (await visit.column('.name')).includes(`mark ${marked}`));
		};

		await visit.says('120 stations');
		await visit.page.getByRole('searchbox').fill('mark');
		collector.report(118, { name: 'mark 0' });
		await page.getByRole('searchbox').fill('');
		await page.getByRole('combobox', { name: 'Network' }).selectOption(collector.stations[118].ssid);
		await page.getByRole('searchbox').fill('mark');
		await pass(400);

		const before = await memory(page);

		for (let turn = 0; turn < 9; turn++)
			await pass(400);

		const after = await memory(page);

		measured(`heap before and after an hour of updates: ${Math.round(before.JSHeapUsedSize / 1024)} and ${Math.round(after.JSHeapUsedSize / 1024)} KiB`);
		assert.ok(after.Nodes <= before.Nodes + 100, `nodes: ${before.Nodes}, then ${after.Nodes}`);
		assert.ok(after.JSEventListeners <= before.JSEventListeners + 20, `listeners: ${before.JSEventListeners}, then ${after.JSEventListeners}`);
		assert.ok(after.JSHeapUsedSize <= before.JSHeapUsedSize + 1000000, `heap: ${before.JSHeapUsedSize}, then ${after.JSHeapUsedSize}`);
	})
];
