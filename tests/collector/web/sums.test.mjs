import { test } from 'node:test';
import assert from 'node:assert/strict';
import { byReason, networks, sumByTime } from '../../../collector/web/sums.js';
import { station } from './station.mjs';

test('stations of all radios are added at each time', () => {
	assert.deepEqual(sumByTime([ { at: 300, stations: 2 }, { at: 0, stations: 1 }, { at: 300, stations: 4 } ], 300), [ [ 150, 1 ], [ 450, 6 ] ]);
});

test('networks have their stations, bands and mean signal', () => {
	const of = (ssid, channel, signal) => station({ ssid, channel, signal, up: 1, down: 2 });

	assert.deepEqual(networks([ of('A', 6, -50), of('B', 36, null), of('B', 6, -60), of('B', 36, -70) ]), [
		{ ssid: 'B', count: 3, total: 9, signal: -65, bands: [ [ '2.4 GHz', 1 ], [ '5 GHz', 2 ] ] },
		{ ssid: 'A', count: 1, total: 3, signal: -50, bands: [ [ '2.4 GHz', 1 ] ] }
	]);
});

test('a reason counts over all access points', () => {
	const row = (ap, reason_code, departures) => ({ ap, reason_code, reason: String(reason_code), ended_by: '', departures });

	assert.deepEqual(byReason([ row('A', 300, 5), row('A', 307, 2), row('B', 307, 4) ]).map(({ reason, departures }) => [ reason, departures ]), [ [ '307', 6 ], [ '300', 5 ] ]);
});
