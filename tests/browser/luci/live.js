/* The page on the real daemon: the bus is reached at the URL that the test is told. */
'use strict';

const assert = require('assert/strict');
const { until } = require('../browser.js');
const { test } = require('./page.js');

function live(name, body) {
	return test(name, { prepare(server, told) { server.bus = told.bus; } }, body);
}

module.exports = [
	live('a client is shown, and disconnected', async (clients) => {
		await clients.rows(2);
		assert.ok(clients.server.called('stations').length > 0 && clients.server.called('get').length == 0, 'it is asked by "wsmd"');
		await until('its name from the lease file', async () => {
			await clients.pass(5);

			return (await clients.column(1)).includes('phone');
		});

		const row = await clients.row('phone');

		assert.deepEqual(row.slice(1, 3), [ '02:00:00:00:00:0a', '192.168.1.20' ]);
		assert.match(row[3], /ath0, channel \d+/);
		assert.match(row[4], /^-\d+ dBm/);
		await clients.button('02:00:00:00:00:0a').click();
		await clients.dialog().getByRole('button', { name: 'Disconnect' }).click();
		await until('the client to go', async () => {
			await clients.pass(5);

			return await clients.page.locator('#wsmd-clients button').count() == 1;
		});
		assert.deepEqual(await clients.notices(), []);
	}),

	live('the period is set', async (clients) => {
		await clients.rows(2);
		await clients.page.fill('#wsmd-period', '30');
		await clients.page.getByRole('button', { name: 'Set' }).click();
		await until('the words', async () => (await clients.page.innerText('#view')).includes('from now on every 30 seconds'));
	}),

	live('the daemon is not there', async (clients) => {
		await clients.says('The station daemon is not running.');
	})
];
