import { test } from 'node:test';
import assert from 'node:assert/strict';
import { EventLines } from '../../../collector/web/feed.js';

test('events are told when they end, however they are cut', () => {
	const text = 'retry: 2000\n\n:\n\nevent: joined\ndata: {"kind":"joined"}\n\nevent: left\ndata: {"a":\ndata: 1}\n\n';

	for (let cut = 0; cut <= text.length; cut++) {
		const lines = new EventLines();

		assert.deepEqual([ ...lines.take(text.slice(0, cut)), ...lines.take(text.slice(cut)) ], [ { kind: 'joined' }, { a: 1 } ]);
	}
});
