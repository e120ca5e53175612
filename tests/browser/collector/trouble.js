/* A collector that stalls, refuses, ends and comes back. */
'use strict';

const assert = require('assert/strict');
const { picture, until } = require('../browser.js');
const { test, FAILED_REQUEST, ROW } = require('./page.js');
const { makeStation, makeStations } = require('./stations.js');

module.exports = [
	test('the table goes on after a restart of the collector', { console: FAILED_REQUEST }, async (visit) => {
		await visit.rows(3);
		await visit.collector.stop();
		await visit.noticed('The collector cannot be reached. What is shown was true before');
		assert.equal(await visit.page.locator(ROW).count(), 3);
		await visit.sound();
		await picture(visit.page, 'no connection');
		visit.collector.stations = makeStations(5);
		await visit.collector.start();
		await visit.rows(5);
		await visit.connection('Live');
		assert.equal(await visit.page.locator('.notice').isVisible(), false);
		await until('a stream', () => visit.collector.streams.size);
		visit.collector.report(4, { signal: -31 });
		await until('the report', async () => (await visit.column('.figure')).some(text => text.startsWith('−31')));
	}),

	test('changes that come while the list is on its way follow it', { prepare(collector) { collector.trouble['stations?'] = 'hold'; } }, async (visit) => {
		const { collector } = visit;

		await until('the question', () => collector.held.length && collector.streams.size);
		assert.equal(await visit.page.locator('.empty').innerText(), 'Loading…');
		await visit.sound();
		collector.report(0, { signal: -77 });
		collector.tell('left', { ...collector.stations[1], state: 'gone' });
		collector.tell('joined', makeStation(7, Date.now() / 1000));
		collector.trouble = {};
		collector.release();
		await until('the newcomer', async () => (await visit.column('.name')).includes('Badge reader'));
		await until('the report', async () => (await visit.column('.figure')).some(text => text.startsWith('−77')));
		await visit.says('3 stations');
		assert.ok(!(await visit.column('.name')).includes("Anna's phone"));
	}),

	test('a list that does not come is said', { options: { frozen: true }, prepare(collector) { collector.trouble['stations?'] = 'stall'; } }, async (visit) => {
		await until('the question', () => visit.collector.asked.includes('stations'));

		await until('the notice', async () => {
			await visit.page.clock.runFor(5000);
			return visit.page.locator('.notice').isVisible();
		});
		await visit.noticed('does not answer in time');
		await visit.sound();
	}),

	test('a stream that falls silent is opened anew', { options: { frozen: true } }, async (visit) => {
		await visit.rows(3);
		await visit.connection('Live');
		visit.collector.stations = makeStations(4);

		await until('the new list', async () => {
			await visit.page.clock.runFor(5000);
			return await visit.page.locator(ROW).count() == 4;
		});
	}),

	test('a page that nobody sees gives its stream back, and goes on when it is seen', { options: { frozen: true } }, async (visit) => {
		const { page, collector } = visit;
		const hide = (hidden) => page.evaluate((value) => {
			Object.defineProperty(document, 'hidden', { configurable: true, get: () => value });
			document.dispatchEvent(new Event('visibilitychange'));
		}, hidden);

		await visit.rows(3);
		await until('a stream', () => collector.streams.size);
		await hide(true);

		await until('its end', async () => {
			await page.clock.runFor(5000);
			return collector.streams.size == 0 && await page.locator('#connection').innerText() == 'Paused';
		});
		collector.stations = makeStations(4);
		await hide(false);
		await visit.connection('Live');

		await until('the new list', async () => {
			await page.clock.runFor(1000);
			return await page.locator(ROW).count() == 4;
		});
	}),

	test('without a token it says how to give one', { console: FAILED_REQUEST, prepare(collector) { collector.trouble = { 'events': 401, 'stations?': 401, 'status': 401 }; } }, async (visit) => {
		await visit.noticed('open this page once as /?token=TOKEN');
		await visit.connection('No connection');
		await visit.sound();
		await picture(visit.page, 'no token');
		visit.collector.trouble = {};
		await visit.rows(3);
	}),

	test('a refusal is shown in the collector\'s words', { console: FAILED_REQUEST, prepare(collector) { collector.trouble['stations?'] = 500; } }, async (visit) => {
		await visit.noticed('The collector answers: the store does not answer.');
		await visit.sound();
	}),

	test('where all streams are taken the list is asked for again and again', { console: FAILED_REQUEST, options: { frozen: true }, prepare(collector) { collector.trouble.events = 503; } }, async (visit) => {
		await visit.rows(3);
		await visit.connection('Renewed every 5 s');
		visit.collector.stations = makeStations(4);

		await until('the new list', async () => {
			await visit.page.clock.runFor(1000);
			return await visit.page.locator(ROW).count() == 4;
		});
		visit.collector.trouble = {};

		await until('a stream', async () => {
			await visit.page.clock.runFor(1000);
			return visit.collector.streams.size;
		});
	})
];
