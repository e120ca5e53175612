/* The rows of the table of stations. Rows out of sight are not in the document, except the one that has the focus. */
import { h, svg, setText } from './dom.js';
import { band, bytes, dbm, duration, fullTime, isPrivateMac, rate, signalShare, signalWord, stateWord } from './format.js';
import { trend } from './model.js';
import { rowsInView } from './window.js';

const ORDERING = 300; // ms
const SPARK = { width: 72, height: 20 };

class Row {
	constructor() {
		const cell = (name, ...children) => h('div', { role: 'cell', class: name }, ...children);

		this.link = h('a', { class: 'name', dir: 'auto' });
		this.badge = h('span', { class: 'badge', hidden: true });
		this.about = h('span', { class: 'second' });
		this.ssid = h('bdi', { class: 'first' });
		this.air = h('span', { class: 'second' });
		this.ap = h('span', { class: 'first' });
		this.radio = h('span', { class: 'second' });
		this.fill = h('span', { class: 'fill' });
		this.signal = h('span', { class: 'figure' });
		this.line = svg('polyline', { fill: 'none' });
		this.trend = h('span', { class: 'unseen' });
		this.down = h('span', { class: 'first' });
		this.up = h('span', { class: 'second' });
		this.received = h('span', { class: 'first' });
		this.sent = h('span', { class: 'second' });
		this.time = h('span', { class: 'first' });
		this.since = h('span', { class: 'second' });
		this.node = h('div', { role: 'row', class: 'row' },
			cell('station', h('span', { class: 'first' }, this.link, this.badge), this.about),
			cell('network', this.ssid, this.air),
			cell('place', this.ap, this.radio),
			cell('signal', h('span', { class: 'bar', 'aria-hidden': 'true' }, this.fill), this.signal),
			cell('trend', svg('svg', { viewBox: `0 0 ${SPARK.width} ${SPARK.height}`, width: SPARK.width, height: SPARK.height, 'aria-hidden': 'true' }, this.line), this.trend),
			cell('rate', this.down, this.up),
			cell('bytes', this.received, this.sent),
			cell('time', this.time, this.since));
	}

	fillIn({ station: s, signals }, now) {
		const name = s.name.trim() || s.mac;

		setText(this.link, name);
		this.link.title = name;
		this.link.setAttribute('href', `#/station/${s.mac}`);
		setText(this.about, [ name != s.mac ? s.mac : isPrivateMac(s.mac) ? 'private MAC' : '', s.ip ].filter(Boolean).join(' · '));
		this.badge.hidden = s.state == 'here';
		setText(this.badge, s.state == 'here' ? '' : stateWord(s.state));
		this.node.dataset.state = s.state;
		setText(this.ssid, s.ssid || '–');
		this.ssid.title = s.ssid;
		setText(this.air, [ band(s.channel), s.channel > 0 ? `ch ${s.channel}` : '', s.version ].filter(Boolean).join(' · '));
		this.air.title = this.air.textContent;
		setText(this.ap, s.ap || '–');
		setText(this.radio, `radio ${s.radio}${s.roams ? ` · ${s.roams} roam${s.roams == 1 ? '' : 's'}` : ''}`);
		this.fill.style.width = `${signalShare(s.signal)}%`;
		this.fill.dataset.level = signalWord(s.signal);
		setText(this.signal, dbm(s.signal));
		this.draw(signals);
		setText(this.down, `↓ ${rate(s.rate_down)}`);
		setText(this.up, `↑ ${rate(s.rate_up)}`);
		setText(this.received, `↓ ${bytes(s.down)}`);
		setText(this.sent, `↑ ${bytes(s.up)}`);
		setText(this.time, duration((s.ended ?? now) - s.began));

		if (this.began !== s.began) {
			this.began = s.began;
			setText(this.since, since(s.began));
			this.since.title = fullTime(s.began);
		}
	}

	draw(signals) {
		const step = SPARK.width / Math.max(1, signals.length - 1);
		const points = signals.length < 2 ? '' : signals.map((dbms, i) =>
			`${(i * step).toFixed(1)},${(SPARK.height - 2 - (Math.min(-30, Math.max(-92, dbms)) + 92) / 62 * (SPARK.height - 4)).toFixed(1)}`).join(' ');

		if (this.points === points)
			return;

		this.points = points;
		this.line.setAttribute('points', points);
		this.line.setAttribute('class', trend(signals));
		setText(this.trend, points ? trend(signals) : '');
	}
}

const CLOCK = new Intl.DateTimeFormat(undefined, { hour: '2-digit', minute: '2-digit' });
const DAY = new Intl.DateTimeFormat(undefined, { day: 'numeric', month: 'short' });

