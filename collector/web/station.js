/* The view of one station: what it is doing, and its last days. */
import { get } from './api.js';
import { lineChart } from './chart.js';
import { foreign, h } from './dom.js';
import { band, bytes, clock, counted, day, dbm, duration, isPrivateMac, rate, signalWord, stateWord, when } from './format.js';
import { card, daysOf, failure, rangePicker, reasonWords, renewed, stepOf, table } from './parts.js';
import { days as daysIn, places } from './timeline.js';

const MAC = /^[0-9a-f]{2}(:[0-9a-f]{2}){5}$/;
const MOST = 10000; // rows that the collector gives

export function stationView(app, [ word = '' ], query) {
	const mac = word.toLowerCase();
	const range = daysOf(query);
	const title = h('h1', { dir: 'auto' }, mac);
	const about = h('p', { class: 'about' });
	const facts = h('dl', { class: 'facts' });
	const past = h('div', { class: 'cards', 'aria-busy': 'true' }, h('p', { class: 'empty' }, 'Loading…'));
	const notice = h('p', { class: 'notice', role: 'alert', hidden: true });
	const node = h('article', { class: 'page' },
		h('p', { class: 'back' }, h('a', { href: '#/stations' }, '← Stations')),
		h('header', { class: 'title' }, h('div', null, title, about), rangePicker(`station/${mac}`, range)),
		notice, facts, past);
	const over = new AbortController();
	const view = { node, title: mac, nav: '', changed: showNow, first: () => ({ search: mac, limit: 1 }), close() {
			clearInterval(renewal);
			over.abort();
		},
		told({ phase, words }) {
			notice.hidden = phase != 'lost';
			notice.textContent = phase == 'lost' ? `${words} Trying again.` : '';
		} };
	let known = null, shown = null, tick = 0;

	function named(name) {
		const words = name?.trim() || mac;

		if (title.textContent !== words) {
			title.textContent = words;
			view.title = words;
			document.title = `${words} – wsmd`;
		}
	}

	/* What is so now; each report changes it. */
	function showNow() {
		if (!app.live.known)
			return;

		const entry = app.model.entries.get(mac);
		const s = entry?.station;

		if (shown === (s ?? 'away') && performance.now() - tick < 1000)
			return;

		shown = s ?? 'away';
		tick = performance.now();
		about.replaceChildren(...[ mac, isPrivateMac(mac) ? ' · private MAC' : '', ' · ', h('span', { class: 'badge', 'data-state': s?.state ?? 'gone' }, s ? stateWord(s.state) : 'not here') ].filter(Boolean));

		if (s)
			named(s.name);

		const list = s ? [
			[ 'Network', foreign(s.ssid || '–'), [ band(s.channel), s.channel > 0 ? `ch ${s.channel}` : '', s.version ].filter(Boolean).join(' · ') ],
			[ 'Access point', s.ap || '–', `radio ${s.radio}` ],
			[ 'Signal', h('span', { class: `level ${signalWord(s.signal)}` }, dbm(s.signal)), Number.isFinite(s.signal_mean) ? `${dbm(s.signal_least)} to ${dbm(s.signal_most)}` : '' ],
			[ 'Rate', `↓ ${rate(s.rate_down)}`, `↑ ${rate(s.rate_up)}` ],
			[ 'Bytes of this stay', `↓ ${bytes(s.down)}`, `↑ ${bytes(s.up)}` ],
			[ 'Here for', duration((s.ended ?? app.live.now()) - s.began), `since ${when(s.began, app.live.now())}` ]
		] : [];

		facts.hidden = !list.length;
		facts.replaceChildren(...list.map(([ name, first, second ]) => h('div', null, h('dt', null, name), h('dd', { class: 'first' }, first), h('dd', { class: 'second' }, second))));
	}

	async function load() {
		const to = Date.now() / 1000, from = to - range * 86400;
		const ask = (what, more) => get(`stations/${mac}/${what}`, { since: Math.floor(from), limit: MOST, ...more }, over.signal);

		if (!MAC.test(mac)) {
			past.replaceChildren(h('p', { class: 'empty' }, 'This is not the MAC of a station.'));
			past.setAttribute('aria-busy', 'false');
			return;
		}

		past.setAttribute('aria-busy', 'true');

		try {
			const [ sessions, changes, series, addresses ] = await Promise.all([ ask('sessions'), ask('changes'), ask('series', { step: stepOf(range) }), ask('addresses') ]);

			known = { sessions, changes, series, addresses, from, to };
			named(sessions[0]?.name);
			past.replaceChildren(...history(known));
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

	function history({ sessions, changes, series, addresses, from, to }) {
		if (!sessions.length)
			return [ h('p', { class: 'empty' }, 'It was not here in this time.') ];

		const line = (name) => series.map(point => [ point.at + stepOf(range) / 2, point[name] ]);
		const time = { from, to, step: stepOf(range) };
		const ended = sessions.filter(({ ended: at }) => at !== null);
		const name = sessions.find(stay => stay.name)?.name;

		return [
			timeline(sessions, changes, from, to),
			card('Signal', lineChart({ ...time, label: 'Signal over time', write: dbm, least: -80, most: -40, series: [ { name: 'signal', points: line('signal') } ] })),
			card('Rates', lineChart({ ...time, label: 'Rates over time', write: rateFigure, least: 0, area: true,
				series: [ { name: 'down', points: line('rate_down') }, { name: 'up', points: line('rate_up'), color: 1 } ] })),
			card('Departures', table('Departures', [
				[ 'Left', stay => when(stay.ended, to) ],
				[ 'After', stay => duration(stay.seconds), 'number' ],
				[ 'Reason', stay => h('bdi', { title: stay.reason }, reasonWords(stay.reason)) ],
				[ 'Ended by', stay => stay.ended_by || 'unknown' ],
				[ 'Roams', stay => String(stay.roams), 'number' ],
				[ 'Bytes', stay => bytes(stay.up + stay.down), 'number' ]
			], ended.slice(0, 50), 'It has not left in this time.'), ended.length > 50 ? h('p', { class: 'none' }, `The last 50 of ${ended.length.toLocaleString()}.`) : ''),
			card('Names and addresses', table('Names and addresses', [
				[ 'What', ({ what }) => foreign(what) ],
				[ 'Origin', ({ origin }) => origin ],
				[ 'First', ({ first }) => first === null ? '' : when(first, to) ],
				[ 'Last', ({ last }) => last === null ? '' : when(last, to) ]
			], [
				...name ? [ { what: name, origin: 'list of names', first: null, last: null } ] : [],
				...addresses.map(({ ip, first, last }) => ({ what: ip, origin: 'reported', first, last }))
			], 'No address was reported.'))
		];
	}

	load();
	showNow();

	const renewal = renewed(past, load);

	return view;
}

/* A scale of rates needs no unit at each figure to be short. */
function rateFigure(value) {
	return value > 0 ? rate(value) : `0\u202fMbit/s`;
}

function timeline(sessions, changes, from, to) {
	const found = places(sessions, changes, to);
	const aps = [ ...new Set(found.map(({ ap }) => ap)) ].sort();
	const rows = daysIn(found, from, to).map(({ begin, end, pieces, stays, roams, seconds }) => {
		const share = (at) => `${(at - begin) / (end - begin) * 100}%`;
		const words = pieces.length ? `${counted(stays, 'stay')}${roams ? `, ${counted(roams, 'roam')}` : ''}` : 'away';

		return h('li', null,
			h('span', { class: 'day' }, day(begin)),
			h('div', { class: 'track', role: 'img', 'aria-label': `${day(begin)}: ${pieces.length ? `${words}, here for ${duration(seconds)}` : 'away'}` },
				...pieces.map((piece) => {
					const bar = h('span', { class: `piece c${aps.indexOf(piece.ap) % 8}`,
						title: `${clock(piece.from)} to ${piece.ongoing && piece.to >= to - 1 ? 'now' : clock(piece.to)}\n${piece.ap || 'unknown access point'}, radio ${piece.radio}` });

					bar.style.left = share(piece.from);
					bar.style.width = `${Math.max(0.15, (piece.to - piece.from) / (end - begin) * 100)}%`;

					return bar;
				})),
			h('span', { class: 'sum' }, pieces.length ? duration(seconds) : '', h('small', null, words)));
	});

	return card('Days', h('p', { class: 'legend' }, ...aps.map((ap, i) => h('span', { class: `key c${i % 8}` }, h('bdi', null, ap || 'unknown')))),
		h('ol', { class: 'days' }, ...rows),
		h('div', { class: 'hours', 'aria-hidden': 'true' }, ...[ 0, 6, 12, 18, 24 ].map((hour) => {
			const mark = h('span', null, `${hour}:00`);

			mark.style.left = `${hour / 24 * 100}%`;

			return mark;
		})));
}
