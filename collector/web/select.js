/* Which stations are shown, and in which order. Pure. */
import { band } from './format.js';

const number = (of) => (a, b) => (of(a) ?? -Infinity) - (of(b) ?? -Infinity);
const ORDER = new Intl.Collator(undefined, { numeric: true, sensitivity: 'base' });
const text = (of) => (a, b) => ORDER.compare(of(a), of(b));

/* By column; each compares two stations. */
const COMPARISONS = {
	/* Those with a name first. */
	station: (a, b) => (a.name ? 0 : 1) - (b.name ? 0 : 1) || ORDER.compare(a.name || a.mac, b.name || b.mac),
	network: text(s => s.ssid),
	place: (a, b) => ORDER.compare(a.ap, b.ap) || a.radio - b.radio,
	signal: number(s => s.signal),
	rate: number(s => s.rate_down + s.rate_up),
	bytes: number(s => s.down + s.up),
	time: (a, b) => b.began - a.began
};

export const COLUMNS = Object.keys(COMPARISONS);

/* Where a first click leads: the most of it first, except for names. */
export function firstDirection(column) {
	return [ 'station', 'network', 'place' ].includes(column) ? 'ascending' : 'descending';
}

export function matches(station, { search = '', ssid = '', band: wanted = '', ap = '', state = '' }) {
	if ((ssid && station.ssid !== ssid) || (ap && station.ap !== ap) || (state && station.state !== state) ||
		(wanted && band(station.channel) !== wanted))
		return false;

	return search.toLowerCase().split(/\s+/).every(word =>
		!word || [ station.name, station.mac, station.ip, station.ssid, station.ap, station.version ].some(field => field?.toLowerCase().includes(word)));
}

/* The entries that are shown, in order; equal ones in order of their MACs. */
export function select(entries, filter, { column = 'station', direction = 'ascending' } = {}) {
	const compare = COMPARISONS[column] ?? COMPARISONS.station;
	const sign = direction == 'descending' ? -1 : 1;
	const chosen = [];

	for (const entry of entries)
		if (matches(entry.station, filter))
			chosen.push(entry);

	return chosen.sort((a, b) => sign * compare(a.station, b.station) || (a.station.mac < b.station.mac ? -1 : 1));
}

/* The same question for the collector, which gives the first `limit` of them. Its order is close to ours, not in all alphabets. */
export function question({ search, ssid, band: wanted, ap, state }, { column, direction }, limit) {
	const asked = { search, ssid, ap, state, band: wanted.split(' ')[0], sort: { station: 'name', network: 'ssid', place: 'ap' }[column] ?? column, direction, limit };

	return Object.fromEntries(Object.entries(asked).filter(([ , value ]) => value));
}

/* What can be chosen from: the values that occur, in order. */
export function choices(entries) {
	const found = { ssid: new Set(), ap: new Set(), band: new Set() };

	for (const { station } of entries) {
		found.ssid.add(station.ssid);
		found.ap.add(station.ap);
		found.band.add(band(station.channel));
	}

	return Object.fromEntries(Object.entries(found).map(([ name, set ]) => [ name, [ ...set ].filter(Boolean).sort(ORDER.compare) ]));
}
