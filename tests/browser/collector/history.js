/* A week of a house with three access points, as the interface gives it; `now` in seconds. The n-th station stays as makeStation() says. */
'use strict';

const { makeStation, ap } = require('./stations.js');

const DAY = 86400;
const REASONS = [ [ 307, 'OW_STA_DEAUTH_RECV', 'station' ], [ 300, 'OW_STA_TIMEOUT', 'silence' ], [ 202, 'OW_STA_KICKED', 'access point' ] ];

/* Two stays a day, of which the second roams, and one that goes on. */
function stays(n, now) {
	const { mac, name, ssid, ip } = makeStation(n, now);
	const sessions = [], changes = [];
	const add = (id, began, seconds, over) => {
		const [ reason_code, reason, ended_by ] = REASONS[id % REASONS.length];

		sessions.unshift({ id, mac, name, state: over ? 'gone' : 'here', ap: ap(1 + id % 3), radio: id % 2, ssid, ip, began, ended: over ? began + seconds : null, seconds,
			roams: id % 2, returns: 0, signal_least: -70, signal_mean: -58, signal_most: -50, up: id * 1e6, down: id * 7e6,
			reason: over ? reason : '', reason_code: over ? reason_code : 0, ended_by: over ? ended_by : '' });
		changes.unshift({ id: id * 3, at: began, kind: 'joined', mac, name, stay: id, ap: ap(1 + (id + id % 2) % 3), radio: 0, from_ap: null, from_radio: null });

		if (id % 2)
			changes.unshift({ id: id * 3 + 1, at: began + seconds / 2, kind: 'roamed', mac, name, stay: id, ap: ap(1 + id % 3), radio: 1, from_ap: ap(1 + (id + 1) % 3), from_radio: 0 });

		if (over)
			changes.unshift({ id: id * 3 + 2, at: began + seconds, kind: 'left', mac, name, stay: id, ap: ap(1 + id % 3), radio: id % 2, from_ap: null, from_radio: null });
	};

	for (let day = 6, id = 2; day >= 0; day--) {
		add(id++, now - day * DAY - 0.9 * DAY, 3 * 3600, true);
		add(id++, now - day * DAY - 0.6 * DAY, 5 * 3600, true);
	}

	add(16, now - 3600, 3600, false);

	return { sessions, changes };
}

function series(now, days, step) {
	const points = [];

	for (let at = Math.ceil((now - days * DAY) / step) * step; at < now; at += step)
		if (at % DAY > DAY * 0.3)
			points.push({ at, signal: -60 + 9 * Math.sin(at / 7000), rate_up: 60 + 50 * Math.sin(at / 9000), rate_down: 200 + 180 * Math.sin(at / 11000), up: 1e6, down: 5e6 });

	return points;
}

function radios(now, days, step) {
	const points = [];

	for (let at = Math.ceil((now - days * DAY) / step) * step; at < now; at += step)
		for (const n of [ 1, 2, 3 ])
			for (const radio of [ 0, 1 ])
				points.push({ at, ap: ap(n), radio, stations: Math.round(8 + n * 3 + 7 * Math.sin(at / 14000 + n + radio)), noise: -95 + radio + n / 2, utilization: Math.round(30 + radio * 15 + 12 * Math.sin(at / 13000 + n)) });

	return points;
}

/* Lets a collector answer all questions about a week. */
function withHistory(collector, names = (row) => row) {
	const now = Date.now() / 1000;
	const daysOf = ({ since }) => Math.min(30, (now - since) / DAY);
	const stepOf = ({ step }) => Number(step ?? 300);

	for (const n of [ 0, 1 ]) {
		const { mac, name, ip } = makeStation(n, now);
		const told = stays(n, now);

		Object.assign(collector.answers, {
			[`stations/${mac}/sessions`]: told.sessions.map(names),
			[`stations/${mac}/changes`]: told.changes.map(names),
			[`stations/${mac}/series`]: (given) => series(now, daysOf(given), stepOf(given)),
			[`stations/${mac}/addresses`]: [ { mac, name, ip, first: now - 6 * DAY, last: now - 60 }, { mac, name, ip: '2001:db8::7', first: now - 2 * DAY, last: now - DAY } ].map(names)
		});
	}

	const people = Array.from({ length: 12 }, (_, i) => makeStation(i, now)).map(({ mac, name }, i) => ({ mac, name, i }));

	Object.assign(collector.answers, {
		'sessions': [],
		'access-points': [ 1, 2, 3 ].map(n => ({ ap: ap(n), stations: 40 - n, joined: 100 + n, roamed: 20, returned: 3, left: n == 3 ? 0 : 60,
			radios: [ { radio: 0, stations: 20, channel: 6, noise: -94, utilization: 41 }, { radio: 1, stations: 20 - n, channel: 36, noise: null, utilization: 0 } ] })),
		'radios': (given) => radios(now, daysOf(given), stepOf(given)).filter(point => !given.ap || point.ap == given.ap),
		'departures': [ 1, 2, 3 ].flatMap(n => REASONS.map(([ reason_code, reason, ended_by ], i) => ({ ap: ap(n), reason, reason_code, ended_by, departures: 100 - 30 * i + n, stations: 9, returns: 1 }))).map(names),
		'flapping': people.slice(0, 4).map(({ mac, name, i }) => ({ mac, name, sessions: 60 - i * 9, brief: 50 - i * 8, returns: i })).map(names),
		'top': people.map(({ mac, name, i }) => ({ mac, name, sessions: 9 + i, up: 3e9 / (i + 1), down: 2e10 / (i + 1), seconds: 86400 * 3 - i * 8000, roams: i * 3, returns: 0 })).map(names)
	});
}

module.exports = { withHistory };
