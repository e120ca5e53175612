import { test } from 'node:test';
import assert from 'node:assert/strict';
import { choices, COLUMNS, firstDirection, matches, question, select } from '../../../collector/web/select.js';
import { station } from './station.mjs';

test('every word of a search must be somewhere', () => {
	const one = station({ name: "Anna's phone", ssid: 'Guests', ip: '10.0.0.7' });

	assert.deepEqual([ '', 'anna', 'PHONE guests', '10.0.0.7 02:00', 'anna lobby' ].map(search => matches(one, { search })), [ true, true, true, true, false ]);
	assert.deepEqual([ { ssid: 'Guests' }, { ssid: 'Lobby' }, { band: '2.4 GHz' }, { band: '5 GHz' } ].map(filter => matches(one, filter)), [ true, false, true, false ]);
});

test('the order is by the column, and by the MAC among equals', () => {
	const entries = [ [ 3, -50 ], [ 1, null ], [ 2, -50 ], [ 4, -40 ] ].map(([ n, signal ]) => ({ station: station({ mac: `02:00:00:00:00:0${n}`, signal }) }));
	const order = (how) => select(entries, {}, how).map(({ station: { mac } }) => mac.slice(-1)).join('');

	assert.equal(order({ column: 'signal', direction: 'descending' }), '4231');
	assert.equal(order({ column: 'signal', direction: 'ascending' }), '1234');
});

test('the collector is asked the same in its own words, and for nothing that is not chosen', () => {
	const none = { search: '', ssid: '', band: '', ap: '', state: '' };

	assert.deepEqual(question(none, { column: 'station', direction: 'ascending' }, 100), { sort: 'name', direction: 'ascending', limit: 100 });
	assert.deepEqual(question({ search: 'anna 7', ssid: 'Guests', band: '2.4 GHz', ap: '02:54:4b:00:00:01', state: 'here' }, { column: 'signal', direction: 'descending' }, 5), {
		search: 'anna 7', ssid: 'Guests', band: '2.4', ap: '02:54:4b:00:00:01', state: 'here', sort: 'signal', direction: 'descending', limit: 5
	});
	assert.deepEqual(COLUMNS.map(column => question(none, { column, direction: 'ascending' }, 1).sort), [ 'name', 'ssid', 'ap', 'signal', 'rate', 'bytes', 'time' ]);
});

test('what can be chosen is what occurs, in order, numbers as numbers', () => {
	const entries = [ [ 'Floor 10', 36, 'B' ], [ 'Floor 9', 6, 'A' ], [ '', 0, '' ], [ 'Floor 9', 6, 'A' ] ].map(([ ssid, channel, ap ]) => ({ station: station({ ssid, channel, ap }) }));

	assert.deepEqual(choices(entries), { ssid: [ 'Floor 9', 'Floor 10' ], ap: [ 'A', 'B' ], band: [ '2.4 GHz', '5 GHz' ] });
});

test('a first click shows the most first, and names from their beginning', () => {
	assert.deepEqual(COLUMNS.map(firstDirection), [ 'ascending', 'ascending', 'ascending', 'descending', 'descending', 'descending', 'descending' ]);
});

test('who has come last is here for the shortest time, and those with a name are first', () => {
	const entries = [ [ 1, '', 500 ], [ 2, 'Zoe', 100 ], [ 3, 'anna', 900 ] ].map(([ n, name, began ]) => ({ station: station({ mac: `02:00:00:00:00:0${n}`, name, began }) }));
	const order = (how) => select(entries, {}, how).map(({ station: { mac } }) => mac.slice(-1)).join('');

	assert.equal(order({ column: 'time', direction: 'descending' }), '213');
	assert.equal(order({ column: 'station', direction: 'ascending' }), '321');
});