function since(at) {
	const then = new Date(at * 1000);

	return `since ${(Date.now() - then < 20 * 3600 * 1000 ? CLOCK : DAY).format(then)}`;
}

export class Rows {
	#rows = new Map(); // entry to its row
	#entries = [];
	#height = 0;
	#ordering = 0;

	constructor(heads, now) {
		this.now = now;
		this.body = h('div', { role: 'rowgroup', class: 'body' });
		this.table = h('div', { role: 'table', 'aria-label': 'Stations' },
			h('div', { role: 'rowgroup', class: 'head' }, h('div', { role: 'row', class: 'row', 'aria-rowindex': 1 }, ...heads)), this.body);
		this.node = h('div', { class: 'scroller', tabindex: 0, role: 'region', 'aria-label': 'List of stations' }, this.table);
		this.node.addEventListener('scroll', () => this.refresh(false), { passive: true });
		this.node.addEventListener('keydown', (event) => this.#key(event));
		this.resized = new ResizeObserver(() => {
			this.#height = 0;

			for (const row of this.#rows.values())
				row.index = -1; // another height is another place

			this.refresh();
		});
		this.resized.observe(this.node);
	}

	show(entries) {
		this.#entries = entries;
		this.table.setAttribute('aria-rowcount', entries.length + 1);
		this.refresh();
	}

	/* Renews what is seen; without `all` only the rows that have come into sight. */
	refresh(all = true) {
		if (this.node.hidden || !this.node.isConnected)
			return;

		this.#height ||= parseFloat(getComputedStyle(this.node).getPropertyValue('--row')) || 52;

		const count = this.#entries.length;
		const [ first, last ] = rowsInView(this.node.scrollTop, this.node.clientHeight, this.#height, count);
		const now = this.now();
		const wanted = new Map();
		const focused = document.activeElement?.closest?.('.body > .row');

		for (let i = first; i < last; i++)
			wanted.set(this.#entries[i], i);

		for (const [ entry, row ] of this.#rows)
			if (row.node === focused && !wanted.has(entry) && this.#entries.includes(entry))
				wanted.set(entry, this.#entries.indexOf(entry));

		/* A row out of sight serves for one that has come into it. */
		const free = [];

		for (const [ entry, row ] of this.#rows)
			if (!wanted.has(entry)) {
				this.#rows.delete(entry);
				free.push(row);
			}

		this.body.style.height = `${count * this.#height}px`;

		for (const [ entry, index ] of wanted) {
			let row = this.#rows.get(entry);

			const fresh = !row;

			if (fresh) {
				row = free.pop() ?? new Row();

				if (!row.node.parentNode)
					this.body.append(row.node);

				this.#rows.set(entry, row);
			}

			if (row.index !== index) {
				row.index = index;
				row.node.style.transform = `translateY(${index * this.#height}px)`;
				row.node.setAttribute('aria-rowindex', index + 2);
			}

			if (all || fresh)
				row.fillIn(entry, now);
		}

		for (const row of free)
			row.node.remove();

		this.#ordering ||= setTimeout(() => {
			this.#ordering = 0;
			this.#inOrder();
		}, ORDERING);
	}

	/* The order of reading is that of the table; seldom, since a row that is moved in the document is laid out anew. */
	#inOrder() {
		let at = this.body.firstChild;

		for (const row of [ ...this.#rows.values() ].sort((a, b) => a.index - b.index)) {
			if (row.node === at)
				at = at.nextSibling;
			else if (row.node.contains(document.activeElement))
				continue; // to be moved would cost it the focus
			else
				this.body.insertBefore(row.node, at);
		}
	}

	#key(event) {
		const step = { ArrowDown: 1, ArrowUp: -1 }[event.key];
		const from = document.activeElement?.closest('.body > .row');

		if (!step || !from)
			return;

		const index = [ ...this.#rows.values() ].find(row => row.node === from).index + step;

		if (index < 0 || index >= this.#entries.length)
			return;

		event.preventDefault();

		const head = this.table.firstChild.offsetHeight;
		const top = index * this.#height;

		if (top < this.node.scrollTop)
			this.node.scrollTop = top;
		else if (top + this.#height + head > this.node.scrollTop + this.node.clientHeight)
			this.node.scrollTop = top + this.#height + head - this.node.clientHeight;

		this.refresh();
		this.#rows.get(this.#entries[index])?.link.focus({ preventScroll: true });
	}

	close() {
		clearTimeout(this.#ordering);
		this.resized.disconnect();
	}
}
