/* No answer, or another answer than the list. For each state the page has a text, and it recovers by itself. */
'use strict';

const assert = require('assert/strict');
const { picture, until } = require('../browser.js');
const { makeStations } = require('./server.js');
const { test } = require('./page.js');

const NO_DAEMON = 'The station daemon is not running.';

/* What the browser itself prints in its console about a request. */
const FAILED = /Failed to load resource/;

function answerWith(status, body) {
	return (calls, response) => response.writeHead(status, { 'Content-Type': 'application/json' }).end(body);
}

module.exports = [
	test('without the daemon the page opens and says so, and has the list once the daemon is there', {
		prepare(server) { server.running = false; }
	}, async (clients) => {
		await clients.says(NO_DAEMON);
		await clients.placeholder('No information available');
		await clients.shown();
		await picture(clients.page, 'luci-no-daemon');
		clients.server.running = true;
		await clients.pass(5);
		await clients.rows(3);
		await clients.says('');
	}),

	test('when the daemon ends the list stays with the time it is of, nobody can be disconnected, and nothing piles up', {}, async (clients) => {
		await clients.rows(3);
		clients.server.running = false;
		await clients.pass(5);
		await clients.says(NO_DAEMON);
		assert.match(await clients.page.innerText('#wsmd-state'), /What you see is from \d\d:\d\d:\d\d/);

		const calls = clients.server.calls.length;

		await clients.pass(15);
		assert.equal(clients.server.calls.length, calls + 6, 'each of the two objects three times');
		await clients.rows(3);
		assert.ok(await clients.button('phone-0').isDisabled());
		assert.equal(await clients.page.locator('.alert-message').count(), 1);
		await clients.shown();
		await picture(clients.page, 'luci-daemon-gone');
		clients.server.running = true;
		await clients.pass(5);
		await clients.says('');
		assert.ok(await clients.button('phone-0').isEnabled());
	}),

	test('who has not the right to see clients is told which right it is', {
		prepare(server) { server.login = 'none'; }
	}, async (clients) => {
		await clients.says('Your login has no right to this: it needs the access group luci-app-wsmd.');
		assert.ok(!await clients.dialog().isVisible());
		await clients.shown();
		await picture(clients.page, 'luci-no-rights');
	}),

	test('an expired session is told apart from a missing right, and is asked about no more', {}, async (clients) => {
		await clients.rows(3);
		clients.server.login = 'expired';
		await clients.pass(5);
		await clients.says('Your session has expired: log in again.');
		await until('the dialog of LuCI', () => clients.dialog().isVisible());
		await clients.rows(3);
		await clients.shown();
		await picture(clients.page, 'luci-session-expired');

		const calls = clients.server.calls.length;

		await clients.pass(60);
		assert.equal(clients.server.calls.length, calls);
	}),

	test('of 10,000 clients, too many for one answer, the page tells how many there are and looks up a single one', {
		prepare(server) { Object.assign(server, { wsmd: false, stations: makeStations(10000) }); }
	}, async (clients) => {
		const { page, server } = clients;

		await clients.says('There are more clients than one answer of the daemon can carry.');
		await clients.placeholder('Enter a whole MAC address as filter.');
		assert.match(await page.innerText('#view'), /Clients: 10000/);
		await clients.shown();
		await picture(page, 'luci-too-many');

		await page.fill('#wsmd-filter', ' 02:00:00:00:1F:40 ');
		await clients.rows(1);
		assert.equal((await clients.row('02:00:00:00:1f:40'))[2], '192.168.32.251');
		await clients.shown();
		await page.fill('#wsmd-filter', '02:00:00:ff:ff:ff');
		await clients.placeholder('No client has this MAC address.');

		await page.fill('#wsmd-filter', '');
		await clients.pass(5);
		server.stations.length = 5;
		await clients.pass(5);
		await clients.rows(5);
		await clients.says('');
	}),

	test('a list that was too large is not asked for again while there are as many clients', {
		prepare(server) { Object.assign(server, { wsmd: false, stations: makeStations(2000) }); }
	}, async (clients) => {
		await clients.says('There are more clients');

		await clients.pass(20);
		assert.equal(clients.server.called('get').filter(values => values.get_sta_count === undefined).length, 1);
		assert.equal(clients.server.called('get').filter(values => values.get_sta_count == 'all').length, 5);
	}),

	test('700 clients, about the most that one answer can carry, are all in the list', {
		prepare(server) { Object.assign(server, { wsmd: false, stations: makeStations(700) }); }
	}, async (clients) => {
		await clients.rows(700);
		assert.match(await clients.page.innerText('#view'), /Clients: 700/);
		await clients.says('');
	}),

	test('of a daemon with "wsmd" 700 clients come page by page', {
		prepare(server) { server.stations = makeStations(700); }
	}, async (clients) => {
		await clients.rows(700);
		assert.match(await clients.page.innerText('#view'), /Clients: 700/);
		assert.deepEqual(clients.server.called('stations').slice(0, 3).map(({ after }) => after), [ undefined, '02:00:00:00:01:00', '02:00:00:00:02:00' ]);
		assert.deepEqual(clients.server.called('get'), []);
	}),

	test('of 10,000 clients of a daemon with "wsmd" a single one is looked up', {
		prepare(server) { server.stations = makeStations(10000); }
	}, async (clients) => {
		const { page, server } = clients;

		await clients.says('There are more clients than one answer of the daemon can carry.');
		assert.match(await page.innerText('#view'), /Clients: 10000/);
		await page.fill('#wsmd-filter', '02:00:00:00:1F:40');
		await clients.rows(1);
		await clients.pass(20);
		assert.equal(server.called('stations').length, 1);
		server.stations.length = 300;
		await page.fill('#wsmd-filter', '');
		await clients.pass(5);
		await clients.rows(300);
		await clients.says('');
	}),

	test('a daemon without "wsmd" is asked for it once, and the next one anew', {
		prepare(server) { server.wsmd = false; }
	}, async (clients) => {
		const { server } = clients;

		await clients.rows(3);
		await clients.pass(20);
		assert.equal(server.called('stations').length, 1);
		server.running = false;
		await clients.pass(5);
		await clients.says(NO_DAEMON);
		Object.assign(server, { running: true, wsmd: true, calls: [] });
		await clients.pass(5);
		await clients.says('');
		assert.deepEqual([ server.called('stations').length, server.called('get').length ], [ 1, 0 ]);
	}),

	test('a login of before, which may not ask "wsmd", has the list of "sta"', {
		prepare(server) {
			const { mayCall } = server;

			server.mayCall = (object, method) => object != 'wsmd' && mayCall.call(server, object, method);
		}
	}, async (clients) => {
		await clients.rows(3);
		await clients.says('');
		assert.ok(!await clients.dialog().isVisible());
	}),

	...[ [ 'status 3', [ 3 ] ], [ 'status 2', [ 2, { error: 'unknown field' } ] ], [ 'no list', [ 0, { stations: 'none' } ] ] ].map(([ what, answer ]) =>
		test(`when "wsmd" answers ${what} the list is that of "sta"`, {
			prepare(server) { server.wsmd_stations = () => answer; }
		}, async (clients) => {
			await clients.rows(3);
			await clients.says('');
		})),

	test('a page that begins where the last one began is not asked for for ever', {
		prepare(server) { server.wsmd_stations = () => [ 0, { total: 1, stations: [ { mac: '02:00:00:00:00:09' } ], next: '02:00:00:00:00:09' } ]; }
	}, async (clients) => {
		await clients.rows(2);
		assert.equal(clients.server.called('stations').length, 2);
	}),

	test('while the server stalls the page is there, says so after LuCI\'s time limit, and goes on', {
		prepare(server) { server.intercept = () => true; }
	}, async (clients) => {
		await clients.placeholder('Collecting data...');
		await clients.shown();
		await until('a request', () => clients.server.calls.length);
		await clients.passWithoutAnswer(20);
		await clients.says('The request failed: XHR request timed out');
		assert.equal(clients.server.calls.length, 1);
		await clients.shown();
		clients.server.intercept = null;
		await clients.pass(5);
		await clients.rows(3);
		await clients.says('');
	}),

	test('over a restart of the server the list stays, and is new afterwards', { console: FAILED }, async (clients) => {
		await clients.rows(3);
		await clients.server.stop();
		await clients.pass(5);
		await clients.says('The request failed: XHR request failed');
		await clients.rows(3);
		await clients.shown();
		clients.server.stations.pop();
		await clients.server.start();
		await clients.pass(5);
		await clients.rows(2);
		await clients.says('');
	}),

	...[
		[ 'an error of the web server', answerWith(500, ''), 'The request failed: HTTP error 500' ],
		[ 'an answer that is no JSON', answerWith(200, '<html>'), 'The request failed: ' ],
		[ 'a bus that does not answer', answerWith(200, '[{"jsonrpc":"2.0","id":1,"error":{"code":-32003,"message":"Timeout"}}]'), 'The station daemon does not answer.' ],
		[ 'status -1', answerWith(200, '[{"jsonrpc":"2.0","id":1,"result":[-1]}]'), 'The station daemon answered with status -1.' ],
		[ 'status 7', answerWith(200, '[{"jsonrpc":"2.0","id":1,"result":[7]}]'), 'The station daemon answered with status 7.' ],
		[ 'an answer without a body', answerWith(200, '[{"jsonrpc":"2.0","id":1,"result":[0]}]'), 'The station daemon answered with status 0.' ],
		[ 'an answer without a list', answerWith(200, '[{"jsonrpc":"2.0","id":1,"result":[0,{"online_list":"none"}]}]'), 'an answer that this page does not understand' ],
		[ 'markup in an error\'s text', answerWith(200, JSON.stringify([ { jsonrpc: '2.0', id: 1,
			error: { code: -1, message: '<img src=x onerror="window.attacked = 1">' } } ])), '<img src=x' ]
	].map(([ what, intercept, words ]) => test(`${what} has its words, and the list comes back`, {
		prepare(server) { server.intercept = intercept; }, console: FAILED
	}, async (clients) => {
		await clients.says(words);
		await clients.shown();
		assert.equal(await clients.page.evaluate(() => window.attacked), undefined);
		clients.server.intercept = null;
		await clients.pass(5);
		await clients.rows(3);
		await clients.says('');
	}))
];
