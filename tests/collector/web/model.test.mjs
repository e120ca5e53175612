import { test } from 'node:test';
import assert from 'node:assert/strict';
import { Model, trend } from '../../../collector/web/model.js';
import { station } from './station.mjs';

test('a change of an older stay, or that the list has in it, changes nothing', () => {
	const model = new Model();

	model.replace([ station({ id: 5, reports: 9 }) ]);
	assert.equal(model.apply({ kind: 'left', station: station({ id: 4, reports: 99 }) }), false);
	assert.equal(model.apply({ kind: 'updated', station: station({ id: 5, reports: 8, signal: -1 }) }), false);
	assert.equal(model.entries.get('02:00:00:00:00:01').station.signal, -50);
	assert.equal(model.apply({ kind: 'left', station: station({ id: 5, reports: 9 }) }), true);
	assert.equal(model.entries.size, 0);
});

test('recent signals are kept over a new list, up to a bound', () => {
	const model = new Model();

	model.replace([ station({}) ]);

	for (let reports = 2; reports < 100; reports++)
		model.apply({ kind: 'updated', station: station({ reports, signal: -reports }) });

	model.replace([ station({ reports: 100, signal: -100 }) ]);

	const { signals } = model.entries.get('02:00:00:00:00:01');

	assert.equal(signals.length, 24);
	assert.deepEqual(signals.slice(-2), [ -99, -100 ]);
});

test('a stay that follows another is another entry, and who is not in a list has gone', () => {
	const model = new Model();

	model.replace([ station({}), station({ mac: '02:00:00:00:00:02' }) ]);

	const [ first, second ] = model.entries.values();

	model.replace([ station({ id: 2 }) ]);
	assert.deepEqual([ first.gone, second.gone, model.entries.size ], [ true, true, 1 ]);
});

test('a trend needs three decibels', () => {
	assert.deepEqual([ [], [ -50 ], [ -50, -48 ], [ -50, -47 ], [ -40, -41, -60, -61 ] ].map(trend), [ 'steady', 'steady', 'steady', 'rising', 'falling' ]);
});
