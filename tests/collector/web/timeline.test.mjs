import { test } from 'node:test';
import assert from 'node:assert/strict';
import { days, places } from '../../../collector/web/timeline.js';

test('a stay is cut where it roamed, and lasts until now while it goes on', () => {
	const sessions = [ { id: 2, began: 500, ended: null, ap: 'B', radio: 1 }, { id: 1, began: 100, ended: 200, ap: 'A', radio: 0 } ];
	const changes = [ { id: 8, at: 700, kind: 'roamed', stay: 2, ap: 'B', radio: 1, from_ap: 'A', from_radio: 0 }, { id: 7, at: 500, kind: 'joined', stay: 2, ap: 'A', radio: 0 } ];

	assert.deepEqual(places(sessions, changes, 1000), [
		{ from: 100, to: 200, ap: 'A', radio: 0, stay: 1, ongoing: false },
		{ from: 500, to: 700, ap: 'A', radio: 0, stay: 2, ongoing: false },
		{ from: 700, to: 1000, ap: 'B', radio: 1, stay: 2, ongoing: true }
	]);
});

test('days are the viewer\'s, the newest first, also where one has 25 hours', () => {
	const zone = process.env.TZ;

	process.env.TZ = 'Europe/Berlin';

	try {
		/* 25 October 2026 ends an hour late there; the piece begins a minute before its midnight. */
		const begin = Date.UTC(2026, 9, 24, 22) / 1000;
		const piece = { from: begin - 60, to: begin + 3600, ap: 'A', radio: 0, stay: 1 };
		const [ last, middle, first ] = days([ piece ], begin - 60, begin + 25 * 3600 + 1);

		assert.deepEqual([ middle.end - middle.begin, middle.begin, middle.seconds, middle.stays, middle.roams ], [ 25 * 3600, begin, 3600, 1, 0 ]);
		assert.deepEqual([ first.seconds, last.pieces.length, last.begin ], [ 60, 0, begin + 25 * 3600 ]);
	}
	finally {
		zone === undefined ? delete process.env.TZ : process.env.TZ = zone;
	}
});
