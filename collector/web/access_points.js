/* The view of access points and networks: what they have now, and their last days. */
import { get, Refusal } from './api.js';
import { lineChart } from './chart.js';
import { foreign, h, setText } from './dom.js';
import { band, bytes, counted, dbm, duration, percent } from './format.js';
import { byReason, networks, radioName, sumByTime } from './sums.js';
import { card, daysOf, failure, rangePicker, reasonWords, renewed, stationLink, stepOf, table } from './parts.js';

const RENEWAL = 10000; // ms
const MOST_POINTS = 10000; // that the collector gives
const MOST_LINES = 8; // that can be told apart
const BRIEF = 300; // seconds; a stay that is no longer has failed

export function accessPointsView(app, words, query) {
	const range = daysOf(query), chosen = query.get('ap') ?? '';
	const now = h('div', { class: 'aps' });
	const nets = h('div');
	const past = h('div', { class: 'cards', 'aria-busy': 'true' }, h('p', { class: 'empty' }, 'Loading…'));
	const notice = h('p', { class: 'notice', role: 'alert', hidden: true });
	const more = chosen ? { ap: chosen } : {};
	const node = h('article', { class: 'page' },
		h('header', { class: 'title' }, h('div', { class: 'pair' }, h('h1', null, chosen ? foreign(chosen) : 'Access points'),
			chosen ? h('a', { href: `#/access-points?days=${range}` }, 'All access points') : ''), rangePicker('access-points', range, more)),
		notice, now, nets, past);
	const over = new AbortController();
	let known = false;

	async function renew() {
		try {
			const all = await get('access-points', {}, over.signal);
			const shown = all.filter(({ ap }) => !chosen || ap == chosen).sort((a, b) => b.stations - a.stations || (a.ap < b.ap ? -1 : 1));

			now.replaceChildren(...shown.length ? shown.map(one => accessPoint(one, range)) : [ h('p', { class: 'none' }, 'No access point has reported yet.') ]);
			notice.hidden = true;
		}
		catch (error) {
			/* That nobody answers is said by the connection already. */
			if (!over.signal.aborted && error instanceof Refusal) {
				notice.hidden = false;
				setText(notice, `The collector answers: ${error.message}.`);
			}
		}
	}

	async function load() {
		const to = Date.now() / 1000, from = to - range * 86400;
		const ask = (what, limits) => get(what, { since: Math.floor(from), ...more, ...limits }, over.signal);

		past.setAttribute('aria-busy', 'true');

		try {
			/* Of many radios fewer points are asked for, so that all of the range is told. */
			const few = await ask('radios', { step: range * 86400, limit: MOST_POINTS });
			const count = new Set(few.map(({ ap, radio }) => `${ap} ${radio}`)).size;
			const step = Math.max(stepOf(range), Math.ceil(range * 86400 * count / (MOST_POINTS - 2 * count || 1) / 300) * 300);
			const [ radios, departures, flapping, top ] = await Promise.all([
				ask('radios', { step, limit: MOST_POINTS }), ask('departures', { limit: 1000 }), ask('flapping', { step: BRIEF, limit: 20 }), ask('top', { limit: 20 }) ]);

			known = true;
			past.replaceChildren(...history({ radios, departures, flapping, top, from, to, step }));
		}
		catch (error) {
			if (over.signal.aborted)
				return;

			/* What is shown stays, when it could not be renewed. */
			if (!known)
				past.replaceChildren(failure(error, load));
		}

		past.setAttribute('aria-busy', 'false');
	}

	renew();
	load();

	const tick = setInterval(renew, RENEWAL), renewal = renewed(past, load);
	let drawn = -Infinity;

	return {
		node, title: chosen || 'Access points', nav: 'access-points',
		changed() {
			if (!app.live.known || performance.now() - drawn < 1000)
				return;

			drawn = performance.now();
			nets.replaceChildren(networkCard([ ...app.model.entries.values() ].map(({ station }) => station).filter(({ ap }) => !chosen || ap == chosen)));
		},
		told({ phase, words: said }) {
			notice.hidden = phase != 'lost';
			setText(notice, phase == 'lost' ? `${said} Trying again.` : '');

			if (phase == 'live')
				renew();
		},
		close() {
			clearInterval(tick);
			clearInterval(renewal);
			over.abort();
		}
	};
}

