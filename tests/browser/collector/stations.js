/* Stations as docs/collector.md describes them; the n-th is the same in each run. */
'use strict';

const NAMES = [ 'Kitchen speaker', "Anna's phone", '', 'Printer', 'Meeting room display', 'Tablet', '', 'Badge reader', 'Laptop of the lobby' ];
const SSIDS = [ 'Lobby', 'Conference rooms', 'Guests' ];

function pad(n, digits) {
	return n.toString(16).padStart(digits, '0');
}

function mac(n) {
	return '3c:00:' + pad(n, 8).replace(/(..)(..)(..)(..)/, '$1:$2:$3:$4');
}

function ap(n) {
	return `02:54:4b:00:00:${pad(n, 2)}`;
}

function makeStation(i, now) {
	const signal = -40 - i * 7 % 47;

	return {
		id: i + 1, mac: mac(i), name: NAMES[i % NAMES.length] && (i < NAMES.length ? NAMES[i] : `${NAMES[i % NAMES.length]} ${Math.floor(i / NAMES.length)}`),
		state: i % 41 == 40 ? 'leaving' : i % 53 == 52 ? 'moving' : 'here',
		ap: ap(1 + i % 3), radio: i % 2, channel: [ 6, 36 ][i % 2], ssid: SSIDS[i % 3], ifname: `ath${i % 2}`,
		ip: `10.0.${Math.floor(i / 250)}.${i % 250 + 2}`,
		began: now - 40 - i * 631 % 90000, seen: now - i % 60, ended: null, seconds: 0,
		roams: i % 5 == 4 ? i % 4 : 0, returns: 0, reports: 3,
		signal, signal_least: signal - 9, signal_mean: signal + i % 13 - 6, signal_most: signal + 8,
		up: 28350 * (i * i % 9973 + 1), down: 119500 * (i * i % 9973 + 1), raw_up: 0, raw_down: 0,
		rate_up: i * 53 % 300, rate_down: i * 97 % 800, max_rate: 866, noise: -95, utilization: 12 + i % 40,
		version: [ '11n', '11ac', '11ax' ][i % 3], repeater: false, reason: '', reason_code: 0, ended_by: ''
	};
}

function makeStations(n, now = Date.now() / 1000) {
	return Array.from({ length: n }, (_, i) => makeStation(i, now));
}

/* What the collector answers to arguments, as far as tests ask: the order of signals, a network, a limit. */
function chosen(stations, { sort, direction, ssid, limit }) {
	const fit = stations.filter(station => !ssid || station.ssid == ssid);

	if (sort == 'signal')
		fit.sort((a, b) => (a.signal - b.signal) * (direction == 'descending' ? -1 : 1) || (a.mac < b.mac ? -1 : 1));

	return fit.slice(0, limit ? +limit : undefined);
}

/* Texts that a stranger may send; the collector escapes control characters and what is not UTF-8. */
const HOSTILE = [
	'<img src=x onerror="window.hurt=1">', '"><script>window.hurt=1</script>', '\'";--', 'javascript:window.hurt=1',
	'\u202egnihtemos\u202c', 'שלום עולם', '😀'.repeat(32), '\\xff\\xfe', 'a'.repeat(128), '{{7*7}}${7*7}', '&lt;b&gt;&amp;', ' '
];

module.exports = { chosen, makeStation, makeStations, mac, ap, HOSTILE, SSIDS };
