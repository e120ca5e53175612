/* What the table shows: units, order, filter; the menu's entry and the rights. */
'use strict';

const assert = require('assert/strict');
const { exampleStation, makeStations, readJSON, richStation, PAGE } = require('./server.js');
const { test, ROW } = require('./page.js');

/* The documented answer has others each time it is printed. */
const FIGURES = { ip: '192.168.1.21', signal: -50, rx_rate: 243000000, tx_rate: 270000000, rx_bytes: 15400, tx_bytes: 78500, state: 'waiting', connected: 0 };

/* A daemon with these stations that has "sta" alone. */
function stations(...changes) {
	return (server) => {
		server.wsmd = false;

		const made = makeStations(changes.length);

		server.stations = changes.map((change, i) => ({ ...made[i], name: `client-${i}`, ...change }));
	};
}

async function sorted(clients, heading, column) {
	await clients.page.locator('#wsmd-clients th').filter({ hasText: heading }).click();

	return clients.column(column);
}

module.exports = [
	test('the documented answer of "wsmd" is shown in dBm, Mbit/s, bytes and time', {
		prepare(server) { server.rich = [ { ...richStation(), ...FIGURES } ]; }
	}, async (clients) => {
		await clients.rows(1);
		assert.deepEqual(await clients.row('phone'), [ 'phone', '02:00:00:00:00:01', '192.168.1.21', 'Lobby\nath0, channel 6',
			'-50 dBm', '↑ 243 Mbit/s\n↓ 270 Mbit/s', '↑ 15.4 KB\n↓ 78.5 KB', 'just arrived', 'Disconnect' ]);
		assert.equal(clients.server.called('get').length, 0);
		assert.equal(clients.server.called('stations')[0].limit, 256);
	}),

	test('what "wsmd" leaves out is a dash, and what is broken breaks no row', {
		prepare(server) {
			server.rich = [ { mac: '02:00:00:00:00:09' }, null, 'x', { ...richStation(), ...FIGURES, state: 'online', connected: -5, rx_bytes: 'x', signal: 'loud', rx_rate: -1 } ];
		}
	}, async (clients) => {
		await clients.rows(2);
		assert.deepEqual(await clients.row('00:09'), [ '-', '02:00:00:00:00:09', '-', '', '-', '-', '↑ 0 B\n↓ 0 B', '-', 'Disconnect' ]);
		assert.deepEqual((await clients.row('phone')).slice(4, 8), [ '-', '↑ 0 Mbit/s\n↓ 270 Mbit/s', '↑ 0 B\n↓ 78.5 KB', '-' ]);
	}),

	test('a signal of "wsmd" is what it says, also where "sta" has one figure for several', {
		prepare(server) { server.rich = [ -30, -101, -95, -5 ].map((signal, i) => ({ ...richStation(), mac: `02:00:00:00:00:0${i}`, name: `client-${i}`, signal })); }
	}, async (clients) => {
		await clients.rows(4);
		assert.equal((await clients.row('client-0'))[4], '-30 dBm');
		assert.equal((await clients.row('client-1'))[4], '-101 dBm');
		assert.deepEqual((await sorted(clients, 'Signal', 5)).map(words => parseInt(words, 10)), [ -101, -95, -30, -5 ]);
	}),

	test('the documented answer of a daemon that has "sta" alone is shown likewise', {
		prepare(server) { Object.assign(server, { wsmd: false, stations: [ exampleStation() ] }); }
	}, async (clients) => {
		await clients.rows(1);
		assert.deepEqual(await clients.row('phone'), [ 'phone', '02:00:00:00:00:01', '192.168.1.20', 'Lobby\nath0, channel 6',
			'-51 dBm', '↑ 237 Mbit/s\n↓ 264 Mbit/s', '↑ 28.4 KB\n↓ 119.5 KB', '5s', 'Disconnect' ]);
		assert.deepEqual(clients.server.called('get')[0], { get_all_sta_status: 'online' });
	}),

	test('what a client has not is a dash, and one that waits for its first pass has just arrived', {
		prepare: stations({ name: '-', ssid_ifname: undefined, ip: '', channel: 0, power: '95', flowup_rate_cnt: 0, flowdown_rate_cnt: 0, status: 2 })
	}, async (clients) => {
		await clients.rows(1);
		assert.deepEqual(await clients.row('02:00'), [ '-', '02:00:00:00:00:01', '-', 'Lobby', '-', '-', '↑ 28.4 KB\n↓ 119.5 KB',
			'just arrived', 'Disconnect' ]);
	}),

	test('a signal that also stands for a very weak one is marked and has no bars', {
		prepare: stations({ power: '65' }, { power: '64' })
	}, async (clients) => {
		await clients.rows(2);
		assert.equal((await clients.row('client-0'))[4], '-30 dBm (?)');
		assert.equal((await clients.row('client-1'))[4], '-31 dBm');
		assert.equal(await clients.page.locator(ROW).filter({ hasText: 'client-0' }).locator('img').count(), 0);
	}),

	test('a figure that is missing or broken breaks no row', {
		prepare(server) { server.wsmd = false; server.stations = [ { mac: '02:00:00:00:00:09' }, null, 'x', { ...exampleStation(), oltime: -5, wifi_up_cnt: 'x', power: 7 } ]; }
	}, async (clients) => {
		await clients.rows(2);
		assert.deepEqual(await clients.row('00:09'), [ '-', '02:00:00:00:00:09', '-', '', '-', '-', '↑ 0 B\n↓ 0 B', '0s', 'Disconnect' ]);
	}),

	test('signals are sorted by strength', {
		prepare: stations({ power: '90' }, { power: '1' }, { power: '50' }, { power: '9' })
	}, async (clients) => {
		await clients.rows(4);
		assert.deepEqual((await sorted(clients, 'Signal', 5)).map(words => parseInt(words, 10)), [ -94, -86, -45, -5 ]);
	}),

	test('MAC addresses are sorted as the hexadecimal numbers that they are', {
		prepare: stations({ mac: '02:00:00:00:00:0a' }, { mac: '02:00:00:00:00:10' }, { mac: '02:00:00:00:00:09' }, { mac: 'fe:00:00:00:00:00' })
	}, async (clients) => {
		await clients.rows(4);
		assert.deepEqual(await sorted(clients, 'MAC', 2), [ '02:00:00:00:00:09', '02:00:00:00:00:0a', '02:00:00:00:00:10', 'fe:00:00:00:00:00' ]);
	}),

	test('without a choice clients stand by their names, those without a name last', {
		prepare: stations({ name: 'phone 10' }, { name: '-' }, { name: 'phone 9' }, { name: 'a' })
	}, async (clients) => {
		await clients.rows(4);
		assert.deepEqual(await clients.column(1), [ 'a', 'phone 9', 'phone 10', '-' ]);
	}),

	test('the filter finds names, addresses and networks, and stays over an update', {
		prepare: stations({ name: 'Printer' }, { ip: '10.9.8.7' }, { ssid: 'Garden' })
	}, async (clients) => {
		await clients.rows(3);

		for (const [ words, name ] of [ [ 'print', 'Printer' ], [ '9.8.7', 'client-1' ], [ 'GARDEN', 'client-2' ], [ '00:02', 'client-1' ] ]) {
			await clients.page.fill('#wsmd-filter', words);
			await clients.rows(1);
			assert.deepEqual(await clients.column(1), [ name ]);
		}

		assert.match(await clients.page.innerText('#view'), /1 of 3 clients/);

		clients.server.stations[1].name = 'Renamed';
		await clients.pass(5);
		assert.deepEqual(await clients.column(1), [ 'Renamed' ]);
		await clients.page.fill('#wsmd-filter', 'nobody');
		await clients.placeholder('No client matches the filter.');
	}),

	test('the menu leads to the page, for who has the access group', {}, async (clients) => {
		const menu = readJSON('luci/menu.d/luci-app-wsmd.json');

		assert.deepEqual(Object.keys(menu), [ PAGE ]);
		assert.deepEqual(menu[PAGE], { title: 'Wireless clients', order: 7, action: { type: 'view', path: 'wsmd/clients' },
			depends: { acl: [ 'luci-app-wsmd' ] } });
		await clients.rows(3);
	}),

	test('the access group reads with one half and changes with the other', {}, async () => {
		const groups = readJSON('rpcd/acl.d/luci-app-wsmd.json');

		assert.deepEqual(Object.keys(groups), [ 'luci-app-wsmd' ]);
		assert.deepEqual(groups['luci-app-wsmd'].read, { ubus: { session: [ 'access' ], sta: [ 'get' ], wsmd: [ 'stations' ] } });
		assert.deepEqual(groups['luci-app-wsmd'].write, { ubus: { sta: [ 'set', 'delete' ] } });
	})
];
