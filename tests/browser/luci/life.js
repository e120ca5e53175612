/* A page that stays open. */
'use strict';

const assert = require('assert/strict');
const { memory, until } = require('../browser.js');
const { makeStations } = require('./server.js');
const { test } = require('./page.js');

/* Lets the page take `n` answers, each with other clients than the last. */
async function updates(clients, all, n) {
	for (let turn = 0; turn < n; turn++) {
		clients.server.stations = all.filter((_, i) => (i + turn) % 5).map(station => ({ ...station, name: `${station.name} ${turn}`, oltime: turn }));
		await clients.pass(5);
	}
}

module.exports = [
	test('after an hour of updates the page holds no more than before', {}, async (clients) => {
		const all = makeStations(12);

		await updates(clients, all, 40);

		const before = await memory(clients.page);

		await updates(clients, all, 3600 / 5);

		const after = await memory(clients.page);

		assert.ok(after.Nodes <= before.Nodes + 100, `nodes: ${before.Nodes}, then ${after.Nodes}`);
		assert.ok(after.JSEventListeners <= before.JSEventListeners + 20, `listeners: ${before.JSEventListeners}, then ${after.JSEventListeners}`);
		assert.ok(after.JSHeapUsedSize <= before.JSHeapUsedSize + 500000, `heap: ${before.JSHeapUsedSize}, then ${after.JSHeapUsedSize}`);
	}),

	test('a slow answer is waited for: there is never more than one request for the list', {}, async (clients) => {
		await clients.rows(3);

		const waiting = [];

		clients.server.intercept = (calls, response) => waiting.push(response);
		await clients.passWithoutAnswer(5);
		await until('a request', () => waiting.length);
		await clients.passWithoutAnswer(14);
		await clients.page.evaluate(() => new Promise(requestAnimationFrame));
		assert.equal(waiting.length, 1);
	})
];
