/* Sums over rows of the interface. Pure. */
import { band } from './format.js';

/* Points of radios as [[at, stations]] of all of them, in the middle of each step. */
export function sumByTime(points, step) {
	const sums = new Map();

	for (const { at, stations } of points)
		sums.set(at, (sums.get(at) ?? 0) + stations);

	return [ ...sums ].sort(([ a ], [ b ]) => a - b).map(([ at, sum ]) => [ at + step / 2, sum ]);
}

/* With the end of its access point's MAC where there are several. */
export function radioName({ ap, radio }, several) {
	return several ? `…${ap.slice(-5)} radio ${radio}` : `radio ${radio}`;
}

/* What stations there are by network, the fullest first: [{ssid, count, signal, total, bands: [[band, count]]}]. */
export function networks(stations) {
	const found = new Map();

	for (const { ssid, channel, signal, up, down } of stations) {
		const one = found.get(ssid) ?? { ssid, count: 0, total: 0, heard: 0, sum: 0, bands: new Map() };
		const name = band(channel);

		one.count++;
		one.total += up + down;
		one.bands.set(name, (one.bands.get(name) ?? 0) + 1);

		if (Number.isFinite(signal)) {
			one.heard++;
			one.sum += signal;
		}

		found.set(ssid, one);
	}

	return [ ...found.values() ].map(({ ssid, count, total, heard, sum, bands }) =>
		({ ssid, count, total, signal: heard ? sum / heard : null, bands: [ ...bands ].sort() })).sort((a, b) => b.count - a.count || (a.ssid < b.ssid ? -1 : 1));
}

/* Departures over all access points, the most frequent first. */
export function byReason(departures) {
	const sums = new Map();

	for (const row of departures) {
		const key = `${row.reason_code} ${row.reason} ${row.ended_by}`;
		const sum = sums.get(key) ?? { ...row, departures: 0 };

		sum.departures += row.departures;
		sums.set(key, sum);
	}

	return [ ...sums.values() ].sort((a, b) => b.departures - a.departures);
}
