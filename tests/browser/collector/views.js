/* The views of one station and of the access points: how they look, what they say, and what is not there. */
'use strict';

const assert = require('assert/strict');
const { memory, picture, until } = require('../browser.js');
const { withHistory } = require('./history.js');
const { test, FAILED_REQUEST } = require('./page.js');
const { mac, ap, HOSTILE } = require('./stations.js');

const STATION = `#/station/${mac(1)}`;
const ACCESS_POINTS = '#/access-points';
const PLACES = { 'a station': STATION, 'access points': ACCESS_POINTS };

async function loaded(visit) {
	await until('the history', async () => await visit.page.locator('.cards').getAttribute('aria-busy') == 'false');
	await visit.connection('Live');
}

const tests = [];

for (const [ what, address ] of Object.entries(PLACES)) {
	for (const width of [ 375, 1280, 2560 ])
		for (const dark of [ false, true ]) {
			const name = `${what} at ${width} pixels, ${dark ? 'dark' : 'light'}`;

			tests.push(test(name, { options: { width, dark, address, stations: 120 }, prepare: withHistory }, async (visit) => {
				await loaded(visit);
				assert.ok(await visit.page.locator('.plot .line').count() > 1);
				await visit.sound();
				await picture(visit.page, name);
			}));
		}

	tests.push(test(`${what}: texts of strangers stay texts`, {
		options: { address },
		prepare(collector) {
			let n = 0;

			HOSTILE.forEach((text, i) => { if (collector.stations[i]) Object.assign(collector.stations[i], { name: text, ssid: text, version: text }); });
			withHistory(collector, (row) => {
				const text = HOSTILE[n++ % HOSTILE.length];

				return { ...row, ...'name' in row && { name: text }, ...'ip' in row && { ip: text }, ...'reason' in row && { reason: text, ended_by: text } };
			});
		}
	}, async (visit) => {
		await loaded(visit);

		for (const width of [ 375, 1280, 2560 ]) {
			await visit.page.setViewportSize({ width, height: 900 });
			await visit.sound();
		}

		assert.equal(await visit.page.locator('main img, main script').count(), 0);
	}));

	tests.push(test(`${what}: without a store it says so`, { options: { address }, console: FAILED_REQUEST }, async (visit) => {
		await until('the words', async () => (await visit.page.locator('.cards').innerText()).startsWith('This collector keeps no history.'));
		await visit.sound();
	}));

	tests.push(test(`${what}: a store that does not answer is asked again`, {
		options: { address }, console: FAILED_REQUEST,
		prepare(collector) {
			withHistory(collector);
			collector.trouble = { [`stations/${mac(1)}/series`]: 503, departures: 503 };
		}
	}, async (visit) => {
		await visit.noticed('The collector answers: the store does not answer.');
		await visit.sound();
		visit.collector.trouble = {};
		await visit.page.getByRole('button', { name: 'Try again' }).click();
		await until('the history', () => visit.page.locator('.plot').count());
	}));

	tests.push(test(`${what}: the range stays in the address`, { options: { address }, prepare: withHistory }, async (visit) => {
		await loaded(visit);
		await visit.page.getByRole('link', { name: '24 hours' }).click();
		await until('the range', async () => await visit.page.locator('.ranges [aria-current]').allInnerTexts() == '24 hours');
		assert.ok(visit.page.url().endsWith('days=1'));
		await loaded(visit);
		await visit.sound();
		await visit.page.reload();
		await until('the range', async () => await visit.page.locator('.ranges [aria-current]').allInnerTexts() == '24 hours');
	}));
}

