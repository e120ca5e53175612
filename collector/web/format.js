/* Figures and times as people read them. Pure: the same in a browser and in node. */

const NONE = '–';
const NARROW = '\u202f'; // between a number and its unit

export function bytes(count) {
	const units = [ 'B', 'kB', 'MB', 'GB', 'TB', 'PB' ];
	let value = count, unit = 0;

	if (!Number.isFinite(count))
		return NONE;

	while (value >= 999.5 && unit < units.length - 1) {
		value /= 1000;
		unit++;
	}

	return `${unit && value < 9.95 ? value.toFixed(1) : Math.round(value)}${NARROW}${units[unit]}`;
}

/* Mbit/s; the driver says 0 when it has not measured. */
export function rate(mbits) {
	return mbits > 0 ? `${Math.round(mbits)}${NARROW}Mbit/s` : NONE;
}

export function dbm(value) {
	return Number.isFinite(value) ? `${Math.round(value) < 0 ? '−' : ''}${Math.abs(Math.round(value))}${NARROW}dBm` : NONE;
}

export function percent(value) {
	return Number.isFinite(value) ? `${Math.round(value)}${NARROW}%` : NONE;
}

/* The two largest units: "3 d 4 h", "5 min", "12 s". */
export function duration(seconds) {
	if (!Number.isFinite(seconds))
		return NONE;

	const left = Math.max(0, Math.floor(seconds));
	const parts = [ [ Math.floor(left / 86400), 'd' ], [ Math.floor(left / 3600) % 24, 'h' ], [ Math.floor(left / 60) % 60, 'min' ], [ left % 60, 's' ] ];
	const first = parts.findIndex(([ n ]) => n > 0);

	if (first < 0)
		return `0${NARROW}s`;

	/* Seconds matter in the first ten minutes only. */
	return parts.slice(first, first + 2)
		.filter(([ n, unit ], i) => i == 0 || (n > 0 && (unit != 's' || left < 600)))
		.map(([ n, unit ]) => `${n}${NARROW}${unit}`).join(' ');
}

/* Times are seconds since 1970; the zone is the viewer's. */
const CLOCK = new Intl.DateTimeFormat(undefined, { hour: '2-digit', minute: '2-digit' });
const DAY = new Intl.DateTimeFormat(undefined, { weekday: 'short', day: 'numeric', month: 'short' });
const SHORT_DAY = new Intl.DateTimeFormat(undefined, { weekday: 'short', day: 'numeric' });
const FULL = new Intl.DateTimeFormat(undefined, { dateStyle: 'medium', timeStyle: 'medium' });

export function clock(at) {
	return Number.isFinite(at) ? CLOCK.format(at * 1000) : NONE;
}

export function day(at) {
	return Number.isFinite(at) ? DAY.format(at * 1000) : NONE;
}

/* Beside others of its month. */
export function shortDay(at) {
	return Number.isFinite(at) ? SHORT_DAY.format(at * 1000) : NONE;
}

export function fullTime(at) {
	return Number.isFinite(at) ? FULL.format(at * 1000) : NONE;
}

/* The clock alone for today, else the day with it. */
export function when(at, now) {
	return day(at) == day(now) ? clock(at) : `${day(at)}, ${clock(at)}`;
}

/*
 * A channel's number names its band, except that most numbers of 6 GHz are also those of another band: these count as the
 * other one, since a report does not say more.
 */
export function band(channel) {
	if (channel >= 1 && channel <= 14)
		return '2.4 GHz';

	if (channel >= 32 && channel <= 177)
		return '5 GHz';

	return channel > 177 ? '6 GHz' : '';
}

/* 0 to 100 for a bar: −90 dBm is hardly there, −40 could not be better. */
export function signalShare(dbms) {
	return Number.isFinite(dbms) ? Math.round(Math.min(100, Math.max(4, (dbms + 90) * 2))) : 0;
}

export function signalWord(dbms) {
	if (!Number.isFinite(dbms))
		return 'none';

	return dbms >= -60 ? 'good' : dbms >= -72 ? 'fair' : 'weak';
}

const STATES = { here: 'here', leaving: 'leaving', moving: 'roaming', gone: 'left' };

export function stateWord(state) {
	return STATES[state] ?? state;
}

/* A MAC with the second bit set was made up by its device, often a new one for each network. */
export function isPrivateMac(mac) {
	return '2367abef'.includes(mac[1]);
}

export function counted(n, one, many = `${one}s`) {
	return `${n.toLocaleString()} ${n == 1 ? one : many}`;
}
