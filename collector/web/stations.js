/* The view of all stations: a table of which only the rows that are seen are in the document. */
import { h, foreign, setText } from './dom.js';
import { counted } from './format.js';
import { Rows } from './rows.js';
import { COLUMNS, choices, firstDirection, question, select } from './select.js';

const SORT_INTERVAL = 1000; // ms; rows that jump more often cannot be read
const STILL = 2500; // ms; nor do they jump under a pointer that moves
const FIRST = 100; // rows that come before all others: more than the highest window has

const HEADINGS = { station: 'Station', network: 'Network', place: 'Access point', signal: 'Signal', rate: 'Rate', bytes: 'Bytes', time: 'Here for' };
const STATES = [ [ 'here', 'here' ], [ 'leaving', 'leaving' ], [ 'moving', 'roaming' ] ];

/* When the first rows were in the document, for who measures. */
const first = { marked: false };

export function stationsView(app, words, query) {
	const filter = Object.fromEntries([ 'search', 'ssid', 'band', 'ap', 'state' ].map(name => [ name, query.get(name) ?? '' ]));
	const order = { column: COLUMNS.includes(query.get('sort')) ? query.get('sort') : 'station' };

	order.direction = query.get('direction') == 'descending' ? 'descending' : query.get('direction') == 'ascending' ? 'ascending' : firstDirection(order.column);

	let shown = [], membership = -1, sortedAt = 0, movedAt = 0, timer = 0, offered = '', partly = false;

	const search = h('input', { type: 'search', id: 'search', placeholder: 'Name, MAC, address…', autocomplete: 'off', spellcheck: 'false', value: filter.search });
	const selects = {
		ssid: picker('Network', 'All networks'),
		band: picker('Band', 'All bands'),
		ap: picker('Access point', 'All access points'),
		state: picker('State', 'All states')
	};
	const sort = h('select', { 'aria-label': 'Order', class: 'narrow' },
		COLUMNS.flatMap(column => [ firstDirection(column), firstDirection(column) == 'ascending' ? 'descending' : 'ascending' ].map(direction =>
			h('option', { value: `${column} ${direction}` }, `${HEADINGS[column]} ${direction == 'ascending' ? '↑' : '↓'}`))));
	const more = h('button', { type: 'button', class: 'narrow', 'aria-expanded': 'false', onclick: () => {
		more.setAttribute('aria-expanded', String(node.classList.toggle('choosing')));
	} }, 'Filter');
	const count = h('p', { class: 'count', role: 'status' });
	const notice = h('p', { class: 'notice', role: 'alert', hidden: true });
	const empty = h('p', { class: 'empty' });
	const buttons = COLUMNS.map(column => h('button', { type: 'button', onclick: () => sortBy(column) }, HEADINGS[column]));
	const heads = COLUMNS.flatMap((column, i) => {
		const head = h('div', { role: 'columnheader', class: column }, buttons[i]);

		return column == 'signal' ? [ head, h('div', { role: 'columnheader', class: 'trend' }, 'Trend') ] : [ head ];
	});
	const rows = new Rows(heads, () => app.live.now());
	const node = h('section', { class: 'stations', 'aria-label': 'Stations' },
		h('h1', { class: 'unseen' }, 'Stations'),
		h('div', { class: 'filters', role: 'search' },
			h('label', { class: 'unseen', for: 'search' }, 'Search'), search, more, ...Object.values(selects), sort, count),
		notice, rows.node, empty);

	function picker(label, all) {
		return h('select', { 'aria-label': label }, h('option', { value: '' }, all));
	}

	/* What can be chosen follows what is there; the choice itself stays, also when nobody fits it any more. */
	function offer() {
		const now = { ...choices(app.model.entries.values()), state: STATES.map(([ value ]) => value) };
		const key = JSON.stringify(now);

		if (key == offered)
			return;

		offered = key;

		for (const [ name, element ] of Object.entries(selects)) {
			const values = [ ...new Set([ ...now[name], filter[name] ].filter(Boolean)) ];

			element.replaceChildren(element.options[0],
				...values.map(value => h('option', { value, dir: 'auto' }, STATES.find(([ one ]) => one == value)?.[1] ?? value)));
			element.value = filter[name];
			element.hidden = name != 'state' && values.length < 2 && !filter[name];
		}
	}

	function remember() {
		const chosen = Object.entries({ ...filter, sort: order.column == 'station' ? '' : order.column,
			direction: order.direction == firstDirection(order.column) ? '' : order.direction }).filter(([ , value ]) => value);

		history.replaceState(null, '', `#/stations${chosen.length ? `?${new URLSearchParams(chosen)}` : ''}`);
	}

	function sortBy(column, direction) {
		if (!direction)
			direction = order.column == column ? (order.direction == 'ascending' ? 'descending' : 'ascending') : firstDirection(column);

		Object.assign(order, { column, direction });
		remember();
		arrange();
	}

	/* Puts the rows in order now. */
	function arrange() {
		clearTimeout(timer);
		timer = 0;
		sortedAt = performance.now();

		if (membership != app.model.membership)
			offer();

		membership = app.model.membership;
		partly = app.live.of !== null;
		shown = select(app.model.entries.values(), filter, order);

		COLUMNS.forEach((column, i) => {
			buttons[i].parentNode.setAttribute('aria-sort', column == order.column ? order.direction : 'none');
			buttons[i].dataset.direction = column == order.column ? order.direction : '';
		});
		sort.value = `${order.column} ${order.direction}`;

		const all = app.model.entries.size;

		setText(count, partly ? `the first ${shown.length.toLocaleString()} of ${counted(app.live.of, 'station')}` :
			shown.length == all ? counted(all, 'station') : `${shown.length.toLocaleString()} of ${counted(all, 'station')}`);
		rows.show(shown);
		say();

		if (!first.marked && shown.length) {
			first.marked = true;
			performance.mark('first-table');
		}
	}

	function say() {
		const words = !app.live.known ? (app.state.phase == 'lost' ? '' : 'Loading…') :
			shown.length ? '' : partly ? 'Loading…' : app.model.entries.size ? 'No station fits this choice.' : 'No station is here.';

		empty.hidden = !words;
		rows.node.hidden = !shown.length;
		setText(empty, words);
		node.setAttribute('aria-busy', String(!app.live.known || partly));
	}

	search.addEventListener('input', () => {
		filter.search = search.value.trim();
		remember();
		arrange();
	});
	sort.addEventListener('change', () => sortBy(...sort.value.split(' ')));

	for (const [ name, element ] of Object.entries(selects))
		element.addEventListener('change', () => {
			filter[name] = element.value;
			remember();
			arrange();
		});

	rows.node.addEventListener('pointermove', () => { movedAt = performance.now(); });

	const find = (event) => {
		if (event.key != '/' || event.ctrlKey || event.metaKey || event.altKey || event.target.closest('input, select'))
			return;

		event.preventDefault();
		search.focus();
	};
	const tick = setInterval(() => rows.refresh(), 1000);

	document.addEventListener('keydown', find);

	return {
		node, title: 'Stations', nav: 'stations',
		first: () => question(filter, order, FIRST),
		changed() {
			if (!app.live.known)
				return;

			const now = performance.now();
			const wait = Math.max(sortedAt + SORT_INTERVAL, movedAt + STILL) - now;

			/* The first rows, the first list and a short one's first station are not kept waiting. */
			if (wait <= 0 || membership < 0 || partly || !shown.length)
				arrange();
			else
				timer ||= setTimeout(() => { timer = 0; this.changed(); }, wait);

			rows.refresh();
		},
		told({ phase, words }) {
			notice.hidden = phase != 'lost';
			setText(notice, phase == 'lost' ? `${words} ${app.live.known ? 'What is shown was true before; ' : ''}trying again.`.replace('. trying', '. Trying') : '');
			node.classList.toggle('stale', phase == 'lost');
			say();
		},
		close() {
			clearInterval(tick);
			clearTimeout(timer);
			document.removeEventListener('keydown', find);
			rows.close();
		}
	};
}
