/* The parts of the page that need no browser. */
'use strict';

const assert = require('assert/strict');

/* One test of one module of collector/web. */
function pure(module, name, body) {
	return {
		name: `${module}: ${name}`,
		async run() {
			await body(await import(`../../../collector/web/${module}.js`));
		}
	};
}

const plain = (text) => text.replace(/[\u202f\u00a0]/g, ' ');
const station = (values) => ({ id: 1, mac: '02:00:00:00:00:01', name: '', ssid: '', ap: '', ip: '', radio: 0, channel: 1, reports: 1, signal: -50, signal_mean: -50, began: 0, ...values });

module.exports = [
	pure('format', 'bytes have the unit that leaves few digits', ({ bytes }) => {
		assert.deepEqual([ 0, 999, 1000, 9949, 9950, 999499, 999500, 2.5e12, null ].map(n => plain(bytes(n))),
			[ '0 B', '999 B', '1.0 kB', '9.9 kB', '10 kB', '999 kB', '1.0 MB', '2.5 TB', '–' ]);
	}),
	pure('format', 'a duration has two units at most', ({ duration }) => {
		assert.deepEqual([ 0, 59.9, 61, 600, 601, 3600, 3661, 86400, 180000, -5, null ].map(n => plain(duration(n))),
			[ '0 s', '59 s', '1 min 1 s', '10 min', '10 min', '1 h', '1 h 1 min', '1 d', '2 d 2 h', '0 s', '–' ]);
	}),
	pure('format', 'a signal has a true minus sign, and none is a dash', ({ dbm, signalShare, signalWord }) => {
		assert.deepEqual([ -52, -52.6, null ].map(n => plain(dbm(n))), [ '−52 dBm', '−53 dBm', '–' ]);
		assert.deepEqual([ -30, -40, -65, -90, -120, null ].map(signalShare), [ 100, 100, 50, 4, 4, 0 ]);
		assert.deepEqual([ -60, -61, -72, -73, null ].map(signalWord), [ 'good', 'fair', 'fair', 'weak', 'none' ]);
	}),
	pure('format', 'a channel tells its band', ({ band }) => {
		assert.deepEqual([ 0, 1, 14, 36, 177, 189, 233 ].map(band), [ '', '2.4 GHz', '2.4 GHz', '5 GHz', '5 GHz', '6 GHz', '6 GHz' ]);
	}),
	pure('format', 'a private MAC has its second bit', ({ isPrivateMac }) => {
		assert.deepEqual([ '02', '3c', 'da', 'f6', '00' ].map(start => isPrivateMac(`${start}:00:00:00:00:01`)), [ true, false, true, true, false ]);
	}),
	pure('feed', 'events are told when they end, however they are cut', ({ EventLines }) => {
		const text = 'retry: 2000\n\n:\n\nevent: joined\ndata: {"kind":"joined"}\n\nevent: left\ndata: {"a":\ndata: 1}\n\n';

		for (let cut = 0; cut <= text.length; cut++) {
			const lines = new EventLines();

			assert.deepEqual([ ...lines.take(text.slice(0, cut)), ...lines.take(text.slice(cut)) ], [ { kind: 'joined' }, { a: 1 } ]);
		}
	}),
	pure('model', 'a change of an older stay, or that the list has in it, changes nothing', ({ Model }) => {
		const model = new Model();

		model.replace([ station({ id: 5, reports: 9 }) ]);
		assert.equal(model.apply({ kind: 'left', station: station({ id: 4, reports: 99 }) }), false);
		assert.equal(model.apply({ kind: 'updated', station: station({ id: 5, reports: 8, signal: -1 }) }), false);
		assert.equal(model.entries.get('02:00:00:00:00:01').station.signal, -50);
		assert.equal(model.apply({ kind: 'left', station: station({ id: 5, reports: 9 }) }), true);
		assert.equal(model.entries.size, 0);
	}),
	pure('model', 'recent signals are kept over a new list, up to a bound', ({ Model }) => {
		const model = new Model();

		model.replace([ station({}) ]);

		for (let reports = 2; reports < 100; reports++)
			model.apply({ kind: 'updated', station: station({ reports, signal: -reports }) });

		model.replace([ station({ reports: 100, signal: -100 }) ]);

		const { signals } = model.entries.get('02:00:00:00:00:01');

		assert.equal(signals.length, 24);
		assert.deepEqual(signals.slice(-2), [ -99, -100 ]);
	}),
	pure('model', 'a stay that follows another is another entry, and who is not in a list has gone', ({ Model }) => {
		const model = new Model();

		model.replace([ station({}), station({ mac: '02:00:00:00:00:02' }) ]);

		const [ first, second ] = model.entries.values();

		model.replace([ station({ id: 2 }) ]);
		assert.deepEqual([ first.gone, second.gone, model.entries.size ], [ true, true, 1 ]);
	}),
	pure('model', 'a trend needs three decibels', ({ trend }) => {
		assert.deepEqual([ [], [ -50 ], [ -50, -48 ], [ -50, -47 ], [ -40, -41, -60, -61 ] ].map(trend), [ 'steady', 'steady', 'steady', 'rising', 'falling' ]);
	}),
	pure('select', 'every word of a search must be somewhere', ({ matches }) => {
		const one = station({ name: "Anna's phone", ssid: 'Guests', ip: '10.0.0.7' });

		assert.deepEqual([ '', 'anna', 'PHONE guests', '10.0.0.7 02:00', 'anna lobby' ].map(search => matches(one, { search })), [ true, true, true, true, false ]);
		assert.deepEqual([ { ssid: 'Guests' }, { ssid: 'Lobby' }, { band: '2.4 GHz' }, { band: '5 GHz' } ].map(filter => matches(one, filter)), [ true, false, true, false ]);
	}),
	pure('select', 'the order is by the column, and by the MAC among equals', ({ select }) => {
		const entries = [ [ 3, -50 ], [ 1, null ], [ 2, -50 ], [ 4, -40 ] ].map(([ n, signal ]) => ({ station: station({ mac: `02:00:00:00:00:0${n}`, signal }) }));
		const order = (how) => select(entries, {}, how).map(({ station: { mac } }) => mac.slice(-1)).join('');

		assert.equal(order({ column: 'signal', direction: 'descending' }), '4231');
		assert.equal(order({ column: 'signal', direction: 'ascending' }), '1234');
	}),
	pure('window', 'the rows that are seen, and a few beyond', ({ rowsInView }) => {
		assert.deepEqual(rowsInView(0, 500, 50, 10000), [ 0, 18 ]);
		assert.deepEqual(rowsInView(5000, 500, 50, 10000), [ 92, 118 ]);
		assert.deepEqual(rowsInView(499500, 500, 50, 10000), [ 9982, 10000 ]);
		assert.deepEqual(rowsInView(499500, 500, 50, 3), [ 3, 3 ]);
		assert.deepEqual(rowsInView(-20, 500, 50, 3), [ 0, 3 ]);
	}),
	pure('timeline', 'a stay is cut where it roamed, and lasts until now while it goes on', ({ places }) => {
		const sessions = [ { id: 2, began: 500, ended: null, ap: 'B', radio: 1 }, { id: 1, began: 100, ended: 200, ap: 'A', radio: 0 } ];
		const changes = [ { id: 8, at: 700, kind: 'roamed', stay: 2, ap: 'B', radio: 1, from_ap: 'A', from_radio: 0 }, { id: 7, at: 500, kind: 'joined', stay: 2, ap: 'A', radio: 0 } ];

		assert.deepEqual(places(sessions, changes, 1000), [
			{ from: 100, to: 200, ap: 'A', radio: 0, stay: 1, ongoing: false },
			{ from: 500, to: 700, ap: 'A', radio: 0, stay: 2, ongoing: false },
			{ from: 700, to: 1000, ap: 'B', radio: 1, stay: 2, ongoing: true }
		]);
	}),
	pure('timeline', 'days are the viewer\'s, the newest first, also where one has 25 hours', ({ days }) => {
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
	}),
	pure('scale', 'figures are round and hold all values', ({ figures }) => {
		assert.deepEqual(figures(0, 13), [ 0, 5, 10, 15 ]);
		assert.deepEqual(figures(-80, -40), [ -80, -70, -60, -50, -40 ]);
		assert.deepEqual(figures(0, 0.7), [ 0, 0.2, 0.4, 0.6, 0.8 ]);
		assert.deepEqual(figures(5, 5).at(-1) > 5, true);
	}),
	pure('scale', 'a line is broken where nothing was reported', ({ runs }) => {
		assert.deepEqual(runs([ [ 0, 1 ], [ 10, 2 ], [ 20, null ], [ 30, 3 ], [ 60, 4 ] ], 10), [ [ [ 0, 1 ], [ 10, 2 ], [ 30, 3 ] ], [ [ 60, 4 ] ] ]);
	}),
	pure('sums', 'stations of all radios are added at each time', ({ sumByTime }) => {
		assert.deepEqual(sumByTime([ { at: 300, stations: 2 }, { at: 0, stations: 1 }, { at: 300, stations: 4 } ], 300), [ [ 150, 1 ], [ 450, 6 ] ]);
	}),
	pure('sums', 'networks have their stations, bands and mean signal', ({ networks }) => {
		const of = (ssid, channel, signal) => station({ ssid, channel, signal, up: 1, down: 2 });

		assert.deepEqual(networks([ of('A', 6, -50), of('B', 36, null), of('B', 6, -60), of('B', 36, -70) ]), [
			{ ssid: 'B', count: 3, total: 9, signal: -65, bands: [ [ '2.4 GHz', 1 ], [ '5 GHz', 2 ] ] },
			{ ssid: 'A', count: 1, total: 3, signal: -50, bands: [ [ '2.4 GHz', 1 ] ] }
		]);
	}),
	pure('sums', 'a reason counts over all access points', ({ byReason }) => {
		const row = (ap, reason_code, departures) => ({ ap, reason_code, reason: String(reason_code), ended_by: '', departures });

		assert.deepEqual(byReason([ row('A', 300, 5), row('A', 307, 2), row('B', 307, 4) ]).map(({ reason, departures }) => [ reason, departures ]), [ [ '307', 6 ], [ '300', 5 ] ]);
	})
];
