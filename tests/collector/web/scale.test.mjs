import { test } from 'node:test';
import assert from 'node:assert/strict';
import { figures, runs, times } from '../../../collector/web/scale.js';

test('figures are round and hold all values', () => {
	assert.deepEqual(figures(0, 13), [ 0, 5, 10, 15 ]);
	assert.deepEqual(figures(-80, -40), [ -80, -70, -60, -50, -40 ]);
	assert.deepEqual(figures(0, 0.7), [ 0, 0.2, 0.4, 0.6, 0.8 ]);
	assert.deepEqual(figures(5, 5).at(-1) > 5, true);
});

test('a line is broken where nothing was reported', () => {
	assert.deepEqual(runs([ [ 0, 1 ], [ 10, 2 ], [ 20, null ], [ 30, 3 ], [ 60, 4 ] ], 10), [ [ [ 0, 1 ], [ 10, 2 ], [ 30, 3 ] ], [ [ 60, 4 ] ] ]);
});

test('an axis of days has its marks at midnight, also where a day has 25 hours', () => {
	const zone = process.env.TZ;

	process.env.TZ = 'Europe/Berlin';

	try {
		const from = Date.UTC(2026, 9, 23, 10) / 1000;

		assert.deepEqual(times(from, from + 4 * 86400).map(({ at }) => at), [ 23, 24, 25, 26 ].map(day => Date.UTC(2026, 9, day, day < 25 ? 22 : 23) / 1000));
	}
	finally {
		zone === undefined ? delete process.env.TZ : process.env.TZ = zone;
	}
});

test('an axis of a day has its hours, and of a month no more than eight days', () => {
	const noon = new Date(2026, 2, 3, 12).getTime() / 1000;

	assert.deepEqual(times(noon - 6 * 3600, noon).map(({ at }) => (at - noon) / 3600), [ -6, -5, -4, -3, -2, -1, 0 ]);
	assert.deepEqual(times(noon - 24 * 3600, noon).map(({ at }) => (at - noon) / 3600), [ -24, -20, -16, -12, -8, -4, 0 ]);

	const month = times(noon - 30 * 86400, noon);

	assert.ok(month.length >= 6 && month.length <= 8, `${month.length} marks`);
});
