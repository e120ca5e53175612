/* Who is here, as the list of stations and the stream of changes tell it. Pure. */

const MOST_POINTS = 24; // of a station's recent signal

export class Model {
	constructor() {
		this.entries = new Map(); // MAC to entry; an entry lives as long as its stay
		this.version = 0; // rises with each change
		this.membership = 0; // rises when somebody has come or gone
	}

	/* The whole list, which replaces what was known; recent signals stay with their stays. */
	replace(stations) {
		const before = this.entries;

		this.entries = new Map();

		for (const station of stations) {
			const known = before.get(station.mac);

			if (known && known.station.id === station.id) {
				before.delete(station.mac);
				this.#renew(known, station);
				this.entries.set(station.mac, known);
			}
			else {
				this.entries.set(station.mac, this.#open(station));
			}
		}

		for (const entry of before.values())
			this.#close(entry);

		this.version++;
		this.membership++;
	}

	/*
	 * A change of the stream. One that the list has overtaken is told by its stay and its count of reports, and changes
	 * nothing: stays are numbered upwards.
	 */
	apply({ kind, station }) {
		const known = this.entries.get(station.mac);

		if (known && (station.id < known.station.id || (station.id === known.station.id && station.reports < known.station.reports)))
			return false;

		if (kind == 'left') {
			if (!known)
				return false;

			this.entries.delete(station.mac);
			known.station = { ...station, state: 'gone' };
			this.#close(known);
			this.membership++;
		}
		else if (known && known.station.id === station.id) {
			this.#renew(known, station);
		}
		else {
			if (known)
				this.#close(known);

			this.entries.set(station.mac, this.#open(station));
			this.membership++;
		}

		this.version++;

		return true;
	}

	#open(station) {
		const entry = { station, signals: [], gone: false };

		/* Where the signal comes from is known before a second report is. */
		if (Number.isFinite(station.signal_mean))
			entry.signals.push(station.signal_mean);

		if (Number.isFinite(station.signal))
			entry.signals.push(station.signal);

		return entry;
	}

	#renew(entry, station) {
		if (Number.isFinite(station.signal) && station.reports !== entry.station.reports) {
			entry.signals.push(station.signal);

			if (entry.signals.length > MOST_POINTS)
				entry.signals.shift();
		}

		entry.station = station;
	}

	#close(entry) {
		entry.gone = true;
		entry.station = { ...entry.station, state: 'gone' };
	}
}

/* 'rising', 'falling' or 'steady': the last signals against those before. */
export function trend(signals) {
	if (signals.length < 2)
		return 'steady';

	const half = Math.max(1, Math.floor(signals.length / 2));
	const mean = (some) => some.reduce((sum, n) => sum + n, 0) / some.length;
	const change = mean(signals.slice(-half)) - mean(signals.slice(0, -half));

	return change >= 3 ? 'rising' : change <= -3 ? 'falling' : 'steady';
}
