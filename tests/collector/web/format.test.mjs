import { test } from 'node:test';
import assert from 'node:assert/strict';
import { band, bytes, clock, counted, day, dbm, duration, isPrivateMac, rate, signalShare, signalWord, stateWord, when } from '../../../collector/web/format.js';

const plain = (text) => text.replace(/[\u202f\u00a0]/g, ' ');

test('bytes have the unit that leaves few digits', () => {
	assert.deepEqual([ 0, 999, 1000, 9949, 9950, 999499, 999500, 2.5e12, null ].map(n => plain(bytes(n))),
		[ '0 B', '999 B', '1.0 kB', '9.9 kB', '10 kB', '999 kB', '1.0 MB', '2.5 TB', '–' ]);
});

test('a duration has two units at most', () => {
	assert.deepEqual([ 0, 59.9, 61, 600, 601, 3600, 3661, 86400, 180000, -5, null ].map(n => plain(duration(n))),
		[ '0 s', '59 s', '1 min 1 s', '10 min', '10 min', '1 h', '1 h 1 min', '1 d', '2 d 2 h', '0 s', '–' ]);
});

test('a signal has a true minus sign, and none is a dash', () => {
	assert.deepEqual([ -52, -52.6, null ].map(n => plain(dbm(n))), [ '−52 dBm', '−53 dBm', '–' ]);
	assert.deepEqual([ -30, -40, -65, -90, -120, null ].map(signalShare), [ 100, 100, 50, 4, 4, 0 ]);
	assert.deepEqual([ -60, -61, -72, -73, null ].map(signalWord), [ 'good', 'fair', 'fair', 'weak', 'none' ]);
});

test('a channel tells its band', () => {
	assert.deepEqual([ 0, 1, 14, 36, 177, 189, 233 ].map(band), [ '', '2.4 GHz', '2.4 GHz', '5 GHz', '5 GHz', '6 GHz', '6 GHz' ]);
});

test('a private MAC has its second bit', () => {
	assert.deepEqual([ '02', '3c', 'da', 'f6', '00' ].map(start => isPrivateMac(`${start}:00:00:00:00:01`)), [ true, false, true, true, false ]);
});

test('a rate that was not measured is a dash, and states have words', () => {
	assert.deepEqual([ 0, 866, null ].map(n => plain(rate(n))), [ '–', '866 Mbit/s', '–' ]);
	assert.deepEqual([ 'here', 'moving', 'gone', 'else' ].map(stateWord), [ 'here', 'roaming', 'left', 'else' ]);
	assert.deepEqual([ counted(1, 'station'), counted(2, 'station') ], [ '1 station', '2 stations' ]);
});

test('a time of today is the clock, and another one has its day', () => {
	const noon = new Date(2026, 2, 3, 12).getTime() / 1000;

	assert.equal(when(noon - 3600, noon), clock(noon - 3600));
	assert.equal(when(noon - 86400, noon), `${day(noon - 86400)}, ${clock(noon - 86400)}`);
});
