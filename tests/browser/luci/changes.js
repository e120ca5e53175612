/* What the page changes: disconnecting a client, the period of reports; and for whom it does not. */
'use strict';

const assert = require('assert/strict');
const { picture, until } = require('../browser.js');
const { makeStations } = require('./server.js');
const { test, ROW } = require('./page.js');

async function askToDisconnect(clients, name) {
	await clients.button(name).click();
	await until('the question', () => clients.dialog().isVisible());
}

async function disconnect(clients, name) {
	await askToDisconnect(clients, name);
	await clients.dialog().getByRole('button', { name: 'Disconnect' }).click();
	await until('the dialog is closed', async () => !await clients.dialog().isVisible());
}

module.exports = [
	test('a client is asked about by name before it is disconnected, and Cancel changes nothing', {
		prepare(server) { server.stations = makeStations(8); }
	}, async (clients) => {
		await clients.rows(8);
		await picture(clients.page, 'luci-clients', { clip: { x: 130, y: 35, width: 1020, height: 790 } });
		await askToDisconnect(clients, 'phone-0');

		const words = await clients.dialog().innerText();

		for (const part of [ 'Disconnect this client?', 'phone-0', '02:00:00:00:00:01', 'Lobby', 'It can connect again at once.' ])
			assert.ok(words.includes(part), `${part} is not in ${words}`);

		await clients.shown();
		await picture(clients.page, 'luci-question');
		await clients.dialog().getByRole('button', { name: 'Cancel' }).click();
		await until('the dialog is closed', async () => !await clients.dialog().isVisible());
		assert.deepEqual(clients.server.called('delete'), []);
	}),

	test('Escape closes the question, and the keyboard is back on the button of its row', {}, async (clients) => {
		await clients.rows(3);
		await clients.button('phone-0').focus();
		await clients.page.keyboard.press('Enter');
		await until('the question', () => clients.dialog().isVisible());
		await clients.page.keyboard.press('Escape');
		await until('the dialog is closed', async () => !await clients.dialog().isVisible());
		assert.equal(await clients.page.evaluate(() => document.activeElement.getAttribute('data-mac')), '02:00:00:00:00:01');
		assert.deepEqual(clients.server.called('delete'), []);
	}),

	test('disconnecting is one call with the MAC as listed and the radio as a number, and the row goes with the next answer', {}, async (clients) => {
		await clients.rows(3);
		await disconnect(clients, 'Laptop');
		assert.equal(await clients.button('Laptop').innerText(), 'Disconnecting…');
		assert.ok(await clients.button('Laptop').isDisabled());
		await clients.pass(5);
		await clients.rows(2);
		assert.deepEqual(clients.server.called('delete'), [ { mac: '02:00:00:00:00:02', radio: 1 } ]);
		assert.deepEqual(await clients.notices(), []);
	}),

	test('of a client that stays one message is given, and it can be tried again', {
		prepare(server) { server.sticky = true; }
	}, async (clients) => {
		await clients.rows(3);
		await disconnect(clients, 'phone-0');

		await clients.pass(10);
		assert.ok(await clients.button('phone-0').isDisabled());
		assert.deepEqual(await clients.notices(), []);
		await clients.pass(20);
		assert.equal((await clients.notices()).length, 1);
		assert.match((await clients.notices())[0], /This client is still connected: phone-0 02:00:00:00:00:01/);
		assert.ok(await clients.button('phone-0').isEnabled());
		await clients.shown();
	}),

	test('a client that is back at once is another stay and can be disconnected again', {
		prepare(server) { server.sticky = true; }
	}, async (clients) => {
		await clients.rows(3);
		await disconnect(clients, 'phone-0');
		clients.server.stations[0].online_ts += 100;
		await clients.pass(5);
		assert.ok(await clients.button('phone-0').isEnabled());
		assert.deepEqual(await clients.notices(), []);
	}),

	test('when disconnecting fails it is said, and the button is there again', {}, async (clients) => {
		await clients.rows(3);
		clients.server.sta_delete = () => [ 7 ];
		await disconnect(clients, 'phone-0');
		await until('the message', async () => (await clients.notices()).length == 1);
		assert.match((await clients.notices())[0], /The client was not disconnected\. The request failed: .*ubus code 7/);
		assert.ok(!(await clients.notices())[0].includes('at somewhere'));
		assert.ok(await clients.button('phone-0').isEnabled());
		await clients.shown();
	}),

	test('who may only read sees the list, and can change nothing', {
		prepare(server) { server.login = 'read'; }
	}, async (clients) => {
		await clients.rows(3);

		for (const button of await clients.page.locator('#view button').all())
			assert.ok(await button.isDisabled(), await button.innerText());

		assert.ok(await clients.page.locator('#wsmd-period').isDisabled());
		await clients.shown();
	}),

	test('a right that was taken away meanwhile has its words', {}, async (clients) => {
		await clients.rows(3);
		clients.server.login = 'read';
		await disconnect(clients, 'phone-0');
		await until('the message', async () => (await clients.notices()).length == 1);
		assert.match((await clients.notices())[0], /needs the access group luci-app-wsmd/);
	}),

	...[ '', '0', '-5', '1.5', '30s', '86401', '0x10', '1e3' ].map(value =>
		test(`a period of "${value}" seconds is refused`, {}, async (clients) => {
			await clients.rows(3);
			await clients.page.fill('#wsmd-period', value);
			await clients.page.getByRole('button', { name: 'Set' }).click();
			await until('the words', async () => (await clients.page.innerText('#view')).includes('Enter a whole number of seconds from 1 to 86400.'));
			assert.deepEqual(clients.server.called('set'), []);
			await clients.shown();
		})),

	test('a period of whole seconds is sent as a number, and that it counts is said', {}, async (clients) => {
		await clients.rows(3);
		await clients.page.fill('#wsmd-period', ' 30 ');
		await clients.page.getByRole('button', { name: 'Set' }).click();
		await until('the words', async () => (await clients.page.innerText('#view')).includes('from now on every 30 seconds'));
		assert.deepEqual(clients.server.called('set'), [ { set_update_log_period: 30 } ]);
		await clients.shown();
	}),

	test('the keyboard stays on the button of its row when the list is renewed', {}, async (clients) => {
		await clients.rows(3);
		await clients.button('phone-0').focus();
		clients.server.stations[0].oltime = 4711;
		await clients.pass(5);
		assert.equal((await clients.row('phone-0'))[7], '1h 18m 31s');
		assert.equal(await clients.page.evaluate(() => document.activeElement.getAttribute('data-mac')), '02:00:00:00:00:01');
		assert.equal(await clients.page.locator(ROW).count(), 3);
	})
];
