/* How the table looks: at each width, dark and light, with nobody, few, many and very many stations. */
'use strict';

const assert = require('assert/strict');
const { picture, until } = require('../browser.js');
const { test, ROW } = require('./page.js');
const { HOSTILE } = require('./stations.js');

const WIDTHS = [ 375, 1280, 2560 ];
const tests = [];

for (const width of WIDTHS)
	for (const dark of [ false, true ])
		for (const stations of [ 0, 3, 120, 10000 ]) {
			const name = `${stations} stations at ${width} pixels, ${dark ? 'dark' : 'light'}`;

			tests.push(test(name, { options: { width, dark, stations } }, async (visit) => {
				await visit.says(`${stations.toLocaleString('en-GB')} stations`);

				if (stations)
					await until('rows', () => visit.page.locator(ROW).count());
				else
					assert.equal(await visit.page.locator('.empty').innerText(), 'No station is here.');

				assert.ok(await visit.page.locator(ROW).count() <= 60, 'only rows that are seen are in the document');
				await visit.stacked();
				await visit.sound();
				await picture(visit.page, `stations ${name}`);
			}));
		}

for (const dark of [ false, true ])
	tests.push(test(`texts of strangers stay texts, ${dark ? 'dark' : 'light'}`, {
		options: { stations: HOSTILE.length, dark },
		prepare(collector) {
			HOSTILE.forEach((text, i) => Object.assign(collector.stations[i], { name: text, ssid: text, version: text, ip: text, ap: text }));
		}
	}, async (visit) => {
		await visit.rows(HOSTILE.length);

		for (const width of WIDTHS) {
			await visit.page.setViewportSize({ width, height: 900 });
			await visit.stacked();
			await visit.sound();
			await picture(visit.page, `hostile ${width} ${dark ? 'dark' : 'light'}`);
		}

		const shown = await visit.page.locator(`${ROW} .network bdi`).allTextContents();

		assert.deepEqual(shown.sort(), HOSTILE.slice().sort());
		assert.equal(await visit.page.locator('main img, main script').count(), 0);
	}));

module.exports = tests;