tests.push(
	test('a station: its figures are those of now', { options: { address: STATION }, prepare: withHistory }, async (visit) => {
		await loaded(visit);
		await until('a stream', () => visit.collector.streams.size);
		visit.collector.report(1, { signal: -71 });
		await until('the signal', async () => (await visit.page.locator('.facts').innerText()).includes('−71'));
		visit.collector.tell('left', { ...visit.collector.stations[1], state: 'gone' });
		await until('its end', async () => await visit.page.locator('.about .badge').innerText() == 'not here');
		await visit.sound();
	}),

	test('a station: days have its stays and roams, departures their reasons', { options: { address: STATION }, prepare: withHistory }, async (visit) => {
		await loaded(visit);
		assert.equal(await visit.page.title(), "Anna's phone – wsmd");
		assert.ok(await visit.page.locator('.piece').count() >= 15 + 7, 'fifteen stays, of which seven roam once');
		assert.match(await visit.page.locator('.track').nth(1).getAttribute('aria-label'), /\d stays?, \d roams?, here for /);

		const words = await visit.page.getByRole('table', { name: 'Departures' }).innerText();

		for (const reason of [ 'deauth recv', 'timeout', 'kicked' ])
			assert.ok(words.includes(reason), reason);

		const names = await visit.page.getByRole('table', { name: 'Names and addresses' }).innerText();

		for (const text of [ "Anna's phone", 'list of names', '10.0.0.3', '2001:db8::7' ])
			assert.ok(names.includes(text), text);
	}),

	test('a station: a chart is read by keys', { options: { address: STATION }, prepare: withHistory }, async (visit) => {
		await loaded(visit);

		const plot = visit.page.getByRole('slider', { name: 'Signal over time' });

		await plot.press('End');
		await plot.press('ArrowLeft');

		for (let i = 0; i < 48 && !/signal −\d+/.test(await plot.getAttribute('aria-valuetext')); i++)
			await plot.press('ArrowLeft');

		assert.match(await plot.getAttribute('aria-valuetext'), /: signal −\d+.dBm$/);
		await visit.sound();
	}),

	test('a station that nobody knows', { options: { address: `#/station/${mac(1)}` }, prepare(collector) {
		withHistory(collector);
		collector.stations.splice(1, 1);

		for (const what of [ 'sessions', 'changes', 'series', 'addresses' ])
			collector.answers[`stations/${mac(1)}/${what}`] = [];
	} }, async (visit) => {
		await loaded(visit);
		assert.equal(await visit.page.locator('.cards .empty').innerText(), 'It was not here in this time.');
		await visit.sound();
	}),

	test('a station: history is asked for again while the page stays open', { options: { address: STATION, frozen: true }, prepare: withHistory }, async (visit) => {
		const { collector, page } = visit;
		const before = () => collector.asked.filter(what => what.endsWith('/series')).length;

		await loaded(visit);
		assert.equal(before(), 1);
		collector.trouble[`stations/${mac(1)}/series`] = 503;

		await until('the question', async () => {
			await page.clock.runFor(20000);
			return before() > 1;
		});
		await loaded(visit);
		assert.ok(await page.locator('.plot').count(), 'what was shown stays when it cannot be renewed');
		page.errors = page.errors.filter(text => !FAILED_REQUEST.test(text));
	}),

	test('times are those of the viewer', { options: { address: STATION, zone: 'Asia/Tokyo' }, prepare(collector) {
		collector.stations[1].began = Math.floor(Date.now() / 86400000) * 86400 - 86400 + 3600; // yesterday at one o'clock, ten in Tokyo
		withHistory(collector);
	} }, async (visit) => {
		await until('its figures', async () => (await visit.page.locator('.facts').innerText()).includes(', 10:00'));
	}),

	test('an address in capital letters, and one that is cut, lead somewhere', { options: { address: STATION.toUpperCase().replace('STATION', 'station') }, prepare: withHistory }, async (visit) => {
		await until('its name', async () => await visit.page.getByRole('heading', { level: 1 }).innerText() == "Anna's phone");
		await visit.page.evaluate(() => { location.hash = '#/%E0%A4%A'; });
		await visit.says('3 stations');
		await visit.page.evaluate(() => { location.hash = '#/constructor'; });
		await visit.says('3 stations');
	}),

	test('an address that no station has', { options: { address: '#/station/%3Cimg%20src=x%20onerror=alert(1)%3E' } }, async (visit) => {
		await until('words', async () => await visit.page.locator('.cards').innerText() == 'This is not the MAC of a station.');
		await visit.sound();
	}),

	test('access points: one of them has a view of its own', { options: { address: ACCESS_POINTS, stations: 120 }, prepare: withHistory }, async (visit) => {
		await loaded(visit);
		await until('three', async () => await visit.page.locator('.ap').count() == 3);
		await visit.page.getByRole('link', { name: ap(2) }).click();
		await until('one', async () => await visit.page.locator('.ap').count() == 1);
		await loaded(visit);
		assert.equal(await visit.page.getByRole('heading', { level: 1 }).innerText(), ap(2));
		assert.equal(await visit.page.getByRole('slider', { name: 'Stations over time' }).count(), 1);
		await visit.sound();
		await visit.page.getByRole('link', { name: 'All access points' }).click();
		await until('all', async () => await visit.page.locator('.ap').count() == 3);
	}),

	test('access points: a network leads to its stations', { options: { address: ACCESS_POINTS, stations: 120 }, prepare: withHistory }, async (visit) => {
		await loaded(visit);
		await visit.page.getByRole('table', { name: 'Networks now' }).getByRole('link', { name: 'Guests' }).click();
		await visit.says('40 of 120 stations');
	}),

	test('walking between the views leaves nothing behind', { options: { stations: 120 }, prepare: withHistory }, async (visit) => {
		const { page } = visit;
		const round = async () => {
			for (const [ address, ready ] of [ [ STATION, '.days' ], [ ACCESS_POINTS, '.ap' ], [ '#/stations', '.body .row' ] ]) {
				await page.evaluate((to) => { location.hash = to; }, address);
				await until(address, () => page.locator(ready).count());
			}
		};

		for (let i = 0; i < 5; i++)
			await round();

		const before = await memory(page);

		for (let i = 0; i < 20; i++)
			await round();

		const after = await memory(page);

		assert.ok(after.Nodes <= before.Nodes + 2000, `nodes: ${before.Nodes}, then ${after.Nodes}`);
		assert.ok(after.JSEventListeners <= before.JSEventListeners + 60, `listeners: ${before.JSEventListeners}, then ${after.JSEventListeners}`);
		assert.ok(after.JSHeapUsedSize <= before.JSHeapUsedSize + 1500000, `heap: ${before.JSHeapUsedSize}, then ${after.JSHeapUsedSize}`);
	})
);

module.exports = tests;