function accessPoint({ ap, stations, radios, joined, roamed, left }, range) {
	const since = [ [ joined, 'joined' ], [ roamed, 'roamed' ], [ left, 'left' ] ].filter(([ n ]) => n > 0);

	return h('section', { class: 'card ap' },
		h('h2', null, h('a', { href: `#/access-points?${new URLSearchParams({ ap, days: range })}` }, foreign(ap || 'Unknown access point'))),
		h('p', { class: 'big' }, stations.toLocaleString(), h('small', null, stations == 1 ? ' station' : ' stations')),
		h('ul', null, ...radios.map(({ radio, channel, stations: n, noise, utilization }) => h('li', null,
			h('span', null, [ band(channel), channel > 0 ? `ch ${channel}` : `radio ${radio}` ].filter(Boolean).join(' · ')),
			h('span', null, counted(n, 'station')),
			h('span', { class: 'soft' }, [ utilization > 0 ? `${percent(utilization)} used` : '', Number.isFinite(noise) ? `noise ${dbm(noise)}` : '' ].filter(Boolean).join(' · ') || 'neither utilization nor noise reported'))),
		since.length ? h('li', { class: 'soft' }, `Since the start: ${since.map(([ n, what ]) => `${n.toLocaleString()} ${what}`).join(', ')}`) : ''));
}

function networkCard(stations) {
	return card('Networks now', table('Networks now', [
		[ 'Network', ({ ssid }) => h('a', { href: `#/stations?${new URLSearchParams({ ssid })}` }, foreign(ssid || 'without a name')) ],
		[ 'Stations', ({ count }) => count.toLocaleString(), 'number' ],
		[ 'Bands', ({ bands }) => bands.map(([ name, n ]) => `${name || 'unknown'}: ${n.toLocaleString()}`).join(', ') ],
		[ 'Mean signal', ({ signal }) => dbm(signal), 'number' ],
		[ 'Bytes', ({ total }) => bytes(total), 'number' ]
	], networks(stations), 'No station is here.'));
}

function history({ radios, departures, flapping, top, from, to, step }) {
	const aps = [ ...new Set(radios.map(({ ap }) => ap)) ].sort();
	const time = { from, to, step };
	const lines = aps.map(ap => ({ name: ap || 'unknown', points: sumByTime(radios.filter(point => point.ap == ap), step) }))
		.sort((a, b) => b.points.reduce((sum, [ , n ]) => sum + n, 0) - a.points.reduce((sum, [ , n ]) => sum + n, 0));
	const each = new Map();

	for (const point of radios) {
		const name = radioName(point, aps.length > 1);

		each.set(name, [ ...each.get(name) ?? [], point ]);
	}

	const air = (value, missing) => [ ...each ].slice(0, MOST_LINES).map(([ name, points ]) => ({ name,
		points: points.filter(point => point[value] !== missing).map(point => [ point.at + step / 2, point[value] ]) })).filter(({ points }) => points.length);
	const reasons = byReason(departures);
	const left = (n) => n > MOST_LINES ? h('p', { class: 'none' }, `The first ${MOST_LINES} of ${n}.`) : '';
	const full = (element) => { element.classList.add('full'); return element; };

	return [
		full(card('Stations over time', lineChart({ ...time, label: 'Stations over time', write: n => String(Math.round(n * 10) / 10), least: 0, most: 4, area: lines.length == 1, series: lines.slice(0, MOST_LINES) }), left(lines.length))),
		card('Utilization', lineChart({ ...time, label: 'Utilization', write: percent, least: 0, most: 20, series: air('utilization', 0) }), left(each.size)),
		card('Noise', lineChart({ ...time, label: 'Noise', write: dbm, least: -98, most: -86, series: air('noise', null) }), left(each.size)),
		card('Reasons of departure', table('Reasons of departure', [
			[ 'Reason', ({ reason }) => h('bdi', { title: reason }, reasonWords(reason)) ],
			[ 'Ended by', row => row.ended_by || 'unknown' ],
			[ 'Departures', row => share(row.departures / reasons[0].departures, row.departures.toLocaleString()), 'number' ]
		], reasons, 'Nobody has left in this time.')),
		card('Flapping stations', table('Flapping stations', [
			[ 'Station', stationLink ],
			[ 'Stays', row => row.sessions.toLocaleString(), 'number' ],
			[ 'Below 5 min', row => row.brief.toLocaleString(), 'number' ],
			[ 'Returns', row => row.returns.toLocaleString(), 'number' ]
		], flapping, 'Nobody comes and goes in haste.')),
		full(card('Top talkers', table('Top talkers', [
			[ 'Station', stationLink ],
			[ 'Bytes', row => share((row.up + row.down) / (top[0].up + top[0].down), bytes(row.up + row.down)), 'number' ],
			[ 'Down', row => bytes(row.down), 'number' ],
			[ 'Up', row => bytes(row.up), 'number' ],
			[ 'Time here', row => duration(row.seconds), 'number' ],
			[ 'Stays', row => row.sessions.toLocaleString(), 'number' ],
			[ 'Roams', row => row.roams.toLocaleString(), 'number' ]
		], top, 'No station was here in this time.')))
	];
}

/* A figure behind a bar of its share. */
function share(part, figure) {
	const bar = h('span');

	bar.style.width = `${Number.isFinite(part) ? part * 100 : 0}%`;

	return [ h('span', { class: 'share', 'aria-hidden': 'true' }, bar), h('span', null, figure) ];
}
