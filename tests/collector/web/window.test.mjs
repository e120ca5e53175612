import { test } from 'node:test';
import assert from 'node:assert/strict';
import { rowsInView } from '../../../collector/web/window.js';

test('the rows that are seen, and a few beyond', () => {
	assert.deepEqual(rowsInView(0, 500, 50, 10000), [ 0, 18 ]);
	assert.deepEqual(rowsInView(5000, 500, 50, 10000), [ 92, 118 ]);
	assert.deepEqual(rowsInView(499500, 500, 50, 10000), [ 9982, 10000 ]);
	assert.deepEqual(rowsInView(499500, 500, 50, 3), [ 3, 3 ]);
	assert.deepEqual(rowsInView(-20, 500, 50, 3), [ 0, 3 ]);
});
