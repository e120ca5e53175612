/* What the views of history share. */
import { h } from './dom.js';
import { Refusal, why } from './api.js';

export const RANGES = [ [ 1, '24 hours' ], [ 7, '7 days' ], [ 30, '30 days' ] ];

/* The days that the address asks for. */
export function daysOf(query) {
	return RANGES.find(([ days ]) => days == query.get('days'))?.[0] ?? 7;
}

/* Links to the same view of another range. */
export function rangePicker(path, chosen, more = {}) {
	return h('nav', { class: 'ranges', 'aria-label': 'Time range' }, ...RANGES.map(([ days, words ]) =>
		h('a', { href: `#/${path}?${new URLSearchParams({ ...more, days })}`, 'aria-current': days == chosen ? 'true' : null }, words)));
}

/* Seconds of a chart's point, so that a range has about three hundred. */
export function stepOf(days) {
	return { 1: 300, 7: 1800, 30: 7200 }[days];
}

const RENEWAL = 300000; // ms

/* Loads history again from time to time, but not under somebody who is reading it by keys or pointer. Returns the interval. */
export function renewed(past, load) {
	return setInterval(() => {
		if (!document.hidden && !past.contains(document.activeElement) && !past.matches(':hover'))
			load();
	}, RENEWAL);
}

export function card(title, ...content) {
	return h('section', { class: 'card' }, h('h2', null, title), ...content);
}

/*
 * A table of `rows`; `columns`: [[heading, cell of a row, class]]. The words for none stand where there is no row.
 */
export function table(label, columns, rows, none) {
	if (!rows.length)
		return h('p', { class: 'none' }, none);

	return h('div', { class: 'wide', tabindex: 0, role: 'region', 'aria-label': label }, h('table', null,
		h('caption', { class: 'unseen' }, label),
		h('thead', null, h('tr', null, ...columns.map(([ heading, , name ]) => h('th', { scope: 'col', class: name }, heading)))),
		h('tbody', null, ...rows.map(row => h('tr', null, ...columns.map(([ , cell, name ]) => h('td', { class: name }, ...[ cell(row) ].flat())))))));
}

export function stationLink({ mac, name }) {
	return h('a', { href: `#/station/${mac}`, dir: 'auto', title: mac }, name?.trim() || mac);
}

/* "OW_STA_DEAUTH_RECV" as words; whatever else is told stays as it is. */
export function reasonWords(reason) {
	return /^OW_STA_[A-Z0-9_]+$/.test(reason) ? reason.slice(7).toLowerCase().replaceAll('_', ' ') : reason || 'not told';
}

/* Why there is no history, and a way to ask again where that can help. */
export function failure(error, again) {
	if (error instanceof Refusal && error.status == 404)
		return h('p', { class: 'empty' }, 'This collector keeps no history. Start it with --store for days and charts.');

	return h('div', { class: 'notice', role: 'alert' }, why(error), ' ', h('button', { type: 'button', onclick: again }, 'Try again'));
}
